// SPDX-License-Identifier: MIT
#include "import/GltfLoader.h"

// One translation unit holds tinygltf's code, built without its image codecs: a level needs no
// pictures, and a decoder is one more parser for hostile bytes.
#define TINYGLTF_IMPLEMENTATION
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#include <tiny_gltf.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

namespace
{
const uint64_t MAX_FILE_BYTES = uint64_t(1) << 30;   // a level or buffer file above 1 GiB is broken
const uint64_t MAX_JSON_BYTES = uint64_t(128) << 20; // parsed JSON takes up to ~8x its text
const uint64_t MAX_TRIANGLES = 50'000'000; // keeps the arrays (~5 GB) and int32 counts sane
const uint64_t MIN_TRIANGLE_ALLOWANCE =
    4'000'000;                      // any file may draw this many (~430 MB of arrays)
const uint64_t MAX_REUSE = 64;      // past that, nodes drawing one mesh over and over are hostile
const size_t MAX_NODE_DEPTH = 1000; // deeper trees are hostile, not levels
const int MODE_TRIANGLES = 4;       // glTF primitive modes
const int MODE_TRIANGLE_STRIP = 5;
const int MODE_TRIANGLE_FAN = 6;
const char* const DRACO = "KHR_draco_mesh_compression";
const size_t GLB_JSON_AT = 20; // the binary header (12 bytes) and the JSON chunk's (8)
// Extensions that store the geometry in a form the import does not decode: a file that requires
// one has nothing else to read.
const char* const UNREAD_GEOMETRY[] = {"EXT_meshopt_compression", "KHR_mesh_quantization"};

using Mat4 = std::array<double, 16>; // column-major, as glTF stores it

Mat4 identity()
{
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

Mat4 multiply(const Mat4& a, const Mat4& b)
{
    Mat4 r{};
    for (int c = 0; c < 4; ++c)
        for (int row = 0; row < 4; ++row)
            for (int k = 0; k < 4; ++k)
                r[c * 4 + row] += a[k * 4 + row] * b[c * 4 + k];
    return r;
}

// The node's local transform: its matrix, else translation * rotation * scale.
Mat4 localTransform(const tinygltf::Node& node)
{
    if (node.matrix.size() == 16)
    {
        Mat4 m;
        std::copy(node.matrix.begin(), node.matrix.end(), m.begin());
        return m;
    }
    double q[4] = {0, 0, 0, 1};
    if (node.rotation.size() == 4)
        std::copy(node.rotation.begin(), node.rotation.end(), q);
    double s[3] = {1, 1, 1};
    if (node.scale.size() == 3)
        std::copy(node.scale.begin(), node.scale.end(), s);
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    Mat4 m = {(1 - 2 * (y * y + z * z)) * s[0],
              (2 * (x * y + z * w)) * s[0],
              (2 * (x * z - y * w)) * s[0],
              0,
              (2 * (x * y - z * w)) * s[1],
              (1 - 2 * (x * x + z * z)) * s[1],
              (2 * (y * z + x * w)) * s[1],
              0,
              (2 * (x * z + y * w)) * s[2],
              (2 * (y * z - x * w)) * s[2],
              (1 - 2 * (x * x + y * y)) * s[2],
              0,
              0,
              0,
              0,
              1};
    if (node.translation.size() == 3)
        std::copy(node.translation.begin(), node.translation.end(), m.begin() + 12);
    return m;
}

// A primitive to emit, with the world transform of its node.
struct Draw
{
    const tinygltf::Primitive* primitive;
    Mat4 world;
    uint64_t triangles;
    int mesh; // its index in the model, to name it
};

// A checked view of one accessor's elements inside its buffer.
struct Elements
{
    const unsigned char* first = nullptr;
    uint64_t count = 0;
    uint64_t stride = 0;
    int componentType = 0;
    int components = 0;
    bool normalized = false;
};

int componentCount(int type)
{
    switch (type)
    {
    case TINYGLTF_TYPE_SCALAR:
        return 1;
    case TINYGLTF_TYPE_VEC2:
        return 2;
    case TINYGLTF_TYPE_VEC3:
        return 3;
    case TINYGLTF_TYPE_VEC4:
        return 4;
    default:
        return 0; // matrices never hold level data
    }
}

uint64_t componentSize(int componentType)
{
    switch (componentType)
    {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return 1;
    case TINYGLTF_COMPONENT_TYPE_SHORT:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
        return 2;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
        return 4;
    default:
        return 0;
    }
}

// Checks accessor INDEX against its buffer view and buffer; on success fills OUT. Every sum and
// product is overflow-checked, since every number here comes from the file.
std::string viewAccessor(const tinygltf::Model& model, int index, Elements& out)
{
    const std::string name = "accessor " + std::to_string(index);
    if (index < 0 || static_cast<size_t>(index) >= model.accessors.size())
        return name + " does not exist";
    const tinygltf::Accessor& accessor = model.accessors[index];
    if (accessor.sparse.isSparse)
        return name + " is sparse, which levels do not use";
    if (accessor.bufferView < 0 ||
        static_cast<size_t>(accessor.bufferView) >= model.bufferViews.size())
        return name + " has no buffer view";
    const tinygltf::BufferView& view = model.bufferViews[accessor.bufferView];
    if (view.buffer < 0 || static_cast<size_t>(view.buffer) >= model.buffers.size())
        return name + "'s buffer view has no buffer";
    const std::vector<unsigned char>& data = model.buffers[view.buffer].data;
    uint64_t viewEnd = 0;
    if (__builtin_add_overflow(uint64_t(view.byteOffset), uint64_t(view.byteLength), &viewEnd) ||
        viewEnd > data.size())
        return name + "'s buffer view runs past its buffer";

    out.components = componentCount(accessor.type);
    const uint64_t elementSize = componentSize(accessor.componentType) * out.components;
    if (elementSize == 0)
        return name + " has an unknown type";
    out.stride = view.byteStride != 0 ? view.byteStride : elementSize;
    if (out.stride < elementSize)
        return name + "'s byte stride is shorter than an element";
    out.count = accessor.count;
    if (out.count == 0 || out.count > MAX_TRIANGLES * 3)
        return name + " has " + std::to_string(out.count) + " elements";
    uint64_t end = 0;
    if (__builtin_mul_overflow(out.count - 1, out.stride, &end) ||
        __builtin_add_overflow(end, uint64_t(accessor.byteOffset), &end) ||
        __builtin_add_overflow(end, elementSize, &end) || end > view.byteLength)
        return name + " runs past its buffer view";
    out.first = data.data() + view.byteOffset + accessor.byteOffset;
    out.componentType = accessor.componentType;
    out.normalized = accessor.normalized;
    return {};
}

// Component C of element I as a float; normalized integers become 0..1.
float component(const Elements& e, uint64_t i, int c)
{
    const unsigned char* p = e.first + i * e.stride;
    switch (e.componentType)
    {
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
    {
        float f;
        std::memcpy(&f, p + c * 4, 4);
        return f;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return p[c] / (e.normalized ? 255.0f : 1.0f);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
    {
        uint16_t v;
        std::memcpy(&v, p + c * 2, 2);
        return v / (e.normalized ? 65535.0f : 1.0f);
    }
    default:
        return 0.0f;
    }
}

uint32_t indexAt(const Elements& e, uint64_t i)
{
    const unsigned char* p = e.first + i * e.stride;
    switch (e.componentType)
    {
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return p[0];
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
    {
        uint16_t v;
        std::memcpy(&v, p, 2);
        return v;
    }
    default:
    {
        uint32_t v;
        std::memcpy(&v, p, 4);
        return v;
    }
    }
}

bool finite(const float* values, int count)
{
    for (int i = 0; i < count; ++i)
        if (!std::isfinite(values[i]))
            return false;
    return true;
}

// "(1, nan, 3)"
std::string numbers(const float* values, int count)
{
    std::string out;
    char one[32];
    for (int i = 0; i < count; ++i)
    {
        std::snprintf(one, sizeof one, "%g", values[i]);
        out += (i ? ", " : "") + std::string(one);
    }
    return "(" + out + ")";
}

uint64_t triangleCount(int mode, uint64_t corners)
{
    if (mode == MODE_TRIANGLES)
        return corners / 3;
    return corners >= 3 ? corners - 2 : 0; // strip or fan
}

// The corners (into the vertex list) of triangle T of a primitive, front faces counter-clockwise.
std::array<uint64_t, 3> triangleCorners(int mode, uint64_t t)
{
    if (mode == MODE_TRIANGLES)
        return {3 * t, 3 * t + 1, 3 * t + 2};
    if (mode == MODE_TRIANGLE_FAN)
        return {t + 1, t + 2, 0};
    // every other triangle of a strip is wound the other way round
    return (t % 2 == 0) ? std::array<uint64_t, 3>{t, t + 1, t + 2}
                        : std::array<uint64_t, 3>{t + 1, t, t + 2};
}

// Reads the whole file at PATH, refusing anything but a regular file of sane size.
bool readCapped(std::vector<unsigned char>* out, std::string* err, const std::string& path, void*)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
    {
        *err = "cannot open " + path;
        return false;
    }
    if (static_cast<uint64_t>(info.st_size) > MAX_FILE_BYTES)
    {
        *err = path + " is larger than 1 GiB";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    out->resize(static_cast<size_t>(info.st_size));
    if (!in || !in.read(reinterpret_cast<char*>(out->data()), info.st_size))
    {
        *err = "cannot read " + path;
        return false;
    }
    return true;
}

// The level file mapped read-only: tinygltf copies the binary chunk out anyway, so reading the
// file into a buffer first would copy the whole level twice.
class MappedFile
{
public:
    // False with the reason in ERROR for anything but a regular file of sane size.
    bool open(const std::string& path, std::string& error)
    {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info;
        if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
            error = "cannot open " + path;
        else if (info.st_size == 0)
            error = path + " is empty";
        else if (static_cast<uint64_t>(info.st_size) > MAX_FILE_BYTES)
            error = path + " is larger than 1 GiB";
        else
        {
            void* at = ::mmap(nullptr, info.st_size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
            if (at == MAP_FAILED)
                error = "cannot read " + path;
            else
            {
                bytes_ = static_cast<const unsigned char*>(at);
                size_ = static_cast<size_t>(info.st_size);
            }
        }
        if (fd >= 0)
            ::close(fd);
        return bytes_ != nullptr;
    }
    ~MappedFile()
    {
        if (bytes_)
            ::munmap(const_cast<unsigned char*>(bytes_), size_);
    }
    const unsigned char* data() const { return bytes_; }
    size_t size() const { return size_; }

private:
    const unsigned char* bytes_ = nullptr;
    size_t size_ = 0;
};

// Images are never needed for a level: accept them undecoded.
bool skipImage(tinygltf::Image*, const int, std::string*, std::string*, int, int,
               const unsigned char*, int, void*)
{
    return true;
}

// Draco-compressed meshes are refused: tinygltf's decoding glue trusts the file's indices and
// sizes, and a level gains nothing from the compression.
std::string dracoRefusal(const std::string& path)
{
    return path + ": its meshes are compressed with Draco (" + DRACO +
           "), which the game does not read; export the level again without compression "
           "(Blender: File > Export > glTF 2.0, untick Geometry > Compression)";
}

// Why the game cannot read what the file requires, or "" when it can.
std::string unreadExtension(const tinygltf::Model& model, const std::string& path)
{
    for (const std::string& name : model.extensionsRequired)
    {
        if (name == DRACO)
            return dracoRefusal(path);
        for (const char* unread : UNREAD_GEOMETRY)
            if (name == unread)
                return path + " stores its meshes with the glTF extension " + name +
                       ", which the game does not read; export it again without it";
    }
    return {};
}

std::string firstLine(const std::string& text)
{
    const size_t end = text.find('\n');
    return end == std::string::npos ? text : text.substr(0, end);
}
} // namespace

GltfLoader::GltfLoader()
{
    std::printf("\n-------glTF Loader-------------\n");
}

GltfLoader::~GltfLoader() = default;

bool GltfLoader::load(const std::string& path)
{
    model_.reset();
    path_ = path;
    error_.clear();
    std::printf("\n-------loading the scene\n");
    MappedFile bytes;
    std::string err, warn;
    if (!bytes.open(path, err))
    {
        error_ = err;
        std::printf("Reading File failed: %s\n", error_.c_str());
        return false;
    }

    tinygltf::TinyGLTF parser;
    parser.SetImageLoader(skipImage, nullptr);
    tinygltf::FsCallbacks fs{&tinygltf::FileExists, &tinygltf::ExpandFilePath, &readCapped,
                             &tinygltf::WriteWholeFile, nullptr};
    parser.SetFsCallbacks(fs);
    auto model = std::make_unique<tinygltf::Model>();
    const std::string dir = tinygltf::GetBaseDir(path);
    const bool binary = bytes.size() >= 4 && std::memcmp(bytes.data(), "glTF", 4) == 0;
    uint32_t jsonBytes = static_cast<uint32_t>(std::min<uint64_t>(bytes.size(), UINT32_MAX));
    if (binary && bytes.size() >= 16)
        std::memcpy(&jsonBytes, bytes.data() + 12, 4); // the first chunk's length
    if (jsonBytes > MAX_JSON_BYTES)
    {
        error_ =
            path + ": the JSON part is larger than 128 MiB; keep the buffers in a .glb or .bin";
        std::printf("Reading File failed: %s\n", error_.c_str());
        return false;
    }
    bool ok = false;
    try
    {
        ok = binary ? parser.LoadBinaryFromMemory(model.get(), &err, &warn, bytes.data(),
                                                  static_cast<unsigned int>(bytes.size()), dir)
                    : parser.LoadASCIIFromString(model.get(), &err, &warn,
                                                 reinterpret_cast<const char*>(bytes.data()),
                                                 static_cast<unsigned int>(bytes.size()), dir);
    }
    catch (const std::exception& e) // the JSON library throws on some malformed numbers
    {
        err = e.what();
    }
    if (!ok)
    {
        // tinygltf stops at the first accessor a Draco file leaves without plain data.
        const size_t jsonAt = binary ? std::min<size_t>(GLB_JSON_AT, bytes.size()) : 0;
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()) + jsonAt,
                                    std::min<size_t>(jsonBytes, bytes.size() - jsonAt));
        error_ = text.find(DRACO) != std::string_view::npos
                     ? dracoRefusal(path)
                     : path + " is not a readable glTF file: " + firstLine(err.empty() ? warn : err);
        std::printf("Reading File failed: %s\n", error_.c_str());
        return false;
    }
    error_ = unreadExtension(*model, path);
    if (!error_.empty())
    {
        std::printf("Reading File failed: %s\n", error_.c_str());
        return false;
    }
    if (!warn.empty())
        std::printf("Warning: %s\n", firstLine(warn).c_str());
    std::printf("Reading File succeeded: %s (%s, %zu bytes)\n", path.c_str(),
                binary ? "binary" : "JSON", bytes.size());
    model_ = std::move(model);
    return true;
}

LevelMesh GltfLoader::convert()
{
    LevelMesh mesh;
    if (!model_)
        return mesh;
    const tinygltf::Model& model = *model_;
    if (model.scenes.empty())
    {
        error_ = path_ + " has no scene";
        return mesh;
    }
    const size_t sceneIndex =
        model.defaultScene >= 0 && static_cast<size_t>(model.defaultScene) < model.scenes.size()
            ? model.defaultScene
            : 0;

    // walk the node tree depth first, collecting the primitives to draw
    std::vector<Draw> draws;
    std::vector<bool> visited(model.nodes.size(), false);
    struct Visit
    {
        int node;
        Mat4 parent;
        size_t depth;
    };
    std::vector<Visit> stack;
    const std::vector<int>& roots = model.scenes[sceneIndex].nodes;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it)
        stack.push_back({*it, identity(), 0});
    // A small file can draw one mesh from many nodes: what it may draw grows with what it stores.
    uint64_t stored = 0;
    for (const tinygltf::Buffer& buffer : model.buffers)
        stored += buffer.data.size();
    const uint64_t allowed =
        std::min(MAX_TRIANGLES, std::max(MIN_TRIANGLE_ALLOWANCE, MAX_REUSE * (stored / 3)));
    uint64_t triangles = 0;
    size_t meshes = 0, skipped = 0;
    while (!stack.empty() && error_.empty())
    {
        const Visit visit = stack.back();
        stack.pop_back();
        if (visit.node < 0 || static_cast<size_t>(visit.node) >= model.nodes.size() ||
            visited[visit.node] || visit.depth > MAX_NODE_DEPTH)
        {
            error_ = path_ + " has a broken node tree at node " + std::to_string(visit.node);
            break;
        }
        visited[visit.node] = true; // a node used twice would make a cycle or a copy
        const tinygltf::Node& node = model.nodes[visit.node];
        const Mat4 world = multiply(visit.parent, localTransform(node));
        if (node.mesh >= 0)
        {
            if (static_cast<size_t>(node.mesh) >= model.meshes.size())
            {
                error_ = path_ + ": node " + std::to_string(visit.node) + " has no mesh " +
                         std::to_string(node.mesh);
                break;
            }
            ++meshes;
            for (const tinygltf::Primitive& primitive : model.meshes[node.mesh].primitives)
            {
                const int mode = primitive.mode < 0 ? MODE_TRIANGLES : primitive.mode;
                if (mode != MODE_TRIANGLES && mode != MODE_TRIANGLE_STRIP &&
                    mode != MODE_TRIANGLE_FAN)
                {
                    ++skipped; // points and lines are nothing to walk on
                    continue;
                }
                auto position = primitive.attributes.find("POSITION");
                if (position == primitive.attributes.end())
                {
                    ++skipped;
                    continue;
                }
                Elements elements;
                std::string problem = viewAccessor(
                    model, primitive.indices >= 0 ? primitive.indices : position->second, elements);
                if (!problem.empty())
                {
                    // Draco without a plain fallback leaves its accessors without data.
                    error_ = primitive.extensions.count(DRACO) ? dracoRefusal(path_)
                                                               : path_ + ": " + problem;
                    break;
                }
                const uint64_t count = triangleCount(mode, elements.count);
                triangles += count;
                if (triangles > allowed)
                {
                    error_ = path_ + " draws more than " + std::to_string(allowed) +
                             " triangles from " + std::to_string(stored) + " bytes of buffers";
                    break;
                }
                draws.push_back({&primitive, world, count, node.mesh});
            }
        }
        for (auto it = node.children.rbegin(); it != node.children.rend(); ++it)
            stack.push_back({*it, world, visit.depth + 1});
    }
    if (!error_.empty())
    {
        std::printf("Converting failed: %s\n", error_.c_str());
        return mesh;
    }

    // fill the arrays, checking every attribute and index before it is read
    const size_t vertexCount = triangles * 3;
    mesh.vertices = std::make_unique<float[]>(vertexCount * 4);
    mesh.normals = std::make_unique<float[]>(vertexCount * 3);
    mesh.uvs = std::make_unique<float[]>(vertexCount * 2);
    size_t out = 0;
    size_t normalsReplaced = 0; // triangles whose stored normals were not finite
    for (const Draw& draw : draws)
    {
        const tinygltf::Primitive& primitive = *draw.primitive;
        const int mode = primitive.mode < 0 ? MODE_TRIANGLES : primitive.mode;
        Elements positions, normals, uvs, indices;
        std::string problem = viewAccessor(model, primitive.attributes.at("POSITION"), positions);
        if (problem.empty() &&
            (positions.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT || positions.components != 3))
            problem = "positions are not float x, y, z";
        auto attribute = primitive.attributes.find("NORMAL");
        const bool hasNormals = problem.empty() && attribute != primitive.attributes.end();
        if (hasNormals)
        {
            problem = viewAccessor(model, attribute->second, normals);
            if (problem.empty() && (normals.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT ||
                                    normals.components != 3 || normals.count != positions.count))
                problem = "normals are not float x, y, z, one per position";
        }
        attribute = primitive.attributes.find("TEXCOORD_0");
        const bool hasUvs = problem.empty() && attribute != primitive.attributes.end();
        if (hasUvs)
        {
            problem = viewAccessor(model, attribute->second, uvs);
            if (problem.empty() &&
                (uvs.components != 2 || uvs.count != positions.count ||
                 (uvs.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT && !uvs.normalized)))
                problem = "texture coordinates are not u, v, one per position";
        }
        if (problem.empty() && primitive.indices >= 0)
        {
            problem = viewAccessor(model, primitive.indices, indices);
            if (problem.empty() &&
                (indices.components != 1 ||
                 (indices.componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE &&
                  indices.componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
                  indices.componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)))
                problem = "indices are not unsigned integers";
        }
        if (!problem.empty())
        {
            error_ = primitive.extensions.count(DRACO) ? dracoRefusal(path_)
                                                       : path_ + ": " + problem;
            break;
        }
        const std::string meshName = model.meshes[draw.mesh].name.empty()
                                         ? "mesh " + std::to_string(draw.mesh)
                                         : "mesh \"" + model.meshes[draw.mesh].name + "\"";

        // normals go through the cofactor matrix (cof[c * 3 + r] is row r, column c): the inverse
        // transpose up to a scale, defined even for a flattening transform; a mirroring one also
        // turns the triangles round
        const Mat4& m = draw.world;
        const double cof[9] = {
            m[5] * m[10] - m[6] * m[9], m[6] * m[8] - m[4] * m[10], m[4] * m[9] - m[5] * m[8],
            m[2] * m[9] - m[1] * m[10], m[0] * m[10] - m[2] * m[8], m[1] * m[8] - m[0] * m[9],
            m[1] * m[6] - m[2] * m[5],  m[2] * m[4] - m[0] * m[6],  m[0] * m[5] - m[1] * m[4]};
        const double det = m[0] * cof[0] + m[1] * cof[1] + m[2] * cof[2];
        const bool mirrored = det < 0;

        for (uint64_t t = 0; t < draw.triangles && error_.empty(); ++t)
        {
            std::array<uint64_t, 3> corners = triangleCorners(mode, t);
            if (mirrored)
                std::swap(corners[1], corners[2]);
            const size_t base = out;
            bool faceNormal = !hasNormals;
            for (uint64_t corner : corners)
            {
                const uint64_t v = primitive.indices >= 0 ? indexAt(indices, corner) : corner;
                if (v >= positions.count)
                {
                    error_ = path_ + ": index " + std::to_string(v) + " is past the " +
                             std::to_string(positions.count) + " positions";
                    break;
                }
                float p[3]; // checked above: float x, y, z
                std::memcpy(p, positions.first + v * positions.stride, sizeof p);
                for (int r = 0; r < 3; ++r)
                    mesh.vertices[out * 4 + r] =
                        float(m[r] * p[0] + m[4 + r] * p[1] + m[8 + r] * p[2] + m[12 + r]);
                mesh.vertices[out * 4 + 3] = 1.0f;
                // A value that is not a finite number would poison the collision tree and the
                // paint: refused, naming the first one (in the file, or made by the transform).
                if (!finite(&mesh.vertices[out * 4], 3))
                {
                    error_ = path_ + ": " + meshName +
                             " has a position that is not a finite number: vertex " +
                             std::to_string(v) + " is " + numbers(p, 3) +
                             (finite(p, 3) ? " in the file and not finite once its node's "
                                             "transform is applied"
                                           : "");
                    break;
                }
                if (hasNormals)
                {
                    float stored[3];
                    std::memcpy(stored, normals.first + v * normals.stride, sizeof stored);
                    double n[3], len = 0;
                    for (int r = 0; r < 3; ++r)
                    {
                        n[r] =
                            (cof[r] * stored[0] + cof[3 + r] * stored[1] + cof[6 + r] * stored[2]) *
                            (mirrored ? -1 : 1);
                        len += n[r] * n[r];
                    }
                    len = len > 0 ? std::sqrt(len) : 1;
                    for (int r = 0; r < 3; ++r)
                        mesh.normals[out * 3 + r] = float(n[r] / len);
                    // one that is not finite only loses its light: the face's normal is used
                    faceNormal = faceNormal || !finite(&mesh.normals[out * 3], 3);
                }
                if (hasUvs)
                {
                    // glTF counts v from the top of the image, the game from the bottom
                    const float uv[2] = {component(uvs, v, 0), component(uvs, v, 1)};
                    if (!finite(uv, 2))
                    {
                        error_ = path_ + ": " + meshName +
                                 " has a texture coordinate that is not a finite number: vertex " +
                                 std::to_string(v) + " has " + numbers(uv, 2);
                        break;
                    }
                    mesh.uvs[out * 2] = uv[0];
                    mesh.uvs[out * 2 + 1] = 1.0f - uv[1];
                }
                ++out;
            }
            if (faceNormal && error_.empty())
            {
                normalsReplaced += hasNormals;
                // one normal per face, from its world corners
                const float* a = &mesh.vertices[base * 4];
                const float* b = a + 4;
                const float* c = a + 8;
                const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
                const double w[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
                double n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2],
                               u[0] * w[1] - u[1] * w[0]};
                double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
                len = len > 0 ? len : 1;
                for (size_t k = base; k < base + 3; ++k)
                    for (int r = 0; r < 3; ++r)
                        mesh.normals[k * 3 + r] = float(n[r] / len);
            }
        }
        if (!error_.empty())
            break;
    }
    if (!error_.empty())
    {
        std::printf("Converting failed: %s\n", error_.c_str());
        return LevelMesh{};
    }
    if (normalsReplaced > 0)
        std::fprintf(stderr,
                     "The level file %s has normals that are not finite numbers; %zu triangles "
                     "are lit with their face normals instead\n",
                     path_.c_str(), normalsReplaced);
    std::printf("    Scene %zu: %zu meshes, %zu primitives (%zu skipped), %llu triangles\n",
                sceneIndex, meshes, draws.size(), skipped,
                static_cast<unsigned long long>(triangles));
    mesh.vertexCount = static_cast<int32_t>(vertexCount);
    return mesh;
}
