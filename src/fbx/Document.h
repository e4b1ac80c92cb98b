// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fbx/Error.h"
#include "fbx/Mesh.h"
#include "fbx/Reader.h"
#include "fbx/Record.h"

namespace fbx
{

// The FBX SDK 2010's node attribute types, with its numbering (the game prints by number).
enum class AttributeType
{
    Unknown = 0,
    Null = 1,
    Marker = 2,
    Skeleton = 3,
    Mesh = 4,
    Nurb = 5,
    Patch = 6,
    Camera = 7,
    CameraStereo = 8,
    CameraSwitcher = 9,
    Light = 10,
    OpticalReference = 11,
    OpticalMarker = 12,
    NurbsCurve = 13,
    TrimNurbsSurface = 14,
    Boundary = 15,
    NurbsSurface = 16,
    Shape = 17,
    LodGroup = 18,
    Subdiv = 19,
    CachedEffect = 20,
    Line = 21,
};

// The attribute type a class name stands for ("Mesh", "LimbNode", "Light", ...).
AttributeType attributeTypeFromName(std::string_view subClass);

// One P: (Properties70) or Property: (Properties60) line.
struct PropertyValue
{
    std::string_view name;  // "Lcl Translation"
    std::string_view type;  // "Lcl Translation", "Vector3D", "KString", ...
    std::string_view label; // 7.x only ("Vector", "Color", ...)
    std::string_view flags; // "A", "A+", "U", ...
    const Record* record = nullptr;
    size_t first = 0; // index of the first value in record->properties

    size_t valueCount() const;
    double number(size_t i = 0, double fallback = 0.0) const;
    int64_t integer(size_t i = 0, int64_t fallback = 0) const;
    std::string_view string(size_t i = 0) const;
    std::array<double, 3> vec3(std::array<double, 3> fallback) const;
};

// An object of the Objects section.
struct Object
{
    int64_t id = 0;   // 7.x: the file's id; 6.x: 0 (objects are known by name)
    std::string name; // "pCube1"
    std::string
        className; // "Model", from the name ("Model::pCube1" or "pCube1\0\1Model"); may be empty
    std::string subClass;                  // "Mesh", "Null", "Camera", ...
    const Record* record = nullptr;        // its record; record->name is "Model", "Geometry", ...
    std::vector<PropertyValue> properties; // its own Properties70/Properties60 lines

    std::string fullName() const { return className + "::" + name; }
};

inline constexpr int kRootObject = -1; // the scene root (id 0, or "Model::Scene" in 6.x)
inline constexpr int kNoObject = -2;   // an endpoint that names no object

struct Connection
{
    std::string type;                  // "OO", "OP", "PO", "PP"
    int64_t childId = 0, parentId = 0; // 7.x
    std::string childName, parentName; // 6.x, "Model::pCube1"
    std::string childProperty, parentProperty;
    int child = kNoObject; // index into objects(), or kRootObject
    int parent = kNoObject;
};

struct Thumbnail
{
    int format = 0;         // 0 RGB (24 bits), 1 RGBA (32 bits), as written
    int size = 0;           // 0 not set, 64 for 64 x 64, 128 for 128 x 128, as written
    ArrayRef<uint8_t> data; // the image bytes
};

struct DocumentInfo
{
    std::string title, subject, author, keywords, revision, comment;
    std::optional<Thumbnail> thumbnail;
};

struct Take
{
    std::string name;
    std::string description;
    std::string importName;  // the name the take imports under: its own name
    bool importState = true; // whether it is imported: always
    std::string fileName;
    int64_t localStart = 0, localStop = 0; // FBX time units
    int64_t referenceStart = 0, referenceStop = 0;
};

// A scene node: a Model object in the hierarchy, or the root (nodes()[0]).
struct Node
{
    std::string name;
    const Object* model = nullptr; // null for the root
    int parent = -1;
    int depth = -1;            // the root's children have depth 0
    std::vector<int> children; // in connection order
    bool hasAttribute = false;
    AttributeType attributeType = AttributeType::Unknown;
    const Object* attribute =
        nullptr;   // the NodeAttribute or Geometry (7.x), the Model itself (6.x)
    int mesh = -1; // index into meshes() when the attribute is a mesh with data
    std::array<double, 3> geometricTranslation{0, 0, 0};
    std::array<double, 3> geometricRotation{0, 0, 0}; // degrees
    std::array<double, 3> geometricScaling{1, 1, 1};
};

// A parsed FBX file resolved into objects, connections, properties, the node hierarchy and
// meshes. Everything points into the document's own record tree, so a Document is
// move-only and its pointers stay valid while it lives.
class Document
{
public:
    static Result<Document> build(RecordTree tree);
    static Result<Document> parse(std::span<const uint8_t> bytes, const ParseOptions& options = {});
    static Result<Document> load(const std::string& path, const ParseOptions& options = {});

    Document(Document&&) noexcept;
    Document& operator=(Document&&) noexcept;
    ~Document();

    Format format() const { return tree_->info.format; }
    bool bigEndian() const { return tree_->info.bigEndian; }
    uint32_t version() const { return version_; } // 7400
    Version versionNumbers() const { return splitVersion(version_); }
    const Record& root() const { return tree_->root; }

    const std::vector<Object>& objects() const { return objects_; }
    const Object* findObject(int64_t id) const;                      // 7.x
    const Object* findObjectByName(std::string_view fullName) const; // "Model::pCube1"
    const std::vector<Connection>& connections() const { return connections_; }

    // The object's own property, else its type's template default; null when neither has it.
    const PropertyValue* findProperty(const Object& object, std::string_view name) const;

    const DocumentInfo* documentInfo() const { return info_ ? &*info_ : nullptr; }
    const std::vector<Take>& takes() const { return takes_; }
    const std::string& currentTake() const { return currentTake_; }

    const std::vector<Node>& nodes() const { return nodes_; } // [0] is the root
    // Every node below the root, depth first, a node before its children, children in order.
    const std::vector<int>& walkOrder() const { return walk_; }
    const std::vector<Mesh>& meshes() const { return meshes_; }

private:
    Document();
    class Builder;
    friend class Builder;

    std::unique_ptr<RecordTree> tree_;
    uint32_t version_ = 0;
    std::vector<Object> objects_;
    std::unordered_map<int64_t, int> byId_;
    std::unordered_map<std::string, int> byName_;
    std::vector<Connection> connections_;
    // Template defaults (Definitions/ObjectType/PropertyTemplate), looked up in constant time
    // so that a file with many templates and many objects cannot make the build quadratic.
    // Keys: "Model\nFbxNode\nLcl Scaling" (type, template, property) and "Model\n\nLcl Scaling"
    // (type, any template; the first one wins).
    std::vector<std::vector<PropertyValue>> templates_;
    std::unordered_map<std::string, const PropertyValue*> templateIndex_;
    std::optional<DocumentInfo> info_;
    std::vector<Take> takes_;
    std::string currentTake_;
    std::vector<Node> nodes_;
    std::vector<int> walk_;
    std::vector<Mesh> meshes_;
};

} // namespace fbx
