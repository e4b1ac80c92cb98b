#include "app/Game.h"

#include "app/Hud.h"
#include "app/Match.h"
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
#include <cstring>
#include <utility>

namespace
{
const int WINDOW_WIDTH = 1024;
const int WINDOW_HEIGHT = 768;
const float FIELD_OF_VIEW = 45.0f; // degrees, vertical
const float NEAR_PLANE = 0.1f;
const float FAR_PLANE = 200.0f;
// The level is shown lit this long after a match starts, then drawn flat so only paint shows.
const double LIT_MS = 3000.0;
// Just before the switch the ambient light swells, so the level flashes towards white.
const double FLASH_START_MS = 2500.0;
const float FLASH_RATE = 1.8f; // ambient added per second during the flash
// The compatibility resize event of the old SDL interface; createWindow queues one so the first
// pass of the event handler sets the viewport.
const Uint32 RESIZE_EVENT = SDL_WINDOWEVENT;
const char* const SHIPPED_LEVEL = "fbx/level.fbx"; // inside the data tree

// The programs the game keeps in its own map, next to the shared registry.
const char* const OWN_PROGRAMS[] = {"minimal_nolight", "minimal", "unicolor", "mbpreprocess",
                                    "mbpostprocess"};

Mat4 screenOrtho()
{
    return math::orthographic(-512.0f, 512.0f, -384.0f, 384.0f, -1000.0f, 1000.0f);
}
} // namespace

Game::Game() : Game(dataFile(SHIPPED_LEVEL)) {}

Game::Game(std::string levelFile)
    : levelFile(std::move(levelFile)), display(std::make_unique<Display>()),
      perspective(math::identity()), view(math::identity())
{
    SoundManager::instance();
}

Game::~Game()
{
    // The game's own programs first, then what a match built, then the menu.
    shaders.clear();
    motionBlur.reset();
    match.reset();
    hud.reset();
    menu.reset();

    // The registries, in the order later ones may still use earlier ones. A registry that was
    // never created is skipped: building one just to delete it would need a GL context that a
    // failed start may not have.
    if (FontManager::exists())
    {
        FontManager::destroy();
    }
    Frustum::destroy();
    if (PhysicsWorld::exists())
    {
        PhysicsWorld::destroy();
    }
    if (ShaderManager::exists())
    {
        ShaderManager::destroy();
    }
    SoundManager::destroy();
    if (TextureManager::exists())
    {
        TextureManager::destroy();
    }
    Settings::destroy();

    if (display->context)
    {
        SDL_GL_DeleteContext(display->context);
    }
    if (display->window)
    {
        SDL_DestroyWindow(display->window);
    }
    if (sdlStarted)
    {
        SDL_Quit();
    }
}

bool Game::init()
{
    // Audio is not required: a machine without a sound device plays silently.
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_TIMER | SDL_INIT_EVENTS) < 0)
    {
        return false;
    }
    sdlStarted = true;
    if (!createWindow())
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

bool Game::createWindow()
{
    display->width = WINDOW_WIDTH;
    display->height = WINDOW_HEIGHT;
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 2);
    // Without a profile Linux hands out a core context, where drawing from client arrays (the
    // "vbo" switch off) is illegal.
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_COMPATIBILITY);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 24);
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 1);

    display->window =
        SDL_CreateWindow("Blotch", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, WINDOW_WIDTH,
                         WINDOW_HEIGHT, SDL_WINDOW_OPENGL | SDL_WINDOW_SHOWN);
    if (!display->window)
    {
        return false;
    }
    display->context = SDL_GL_CreateContext(display->window);
    if (!display->context)
    {
        std::fprintf(stderr, "[ERROR] Could not create an OpenGL 3.2 context: %s\n",
                     SDL_GetError());
        return false;
    }
    SDL_GL_SetSwapInterval(1);

    glewExperimental = GL_TRUE;
    const GLenum glewResult = glewInit();
    if (glewResult != GLEW_OK)
    {
        std::fprintf(stderr, "[ERROR] Failed to initialize GLEW: '%s'\n",
                     reinterpret_cast<const char*>(glewGetErrorString(glewResult)));
        return false;
    }
    glGetError(); // glewInit may leave an error behind on some drivers

    glEnable(GL_CULL_FACE);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glViewport(0, 0, WINDOW_WIDTH, WINDOW_HEIGHT);
    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);

    SDL_Event resize{};
    resize.type = RESIZE_EVENT;
    resize.window.event = SDL_WINDOWEVENT_SIZE_CHANGED;
    resize.window.windowID = SDL_GetWindowID(display->window);
    resize.window.data1 = WINDOW_WIDTH;
    resize.window.data2 = WINDOW_HEIGHT;
    SDL_PushEvent(&resize);

    SDL_SetRelativeMouseMode(SDL_TRUE);
    return true;
}

void Game::loadOwnShaders()
{
    for (const char* name : OWN_PROGRAMS)
    {
        shaders[name] = std::make_unique<Shader>(name);
    }
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
    loadOwnShaders();
    endStage("shaders");

    const bool built = match->buildLevel();
    if (built)
    {
        match->addPlayer();
    }
    endStage("player");
    hud = std::make_unique<Hud>(Vec3{-412.0f, 284.0f, 0.0f});
    endStage("hud");
    initMotionBlur();
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
    if (state() == GameState::Playing && Settings::instance().getBool("motionblur") && motionBlur &&
        motionBlur->ready())
    {
        renderMotionBlurFrame();
    }
    else
    {
        render();
    }
    SDL_GL_SwapWindow(display->window);
}

void Game::initMotionBlur()
{
    motionBlur = std::make_unique<MotionBlur>();
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
    switch (scancode)
    {
    case SDL_SCANCODE_F1:
        settings.toggle("help");
        break;
    case SDL_SCANCODE_F2:
        settings.toggle("framerate");
        break;
    case SDL_SCANCODE_F3:
        settings.toggle("wireframe");
        break;
    case SDL_SCANCODE_F4:
        settings.cycle("texture-quality");
        break;
    case SDL_SCANCODE_F5:
        settings.cycle("texture-mipmap");
        break;
    case SDL_SCANCODE_F6:
        settings.toggle("vbo");
        break;
    case SDL_SCANCODE_F7:
        settings.toggle("motionblur");
        break;
    case SDL_SCANCODE_F8:
        settings.toggle("frustum");
        break;
    case SDL_SCANCODE_F9:
        settings.toggle("transparency");
        break;
    default:
        break;
    }

    if (state() == GameState::Menu)
    {
        switch (scancode)
        {
        case SDL_SCANCODE_DOWN:
            settings.step("menu-pos", 1);
            break;
        case SDL_SCANCODE_UP:
            settings.step("menu-pos", -1);
            break;
        case SDL_SCANCODE_RETURN:
            showLoadingFrame();
            loadMatch(); // a match that fails to build still starts: the frame stays empty
            settings.cycle("gamestate");
            break;
        default:
            break;
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
        const float rise = dt * FLASH_RATE;
        ambientColor = {ambientColor.x + rise, ambientColor.y + rise, ambientColor.z + rise,
                        ambientColor.w + rise};
    }
    const bool fallen = match->update(dt, takeInput(), perspective, view);
    throwRequested = input.throwBall;
    if (hud)
    {
        if (const Player* player = match->getPlayer())
        {
            hud->setColour(player->currentColour());
        }
        hud->setFps(static_cast<int>(clock.fps));
        hud->setTime(static_cast<int>(now / 1000.0)); // since the program started, menu included
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
        ShaderManager::instance().setMatrices(view, perspective, screenOrtho());
        if (menu)
        {
            menu->draw();
        }
        return;
    }
    renderPlaying();
}

Shader* Game::bindOwn(const char* name)
{
    const auto it = shaders.find(name);
    glUseProgram(0);
    if (it == shaders.end() || !it->second)
    {
        return nullptr;
    }
    Shader* shader = it->second.get();
    glUseProgram(shader->getProgram());
    shader->setMatrix("perspective", perspective);
    shader->setMatrix("view", view);
    return shader;
}

void Game::renderPlaying()
{
    const bool wireframe = Settings::instance().getBool("wireframe");
    glPolygonMode(GL_FRONT_AND_BACK, wireframe ? GL_LINE : GL_FILL);
    if (const Camera* camera = match ? match->getCamera() : nullptr)
    {
        view = viewMatrix(*camera);
    }
    ShaderManager::instance().setMatrices(view, perspective, screenOrtho());

    const double sinceStart = static_cast<double>(SDL_GetTicks()) - matchStartTicks;
    const bool lit = sinceStart < LIT_MS;
    if (Shader* world = bindOwn(lit ? "minimal" : "unicolor"))
    {
        if (lit)
        {
            world->setVec3("light_position", &lightPosition.x);
            world->setVec4("light_color", &lightColor.x);
            world->setVec4("ambient_color", &ambientColor.x);
        }
        if (match)
        {
            match->drawWorld(world);
        }
    }
    drawSpheres(bindOwn("unicolor"));
    glUseProgram(0);
    drawOverlay();
}

void Game::drawOverlay()
{
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    if (hud)
    {
        hud->draw();
    }
    glDepthMask(GL_TRUE);
    glEnable(GL_DEPTH_TEST);
}

void Game::drawSpheres(Shader* shader)
{
    if (!shader)
    {
        return;
    }
    if (match)
    {
        match->drawSpheres(shader);
    }
}

void Game::renderMotionBlurFrame()
{
    const bool wireframe = Settings::instance().getBool("wireframe");
    Mat4 previousView = view;
    if (const Camera* camera = match ? match->getCamera() : nullptr)
    {
        view = viewMatrix(*camera);
        previousView = camera->previousView;
    }
    ShaderManager::instance().setMatrices(view, perspective, screenOrtho());

    // Where each pixel of the world moved since the last frame.
    if (!motionBlur->attach("motionblur1", true))
    {
        glUseProgram(0);
        return;
    }
    glPolygonMode(GL_FRONT_AND_BACK, wireframe ? GL_LINE : GL_FILL);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    if (Shader* motion = bindOwn("mbpreprocess"))
    {
        motion->setMatrix("preview", previousView);
        glDrawBuffer(GL_COLOR_ATTACHMENT0);
        if (match)
        {
            match->drawWorld(motion);
        }
    }

    // The colours, flat, with the paint and the spheres.
    motionBlur->attach("motionblur2", false);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    if (Shader* flat = bindOwn("unicolor"))
    {
        glDrawBuffer(GL_COLOR_ATTACHMENT0);
        glActiveTexture(GL_TEXTURE0);
        if (match)
        {
            match->drawWorld(flat);
        }
    }
    // Drawing the paint switches programs, so "unicolor" is bound again.
    drawSpheres(bindOwn("unicolor"));
    glUseProgram(0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDrawBuffer(GL_BACK);

    // Both blended into the window: the quad is always filled.
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    if (Shader* composite = bindOwn("mbpostprocess"))
    {
        motionBlur->composite(composite);
    }
    glUseProgram(0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GL_TEXTURE0);

    glPolygonMode(GL_FRONT_AND_BACK, wireframe ? GL_LINE : GL_FILL);
    drawOverlay();
}
