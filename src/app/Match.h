// SPDX-License-Identifier: MIT
#pragma once

#include "app/Camera.h"
#include "app/FrameView.h"
#include "core/Math.h"

#include <functional>
#include <memory>
#include <string>

class Level;
class LevelSource;
class Player;
class SceneNode;
class Shader;
class Sphere;
class SphereChain;

// What the player asks of one playing frame.
struct MatchInput
{
    WalkInput walk;
    float mouseX = 0.0f; // pixels moved since the last frame
    float mouseY = 0.0f;
    bool levelView = false; // R is held
    // A left press alone since the last frame; cleared once the frame has handled it.
    bool throwBall = false;
};

// Everything one match creates, the scene (with the level and its paint), the player and the
// camera, the marker chain, and how a playing frame moves them. The game around it keeps the
// window, the menu and the drawing passes. Needs a GL context.
class Match
{
public:
    // Tells how long each part of the build took, by name, as each is done.
    using StageDone = std::function<void(const char* stage)>;

    // Starts the physics world and the view frustum for a match on LEVEL_FILE; the level, the
    // player and the chain follow with the calls below, in that order.
    Match(std::string levelFile, StageDone stageDone);
    ~Match();
    Match(const Match&) = delete;
    Match& operator=(const Match&) = delete;

    // Reads the level file and builds the level with its collision; false when the file gave
    // nothing to walk on. The match is then played without a level (see playable()).
    bool buildLevel();
    // The player and the camera at the start; only on a level that was built.
    void addPlayer();
    void addMarkerChain();

    bool playable() const { return player != nullptr; }

    // One playing frame. FRAME is brought up to date from the camera once the player has moved
    // (its perspective is the caller's); the view frustum is given the view the frame started
    // with. True when the player fell off the level.
    bool update(float dt, MatchInput& input, FrameView& frame);

    // The level with its paint, drawn with SHADER (which the caller has bound).
    void drawWorld(Shader* shader);
    // The balls and the marker chain, drawn flat with SHADER.
    void drawSpheres(Shader* shader);

    Camera* getCamera() { return player ? &camera : nullptr; }
    Player* getPlayer() const { return player.get(); }
    Level* getLevel() const { return level; }

private:
    // Turns and walks the camera, carries the body along and throws.
    void movePlayer(float dt, MatchInput& input);
    // FRAME's view, previous view and eye from the camera.
    void look(FrameView& frame) const;

    std::string levelFile;
    StageDone stageDone;
    std::unique_ptr<LevelSource> source;
    std::unique_ptr<SceneNode> sceneRoot;
    Level* level = nullptr; // owned by sceneRoot
    std::unique_ptr<Player> player;
    Camera camera;
    std::unique_ptr<Sphere> ballSphere; // every ball is drawn with it, moved and tinted
    std::unique_ptr<SphereChain> sphereChain;
    bool firstPlayingFrame = true; // the first frame only levels the view
    std::string noMatchReason;     // why there is nothing to play on
    bool reportedNoMatch = false;
};
