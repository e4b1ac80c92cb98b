// SPDX-License-Identifier: MIT
#include "app/Game.h"

#include "app/Display.h"
#include "app/Hud.h"
#include "app/Match.h"
#include "app/MatchView.h"
#include "app/Menu.h"
#include "app/Screenshot.h"
#include "app/VirtualPad.h"
#include "core/DataPath.h"
#include "core/Settings.h"
#include "physics/PhysicsWorld.h"
#include "physics/Player.h"
#include "render/FontManager.h"
#include "render/ScreenBox.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Frustum.h"
#include "scene/Level.h"
#include "scene/MotionBlur.h"
#include "sound/SoundManager.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace
{
const float FIELD_OF_VIEW = 45.0f; // degrees, vertical
const float NEAR_PLANE = 0.1f;
const float FAR_PLANE = 200.0f;
// The level is shown lit this long after a match starts, then drawn flat so only paint shows.
const double LIT_MS = 3000.0;
// Just before the switch the ambient light swells, so the level flashes towards white.
const double FLASH_START_MS = 2500.0;
const float FLASH_RATE = 1.8f;                     // ambient added per second during the flash
const char* const SHIPPED_LEVEL = "fbx/level.fbx"; // inside the data tree
// A window dragged to a new size sends many sizes; the file is written once it has settled.
const uint32_t SETTLE_MS = 400;
const int MIN_WINDOW_WIDTH = 320; // pixels: smaller leaves too little to see
const int MIN_WINDOW_HEIGHT = 240;
const int MAX_WINDOW_SIZE = 16384;
// A full stick turns the view as fast as the mouse moving this many pixels a second.
const float STICK_LOOK_RATE = 30.0f;
// How far the right trigger goes down (of 32767) before it throws, and back up before it can
// throw again.
const int TRIGGER_PRESS = 16000;
const int TRIGGER_RELEASE = 8000;
// A paused match only waits for the focus to come back: no need to draw at full speed.
const uint32_t PAUSED_FRAME_MS = 30;

// The graphics switches on the function keys: on/off switches toggle, the others cycle.
struct SwitchKey
{
    int scancode;
    const char* setting;
    bool cycles;
};
const SwitchKey SWITCH_KEYS[] = {
    {SDL_SCANCODE_F1, "help", false},          {SDL_SCANCODE_F2, "framerate", false},
    {SDL_SCANCODE_F3, "wireframe", false},     {SDL_SCANCODE_F4, "texture-quality", true},
    {SDL_SCANCODE_F5, "texture-mipmap", true}, {SDL_SCANCODE_F6, "vbo", false},
    {SDL_SCANCODE_F7, "motionblur", false},    {SDL_SCANCODE_F8, "frustum", false},
    {SDL_SCANCODE_F9, "transparency", false},
};

Mat4 screenOrtho()
{
    return math::orthographic(-512.0f, 512.0f, -384.0f, 384.0f, -1000.0f, 1000.0f);
}

// SDL falls back on a video driver that shows nothing when no display answers, and the GL
// start then fails with a meaningless error; one asked for through SDL_VIDEODRIVER is kept.
bool onADisplay()
{
    const char* driver = SDL_GetCurrentVideoDriver();
    const char* asked = std::getenv("SDL_VIDEODRIVER");
    const bool invisible =
        driver && (std::strcmp(driver, "offscreen") == 0 || std::strcmp(driver, "dummy") == 0);
    return !invisible || (asked && *asked);
}
} // namespace

Game::Game() : Game(dataFile(SHIPPED_LEVEL)) {}

Game::Game(std::string levelFile)
    : levelFile(std::move(levelFile)), display(std::make_unique<Display>()),
      perspective(math::identity())
{
    SoundManager::instance();
}

Game::~Game()
{
    if (unsavedSettings)
    {
        saveSettings();
    }
    virtualPad.reset();
    gamepads.reset();
    // The game's own programs first, then what a match built, then the menu.
    matchView.reset();
    match.reset();
    hud.reset();
    menu.reset();

    // The registries, in the order later ones may still use earlier ones (one never made is
    // skipped: a failed start may have no GL context to make it with).
    FontManager::destroy();
    Frustum::destroy();
    PhysicsWorld::destroy();
    ShaderManager::destroy();
    SoundManager::destroy();
    TextureManager::destroy();
    Settings::destroy();

    closeWindow(*display);
    if (sdlStarted)
    {
        SDL_Quit();
    }
}

void Game::rememberSettings(std::string path, bool reset, float sensitivity)
{
    settingsPath = std::move(path);
    sensitivityOverride = sensitivity;
    Settings::instance().defineDefaults();
    if (!reset && !settingsPath.empty())
    {
        settingsfile::load(settingsPath, Settings::instance(), preferences);
    }
}

bool Game::init()
{
    // Audio is not required: a machine without a sound device plays silently.
    const bool started = SDL_Init(SDL_INIT_VIDEO | SDL_INIT_TIMER | SDL_INIT_EVENTS) >= 0;
    sdlStarted = started;
    if (!started || !onADisplay())
    {
        // Say which display was tried, since that is what to fix.
        const char* display = std::getenv("DISPLAY");
        const std::string which = display && *display ? std::string("DISPLAY=") + display
                                                       : std::string("DISPLAY is not set");
        std::fprintf(stderr, "[ERROR] No display could be opened (%s)%s%s\n", which.c_str(),
                     started ? "" : ": ", started ? "" : SDL_GetError());
        return false;
    }
    // Nor are gamepads: without them the game is played with the keyboard and mouse.
    if (SDL_InitSubSystem(SDL_INIT_GAMECONTROLLER) == 0)
    {
        gamepads = std::make_unique<Gamepads>();
        virtualPad = VirtualPad::fromEnvironment();
    }
    if (!openWindow(*display, preferences.windowWidth, preferences.windowHeight,
                    preferences.fullscreen))
    {
        return false;
    }
    SDL_SetWindowMinimumSize(display->window, MIN_WINDOW_WIDTH, MIN_WINDOW_HEIGHT);
    // The texture manager builds mipmaps through this entry point; take the driver's own.
    if (void* generateMipmap = SDL_GL_GetProcAddress("glGenerateMipmap"))
    {
        glGenerateMipmap = reinterpret_cast<PFNGLGENERATEMIPMAPPROC>(generateMipmap);
    }
    std::memset(keys, 0, sizeof(keys));
    perspective = math::perspective(
        FIELD_OF_VIEW, static_cast<float>(display->width) / static_cast<float>(display->height),
        NEAR_PLANE, FAR_PLANE);

    ShaderManager::instance();
    TextureManager::instance();
    FontManager::instance();

    Settings::instance().defineDefaults();

    FontManager::instance().load("bankgothic-black");
    SoundManager::instance().setVolumes(preferences.musicVolume, preferences.effectsVolume);
    SoundManager::instance().playMusic();
    menu = std::make_unique<Menu>();
    clock.reset(gameNow());
    return true;
}

double Game::gameNow() const
{
    return gameTime.at(static_cast<double>(SDL_GetTicks()));
}

void Game::endStage(const char* name)
{
    const uint64_t now = SDL_GetPerformanceCounter();
    buildStages.push_back({name, static_cast<double>(now - stageStart) * 1000.0 /
                                     static_cast<double>(SDL_GetPerformanceFrequency())});
    stageStart = now;
}

bool Game::loadMatch()
{
    buildStages.clear();
    stageStart = SDL_GetPerformanceCounter();
    match = std::make_unique<Match>(levelFile, [this](const char* stage) { endStage(stage); });
    matchView = std::make_unique<MatchView>();
    matchView->loadShaders();
    endStage("shaders");

    const bool built = match->buildLevel();
    if (built)
    {
        match->addPlayer();
    }
    endStage("player");
    hud = std::make_unique<Hud>(Vec3{-412.0f, 284.0f, 0.0f});
    endStage("hud");
    matchView->initMotionBlur();
    endStage("motion blur");

    SDL_GetRelativeMouseState(nullptr, nullptr); // forget motion collected while loading
    matchStartTicks = gameNow();
    match->addMarkerChain();
    endStage("sphere chain");
    return built;
}

void Game::run()
{
    while (handleEvents())
    {
        frame();
        if (gameTime.paused())
        {
            SDL_Delay(PAUSED_FRAME_MS);
        }
    }
}

void Game::frame()
{
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    update();
    if (state() == GameState::Playing && matchView && matchView->blurs())
    {
        renderMotionBlurFrame();
    }
    else
    {
        render();
    }
    if (screenshotRequested)
    {
        screenshotRequested = false;
        saveScreenshot(display->width, display->height, screenshotFolder());
    }
    SDL_GL_SwapWindow(display->window);
}

bool Game::handleEvents()
{
    if (virtualPad)
    {
        virtualPad->poll(); // what it sets arrives as SDL events below
    }
    SDL_Event event;
    while (SDL_PollEvent(&event))
    {
        switch (event.type)
        {
        case SDL_QUIT:
            return false;
        case SDL_KEYUP:
            if (event.key.keysym.scancode < KEY_COUNT)
            {
                keys[event.key.keysym.scancode] = 0;
            }
            break;
        case SDL_KEYDOWN:
            if (event.key.keysym.scancode == SDL_SCANCODE_ESCAPE)
            {
                return false;
            }
            if (event.key.keysym.scancode == SDL_SCANCODE_RETURN &&
                (event.key.keysym.mod & KMOD_ALT) != 0)
            {
                if (!event.key.repeat)
                {
                    toggleFullscreen();
                }
                break;
            }
            // A held key flips fullscreen or takes pictures once, not at the repeat rate.
            if (event.key.repeat && (event.key.keysym.scancode == SDL_SCANCODE_F11 ||
                                     event.key.keysym.scancode == SDL_SCANCODE_F12))
            {
                break;
            }
            pressKey(event.key.keysym.scancode);
            break;
        case SDL_MOUSEBUTTONDOWN:
            mouseButtons |= SDL_BUTTON(event.button.button);
            // Only a press of the left button alone throws; holding it throws nothing more.
            if (mouseButtons == SDL_BUTTON_LMASK)
            {
                requestThrow();
            }
            break;
        case SDL_MOUSEBUTTONUP:
            mouseButtons &= ~SDL_BUTTON(event.button.button);
            break;
        case SDL_WINDOWEVENT:
            if (event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED ||
                event.window.event == SDL_WINDOWEVENT_RESIZED)
            {
                resized();
            }
            else if (event.window.event == SDL_WINDOWEVENT_FOCUS_LOST)
            {
                focusLost();
            }
            else if (event.window.event == SDL_WINDOWEVENT_FOCUS_GAINED)
            {
                focusGained();
            }
            break;
        case SDL_CONTROLLERDEVICEADDED:
            if (gamepads)
            {
                gamepads->add(event.cdevice.which);
            }
            break;
        case SDL_CONTROLLERDEVICEREMOVED:
            if (gamepads)
            {
                gamepads->remove(event.cdevice.which);
            }
            break;
        case SDL_CONTROLLERBUTTONDOWN:
            if (!pressPadButton(event.cbutton.button))
            {
                return false;
            }
            break;
        case SDL_CONTROLLERAXISMOTION:
            if (event.caxis.axis == SDL_CONTROLLER_AXIS_TRIGGERRIGHT)
            {
                // Held down it throws once, as the mouse button does.
                if (!triggerHeld && event.caxis.value > TRIGGER_PRESS)
                {
                    triggerHeld = true;
                    requestThrow();
                }
                else if (event.caxis.value < TRIGGER_RELEASE)
                {
                    triggerHeld = false;
                }
            }
            break;
        default:
            break;
        }
    }
    if (unsavedSettings && SDL_GetTicks() - settingsChangedAt >= SETTLE_MS)
    {
        saveSettings();
    }
    return true;
}

void Game::requestThrow()
{
    if (state() == GameState::Playing && !gameTime.paused())
    {
        throwRequested = true;
    }
}

bool Game::pressPadButton(int button)
{
    switch (button)
    {
    case SDL_CONTROLLER_BUTTON_A:
        requestThrow();
        break;
    case SDL_CONTROLLER_BUTTON_BACK:
        return false; // as Escape
    case SDL_CONTROLLER_BUTTON_START:
        if (state() == GameState::Menu)
        {
            startMatch();
        }
        break;
    case SDL_CONTROLLER_BUTTON_DPAD_UP:
    case SDL_CONTROLLER_BUTTON_DPAD_DOWN:
        if (state() == GameState::Menu)
        {
            Settings::instance().step("menu-pos",
                                      button == SDL_CONTROLLER_BUTTON_DPAD_DOWN ? 1 : -1);
        }
        break;
    default:
        break;
    }
    return true;
}

void Game::resized()
{
    readDrawableSize(*display);
    glViewport(0, 0, display->width, display->height);
    perspective = math::perspective(
        FIELD_OF_VIEW, static_cast<float>(display->width) / static_cast<float>(display->height),
        NEAR_PLANE, FAR_PLANE);
    if (MotionBlur* blur = getMotionBlur())
    {
        blur->resize(display->width, display->height);
    }
    if (display->fullscreen)
    {
        return; // the window's own size is what it goes back to
    }
    int width = 0, height = 0;
    SDL_GetWindowSize(display->window, &width, &height);
    // Leaving fullscreen, the window manager may still report the desktop's size before the
    // window's own comes back: that is not a size the player chose.
    SDL_DisplayMode desktop{};
    if (SDL_GetDesktopDisplayMode(SDL_GetWindowDisplayIndex(display->window), &desktop) == 0 &&
        width == desktop.w && height == desktop.h)
    {
        return;
    }
    width = std::clamp(width, MIN_WINDOW_WIDTH, MAX_WINDOW_SIZE);
    height = std::clamp(height, MIN_WINDOW_HEIGHT, MAX_WINDOW_SIZE);
    if (width != preferences.windowWidth || height != preferences.windowHeight)
    {
        preferences.windowWidth = width;
        preferences.windowHeight = height;
        settingsChanged();
    }
}

void Game::toggleFullscreen()
{
    setFullscreen(*display, !display->fullscreen);
    if (preferences.fullscreen != display->fullscreen)
    {
        preferences.fullscreen = display->fullscreen;
        settingsChanged();
    }
}

void Game::focusLost()
{
    if (!hadFocus)
    {
        return;
    }
    SDL_SetRelativeMouseMode(SDL_FALSE);
    mouseReleased = true;
    if (state() == GameState::Playing && !gameTime.paused())
    {
        gameTime.pause(static_cast<double>(SDL_GetTicks()));
        throwRequested = false;
        if (hud)
        {
            hud->setPaused(true);
        }
        std::fprintf(stderr, "Paused at %.2f s of game time\n", gameNow() / 1000.0);
    }
}

void Game::focusGained()
{
    hadFocus = true;
    if (mouseReleased)
    {
        SDL_SetRelativeMouseMode(SDL_TRUE);
        mouseReleased = false;
    }
    if (gameTime.paused())
    {
        gameTime.resume(static_cast<double>(SDL_GetTicks()));
        // The pointer wandered while it was free: the view must not jump.
        SDL_GetRelativeMouseState(nullptr, nullptr);
        if (hud)
        {
            hud->setPaused(false);
        }
        std::fprintf(stderr, "Resumed at %.2f s of game time\n", gameNow() / 1000.0);
    }
}

void Game::settingsChanged()
{
    unsavedSettings = true;
    settingsChangedAt = SDL_GetTicks();
}

void Game::saveSettings()
{
    unsavedSettings = false;
    if (!settingsPath.empty())
    {
        settingsfile::save(settingsPath, Settings::instance(), preferences);
    }
}

void Game::pressKey(int scancode)
{
    Settings& settings = Settings::instance();
    for (const SwitchKey& key : SWITCH_KEYS)
    {
        if (key.scancode == scancode)
        {
            key.cycles ? settings.cycle(key.setting) : settings.toggle(key.setting);
            settingsChanged();
        }
    }
    if (scancode == SDL_SCANCODE_F11)
    {
        toggleFullscreen();
    }
    else if (scancode == SDL_SCANCODE_F12)
    {
        screenshotRequested = true; // of the next finished frame
    }
    else if (scancode == SDL_SCANCODE_M)
    {
        SoundManager::instance().toggleMusicMuted();
    }
    if (state() == GameState::Menu)
    {
        if (scancode == SDL_SCANCODE_DOWN || scancode == SDL_SCANCODE_UP)
        {
            settings.step("menu-pos", scancode == SDL_SCANCODE_DOWN ? 1 : -1);
        }
        else if (scancode == SDL_SCANCODE_RETURN)
        {
            startMatch();
        }
    }
    if (scancode >= 0 && scancode < KEY_COUNT)
    {
        keys[scancode] = 1;
    }
}

void Game::startMatch()
{
    showLoadingFrame();
    loadMatch(); // a match that fails to build still starts: the frame stays empty
    Settings::instance().cycle("gamestate");
}

void Game::showLoadingFrame()
{
    render();
    {
        const ScreenBoxScope box;
        FontManager::instance().draw("bankgothic-black", 0.0f, 200.0f, "loading...",
                                     FontManager::ALIGN_CENTRE);
    }
    SDL_GL_SwapWindow(display->window);
}

void Game::update()
{
    if (gameTime.paused())
    {
        return; // the world, the clock and the overlay's numbers wait
    }
    const double now = gameNow();
    const float dt = clock.tick(now);
    if (cooldown > 0.0f)
    {
        cooldown -= dt;
    }
    if (state() != GameState::Playing || !match)
    {
        return;
    }

    const double sinceStart = now - matchStartTicks;
    if (sinceStart > FLASH_START_MS && sinceStart < LIT_MS)
    {
        matchView->brighten(dt * FLASH_RATE);
    }
    seen.perspective = perspective;
    const bool fallen = match->update(dt, takeInput(dt), seen);
    throwRequested = input.throwBall;
    if (hud)
    {
        if (const Player* player = match->getPlayer())
        {
            hud->setColour(player->currentColour());
        }
        hud->setFps(static_cast<int>(clock.fps));
        // since the program started, menu included, pauses left out
        hud->setTime(static_cast<int>(now / 1000.0));
        if (const Level* level = match->getLevel())
        {
            hud->setRevealed(level->revealed());
        }
    }
    if (fallen)
    {
        Settings::instance().cycle("gamestate");
    }
}

MatchInput& Game::takeInput(float dt)
{
    input.walk = walkInput(keys);
    input.levelView = keys[SDL_SCANCODE_R] != 0;
    input.throwBall = throwRequested;
    int dx = 0, dy = 0;
    if (match->playable())
    {
        SDL_GetRelativeMouseState(&dx, &dy);
    }
    float lookX = static_cast<float>(dx);
    float lookY = static_cast<float>(dy);
    if (gamepads && !gamepads->empty())
    {
        // The keys win over a stick on the same axis.
        if (input.walk.forward == 0.0f)
        {
            input.walk.forward = gamepads->forward();
        }
        if (input.walk.strafe == 0.0f)
        {
            input.walk.strafe = gamepads->strafe();
        }
        lookX += gamepads->lookX() * STICK_LOOK_RATE * dt;
        lookY += gamepads->lookY() * STICK_LOOK_RATE * dt;
    }
    const float factor = sensitivityOverride > 0.0f ? sensitivityOverride : preferences.sensitivity;
    input.mouseX = lookX * factor;
    input.mouseY = lookY * factor * (preferences.invertY ? -1.0f : 1.0f);
    return input;
}

void Game::render()
{
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    if (state() != GameState::Playing)
    {
        ShaderManager::instance().setMatrices(seen.view, perspective, screenOrtho());
        if (menu)
        {
            const ScreenBoxScope box;
            menu->draw();
        }
        return;
    }
    drawMatch(false);
}

void Game::renderMotionBlurFrame()
{
    drawMatch(true);
}

void Game::drawMatch(bool blurred)
{
    if (!matchView)
    {
        return;
    }
    const double sinceStart = gameNow() - matchStartTicks;
    seen.perspective = perspective;
    matchView->draw(match.get(), hud.get(), seen, sinceStart < LIT_MS, blurred);
}
