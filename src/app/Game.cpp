// SPDX-License-Identifier: MIT
#include "app/Game.h"

#include "app/Display.h"
#include "app/Hud.h"
#include "app/Match.h"
#include "app/MatchView.h"
#include "app/Menu.h"
#include "core/DataPath.h"
#include "core/Settings.h"
#include "physics/PhysicsWorld.h"
#include "physics/Player.h"
#include "render/FontManager.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Frustum.h"
#include "scene/Level.h"
#include "scene/MotionBlur.h"
#include "sound/SoundManager.h"

#include <GL/glew.h>
#include <SDL.h>

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
    if (!openWindow(*display))
    {
        return false;
    }
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
    SoundManager::instance().playMusic();
    menu = std::make_unique<Menu>();
    clock.reset(static_cast<double>(SDL_GetTicks()));
    return true;
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
    matchStartTicks = static_cast<double>(SDL_GetTicks());
    match->addMarkerChain();
    endStage("sphere chain");
    return built;
}

void Game::run()
{
    while (handleEvents())
    {
        frame();
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
    SDL_GL_SwapWindow(display->window);
}

bool Game::handleEvents()
{
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
            pressKey(event.key.keysym.scancode);
            break;
        case SDL_MOUSEBUTTONDOWN:
            mouseButtons |= SDL_BUTTON(event.button.button);
            // Only a press of the left button alone throws; holding it throws nothing more.
            if (mouseButtons == SDL_BUTTON_LMASK && state() == GameState::Playing)
            {
                throwRequested = true;
            }
            break;
        case SDL_MOUSEBUTTONUP:
            mouseButtons &= ~SDL_BUTTON(event.button.button);
            break;
        case SDL_WINDOWEVENT:
            if (event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED ||
                event.window.event == SDL_WINDOWEVENT_RESIZED)
            {
                const int height = event.window.data2 > 0 ? event.window.data2 : 1;
                glViewport(0, 0, event.window.data1, height);
            }
            break;
        default:
            break;
        }
    }
    return true;
}

void Game::pressKey(int scancode)
{
    Settings& settings = Settings::instance();
    for (const SwitchKey& key : SWITCH_KEYS)
    {
        if (key.scancode == scancode)
        {
            key.cycles ? settings.cycle(key.setting) : settings.toggle(key.setting);
        }
    }
    if (state() == GameState::Menu)
    {
        if (scancode == SDL_SCANCODE_DOWN || scancode == SDL_SCANCODE_UP)
        {
            settings.step("menu-pos", scancode == SDL_SCANCODE_DOWN ? 1 : -1);
        }
        else if (scancode == SDL_SCANCODE_RETURN)
        {
            showLoadingFrame();
            loadMatch(); // a match that fails to build still starts: the frame stays empty
            settings.cycle("gamestate");
        }
    }
    if (scancode >= 0 && scancode < KEY_COUNT)
    {
        keys[scancode] = 1;
    }
}

void Game::showLoadingFrame()
{
    render();
    FontManager::instance().draw("bankgothic-black", 0.0f, 200.0f, "loading...",
                                 FontManager::ALIGN_CENTRE);
    SDL_GL_SwapWindow(display->window);
}

void Game::update()
{
    const double now = static_cast<double>(SDL_GetTicks());
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
    const bool fallen = match->update(dt, takeInput(), seen);
    throwRequested = input.throwBall;
    if (hud)
    {
        if (const Player* player = match->getPlayer())
        {
            hud->setColour(player->currentColour());
        }
        hud->setFps(static_cast<int>(clock.fps));
        hud->setTime(static_cast<int>(now / 1000.0)); // since the program started, menu included
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

MatchInput& Game::takeInput()
{
    input.walk = walkInput(keys);
    input.levelView = keys[SDL_SCANCODE_R] != 0;
    input.throwBall = throwRequested;
    int dx = 0, dy = 0;
    if (match->playable())
    {
        SDL_GetRelativeMouseState(&dx, &dy);
    }
    input.mouseX = static_cast<float>(dx);
    input.mouseY = static_cast<float>(dy);
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
    const double sinceStart = static_cast<double>(SDL_GetTicks()) - matchStartTicks;
    seen.perspective = perspective;
    matchView->draw(match.get(), hud.get(), seen, sinceStart < LIT_MS, blurred);
}
