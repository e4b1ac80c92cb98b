// SPDX-License-Identifier: MIT
#include "FbxTestSupport.h"

#include <libdeflate.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

namespace fbxtest
{

std::vector<uint8_t> readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, std::span<const uint8_t> bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

std::string tempPath(const std::string& name)
{
    return (std::filesystem::temp_directory_path() /
            ("blotch-fbx-" + std::to_string(getpid()) + "-" + name))
        .string();
}

std::optional<fbx::Document> loadSample(const std::string& name)
{
    fbx::Result<fbx::Document> d = fbx::Document::load(samplePath(name));
    if (!d)
    {
        ADD_FAILURE() << name << ": " << d.error().text();
        return std::nullopt;
    }
    return std::move(d).value();
}

// ---- BinaryFbxWriter

BinaryFbxWriter::BinaryFbxWriter(uint32_t version) : wide_(version >= 7500)
{
    put("Kaydara FBX Binary  \0\x1A\0", 23); // the magic, its NUL, 0x1A, little-endian
    put(&version, 4);
}

void BinaryFbxWriter::put(const void* data, size_t size)
{
    out_.insert(out_.end(), static_cast<const uint8_t*>(data),
                static_cast<const uint8_t*>(data) + size);
}

void BinaryFbxWriter::open(std::string_view name)
{
    if (!open_.empty() && !open_.back().children)
        open_.back().children = out_.size();
    const size_t header = out_.size();
    out_.resize(header + (wide_ ? 24 : 12), 0); // end offset, property count and bytes
    out_.push_back(static_cast<uint8_t>(name.size()));
    put(name.data(), name.size());
    open_.push_back({header, out_.size()});
}

void BinaryFbxWriter::end()
{
    const Open r = open_.back();
    open_.pop_back();
    const size_t field = wide_ ? 8 : 4;
    if (r.children)
        out_.resize(out_.size() + 3 * field + 1, 0); // the null record closing the children
    const uint64_t header[3] = {out_.size(), r.propertyCount,
                                (r.children ? r.children : out_.size()) - r.properties};
    for (int i = 0; i < 3; ++i) // the low half of each when 32-bit, on this little-endian machine
        std::memcpy(out_.data() + r.header + i * field, &header[i], field);
}

void BinaryFbxWriter::scalar(char code, const void* value, size_t size)
{
    out_.push_back(static_cast<uint8_t>(code));
    put(value, size);
    open_.back().propertyCount++;
}

void BinaryFbxWriter::string(std::string_view s)
{
    const uint32_t size = static_cast<uint32_t>(s.size());
    scalar('S', &size, 4);
    put(s.data(), s.size());
}

void BinaryFbxWriter::array(char code, const void* data, size_t count, size_t size, bool compress,
                            int64_t declaredCount)
{
    std::vector<uint8_t> payload(static_cast<const uint8_t*>(data),
                                 static_cast<const uint8_t*>(data) + count * size);
    if (compress)
    {
        libdeflate_compressor* c = libdeflate_alloc_compressor(6);
        std::vector<uint8_t> packed(libdeflate_zlib_compress_bound(c, payload.size()));
        packed.resize(libdeflate_zlib_compress(c, payload.data(), payload.size(), packed.data(),
                                               packed.size()));
        libdeflate_free_compressor(c);
        payload = std::move(packed);
    }
    const uint32_t header[3] = {uint32_t(declaredCount >= 0 ? declaredCount : int64_t(count)),
                                compress ? 1u : 0u, uint32_t(payload.size())};
    scalar(code, header, sizeof header);
    put(payload.data(), payload.size());
}

std::vector<uint8_t> BinaryFbxWriter::finish()
{
    while (!open_.empty())
        end();
    // The top-level list's null record, and zeros for a footer: the reader ignores it.
    out_.resize(out_.size() + (wide_ ? 25 : 13) + 160, 0);
    return out_;
}

// ---- hand-made ASCII files

namespace
{

template <class T> std::string joined(const std::vector<T>& v)
{
    std::ostringstream s;
    s.precision(17);
    for (const T& x : v)
        s << (&x == v.data() ? "" : ",") << x;
    return s.str();
}

} // namespace

std::string layerElement(const std::string& kind, int index, const std::string& mapping,
                         const std::string& reference, const std::string& data)
{
    return "\t\tLayerElement" + kind + ": " + std::to_string(index) +
           " {\n\t\t\tVersion: 101\n\t\t\tName: \"\"\n" + "\t\t\tMappingInformationType: \"" +
           mapping + "\"\n\t\t\tReferenceInformationType: \"" + reference + "\"\n\t\t\t" + data +
           "\n\t\t}\n";
}

std::string layerOf(int layer, const std::vector<std::pair<std::string, int>>& elements)
{
    std::string s = "\t\tLayer: " + std::to_string(layer) + " {\n\t\t\tVersion: 100\n";
    for (const auto& [type, index] : elements)
        s += "\t\t\tLayerElement:  {\n\t\t\t\tType: \"LayerElement" + type +
             "\"\n\t\t\t\tTypedIndex: " + std::to_string(index) + "\n\t\t\t}\n";
    return s + "\t\t}\n";
}

std::string asciiFile(const std::vector<AsciiMesh>& meshes)
{
    std::string objects, connections;
    int64_t id = 1000;
    for (const AsciiMesh& m : meshes)
    {
        int64_t geometry = id++, model = id++;
        objects += "\tGeometry: " + std::to_string(geometry) + ", \"Geometry::" + m.name +
                   "\", \"Mesh\" {\n";
        objects += "\t\tVertices: *" + std::to_string(m.vertices.size()) +
                   " {\n\t\t\ta: " + joined(m.vertices) + "\n\t\t}\n";
        objects += "\t\tPolygonVertexIndex: *" + std::to_string(m.polygonVertices.size()) +
                   " {\n\t\t\ta: " + joined(m.polygonVertices) + "\n\t\t}\n";
        objects += m.layerElements + m.layers + "\t}\n";
        objects += "\tModel: " + std::to_string(model) + ", \"Model::" + m.name +
                   "\", \"Mesh\" {\n\t\tVersion: 232\n\t}\n";
        connections += "\tC: \"OO\"," + std::to_string(model) + ",0\n";
        connections +=
            "\tC: \"OO\"," + std::to_string(geometry) + "," + std::to_string(model) + "\n";
    }
    return "; FBX 7.4.0 project file\n"
           "FBXHeaderExtension:  {\n\tFBXHeaderVersion: 1003\n\tFBXVersion: 7400\n}\n"
           "Objects:  {\n" +
           objects +
           "}\n"
           "Connections:  {\n" +
           connections + "}\n";
}

} // namespace fbxtest
