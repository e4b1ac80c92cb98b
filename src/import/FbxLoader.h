// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace fbx
{
class Document;
struct LayerElement;
struct Mesh;
struct Node;
} // namespace fbx

// Imports the level file through the project's own FBX reader: walks the
// node tree, reports to standard output, and turns the last mesh into flat, unindexed
// triangle arrays that the Level takes over.
//
// Call order: FbxLoader(), load(), printMetaData(), printHierarchy(), convertNodes();
// then move vertices/normals/uvs out. A failed load leaves an empty scene: the print
// calls print their banners only and convertNodes() leaves vertexCount 0 and null arrays.
class FbxLoader
{
public:
    FbxLoader(); // prints the loader header and the reader's version
    ~FbxLoader();
    FbxLoader(const FbxLoader&) = delete;
    FbxLoader& operator=(const FbxLoader&) = delete;

    // Reads and imports the file; prints the "loading the scene" report. False on failure,
    // with the reason in error().
    bool load(const std::string& path);
    void printMetaData();
    void printHierarchy();
    // Prints the node report and converts every mesh node in walk order; the last one wins, and
    // a file with more than one says so on standard error.
    void convertNodes();

    // Why the last load() failed, or why the last mesh was refused by convertNodes() (a
    // position or texture coordinate that is not a finite number); empty otherwise.
    const std::string& error() const { return error_; }

private:
    std::unique_ptr<fbx::Document> scene_; // null when nothing was imported

public:
    bool verbose = false;              // adds the per-control-point and per-vertex report lines
    std::unique_ptr<float[]> vertices; // x, y, z, 1 per vertex
    std::unique_ptr<float[]> normals;  // x, y, z per vertex; zero where the file has none stored
    std::unique_ptr<float[]> uvs;      // u, v per vertex; zero where the file has none stored
    int32_t vertexCount = 0;           // 3 per triangle

private:
    void convertMesh(const fbx::Mesh& mesh, const std::string& name);
    // The per-polygon report lines: group assignments, and in verbose mode every corner.
    void reportPolygons(const fbx::Mesh& mesh,
                        const std::vector<const fbx::LayerElement*>& groups) const;
    void printControlPoints(const fbx::Mesh& mesh) const;
    void printPolygonVertex(const fbx::Mesh& mesh, uint32_t polygonVertex) const;
    void printEdgeVisibility(const fbx::Mesh& mesh) const;
    static void printGeometricTransform(const fbx::Node& node);

    std::string path_; // of the last load(), to name it in errors
    std::string error_;
};
