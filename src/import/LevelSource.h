// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// The triangles of a level as a source hands them over: flat, unindexed arrays, every three
// consecutive vertices a triangle, in the order the level is drawn and collided.
struct LevelMesh
{
    std::unique_ptr<float[]> vertices; // vertexCount x (x, y, z, 1)
    std::unique_ptr<float[]> normals;  // vertexCount x 3
    std::unique_ptr<float[]> uvs;      // vertexCount x 2
    int32_t vertexCount = 0;
};

// Where a level comes from: one file format. Reading and converting are two steps so a match
// can time them apart; each prints the format's own report. A source that fails says why in
// error() and hands over an empty mesh.
class LevelSource
{
public:
    virtual ~LevelSource() = default;
    // True when the file was read; when it was not, there is nothing to convert.
    [[nodiscard]] virtual bool read(const std::string& path) = 0;
    virtual LevelMesh takeMesh() = 0;
    virtual const std::string& error() const = 0;
};

// The source for the level file PATH. A path that names no readable regular file (missing, a
// directory, a named pipe, a device, no permission) gets a source that only reports why.
std::unique_ptr<LevelSource> levelSourceFor(const std::string& path);
