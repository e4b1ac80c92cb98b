// SPDX-License-Identifier: MIT
#include "scene/SphereChain.h"

#include "render/Shader.h"

namespace
{
const int TURN_PER_MS = 4;       // game turn units per millisecond of frame time
const float ORBIT_RADIUS = 2.0f; // distance of a link from the centre it circles
const Vec3 Z_AXIS{0.0f, 0.0f, 1.0f};

Mat4 turnAboutZ(float angle)
{
    return math::toMat4(math::toMat3(math::axisAngle(Z_AXIS, angle)));
}
} // namespace

SphereChain::SphereChain(Vec3 position, float radius, bool reversed)
    : position(position), radius(radius), reversed(reversed), mesh(radius)
{
}

SphereChain* SphereChain::append(float linkRadius)
{
    SphereChain* last = this;
    while (last->next)
    {
        last = last->next.get();
    }
    last->next = std::make_unique<SphereChain>(Vec3{}, linkRadius, false);
    return last->next.get();
}

void SphereChain::update(float dt)
{
    const int ms = static_cast<int>(dt * 1000.0f);
    for (SphereChain* link = this; link; link = link->next.get())
    {
        link->angle += TURN_PER_MS * ms;
        const float turn = static_cast<float>(link->reversed ? -link->angle : link->angle);
        // Out to the orbit and back by the opposite turn: the link circles without spinning.
        Mat4 m = math::translate(math::identity(), link->position);
        m = math::multiply(m, turnAboutZ(turn));
        m = math::translate(m, {ORBIT_RADIUS, 0.0f, 0.0f});
        link->model = math::multiply(m, turnAboutZ(-turn));
        if (link->next)
        {
            const Vec4 centre = math::transform(link->model, {0.0f, 0.0f, 0.0f, 1.0f});
            link->next->position = {centre.x, centre.y, centre.z};
        }
    }
}

void SphereChain::draw(Shader* shader)
{
    if (!shader)
    {
        return;
    }
    for (SphereChain* link = this; link; link = link->next.get())
    {
        link->color = {0.0f, 1.0f, 1.0f, 1.0f};
        shader->setMatrix("model", link->model);
        shader->setVec4("color", &link->color.x);
        link->mesh.draw(shader);
    }
}
