// SPDX-License-Identifier: MIT
#include "app/MatchView.h"

#include "app/Hud.h"
#include "app/Match.h"
#include "core/Settings.h"
#include "render/ScreenBox.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "scene/MotionBlur.h"

#include <GL/glew.h>

namespace
{
// The programs the game keeps in its own map, next to the shared registry.
const char* const OWN_PROGRAMS[] = {"minimal_nolight", "minimal", "unicolor", "mbpreprocess",
                                    "mbpostprocess"};

Mat4 screenOrtho()
{
    return math::orthographic(-512.0f, 512.0f, -384.0f, 384.0f, -1000.0f, 1000.0f);
}
} // namespace

MatchView::MatchView() = default;
MatchView::~MatchView()
{
    shaders.clear();
    motionBlur.reset();
}

void MatchView::brighten(float amount)
{
    ambientColor = {ambientColor.x + amount, ambientColor.y + amount, ambientColor.z + amount,
                    ambientColor.w + amount};
}

bool MatchView::blurs() const
{
    return Settings::instance().getBool("motionblur") && motionBlur && motionBlur->ready();
}

void MatchView::draw(Match* playing, Hud* overlay, const FrameView& seen, bool lit, bool blurred)
{
    match = playing;
    hud = overlay;
    frame = &seen;
    if (blurred)
    {
        renderMotionBlurFrame();
    }
    else
    {
        renderPlaying(lit);
    }
}

void MatchView::loadShaders()
{
    for (const char* name : OWN_PROGRAMS)
    {
        shaders[name] = std::make_unique<Shader>(name);
    }
}

void MatchView::initMotionBlur()
{
    motionBlur = std::make_unique<MotionBlur>();
}

Shader* MatchView::bindOwn(const char* name)
{
    const auto it = shaders.find(name);
    glUseProgram(0);
    if (it == shaders.end() || !it->second || !it->second->isLinked())
    {
        return nullptr;
    }
    Shader* shader = it->second.get();
    glUseProgram(shader->getProgram());
    shader->setMatrix("perspective", frame->perspective);
    shader->setMatrix("view", frame->view);
    return shader;
}

void MatchView::renderPlaying(bool lit)
{
    const bool wireframe = Settings::instance().getBool("wireframe");
    glPolygonMode(GL_FRONT_AND_BACK, wireframe ? GL_LINE : GL_FILL);
    ShaderManager::instance().setMatrices(frame->view, frame->perspective, screenOrtho());

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

void MatchView::drawOverlay()
{
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    if (hud)
    {
        const ScreenBoxScope box; // laid out for 1024 x 768, scaled to fit the window
        hud->draw();
    }
    glDepthMask(GL_TRUE);
    glEnable(GL_DEPTH_TEST);
}

void MatchView::drawSpheres(Shader* shader)
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

void MatchView::renderMotionBlurFrame()
{
    const bool wireframe = Settings::instance().getBool("wireframe");
    ShaderManager::instance().setMatrices(frame->view, frame->perspective, screenOrtho());

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
        motion->setMatrix("preview", frame->previousView);
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

    composite();
    glPolygonMode(GL_FRONT_AND_BACK, wireframe ? GL_LINE : GL_FILL);
    drawOverlay();
}

void MatchView::composite()
{
    // Both blended into the window: the quad is always filled.
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    if (Shader* blend = bindOwn("mbpostprocess"))
    {
        motionBlur->composite(blend);
    }
    glUseProgram(0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GL_TEXTURE0);
}
