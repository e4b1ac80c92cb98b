// SPDX-License-Identifier: MIT
#pragma once

#include "app/FrameView.h"
#include "core/Math.h"

#include <map>
#include <memory>
#include <string>

class Hud;
class Match;
class MotionBlur;
class Shader;

// How a match is drawn: the level lit or flat with its paint, the balls and the marker chain,
// through the motion-blur targets when that switch is on, and the HUD on top. Keeps the game's
// own programs, the light and the blur targets. Needs a GL context.
class MatchView
{
public:
    MatchView();
    ~MatchView();
    MatchView(const MatchView&) = delete;
    MatchView& operator=(const MatchView&) = delete;

    // The game's own programs ("minimal_nolight", "minimal", "unicolor", "mbpreprocess",
    // "mbpostprocess"). "minimal" and "unicolor" also live in the shader registry, as separate GL
    // programs; drawing the world goes through these.
    void loadShaders();
    // Builds the motion-blur render targets.
    void initMotionBlur();
    // Raises the ambient light by AMOUNT: the lit level flashes towards white before it turns flat.
    void brighten(float amount);

    // Draws one playing frame of MATCH seen through FRAME, with the HUD; LIT while the level is
    // still shown lit. BLURRED goes through the motion-blur targets: screen motion,
    // colours, then the two blended into the window with the overlay on top; after a
    // framebuffer failure that draws nothing, and later frames are drawn the ordinary way.
    void draw(Match* match, Hud* hud, const FrameView& frame, bool lit, bool blurred);
    // Whether frames should go through the blur targets now.
    bool blurs() const;

    MotionBlur* getMotionBlur() const { return motionBlur.get(); }

private:
    void renderPlaying(bool lit);
    void renderMotionBlurFrame();
    // The screen motion and the colours blended into the window.
    void composite();
    // Binds one of the game's own programs with the frame's matrices; null when it is missing.
    Shader* bindOwn(const char* name);
    // The balls and the marker chain, drawn flat with SHADER.
    void drawSpheres(Shader* shader);
    // The HUD over the finished picture, without depth.
    void drawOverlay();

    std::map<std::string, std::unique_ptr<Shader>> shaders;
    std::unique_ptr<MotionBlur> motionBlur;
    Vec4 lightPosition{0.0f, 10.0f, 10.0f, 1.0f};
    Vec4 lightColor{1.0f, 1.0f, 1.0f, 1.0f};
    Vec4 ambientColor{0.1f, 0.1f, 0.1f, 1.0f}; // raised just before the level turns flat

    // What the frame being drawn shows; set by draw().
    Match* match = nullptr;
    Hud* hud = nullptr;
    const FrameView* frame = nullptr;
};
