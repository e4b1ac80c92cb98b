#include "FbxTestSupport.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace fbxtest
{

std::string samplesDir()
{
    return BLOTCH_FBX_SAMPLES;
}

bool haveSamples()
{
    return std::filesystem::is_directory(samplesDir());
}

std::string samplePath(const std::string& name)
{
    return samplesDir() + "/" + name;
}

std::vector<std::string> sampleNames()
{
    std::vector<std::string> names;
    if (!haveSamples())
        return names;
    for (const auto& entry : std::filesystem::directory_iterator(samplesDir()))
        if (entry.path().extension() == ".fbx")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

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

BinaryFbxWriter::BinaryFbxWriter(uint32_t version) : version_(version), wide_(version >= 7500)
{
    const char magic[] = "Kaydara FBX Binary  ";
    out_.assign(magic, magic + sizeof magic); // with its NUL
    out_.push_back(0x1A);
    out_.push_back(0); // little-endian
    put<uint32_t>(version);
}

void BinaryFbxWriter::putHeaderField(size_t at, uint64_t v)
{
    if (wide_)
        std::memcpy(out_.data() + at, &v, 8);
    else
    {
        uint32_t v32 = static_cast<uint32_t>(v);
        std::memcpy(out_.data() + at, &v32, 4);
    }
}

void BinaryFbxWriter::closeProperties(Open& r)
{
    if (r.childrenStarted)
        return;
    r.childrenStarted = true;
    size_t field = wide_ ? 8 : 4;
    putHeaderField(r.header + field, r.propertyCount);
    putHeaderField(r.header + 2 * field, out_.size() - r.propertiesStart);
}

void BinaryFbxWriter::begin(std::string_view name)
{
    if (!open_.empty())
        closeProperties(open_.back());
    Open r;
    r.header = out_.size();
    out_.resize(out_.size() + (wide_ ? 24 : 12), 0);
    out_.push_back(static_cast<uint8_t>(name.size()));
    out_.insert(out_.end(), name.begin(), name.end());
    r.propertiesStart = out_.size();
    open_.push_back(r);
}

void BinaryFbxWriter::end()
{
    Open r = open_.back();
    open_.pop_back();
    bool hadChildren = r.childrenStarted;
    closeProperties(r);
    if (hadChildren)
        out_.resize(out_.size() + (wide_ ? 25 : 13), 0); // the null record closing the list
    putHeaderField(r.header, out_.size());
}

void BinaryFbxWriter::int32(int32_t v)
{
    out_.push_back('I');
    put(v);
    open_.back().propertyCount++;
}

void BinaryFbxWriter::int64(int64_t v)
{
    out_.push_back('L');
    put(v);
    open_.back().propertyCount++;
}

void BinaryFbxWriter::real(double v)
{
    out_.push_back('D');
    put(v);
    open_.back().propertyCount++;
}

void BinaryFbxWriter::string(std::string_view s)
{
    out_.push_back('S');
    put(static_cast<uint32_t>(s.size()));
    out_.insert(out_.end(), s.begin(), s.end());
    open_.back().propertyCount++;
}

void BinaryFbxWriter::arrayOf(char code, const void* data, size_t count, size_t size, bool compress,
                              int64_t declaredCount)
{
    out_.push_back(static_cast<uint8_t>(code));
    put(static_cast<uint32_t>(declaredCount >= 0 ? declaredCount : static_cast<int64_t>(count)));
    put(static_cast<uint32_t>(compress ? 1 : 0));
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
    put(static_cast<uint32_t>(payload.size()));
    out_.insert(out_.end(), payload.begin(), payload.end());
    open_.back().propertyCount++;
}

void BinaryFbxWriter::doubles(const std::vector<double>& values, bool compress,
                              int64_t declaredCount)
{
    arrayOf('d', values.data(), values.size(), 8, compress, declaredCount);
}

void BinaryFbxWriter::ints(const std::vector<int32_t>& values, bool compress, int64_t declaredCount)
{
    arrayOf('i', values.data(), values.size(), 4, compress, declaredCount);
}

std::vector<uint8_t> BinaryFbxWriter::finish()
{
    while (!open_.empty())
        end();
    out_.resize(out_.size() + (wide_ ? 25 : 13), 0); // the top-level list's null record
    out_.resize(out_.size() + 160, 0);               // a footer stand-in: the reader ignores it
    return out_;
}

// ---- hand-made ASCII files

namespace
{

template <class T> std::string joined(const std::vector<T>& v)
{
    std::ostringstream s;
    s.precision(17);
    for (size_t i = 0; i < v.size(); ++i)
        s << (i ? "," : "") << v[i];
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

// ---- StdoutSilencer

StdoutSilencer::StdoutSilencer()
{
    std::fflush(stdout);
    saved_ = dup(1);
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0)
    {
        dup2(null, 1);
        close(null);
    }
}

StdoutSilencer::~StdoutSilencer()
{
    std::fflush(stdout);
    if (saved_ >= 0)
    {
        dup2(saved_, 1);
        close(saved_);
    }
}

} // namespace fbxtest
