// SPDX-License-Identifier: MIT
#include "app/Match.h"

#include "physics/Ball.h"
#include "physics/PhysicsWorld.h"
#include "physics/Player.h"
#include "scene/Frustum.h"
#include "scene/Level.h"
#include "import/LevelSource.h"
#include "scene/SceneNode.h"
#include "scene/Sphere.h"
#include "scene/SphereChain.h"
#include "sound/SoundManager.h"

#include <cstdio>

namespace
{
// The match ends when the eye falls below this height (the main floor is at about 3).
const float FALL_HEIGHT = 4.0f;
const float BALL_RADIUS = 0.3f;
// The orrery that marks a spot in the level.
const Vec3 CHAIN_ANCHOR{-57.0f, 5.0f, 35.0f};
const float CHAIN_RADIUS = 1.0f;
const float CHAIN_LINK_RADIUS = 0.5f;
} // namespace

Match::Match(std::string file, StageDone done)
    : levelFile(std::move(file)), stageDone(std::move(done)),
      sceneRoot(std::make_unique<SceneNode>())
{
    source = levelSourceFor(levelFile);
    PhysicsWorld::instance();
    Frustum::instance();
    stageDone("world");
}

Match::~Match()
{
    // The player's balls leave the world before the level does.
    player.reset();
    source.reset();
    level = nullptr;
    sceneRoot.reset();
    sphereChain.reset();
}

bool Match::buildLevel()
{
    const bool read = source->read(levelFile);
    stageDone("level read");
    LevelMesh mesh = read ? source->takeMesh() : LevelMesh{};
    std::printf("%d\n", mesh.vertexCount);
    std::fflush(stdout);
    stageDone("level convert");

    auto built = std::make_unique<Level>();
    built->setMesh(std::move(mesh.vertices), std::move(mesh.normals), std::move(mesh.uvs),
                   mesh.vertexCount);
    // The collision tree only reads the vertices: it builds on a second thread while the level
    // lays out its paint map and uploads.
    built->initBuffers();
    stageDone("gl upload");
    const bool physics = built->buildPhysics();
    stageDone("collision");
    if (!physics)
    {
        noMatchReason = source->error().empty() ? levelFile + " holds no triangles to walk on"
                                                : source->error();
        return false;
    }
    level = built.get();
    sceneRoot->addChild(std::move(built));
    return true;
}

void Match::addPlayer()
{
    player = std::make_unique<Player>();
    camera.position = player->eye();
    ballSphere = std::make_unique<Sphere>(Vec3{}, BALL_RADIUS, Vec4{});
}

void Match::addMarkerChain()
{
    sphereChain = std::make_unique<SphereChain>(CHAIN_ANCHOR, CHAIN_RADIUS, true);
    sphereChain->append(CHAIN_LINK_RADIUS);
}

bool Match::update(float dt, MatchInput& input, FrameView& frame)
{
    bool fallen = false;
    if (player)
    {
        // step physics
        PhysicsWorld::instance().step(dt);
        // apply paint hits: where balls struck during the step, in the order they struck; each
        // splat splashes; the player removes those balls when it moves
        for (int splats = level->paintRecordedHits(); splats > 0; --splats)
        {
            SoundManager::instance().playSplash();
        }
        // and stamp them into the paint map, before anything of the frame is drawn
        level->updatePaint();
        look(frame);
    }
    // the view frustum culls with the view the frame started with
    Frustum::instance().update(frame.perspective, frame.view);
    sceneRoot->update(dt);

    if (player)
    {
        // move the player
        movePlayer(dt, input);
        look(frame);
        // the fall check
        fallen = camera.position.y < FALL_HEIGHT && dt > 0.0f;
    }
    else if (!reportedNoMatch)
    {
        std::fprintf(stderr, "[ERROR] There is no level to play on: %s\n",
                     noMatchReason.empty() ? "the match was not built" : noMatchReason.c_str());
        reportedNoMatch = true;
    }
    if (sphereChain)
    {
        sphereChain->update(dt);
    }
    return fallen;
}

void Match::look(FrameView& frame) const
{
    frame.view = viewMatrix(camera);
    frame.previousView = camera.previousView;
    frame.eye = camera.position;
}

void Match::movePlayer(float dt, MatchInput& input)
{
    if (input.levelView)
    {
        resetOrientation(camera);
    }
    if (firstPlayingFrame)
    {
        resetOrientation(camera);
        firstPlayingFrame = false;
        return;
    }
    const Vec3 before = camera.position;
    move(camera, dt, input.walk.forward, input.walk.strafe, input.mouseX, input.mouseY);
    player->update(dt, camera.position.x - before.x, camera.position.z - before.z);
    camera.position = player->eye();
    if (input.throwBall)
    {
        if (player->canThrow())
        {
            SoundManager::instance().playShot();
            player->throwBall(camera.viewDirection());
        }
        input.throwBall = false;
    }
}

void Match::drawWorld(Shader* shader)
{
    sceneRoot->draw(shader);
}

void Match::drawSpheres(Shader* shader)
{
    if (player)
    {
        for (const auto& ball : player->getBalls())
        {
            ballSphere->model = math::translate(math::identity(), ball->shownAt);
            ballSphere->color = ball->colour;
            ballSphere->draw(shader);
        }
    }
    if (sphereChain)
    {
        sphereChain->draw(shader);
    }
}
