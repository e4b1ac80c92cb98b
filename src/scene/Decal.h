#pragma once

#include "scene/Frustum.h"
#include "scene/SceneNode.h"
#include "scene/Splat.h"

#include <list>
#include <memory>
#include <vector>

class Shader;

// A paint splat stuck onto the level: the pieces of the level's surface cut out around a hit,
// textured with one of five splat pictures in the ball's colour. Positions are in level
// coordinates, so the model transform stays the identity. Needs a GL context.
class Decal : public GeometryNode
{
public:
    static constexpr int TEXTURE_COUNT = 5;

    // Picks a splat picture at random, plays the splash and uploads each polygon once.
    Decal(const std::list<DecalPolygon>& polygons, std::unique_ptr<Bounds> bounds, Vec4 color);
    ~Decal() override;

    // Drawn by the level after its surface, with depth writes off and the polygon offset on. Uses
    // the "decal" program whatever SHADER is bound, and leaves no program bound.
    void draw(Shader* shader) override;

    int getTextureIndex() const { return textureIndex; }
    size_t polygonCount() const { return vertexCounts.size(); }
    const Bounds& getBounds() const { return *bounds; }

private:
    void applyFilters() const;

    std::vector<unsigned int> vertexBuffers;
    std::vector<unsigned int> texcoordBuffers;
    std::vector<std::unique_ptr<float[]>> vertexArrays;   // x, y, z, 1 per corner
    std::vector<std::unique_ptr<float[]>> texcoordArrays; // u, v per corner
    std::vector<int> vertexCounts;
    unsigned int texture = 0;
    int textureIndex = 0;
    Vec4 color;
    std::unique_ptr<Bounds> bounds;
};
