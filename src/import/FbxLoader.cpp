// SPDX-License-Identifier: MIT
#include "import/FbxLoader.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fbx/Document.h"
#include "fbx/Reader.h"

using fbx::LayerElement;
using fbx::LayerElementKind;
using fbx::MappingType;
using fbx::Mesh;
using fbx::ReferenceType;

namespace
{

const int64_t MAX_VERTICES = INT32_MAX; // vertexCount is a signed 32-bit count

// double to float without the undefined behaviour of converting an out-of-range value:
// a hostile file may hold 1e300.
float narrow(double d)
{
    if (d >= -FLT_MAX && d <= FLT_MAX)
        return static_cast<float>(d);
    if (d != d)
        return NAN;
    return d > 0 ? INFINITY : -INFINITY;
}

// The first element (of COMPONENTS values each) holding a value that is not a finite number,
// or -1 when all are finite.
int64_t firstNonFinite(const float* values, size_t count, size_t components)
{
    for (size_t i = 0; i < count * components; ++i)
        if (!std::isfinite(values[i]))
            return static_cast<int64_t>(i / components);
    return -1;
}

// Gives every triangle with a normal that is not finite the normal of its face (zero for a
// degenerate one); returns how many it changed.
size_t replaceNonFiniteNormals(const float* vertices, float* normals, size_t count)
{
    size_t replaced = 0;
    for (size_t t = 0; t + 2 < count; t += 3)
    {
        if (firstNonFinite(normals + t * 3, 3, 3) < 0)
            continue;
        const float* a = vertices + t * 4;
        const float* b = a + 4;
        const float* c = a + 8;
        const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const double w[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
        const double n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2],
                             u[0] * w[1] - u[1] * w[0]};
        double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        length = length > 0 ? length : 1;
        for (size_t k = t; k < t + 3; ++k)
            for (int r = 0; r < 3; ++r)
                normals[k * 3 + r] = static_cast<float>(n[r] / length);
        ++replaced;
    }
    return replaced;
}

std::string numbers(std::initializer_list<double> values)
{
    std::string out;
    char one[32];
    for (double v : values)
    {
        std::snprintf(one, sizeof one, "%g", v);
        out += (out.empty() ? "" : ", ") + std::string(one);
    }
    return "(" + out + ")";
}

void printBanner(const char* title)
{
    std::printf("\n\n---------------------\n%s\n---------------------\n\n", title);
}

// Index into an element's value array, or -1 when the array does not hold it.
int64_t checked(int64_t index, const LayerElement& e, size_t components)
{
    if (index < 0 || components == 0)
        return -1;
    return static_cast<uint64_t>(index) < e.direct.size() / components ? index : -1;
}

int64_t indexed(const fbx::ArrayRef<int32_t>& index, int64_t at)
{
    return at >= 0 && static_cast<uint64_t>(at) < index.size() ? index[static_cast<size_t>(at)]
                                                               : -1;
}

// The import's texture coordinate rules: which UV value of this element
// belongs to a polygon vertex, and whether it is stored or only reported.
// ByPolygonVertex elements go through the mesh's texture-UV index, which the SDK takes from
// layer 0's UV element whatever layer this element is on: kept as the game had it.
int64_t uvValue(const Mesh& mesh, const LayerElement& e, uint32_t polygonVertex, int32_t point,
                bool& stored)
{
    stored = false;
    if (e.mapping == MappingType::ByControlPoint)
    {
        if (e.reference == ReferenceType::IndexToDirect)
        {
            stored = true;
            return checked(indexed(e.index, point), e, 2);
        }
        if (e.reference == ReferenceType::Direct)
            return checked(point, e, 2); // reported, not stored
        return -1;
    }
    if (e.mapping == MappingType::ByPolygonVertex &&
        (e.reference == ReferenceType::Direct || e.reference == ReferenceType::IndexToDirect))
    {
        stored = true;
        return checked(mesh.textureUvIndex(polygonVertex), e, 2);
    }
    return -1;
}

int64_t colorValue(const LayerElement& e, uint32_t polygonVertex, int32_t point)
{
    int64_t at = -1;
    if (e.mapping == MappingType::ByControlPoint)
        at = point;
    else if (e.mapping == MappingType::ByPolygonVertex)
        at = polygonVertex;
    if (e.reference == ReferenceType::IndexToDirect)
        at = indexed(e.index, at);
    else if (e.reference != ReferenceType::Direct)
        at = -1;
    return checked(at, e, 4);
}

// Only normals mapped by polygon vertex with direct reference are stored; the others are ignored.
int64_t storedNormal(const LayerElement& e, uint32_t polygonVertex)
{
    if (e.mapping != MappingType::ByPolygonVertex || e.reference != ReferenceType::Direct)
        return -1;
    return checked(polygonVertex, e, 3);
}

// Where one layer's stored values come from, resolved once per mesh so that a vertex costs a
// lookup: the value of a polygon vertex is the one at the polygon vertex itself, or at the index
// array's entry for the polygon vertex or for its control point.
struct Source
{
    enum Through
    {
        Itself,
        PolygonVertexIndex,
        PointIndex
    };
    std::span<const double> values;
    size_t components = 0;
    Through through = Itself;
    std::span<const int32_t> index;
};

// The value of SOURCE for a polygon vertex, or null when the source holds none for it.
const double* lookup(const Source& source, uint32_t polygonVertex, int32_t point)
{
    int64_t at = polygonVertex;
    if (source.through != Source::Itself)
    {
        const int64_t entry = source.through == Source::PointIndex ? point : polygonVertex;
        at = static_cast<uint64_t>(entry) < source.index.size() ? source.index[entry] : -1;
    }
    if (at < 0 || static_cast<uint64_t>(at) >= source.values.size() / source.components)
        return nullptr;
    return source.values.data() + static_cast<size_t>(at) * source.components;
}

// The normal layers that are stored: by polygon vertex, direct.
std::vector<Source> normalSources(const Mesh& mesh)
{
    std::vector<Source> sources;
    for (const LayerElement* e : mesh.elements(LayerElementKind::Normal))
        if (e->mapping == MappingType::ByPolygonVertex && e->reference == ReferenceType::Direct)
            sources.push_back({e->direct.span(), 3, Source::Itself, {}});
    return sources;
}

// The UV layers that are stored, as uvValue() picks them.
std::vector<Source> uvSources(const Mesh& mesh)
{
    // By polygon vertex, every layer goes through layer 0's texture-UV index.
    const LayerElement* textureUv =
        mesh.textureUvSource >= 0 ? &mesh.layerElements[mesh.textureUvSource] : nullptr;
    const bool throughTextureUv = textureUv && textureUv->mapping == MappingType::ByPolygonVertex &&
                                  (textureUv->reference == ReferenceType::Direct ||
                                   textureUv->reference == ReferenceType::IndexToDirect ||
                                   textureUv->reference == ReferenceType::Index);
    std::vector<Source> sources;
    for (const LayerElement* e : mesh.elements(LayerElementKind::UV))
    {
        if (e->mapping == MappingType::ByControlPoint &&
            e->reference == ReferenceType::IndexToDirect)
        {
            sources.push_back({e->direct.span(), 2, Source::PointIndex, e->index.span()});
        }
        else if (e->mapping == MappingType::ByPolygonVertex && throughTextureUv &&
                 (e->reference == ReferenceType::Direct ||
                  e->reference == ReferenceType::IndexToDirect))
        {
            if (textureUv->reference == ReferenceType::Direct)
                sources.push_back({e->direct.span(), 2, Source::Itself, {}});
            else
                sources.push_back(
                    {e->direct.span(), 2, Source::PolygonVertexIndex, textureUv->index.span()});
        }
    }
    return sources;
}

// The per-vertex values come from the file's polygon vertex of each corner (CORNER(v) for vertex
// v), so a fanned polygon reuses the values of its shared corners. Each array is filled in a pass
// of its own: the UVs are gathered from all over their array, and a short loop keeps many of those
// reads under way at once.
template <class Corner>
void storePositions(const Mesh& mesh, size_t count, Corner corner, float* out)
{
    const double* points = mesh.controlPoints.data();
    for (size_t v = 0; v < count; ++v)
    {
        const double* p = points + size_t(mesh.polygonVertex(corner(v))) * 3;
        float* o = out + v * 4;
        o[0] = narrow(p[0]);
        o[1] = narrow(p[1]);
        o[2] = narrow(p[2]);
        o[3] = 1.0f;
    }
}

// Every layer is applied in order, so a later layer's value replaces an earlier one's; a vertex
// no layer holds a value for gets zeros.
template <class Corner>
void storeLayers(const Mesh& mesh, const std::vector<Source>& sources, size_t components,
                 size_t count, Corner corner, float* out)
{
    for (size_t v = 0; v < count; ++v)
    {
        const uint32_t polygonVertex = corner(v);
        const double* value = nullptr;
        for (const Source& source : sources)
        {
            const int32_t point =
                source.through == Source::PointIndex ? mesh.polygonVertex(polygonVertex) : 0;
            if (const double* found = lookup(source, polygonVertex, point))
                value = found;
        }
        for (size_t c = 0; c < components; ++c)
            out[v * components + c] = value ? narrow(value[c]) : 0.0f;
    }
}

} // namespace

FbxLoader::FbxLoader()
{
    std::printf("\n-------FBX Loader-------------\n");
    std::printf("FBX version number for this FBX SDK is %d.%d.%d\n\n", fbx::kReaderVersion.major,
                fbx::kReaderVersion.minor, fbx::kReaderVersion.revision);
}

FbxLoader::~FbxLoader() = default;

bool FbxLoader::load(const std::string& path)
{
    std::printf("\n-------loading the scene\n");
    scene_.reset();
    error_.clear();
    path_ = path;
    vertices.reset();
    normals.reset();
    uvs.reset();
    vertexCount = 0;

    // Reading: the file into memory. Every later step still runs and reports, as the SDK's
    // importer did, so a missing file prints each failure line with its reason.
    fbx::Result<fbx::FileBytes> file = fbx::readFile(path);
    if (file)
        std::printf("Reading File succeeded\n");
    else
    {
        error_ = file.error().text();
        std::printf("Reading File failed: %s\n", error_.c_str());
    }

    fbx::Result<fbx::FileInfo> info =
        file ? fbx::sniff(file->span()) : fbx::Result<fbx::FileInfo>(file.error());
    fbx::Version version = info ? fbx::splitVersion(info->version) : fbx::Version{};
    std::printf("\nFBX version number for file %s is %d.%d.%d\n\n", path.c_str(), version.major,
                version.minor, version.revision);

    if (info)
        std::printf("File Format recognized\n");
    else
        std::printf("File Format not recognized: %s\n", info.error().text().c_str());

    // Import: parse and resolve everything (the SDK's import options asked for all of it).
    fbx::Result<fbx::Document> scene =
        info ? fbx::Document::parse(file->span()) : fbx::Result<fbx::Document>(info.error());
    if (scene && !scene->takes().empty())
    {
        const std::vector<fbx::Take>& takes = scene->takes();
        std::printf("Take Information\n");
        std::printf("   Number of takes: %d\n", static_cast<int>(takes.size()));
        std::printf("   Current take: \"%s\"\n\n", scene->currentTake().c_str());
        for (size_t i = 0; i < takes.size(); ++i)
        {
            std::printf("    Take %d\n", static_cast<int>(i));
            std::printf("         Name: \"%s\"\n", takes[i].name.c_str());
            std::printf("         Description: \"%s\"\n", takes[i].description.c_str());
            std::printf("         Import Name: \"%s\"\n", takes[i].importName.c_str());
            std::printf("         Import State: %s\n\n", takes[i].importState ? "true" : "false");
        }
    }
    if (!scene)
    {
        // A file that could not be read names itself already; a bad one is named here.
        error_ = file ? path + ": " + scene.error().text() : scene.error().text();
        std::printf("Importing File failed: %s\n", error_.c_str());
        return false;
    }
    scene_ = std::make_unique<fbx::Document>(std::move(scene).value());
    std::printf("Importing File succeeded\n");
    return true;
}

void FbxLoader::printMetaData()
{
    const fbx::DocumentInfo* info = scene_ ? scene_->documentInfo() : nullptr;
    if (!info)
        return;
    printBanner("Meta-Data");
    std::printf("    Title: %s\n", info->title.c_str());
    std::printf("    Subject: %s\n", info->subject.c_str());
    std::printf("    Author: %s\n", info->author.c_str());
    std::printf("    Keywords: %s\n", info->keywords.c_str());
    std::printf("    Revision: %s\n", info->revision.c_str());
    std::printf("    Comment: %s\n", info->comment.c_str());
    if (!info->thumbnail)
        return;
    const fbx::Thumbnail& t = *info->thumbnail;
    if (t.format == 0)
        std::printf("        Format: RGB\n");
    else if (t.format == 1)
        std::printf("        Format: RGBA\n");
    long bytes = static_cast<long>(t.data.size());
    if (t.size == 64)
        std::printf("        Size: 64 x 64 pixels (%ld bytes)\n", bytes);
    else if (t.size == 128)
        std::printf("        Size: 128 x 128 pixels (%ld bytes)\n", bytes);
    else
        std::printf("        Size: no dimensions specified (%ld bytes)\n", bytes);
}

void FbxLoader::printHierarchy()
{
    printBanner("Hierarchy");
    if (!scene_)
        return;
    for (int n : scene_->walkOrder())
    {
        const fbx::Node& node = scene_->nodes()[n];
        std::printf("%*s%s\n", node.depth * 4, "", node.name.c_str());
    }
}

void FbxLoader::convertNodes()
{
    printBanner("Node Content");
    if (!scene_)
        return;
    int meshes = 0;
    const char* played = "";
    for (int n : scene_->walkOrder())
    {
        const fbx::Node& node = scene_->nodes()[n];
        if (!node.hasAttribute)
        {
            std::printf("NULL Node Attribute\n\n");
        }
        else
        {
            switch (node.attributeType)
            {
            case fbx::AttributeType::Marker:
                std::printf("Node is a Marker\n");
                break;
            case fbx::AttributeType::Skeleton:
                std::printf("Node is a Skeleton\n");
                break;
            case fbx::AttributeType::Mesh:
                std::printf("Node is a Mesh\n");
                std::printf("Mesh Name: %s\n", node.name.c_str());
                if (node.mesh >= 0)
                {
                    convertMesh(scene_->meshes()[node.mesh], node.name);
                    ++meshes;
                    played = node.name.c_str();
                }
                break;
            case fbx::AttributeType::Nurb:
                std::printf("Node is a Nurb\n");
                break;
            case fbx::AttributeType::Patch:
                std::printf("Node is a Patch\n");
                break;
            case fbx::AttributeType::Camera:
                std::printf("Node is a Camera\n");
                break;
            case fbx::AttributeType::Light:
                std::printf("Node is a Light\n");
                break;
            default:
                break;
            }
        }
        printGeometricTransform(node);
    }
    // Levels from other tools often hold several objects; only the last one is played, so say
    // so where the author will see it.
    if (meshes > 1)
        std::fprintf(stderr,
                     "The level file holds %d meshes; playing only the last%s%s%s (join the "
                     "objects into one mesh before export)\n",
                     meshes, *played ? ", \"" : "", played, *played ? "\"" : "");
}

void FbxLoader::convertMesh(const Mesh& mesh, const std::string& name)
{
    error_.clear(); // only the last mesh is played, so only its problems count
    if (verbose)
        printControlPoints(mesh);

    // Count first, allocate, then fill: nothing can be written past the arrays. Polygons
    // with more than three corners are fanned (corners 0, k, k+1); fewer than three are skipped.
    const size_t polygons = mesh.polygonCount();
    int64_t triangles = 0;
    bool triangulated = true; // then vertex v is polygon vertex v
    for (size_t p = 0; p < polygons; ++p)
    {
        const uint32_t size = mesh.polygonSize(p);
        if (size >= 3)
            triangles += size - 2;
        triangulated = triangulated && size == 3;
    }
    if (triangles * 3 > MAX_VERTICES)
    {
        std::printf("Mesh has too many triangles (%lld): not converted\n",
                    static_cast<long long>(triangles));
        return;
    }
    // A later mesh replaces the arrays of an earlier one: the level is the last mesh. Every
    // entry is written below, so the arrays are not cleared first.
    vertexCount = static_cast<int32_t>(triangles * 3);
    const size_t count = static_cast<size_t>(vertexCount);
    vertices = count ? std::make_unique_for_overwrite<float[]>(count * 4) : nullptr;
    normals = count ? std::make_unique_for_overwrite<float[]>(count * 3) : nullptr;
    uvs = count ? std::make_unique_for_overwrite<float[]>(count * 2) : nullptr;

    const std::vector<const LayerElement*> groups = mesh.elements(LayerElementKind::PolygonGroup);
    if (verbose || !groups.empty())
        reportPolygons(mesh, groups);

    const std::vector<Source> normalLayers = normalSources(mesh);
    const std::vector<Source> uvLayers = uvSources(mesh);
    auto store = [&](auto corner)
    {
        storePositions(mesh, count, corner, vertices.get());
        storeLayers(mesh, normalLayers, 3, count, corner, normals.get());
        storeLayers(mesh, uvLayers, 2, count, corner, uvs.get());
        // A position or texture coordinate that is not a finite number would poison the
        // collision tree and the paint: such a mesh is refused, naming the first bad value.
        const int64_t position = firstNonFinite(vertices.get(), count, 4);
        const int64_t uv = firstNonFinite(uvs.get(), count, 2);
        if (position >= 0)
        {
            const int32_t point = mesh.polygonVertex(corner(static_cast<size_t>(position)));
            const double* p = mesh.controlPoints.data() + size_t(point) * 3;
            error_ = path_ + ": mesh \"" + name + "\" has a position that is not a finite number: " +
                     "control point " + std::to_string(point) + " is " +
                     numbers({p[0], p[1], p[2]});
        }
        else if (uv >= 0)
        {
            const float* t = uvs.get() + uv * 2;
            error_ = path_ + ": mesh \"" + name +
                     "\" has a texture coordinate that is not a finite number: polygon vertex " +
                     std::to_string(corner(static_cast<size_t>(uv))) + " has " +
                     numbers({t[0], t[1]});
        }
    };
    if (triangulated)
    {
        store([](size_t v) { return static_cast<uint32_t>(v); });
    }
    else
    {
        std::vector<uint32_t> corners;
        corners.reserve(count);
        for (size_t p = 0; p < polygons; ++p)
        {
            const uint32_t start = mesh.polygonStart(p);
            for (uint32_t k = 1; k + 1 < mesh.polygonSize(p); ++k)
                corners.insert(corners.end(), {start, start + k, start + k + 1});
        }
        store([&corners](size_t v) { return corners[v]; });
    }
    if (!error_.empty())
    {
        std::printf("Converting failed: %s\n", error_.c_str());
        vertices.reset();
        normals.reset();
        uvs.reset();
        vertexCount = 0;
        return;
    }
    // A normal only lights the first seconds: one that is not finite is replaced by its face's.
    if (const size_t replaced = replaceNonFiniteNormals(vertices.get(), normals.get(), count))
        std::fprintf(stderr,
                     "The level file's mesh \"%s\" has normals that are not finite numbers; %zu "
                     "triangles are lit with their face normals instead\n",
                     name.c_str(), replaced);
    if (verbose)
        printEdgeVisibility(mesh);
}

void FbxLoader::reportPolygons(const Mesh& mesh,
                               const std::vector<const LayerElement*>& groups) const
{
    if (verbose)
        std::printf("    Polygons\n");
    for (size_t p = 0; p < mesh.polygonCount(); ++p)
    {
        if (verbose)
            std::printf("        Polygon %d\n", static_cast<int>(p));
        for (const LayerElement* g : groups)
        {
            if (g->mapping == MappingType::ByPolygon && g->reference == ReferenceType::Index)
            {
                if (verbose && p < g->index.size())
                    std::printf("        Assigned to group: %d\n", g->index[p]);
            }
            else
            {
                // Reported whatever verbose says, as the game did.
                std::printf("        \"unsupported group assignment\"\n");
            }
        }
        if (verbose)
            for (uint32_t k = 0; k < mesh.polygonSize(p); ++k)
                printPolygonVertex(mesh, mesh.polygonStart(p) + k);
    }
}

void FbxLoader::printControlPoints(const Mesh& mesh) const
{
    std::printf("    Control Points\n");
    const std::vector<const LayerElement*> normalLayers = mesh.elements(LayerElementKind::Normal);
    for (size_t i = 0; i < mesh.controlPointCount(); ++i)
    {
        const double* p = mesh.controlPoints.data() + i * 3;
        std::printf("        Control Point %d\n", static_cast<int>(i));
        std::printf("            Coordinates: %f, %f, %f\n", p[0], p[1], p[2]);
        for (const LayerElement* e : normalLayers)
        {
            if (e->mapping != MappingType::ByControlPoint || e->reference != ReferenceType::Direct)
                continue;
            int64_t at = checked(static_cast<int64_t>(i), *e, 3);
            if (at < 0)
                continue;
            const double* n = e->direct.data() + at * 3;
            std::printf("            Normal Vector (on layer %d): ", e->layer);
            std::printf("%f, %f, %f,\n", n[0], n[1], n[2]);
        }
    }
}

void FbxLoader::printPolygonVertex(const Mesh& mesh, uint32_t polygonVertex) const
{
    const int32_t point = mesh.polygonVertex(polygonVertex);
    const double* p = mesh.controlPoints.data() + size_t(point) * 3;
    std::printf("            Index: %d\n", point);
    std::printf("            Coordinates: %f, %f, %f\n", p[0], p[1], p[2]);
    for (const LayerElement* e : mesh.elements(LayerElementKind::Color))
    {
        int64_t at = colorValue(*e, polygonVertex, point);
        if (at < 0)
            continue;
        const double* c = e->direct.data() + at * 4;
        std::printf("            Color vertex (on layer %d): ", e->layer);
        std::printf("(red) %f, (green) %f, (blue) %f\n", c[0], c[1], c[2]);
    }
    for (const LayerElement* e : mesh.elements(LayerElementKind::UV))
    {
        bool stored;
        int64_t at = uvValue(mesh, *e, polygonVertex, point, stored);
        if (at < 0)
            continue;
        const double* uv = e->direct.data() + at * 2;
        std::printf("            Texture UV (on layer %d): ", e->layer);
        std::printf("%f, %f\n", uv[0], uv[1]);
    }
    for (const LayerElement* e : mesh.elements(LayerElementKind::Normal))
    {
        int64_t at = storedNormal(*e, polygonVertex);
        if (at < 0)
            continue;
        const double* n = e->direct.data() + at * 3;
        std::printf("            Normal Vector (on layer %d): ", e->layer);
        std::printf("%f, %f, %f,\n", n[0], n[1], n[2]);
    }
}

void FbxLoader::printEdgeVisibility(const Mesh& mesh) const
{
    for (const LayerElement* e : mesh.elements(LayerElementKind::Visibility))
    {
        std::printf("    Edge Visibility (on layer %d):\n", e->layer);
        if (e->mapping != MappingType::ByEdge)
            continue;
        size_t edges = e->directInts.size();
        if (!mesh.edges.empty() && mesh.edges.size() < edges)
            edges = mesh.edges.size();
        for (size_t j = 0; j < edges; ++j)
        {
            std::printf("        Edge %d\n", static_cast<int>(j));
            std::printf("            Edge visibility: %s\n", e->directInts[j] ? "true" : "false");
        }
    }
}

void FbxLoader::printGeometricTransform(const fbx::Node& node)
{
    const auto& t = node.geometricTranslation;
    const auto& r = node.geometricRotation;
    const auto& s = node.geometricScaling;
    std::printf("    Geometric Transformations\n");
    std::printf("        Translation: %f %f %f\n", t[0], t[1], t[2]);
    std::printf("        Rotation:    %f %f %f\n", r[0], r[1], r[2]);
    std::printf("        Scaling:     %f %f %f\n", s[0], s[1], s[2]);
}
