// SPDX-License-Identifier: MIT
#include "app/Hud.h"

#include "core/Settings.h"
#include "render/FontManager.h"
#include "render/ShaderManager.h"
#include "scene/Sphere.h"

namespace
{
const char* const FONT = "bankgothic-black-small";

// Only the disc's upper cap reaches into the screen.
const Vec3 SWATCH_CENTRE{0.0f, -500.0f, 0.0f};
const float SWATCH_RADIUS = 200.0f;

const char* const PAUSE_FONT = "bankgothic-black"; // loaded by the game at start
const float STATS_X = -500.0f;
const float LABEL_Y = -365.0f; // text space: y grows downwards from the top edge at -384
const float VALUE_Y = -349.0f;

const char* onOff(const char* key)
{
    return Settings::instance().getBool(key) ? "on" : "off";
}

// The name of the current value of a cycling setting; null for a value outside VALUES.
template <int N> const char* cycleName(const char* key, const char* const (&values)[N])
{
    const int value = Settings::instance().getInt(key);
    return value >= 0 && value < N ? values[value] : nullptr;
}

const char* const QUALITY_NAMES[] = {"nearest neighbour", "linear"};
// "neigbour" here is the spelling the overlay has always shown; keep it.
const char* const MIPMAP_NAMES[] = {"off", "nearest neigbour", "linear"};
} // namespace

Hud::Hud(Vec3 position)
    : position(position),
      swatch(std::make_unique<Sphere>(SWATCH_CENTRE, SWATCH_RADIUS, Vec4{1.0f, 1.0f, 1.0f, 1.0f}))
{
    FontManager::instance().load(FONT);
}

Hud::~Hud() = default;

void Hud::setFps(int framesPerSecond)
{
    fpsText = std::to_string(framesPerSecond) + " fps";
}

void Hud::setTime(int seconds)
{
    timeText = std::to_string(seconds) + " sec";
}

void Hud::setRevealed(float share)
{
    const int percent = static_cast<int>(share * 100.0f);
    revealedText = "revealed " + std::to_string(percent < 0 ? 0 : percent > 100 ? 100 : percent) + "%";
}

void Hud::setColour(const float* rgba)
{
    swatch->color = {rgba[0], rgba[1], rgba[2], rgba[3]};
}

const Vec4& Hud::getColour() const
{
    return swatch->color;
}

void Hud::draw()
{
    if (Shader* shader = ShaderManager::instance().use("unicolor-hud"))
    {
        swatch->draw(shader);
    }
    Settings& settings = Settings::instance();
    if (settings.getBool("framerate"))
    {
        FontManager& fonts = FontManager::instance();
        fonts.draw(FONT, STATS_X, LABEL_Y, "framerate: " + fpsText, FontManager::ALIGN_LEFT);
        fonts.draw(FONT, STATS_X, VALUE_Y, "game time: " + timeText, FontManager::ALIGN_LEFT);
        if (!revealedText.empty())
        {
            fonts.draw(FONT, STATS_X, VALUE_Y + (VALUE_Y - LABEL_Y), revealedText,
                       FontManager::ALIGN_LEFT);
        }
    }
    if (settings.getBool("help"))
    {
        drawHelp();
    }
    if (paused)
    {
        FontManager::instance().draw(PAUSE_FONT, 0.0f, 0.0f, "paused", FontManager::ALIGN_CENTRE);
    }
}

void Hud::drawHelp()
{
    const struct
    {
        float x;
        const char* label;
        const char* value; // null draws no value
    } columns[] = {
        {-280.0f, "texture quality", cycleName("texture-quality", QUALITY_NAMES)},
        {-110.0f, "mipmap filter", cycleName("texture-mipmap", MIPMAP_NAMES)},
        {30.0f, "vbo", onOff("vbo")},
        {150.0f, "motion blur", onOff("motionblur")},
        {300.0f, "view frustum culling", onOff("frustum")},
        {450.0f, "transparency", onOff("transparency")},
    };
    FontManager& fonts = FontManager::instance();
    for (const auto& column : columns)
    {
        fonts.draw(FONT, column.x, LABEL_Y, column.label, FontManager::ALIGN_CENTRE);
        if (column.value)
        {
            fonts.draw(FONT, column.x, VALUE_Y, column.value, FontManager::ALIGN_CENTRE);
        }
    }
}
