// SPDX-License-Identifier: MIT
#pragma once

#include "app/Display.h"
#include "app/FrameClock.h"
#include "app/FrameView.h"
#include "app/GameState.h"
#include "app/Gamepads.h"
#include "app/Match.h"
#include "app/MatchView.h"
#include "core/Math.h"
#include "core/Settings.h"
#include "core/SettingsFile.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class Hud;
class Level;
class Menu;
class MotionBlur;
class Player;
class Shader;
class VirtualPad;
union SDL_Event;

// One step of building a match and how long it took.
struct BuildStage
{
    const char* name; // "level read", "gl upload", ...
    double ms;        // wall time
};

// The game: one window, one GL context, one thread. main() builds it, calls init(), runs the
// loop while init() succeeded, and destroys it on every path. Building a match borrows helper
// threads and is done with all of them before it returns.
class Game
{
public:
    static constexpr int KEY_COUNT = 512; // one slot per SDL scancode

    // Plays the shipped level, fbx/level.fbx in the data tree.
    Game();
    // Plays LEVELFILE (an FBX file, read when the match is built) instead of the shipped level.
    explicit Game(std::string levelFile);
    // Tears down whatever init() and loadMatch() built, in reverse dependency order; safe on a
    // partly built game.
    ~Game();
    Game(const Game&) = delete;
    Game& operator=(const Game&) = delete;

    // Before init(): the settings are read from PATH (unless RESET) and written back to it
    // whenever one changes. SENSITIVITY, when above 0, is this run's mouse factor. Without this
    // call the game runs on the defaults and writes nothing.
    void rememberSettings(std::string path, bool reset, float sensitivity);

    // SDL, the window and GL context, GLEW, the registries, the settings, the menu. False when
    // there is no usable display or GL 3.2 context.
    bool init();
    // The main loop: until the window is closed or Escape is pressed.
    void run();
    // Builds the playing world; called when the player confirms the menu. False when the level
    // could not be built: the game still enters the playing state and shows an empty frame.
    bool loadMatch();

    // Drains the SDL event queue. False means quit; events behind the quitting one stay queued.
    bool handleEvents();
    // One frame of time: the clock, and in the playing state the world.
    void update();
    // Draws the current state into the back buffer.
    void render();
    // The playing frame through the motion-blur targets: screen motion, colours, then the two
    // blended into the window with the overlay on top. After a framebuffer failure it draws
    // nothing that frame, and later frames are drawn the ordinary way.
    void renderMotionBlurFrame();
    // One whole frame as the loop runs it: clear, update, render, swap.
    void frame();

    const Display& getDisplay() const { return *display; }
    bool isKeyDown(int scancode) const { return keys[scancode] != 0; }
    const FrameClock& getClock() const { return clock; }
    const Mat4& getPerspective() const { return perspective; }
    // What the playing frame is seen through, as the last update left it.
    FrameView& getFrameView() { return seen; }
    const Preferences& getPreferences() const { return preferences; }
    bool isPaused() const { return gameTime.paused(); }
    bool hasMatch() const { return match && match->playable(); }
    Player* getPlayer() const { return match ? match->getPlayer() : nullptr; }
    Camera* getCamera() const { return match ? match->getCamera() : nullptr; }
    Hud* getHud() const { return hud.get(); }
    Level* getLevel() const { return match ? match->getLevel() : nullptr; }
    MotionBlur* getMotionBlur() const { return matchView ? matchView->getMotionBlur() : nullptr; }
    // The steps of the last loadMatch() in the order they ran; together they take all of it.
    const std::vector<BuildStage>& getBuildStages() const { return buildStages; }

private:
    // What a key press does, whatever the state.
    void pressKey(int scancode);
    // Shows the menu with "loading..." over it, so the player sees something while the level
    // builds.
    void showLoadingFrame();
    // The playing frame, BLURRED through the motion-blur targets or not.
    void drawMatch(bool blurred);
    // Return in the menu: shows "loading...", builds the match and starts playing it.
    void startMatch();
    // A gamepad button pressed; false when it asks to quit.
    bool pressPadButton(int button);
    // A left press alone, the A button or the right trigger: one ball.
    void requestThrow();
    // The window's drawable size changed: the viewport, the perspective and the blur targets
    // follow it, and a window's new size is remembered.
    void resized();
    void toggleFullscreen();
    // Losing the focus the window had releases the mouse and pauses a match; getting it back
    // lets the match run on from where it stopped.
    void focusLost();
    void focusGained();
    // Marks the remembered settings as changed; they are written once they settle.
    void settingsChanged();
    void saveSettings();
    // The game time now (ms): the tick count less the time spent paused.
    double gameNow() const;
    // The keys, the mouse and stick motion and the throw asked for since the last playing frame.
    MatchInput& takeInput(float dt);
    GameState state() const { return gameState(); }
    // Closes the build stage that ran since the previous one (or since loadMatch began).
    void endStage(const char* name);

    std::string levelFile;
    std::vector<BuildStage> buildStages;
    uint64_t stageStart = 0; // performance counter ticks
    std::unique_ptr<Display> display;
    uint8_t keys[KEY_COUNT] = {};
    FrameClock clock;
    double matchStartTicks = 0.0; // ms, tick count when the match was loaded
    float cooldown = 0.0f;        // seconds; counts down while positive and nothing arms it
    std::unique_ptr<Match> match; // what the last Return built
    MatchInput input;
    std::unique_ptr<Hud> hud;
    std::unique_ptr<Menu> menu;
    std::unique_ptr<MatchView> matchView; // how the match is drawn
    uint32_t mouseButtons = 0;            // held buttons, from the press and release events
    bool throwRequested = false;          // a left press alone since the last frame
    bool triggerHeld = false;             // the right trigger is pressed past its throw point

    // The desktop side: remembered settings, pads, pausing and screenshots.
    Preferences preferences;
    std::string settingsPath;         // empty: nothing is read or written
    float sensitivityOverride = 0.0f; // from the command line; 0: the remembered one
    bool unsavedSettings = false;
    uint32_t settingsChangedAt = 0; // SDL ticks of the last change not yet written
    std::unique_ptr<Gamepads> gamepads;
    std::unique_ptr<VirtualPad> virtualPad;
    GameTime gameTime;
    bool hadFocus = false;      // a window that never had the focus never pauses
    bool mouseReleased = false; // by a loss of focus
    bool screenshotRequested = false;

    // Render globals.
    Mat4 perspective;
    FrameView seen; // what the playing frame is seen through

    bool sdlStarted = false;
};
