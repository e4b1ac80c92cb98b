// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace fbx
{

struct Object;
struct Record;

// A read-only array that either borrows a parsed record's array (binary files, where the
// element type already matches: no copy) or owns a converted copy (ASCII files, 6.1 scalar
// lists, float instead of double, ...).
template <class T> class ArrayRef
{
public:
    ArrayRef() = default;
    static ArrayRef borrow(std::span<const T> view)
    {
        ArrayRef a;
        a.view_ = view;
        return a;
    }
    static ArrayRef own(std::vector<T> values)
    {
        ArrayRef a;
        a.owned_ = std::move(values);
        a.view_ = a.owned_;
        return a;
    }
    ArrayRef(const ArrayRef& o)
        : owned_(o.owned_), view_(o.isOwned() ? std::span<const T>(owned_) : o.view_)
    {
    }
    ArrayRef(ArrayRef&& o) noexcept : owned_(std::move(o.owned_)), view_(o.view_) { o.view_ = {}; }
    ArrayRef& operator=(ArrayRef o) noexcept
    {
        owned_.swap(o.owned_);
        std::swap(view_, o.view_);
        return *this;
    }

    std::span<const T> span() const { return view_; }
    size_t size() const { return view_.size(); }
    bool empty() const { return view_.empty(); }
    const T* data() const { return view_.data(); }
    const T& operator[](size_t i) const { return view_[i]; }
    auto begin() const { return view_.begin(); }
    auto end() const { return view_.end(); }

private:
    bool isOwned() const { return !owned_.empty() && view_.data() == owned_.data(); }

    std::vector<T> owned_;
    std::span<const T> view_;
};

// How a layer element's values map onto the mesh ("MappingInformationType").
enum class MappingType
{
    None,            // "NoMappingInformation", or not written
    ByControlPoint,  // "ByVertice" (sic, the files' spelling), "ByVertex", "ByControlPoint"
    ByPolygonVertex, // "ByPolygonVertex"
    ByPolygon,       // "ByPolygon"
    ByEdge,          // "ByEdge"
    AllSame,         // "AllSame"
    Unknown,         // anything else
};

// How values are found ("ReferenceInformationType").
enum class ReferenceType
{
    Direct,        // "Direct": the direct array at the mapped index
    Index,         // "Index": the index array holds the values (polygon groups)
    IndexToDirect, // "IndexToDirect": the direct array at index[mapped index]
    Unknown,       // anything else, or not written
};

enum class LayerElementKind
{
    Normal,
    Binormal,
    Tangent,
    UV,
    Color,
    Material,
    PolygonGroup,
    Smoothing,
    Visibility
};

// One LayerElement... record of a mesh, with its mapping exactly as written.
struct LayerElement
{
    LayerElementKind kind = LayerElementKind::Normal;
    int layer = 0;             // the Layer that lists it (its own index when no Layer does)
    int typedIndex = 0;        // the number after "LayerElementNormal:"
    std::string name;          // the UV set or colour set name
    std::string mappingName;   // "ByPolygonVertex", as written
    std::string referenceName; // "IndexToDirect", as written
    MappingType mapping = MappingType::None;
    ReferenceType reference = ReferenceType::Unknown;
    int components =
        0; // doubles per value in `direct`: 3 (normals, binormals, tangents), 2 (UVs), 4 (colours)
    ArrayRef<double> direct;      // Normals, UV, Colors, ...
    ArrayRef<int32_t> directInts; // Smoothing, Visibility
    ArrayRef<int32_t> index;      // NormalsIndex, UVIndex, ColorIndex; Materials; PolygonGroup
    const Record* record = nullptr;
};

// A polygon mesh. Polygon vertices index the control points; the last corner of each
// polygon is written as -(index + 1), which polygonVertex() decodes.
struct Mesh
{
    const Object* geometry =
        nullptr; // the Geometry object (7.x), or the Model holding the data (6.x)
    ArrayRef<double> controlPoints;       // x, y, z per control point
    ArrayRef<int32_t> polygonVertexIndex; // as written, with the negative end-of-polygon markers
    std::vector<uint32_t>
        polygonStarts;       // first polygon vertex of each polygon, plus the total at the end
    ArrayRef<int32_t> edges; // per edge, the polygon vertex it starts at
    std::vector<LayerElement> layerElements; // in order of layer, then kind, then typed index
    int textureUvSource = -1; // index of layer 0's UV element in layerElements, or -1

    size_t controlPointCount() const { return controlPoints.size() / 3; }
    size_t polygonVertexCount() const { return polygonVertexIndex.size(); }
    size_t polygonCount() const { return polygonStarts.empty() ? 0 : polygonStarts.size() - 1; }
    uint32_t polygonStart(size_t p) const { return polygonStarts[p]; }
    uint32_t polygonSize(size_t p) const { return polygonStarts[p + 1] - polygonStarts[p]; }
    // The control point of a polygon vertex (always < controlPointCount(): the document
    // checked every index when it was built).
    int32_t polygonVertex(size_t polygonVertexIndexPosition) const
    {
        int32_t v = polygonVertexIndex[polygonVertexIndexPosition];
        return v < 0 ? ~v : v;
    }

    // The element of that kind on that layer, or null.
    const LayerElement* element(LayerElementKind kind, int layer) const;
    // The elements of that kind in layer order.
    std::vector<const LayerElement*> elements(LayerElementKind kind) const;

    // The FBX SDK's texture-UV index of a polygon vertex: taken from layer 0's UV element
    // when it maps by polygon vertex (its index array entry for IndexToDirect, the polygon
    // vertex itself for Direct); -1 otherwise.
    int32_t textureUvIndex(size_t polygonVertexIndexPosition) const;
};

} // namespace fbx
