// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"
#include "scene/Sphere.h"

#include <memory>

class Shader;

// A little orrery that marks a spot in the level: each link circles the centre of the one before
// it at distance 2 without spinning about itself. Kept outside the scene tree; needs a GL context.
class SphereChain
{
public:
    SphereChain(Vec3 position, float radius, bool reversed);

    // Appends a link of RADIUS to the end of the chain; its position follows the link before it.
    SphereChain* append(float radius);
    void update(float dt);
    void draw(Shader* shader);

    Mat4 model = math::identity();
    Vec3 position;
    int angle = 0; // in the game's turn unit (see math::axisAngle)
    std::unique_ptr<SphereChain> next;
    float radius;
    bool reversed; // flips the sense of both turns
    Vec4 color{0.0f, 1.0f, 1.0f, 1.0f};

private:
    SphereMesh mesh;
};
