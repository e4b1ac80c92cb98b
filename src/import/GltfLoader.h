// SPDX-License-Identifier: MIT
#pragma once

#include "import/LevelSource.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tinygltf
{
class Model;
}

// Imports a glTF 2.0 level (.glb, or .gltf with external or data-URI buffers) through tinygltf:
// every triangle primitive of the default scene (scene 0 when there is none), node transforms
// applied, in node and primitive order. Images are never decoded.
//
// Call order: load(), then convert() once. Every accessor is checked against its buffer view and
// buffer before a byte is read, so a hostile file is refused with a reason in error(), never read
// past. A failed load or convert hands over an empty mesh.
class GltfLoader
{
public:
    GltfLoader();
    ~GltfLoader();
    GltfLoader(const GltfLoader&) = delete;
    GltfLoader& operator=(const GltfLoader&) = delete;

    // Reads and parses the file; prints the reading report. False on failure, with the reason
    // in error().
    [[nodiscard]] bool load(const std::string& path);
    // Turns the parsed scene into flat triangle arrays and prints the mesh report.
    [[nodiscard]] LevelMesh convert();

    // Why the last load() or convert() failed; empty after a successful one.
    const std::string& error() const { return error_; }

private:
    std::unique_ptr<tinygltf::Model> model_; // null when nothing was parsed
    std::string path_;
    std::string error_;
};
