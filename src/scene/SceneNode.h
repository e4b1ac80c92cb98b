// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <list>
#include <memory>

class Shader;

// Base of everything drawn in the world. A node owns its children and forwards update and draw
// to them in the order they were added.
class SceneNode
{
public:
    SceneNode() = default;
    virtual ~SceneNode() = default;
    SceneNode(const SceneNode&) = delete;
    SceneNode& operator=(const SceneNode&) = delete;

    virtual void update(float dt);
    // Draws with SHADER, which the caller has bound.
    virtual void draw(Shader* shader);

    SceneNode* addChild(std::unique_ptr<SceneNode> child);
    const std::list<std::unique_ptr<SceneNode>>& getChildren() const { return children; }

protected:
    std::list<std::unique_ptr<SceneNode>> children;
};

// A node with an object-to-world transform.
class GeometryNode : public SceneNode
{
public:
    Mat4 model = math::identity();
    // The transform of the previous frame, for the motion-blur pass.
    Mat4 prevModel = math::identity();
};
