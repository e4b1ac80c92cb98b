// SPDX-License-Identifier: MIT
#include "fbx/Document.h"

#include <algorithm>
#include <limits>
#include <map>
#include <new>
#include <type_traits>
#include <utility>

#include "fbx/ParserDetail.h"

namespace fbx
{

namespace
{

const uint32_t FIRST_VERSION_7 = 7000;       // 7.x: objects by id, Properties70, Geometry objects
const uint32_t GUESSED_ASCII_VERSION = 7400; // an ASCII file that never states its version

struct KindInfo
{
    LayerElementKind kind;
    const char* record; // "LayerElementNormal"
    const char* direct; // "Normals"; null when the element has no double values
    const char* index;  // "NormalsIndex"; the index array
    const char* ints;   // "Smoothing"; integer direct values
    int components;
};

const KindInfo KINDS[] = {
    {LayerElementKind::Normal, "LayerElementNormal", "Normals", "NormalsIndex", nullptr, 3},
    {LayerElementKind::Binormal, "LayerElementBinormal", "Binormals", "BinormalsIndex", nullptr, 3},
    {LayerElementKind::Tangent, "LayerElementTangent", "Tangents", "TangentsIndex", nullptr, 3},
    {LayerElementKind::UV, "LayerElementUV", "UV", "UVIndex", nullptr, 2},
    {LayerElementKind::Color, "LayerElementColor", "Colors", "ColorIndex", nullptr, 4},
    {LayerElementKind::Material, "LayerElementMaterial", nullptr, "Materials", nullptr, 0},
    {LayerElementKind::PolygonGroup, "LayerElementPolygonGroup", nullptr, "PolygonGroup", nullptr,
     0},
    {LayerElementKind::Smoothing, "LayerElementSmoothing", nullptr, nullptr, "Smoothing", 0},
    {LayerElementKind::Visibility, "LayerElementVisibility", nullptr, nullptr, "Visibility", 0},
};

const KindInfo* kindOf(std::string_view recordName)
{
    for (const KindInfo& k : KINDS)
        if (recordName == k.record)
            return &k;
    return nullptr;
}

MappingType mappingFromName(std::string_view s)
{
    if (s == "ByVertice" || s == "ByVertex" || s == "ByControlPoint")
        return MappingType::ByControlPoint;
    if (s == "ByPolygonVertex")
        return MappingType::ByPolygonVertex;
    if (s == "ByPolygon")
        return MappingType::ByPolygon;
    if (s == "ByEdge")
        return MappingType::ByEdge;
    if (s == "AllSame")
        return MappingType::AllSame;
    if (s.empty() || s == "NoMappingInformation")
        return MappingType::None;
    return MappingType::Unknown;
}

ReferenceType referenceFromName(std::string_view s)
{
    if (s == "Direct")
        return ReferenceType::Direct;
    if (s == "IndexToDirect")
        return ReferenceType::IndexToDirect;
    if (s == "Index")
        return ReferenceType::Index;
    return ReferenceType::Unknown;
}

int clampToInt(int64_t v)
{
    return static_cast<int>(
        std::clamp<int64_t>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

std::string_view stringAt(const Record& r, size_t i)
{
    const Property* p = r.property(i);
    return p ? p->toString() : std::string_view();
}

// Splits an object name into its own name and class: "pCube1\0\1Model" in binary files,
// "Model::pCube1" in ASCII ones.
void splitName(std::string_view s, Format format, std::string& name, std::string& className)
{
    size_t sep = s.find(std::string_view("\0\1", 2));
    if (sep != std::string_view::npos)
    {
        name.assign(s.substr(0, sep));
        className.assign(s.substr(sep + 2));
        return;
    }
    if (format == Format::Ascii)
    {
        size_t colons = s.find("::");
        if (colons != std::string_view::npos)
        {
            className.assign(s.substr(0, colons));
            name.assign(s.substr(colons + 2));
            return;
        }
    }
    name.assign(s);
    className.clear();
}

std::string fullNameOf(std::string_view s, Format format)
{
    std::string name, className;
    splitName(s, format, name, className);
    return className + "::" + name;
}

// Appends every number a property holds (a scalar or any numeric array) as T.
// False when a value does not fit T.
template <class T> bool appendNumbers(const Property& p, std::vector<T>& out)
{
    auto put = [&out](auto v)
    {
        if constexpr (std::is_integral_v<T>)
        {
            if constexpr (std::is_floating_point_v<decltype(v)>)
            {
                if (!(v >= double(std::numeric_limits<T>::min()) &&
                      v <= double(std::numeric_limits<T>::max())))
                    return false;
            }
            else if (!std::in_range<T>(v))
            {
                return false;
            }
        }
        out.push_back(static_cast<T>(v));
        return true;
    };
    auto all = [&put](auto span)
    {
        for (auto v : span)
            if (!put(v))
                return false;
        return true;
    };
    switch (p.type())
    {
    case PropertyType::DoubleArray:
        return all(p.array<double>());
    case PropertyType::FloatArray:
        return all(p.array<float>());
    case PropertyType::Int64Array:
        return all(p.array<int64_t>());
    case PropertyType::Int32Array:
        return all(p.array<int32_t>());
    case PropertyType::BoolArray:
    case PropertyType::ByteArray:
        return all(p.array<uint8_t>());
    case PropertyType::Float:
    case PropertyType::Double:
        return put(p.toDouble());
    case PropertyType::Int16:
    case PropertyType::Bool:
    case PropertyType::Int32:
    case PropertyType::Int64:
        return put(p.toInt64());
    default:
        return true; // strings hold no numbers
    }
}

// The numbers of a record: its one array borrowed when it already has element type T,
// otherwise every numeric property converted (6.x writes arrays as long scalar lists).
template <class T> bool numbersOf(const Record& r, ArrayRef<T>& out)
{
    if (r.properties.size() == 1)
    {
        std::span<const T> exact = r.properties[0].array<T>();
        if (!exact.empty())
        {
            out = ArrayRef<T>::borrow(exact);
            return true;
        }
    }
    std::vector<T> values;
    size_t total = 0;
    for (const Property& p : r.properties)
        total += p.isArray() ? p.count() : 1;
    values.reserve(total);
    for (const Property& p : r.properties)
        if (!appendNumbers(p, values))
            return false;
    out = ArrayRef<T>::own(std::move(values));
    return true;
}

std::string templateKey(std::string_view objectType, std::string_view templateName,
                        std::string_view property)
{
    std::string key;
    key.reserve(objectType.size() + templateName.size() + property.size() + 2);
    key.append(objectType).append(1, '\n').append(templateName).append(1, '\n').append(property);
    return key;
}

std::string_view templateNameFor(std::string_view subClass)
{
    if (subClass == "LimbNode" || subClass == "Limb" || subClass == "Root")
        return "FbxSkeleton";
    if (subClass == "LodGroup")
        return "FbxLODGroup";
    return {};
}

} // namespace

AttributeType attributeTypeFromName(std::string_view s)
{
    struct Entry
    {
        const char* name;
        AttributeType type;
    };
    static const Entry TABLE[] = {
        {"Null", AttributeType::Null},
        {"Marker", AttributeType::Marker},
        {"IKEffector", AttributeType::Marker},
        {"FKEffector", AttributeType::Marker},
        {"LimbNode", AttributeType::Skeleton},
        {"Limb", AttributeType::Skeleton},
        {"Root", AttributeType::Skeleton},
        {"Skeleton", AttributeType::Skeleton},
        {"Mesh", AttributeType::Mesh},
        {"Nurb", AttributeType::Nurb},
        {"Nurbs", AttributeType::Nurb},
        {"Patch", AttributeType::Patch},
        {"Camera", AttributeType::Camera},
        {"CameraStereo", AttributeType::CameraStereo},
        {"CameraSwitcher", AttributeType::CameraSwitcher},
        {"Light", AttributeType::Light},
        {"OpticalReference", AttributeType::OpticalReference},
        {"OpticalMarker", AttributeType::OpticalMarker},
        {"NurbsCurve", AttributeType::NurbsCurve},
        {"TrimNurbsSurface", AttributeType::TrimNurbsSurface},
        {"Boundary", AttributeType::Boundary},
        {"NurbsSurface", AttributeType::NurbsSurface},
        {"Shape", AttributeType::Shape},
        {"LodGroup", AttributeType::LodGroup},
        {"SubDiv", AttributeType::Subdiv},
        {"CachedEffect", AttributeType::CachedEffect},
        {"Line", AttributeType::Line},
    };
    for (const Entry& e : TABLE)
        if (s == e.name)
            return e.type;
    return AttributeType::Unknown;
}

size_t PropertyValue::valueCount() const
{
    return record && record->properties.size() > first ? record->properties.size() - first : 0;
}

double PropertyValue::number(size_t i, double fallback) const
{
    if (!record)
        return fallback;
    const Property* p = record->property(first + i);
    return p && p->isNumber() ? p->toDouble() : fallback;
}

int64_t PropertyValue::integer(size_t i, int64_t fallback) const
{
    if (!record)
        return fallback;
    const Property* p = record->property(first + i);
    return p && p->isNumber() ? p->toInt64() : fallback;
}

std::string_view PropertyValue::string(size_t i) const
{
    if (!record)
        return {};
    const Property* p = record->property(first + i);
    return p ? p->toString() : std::string_view();
}

std::array<double, 3> PropertyValue::vec3(std::array<double, 3> fallback) const
{
    return {number(0, fallback[0]), number(1, fallback[1]), number(2, fallback[2])};
}

// Resolves a record tree into the document. Everything it keeps points into the tree.
class Document::Builder
{
public:
    explicit Builder(Document& d) : d_(d), format_(d.tree_->info.format) {}
    bool run();
    Error error;

private:
    bool legacy() const { return d_.version_ < FIRST_VERSION_7; }
    void readVersion();
    void readProperties(const Record& owner, std::vector<PropertyValue>& out) const;
    void readObjects();
    void readTemplates();
    void readConnections();
    void readInfo();
    void readTakes();
    bool readMeshes();
    bool readMesh(const Object& object, const std::string& path, Mesh& mesh);
    bool readLayerElements(const Record& geometry, const std::string& path, Mesh& mesh);
    void buildNodes();
    bool fail(const Record& at, const std::string& path, std::string reason)
    {
        error = Error{std::move(reason), path, static_cast<int64_t>(at.offset)};
        return false;
    }

    Document& d_;
    Format format_;
    std::vector<int> meshOfObject_; // per object: index into meshes_, or -1
};

bool Document::Builder::run()
{
    readVersion();
    readObjects();
    readTemplates();
    readConnections();
    readInfo();
    readTakes();
    if (!readMeshes())
        return false;
    buildNodes();
    return true;
}

void Document::Builder::readVersion()
{
    const RecordTree& tree = *d_.tree_;
    d_.version_ = tree.info.version;
    if (format_ == Format::Binary)
        return; // the binary header is authoritative
    if (const Record* header = tree.root.child("FBXHeaderExtension"))
        if (const Record* v = header->child("FBXVersion"))
            if (const Property* p = v->property(0);
                p && p->isInteger() && p->toInt64() > 0 && p->toInt64() < 100000)
                d_.version_ = static_cast<uint32_t>(p->toInt64());
    if (d_.version_ == 0)
    {
        const Record* connections = tree.root.child("Connections");
        d_.version_ = connections && connections->child("Connect") ? 6100 : GUESSED_ASCII_VERSION;
    }
}

void Document::Builder::readProperties(const Record& owner, std::vector<PropertyValue>& out) const
{
    // 7.x: P: name, type, label, flags, values...    6.x: Property: name, type, flags, values...
    bool seventy = true;
    const Record* list = owner.child("Properties70");
    if (!list)
    {
        list = owner.child("Properties60");
        seventy = false;
    }
    if (!list)
        return;
    const char* lineName = seventy ? "P" : "Property";
    for (const Record& line : list->children)
    {
        if (line.name != lineName || line.properties.empty() || !line.properties[0].isString())
            continue;
        PropertyValue v;
        v.record = &line;
        v.name = stringAt(line, 0);
        v.type = stringAt(line, 1);
        if (seventy)
        {
            v.label = stringAt(line, 2);
            v.flags = stringAt(line, 3);
            v.first = 4;
        }
        else
        {
            v.flags = stringAt(line, 2);
            v.first = 3;
        }
        out.push_back(v);
    }
}

void Document::Builder::readObjects()
{
    const Record* objects = d_.tree_->root.child("Objects");
    if (!objects)
        return;
    d_.objects_.reserve(objects->children.size());
    for (const Record& r : objects->children)
    {
        Object o;
        o.record = &r;
        if (legacy())
        {
            // Model: "Model::pCube1", "Mesh"
            const Property* name = r.property(0);
            if (!name || !name->isString())
                continue;
            splitName(name->toString(), format_, o.name, o.className);
            o.subClass.assign(stringAt(r, 1));
        }
        else
        {
            // Model: 1907292236800, "Model::pCube1", "Mesh"
            const Property* id = r.property(0);
            if (!id || !id->isInteger())
                continue;
            o.id = id->toInt64();
            splitName(stringAt(r, 1), format_, o.name, o.className);
            o.subClass.assign(stringAt(r, 2));
        }
        readProperties(r, o.properties);
        int index = static_cast<int>(d_.objects_.size());
        // A duplicate id or name keeps its first object.
        if (legacy())
            d_.byName_.emplace(o.fullName(), index);
        else
            d_.byId_.emplace(o.id, index);
        d_.objects_.push_back(std::move(o));
    }
}

void Document::Builder::readTemplates()
{
    const Record* definitions = d_.tree_->root.child("Definitions");
    if (!definitions)
        return;
    for (const Record& type : definitions->children)
    {
        if (type.name != "ObjectType")
            continue;
        for (const Record& t : type.children)
        {
            if (t.name != "PropertyTemplate")
                continue;
            std::vector<PropertyValue>& lines = d_.templates_.emplace_back();
            readProperties(t, lines);
            std::string objectType(stringAt(type, 0));
            std::string templateName(stringAt(t, 0));
            for (const PropertyValue& v : lines)
            {
                // The vector's elements stay put: nothing is added to it after this.
                d_.templateIndex_.emplace(templateKey(objectType, templateName, v.name), &v);
                d_.templateIndex_.emplace(templateKey(objectType, {}, v.name), &v);
            }
        }
    }
}

void Document::Builder::readConnections()
{
    const Record* connections = d_.tree_->root.child("Connections");
    if (!connections)
        return;
    for (const Record& r : connections->children)
    {
        if (r.name != "C" && r.name != "Connect")
            continue;
        Connection c;
        c.type.assign(stringAt(r, 0));
        // Property-end connections put the property name after that end.
        bool childProperty = c.type == "PO" || c.type == "PP";
        bool parentProperty = c.type == "OP" || c.type == "PP";
        size_t parentAt = childProperty ? 3 : 2;
        if (childProperty)
            c.childProperty.assign(stringAt(r, 2));
        if (parentProperty)
            c.parentProperty.assign(stringAt(r, parentAt + 1));
        const Property* child = r.property(1);
        const Property* parent = r.property(parentAt);
        if (!child || !parent)
            continue;
        if (legacy() || child->isString())
        {
            c.childName = fullNameOf(child->toString(), format_);
            c.parentName = fullNameOf(parent->toString(), format_);
            auto resolve = [this](const std::string& n)
            {
                if (n == "Model::Scene")
                    return kRootObject;
                auto it = d_.byName_.find(n);
                return it == d_.byName_.end() ? kNoObject : it->second;
            };
            c.child = resolve(c.childName);
            c.parent = resolve(c.parentName);
        }
        else
        {
            if (!child->isInteger() || !parent->isInteger())
                continue;
            c.childId = child->toInt64();
            c.parentId = parent->toInt64();
            auto resolve = [this](int64_t id)
            {
                if (id == 0)
                    return kRootObject;
                auto it = d_.byId_.find(id);
                return it == d_.byId_.end() ? kNoObject : it->second;
            };
            c.child = resolve(c.childId);
            c.parent = resolve(c.parentId);
        }
        d_.connections_.push_back(std::move(c));
    }
}

void Document::Builder::readInfo()
{
    // 7.x keeps the scene info in the header, 6.x among the objects.
    const Record* info = nullptr;
    if (const Record* header = d_.tree_->root.child("FBXHeaderExtension"))
        info = header->child("SceneInfo");
    if (!info)
        if (const Record* objects = d_.tree_->root.child("Objects"))
            info = objects->child("SceneInfo");
    if (!info)
        return;
    DocumentInfo out;
    if (const Record* meta = info->child("MetaData"))
    {
        auto text = [meta](const char* name, std::string& to)
        {
            if (const Record* r = meta->child(name))
                to.assign(stringAt(*r, 0));
        };
        text("Title", out.title);
        text("Subject", out.subject);
        text("Author", out.author);
        text("Keywords", out.keywords);
        text("Revision", out.revision);
        text("Comment", out.comment);
    }
    if (const Record* thumb = info->child("Thumbnail"))
    {
        Thumbnail t;
        auto integer = [thumb](const char* name)
        {
            const Record* r = thumb->child(name);
            const Property* p = r ? r->property(0) : nullptr;
            return p ? clampToInt(p->toInt64()) : 0;
        };
        t.format = integer("Format");
        t.size = integer("Size");
        if (const Record* image = thumb->child("ImageData"))
        {
            ArrayRef<uint8_t> bytes;
            if (numbersOf(*image, bytes))
                t.data = bytes;
            else if (const Property* raw = image->property(0); raw && raw->isString())
                t.data = ArrayRef<uint8_t>::borrow(
                    {reinterpret_cast<const uint8_t*>(raw->toString().data()),
                     raw->toString().size()});
        }
        out.thumbnail = std::move(t);
    }
    d_.info_ = std::move(out);
}

void Document::Builder::readTakes()
{
    const Record* takes = d_.tree_->root.child("Takes");
    if (!takes)
        return;
    if (const Record* current = takes->child("Current"))
        d_.currentTake_.assign(stringAt(*current, 0));
    for (const Record& r : takes->children)
    {
        if (r.name != "Take")
            continue;
        Take t;
        t.name.assign(stringAt(r, 0));
        t.importName = t.name;
        if (const Record* c = r.child("Comment"))
            t.description.assign(stringAt(*c, 0));
        if (const Record* f = r.child("FileName"))
            t.fileName.assign(stringAt(*f, 0));
        auto span = [&r](const char* name, int64_t& start, int64_t& stop)
        {
            if (const Record* s = r.child(name))
            {
                if (const Property* a = s->property(0))
                    start = a->toInt64();
                if (const Property* b = s->property(1))
                    stop = b->toInt64();
            }
        };
        span("LocalTime", t.localStart, t.localStop);
        span("ReferenceTime", t.referenceStart, t.referenceStop);
        d_.takes_.push_back(std::move(t));
    }
}

bool Document::Builder::readMeshes()
{
    meshOfObject_.assign(d_.objects_.size(), -1);
    // 7.x: Geometry objects of class Mesh; 6.x: the mesh data sits inside its Model.
    const char* holder = legacy() ? "Model" : "Geometry";
    for (size_t i = 0; i < d_.objects_.size(); ++i)
    {
        const Object& o = d_.objects_[i];
        if (o.record->name != holder || o.subClass != "Mesh")
            continue;
        Mesh mesh;
        std::string path = "Objects/" + o.record->name;
        if (!readMesh(o, path, mesh))
            return false;
        meshOfObject_[i] = static_cast<int>(d_.meshes_.size());
        d_.meshes_.push_back(std::move(mesh));
    }
    return true;
}

bool Document::Builder::readMesh(const Object& object, const std::string& path, Mesh& mesh)
{
    const Record& g = *object.record;
    mesh.geometry = &object;
    if (const Record* v = g.child("Vertices"))
    {
        if (!numbersOf(*v, mesh.controlPoints))
            return fail(*v, path + "/Vertices", "control point value out of range");
        if (mesh.controlPoints.size() % 3 != 0)
            return fail(*v, path + "/Vertices",
                        std::to_string(mesh.controlPoints.size()) +
                            " numbers are not whole x, y, z control points");
    }
    if (const Record* pvi = g.child("PolygonVertexIndex"))
    {
        const std::string at = path + "/PolygonVertexIndex";
        if (!numbersOf(*pvi, mesh.polygonVertexIndex))
            return fail(*pvi, at, "polygon vertex index out of range");
        const size_t n = mesh.polygonVertexIndex.size();
        if (n > UINT32_MAX - 1)
            return fail(*pvi, at, "too many polygon vertices");
        const int64_t points = static_cast<int64_t>(mesh.controlPointCount());
        const int32_t* idx = mesh.polygonVertexIndex.data();
        mesh.polygonStarts.reserve(n / 3 + 2);
        mesh.polygonStarts.push_back(0);
        for (size_t i = 0; i < n; ++i)
        {
            int32_t v = idx[i];
            int32_t point = v < 0 ? ~v : v;
            if (point >= points)
                return fail(*pvi, at,
                            "polygon vertex " + std::to_string(i) + " names control point " +
                                std::to_string(point) + " of " + std::to_string(points));
            if (v < 0)
                mesh.polygonStarts.push_back(static_cast<uint32_t>(i + 1));
        }
        // A last polygon without its end marker still counts.
        if (mesh.polygonStarts.back() != n)
            mesh.polygonStarts.push_back(static_cast<uint32_t>(n));
    }
    else
    {
        mesh.polygonStarts.push_back(0);
    }
    if (const Record* e = g.child("Edges"))
        if (!numbersOf(*e, mesh.edges))
            return fail(*e, path + "/Edges", "edge index out of range");
    return readLayerElements(g, path, mesh);
}

bool Document::Builder::readLayerElements(const Record& g, const std::string& path, Mesh& mesh)
{
    // Layer: N { LayerElement { Type: "LayerElementUV" TypedIndex: 1 } } puts UV set 1 on layer N.
    // Keyed by type and typed index; the first Layer to list an element places it.
    std::map<std::pair<std::string_view, int64_t>, int> placements;
    for (const Record& layer : g.children)
    {
        if (layer.name != "Layer")
            continue;
        const Property* number = layer.property(0);
        int layerNumber = number ? clampToInt(number->toInt64()) : 0;
        for (const Record& le : layer.children)
        {
            if (le.name != "LayerElement")
                continue;
            const Record* type = le.child("Type");
            const Record* typed = le.child("TypedIndex");
            if (!type)
                continue;
            const Property* t = typed ? typed->property(0) : nullptr;
            placements.emplace(std::make_pair(stringAt(*type, 0), t ? t->toInt64() : 0),
                               layerNumber);
        }
    }

    for (const Record& r : g.children)
    {
        const KindInfo* kind = kindOf(r.name);
        if (!kind)
            continue;
        const std::string at = path + "/" + r.name;
        LayerElement e;
        e.kind = kind->kind;
        e.record = &r;
        e.components = kind->components;
        const Property* typed = r.property(0);
        int64_t typedIndex = typed ? typed->toInt64() : 0;
        e.typedIndex = clampToInt(typedIndex);
        auto placed = placements.find(std::make_pair(std::string_view(r.name), typedIndex));
        e.layer = placed == placements.end() ? e.typedIndex : placed->second;
        if (const Record* n = r.child("Name"))
            e.name.assign(stringAt(*n, 0));
        if (const Record* m = r.child("MappingInformationType"))
            e.mappingName.assign(stringAt(*m, 0));
        if (const Record* m = r.child("ReferenceInformationType"))
            e.referenceName.assign(stringAt(*m, 0));
        e.mapping = mappingFromName(e.mappingName);
        e.reference = referenceFromName(e.referenceName);

        // An element without its data is treated as absent
        // (synthetic_missing_normals_7400_ascii.fbx).
        if (kind->direct)
        {
            const Record* values = r.child(kind->direct);
            if (!values)
                continue;
            if (!numbersOf(*values, e.direct))
                return fail(*values, at + "/" + kind->direct, "value out of range");
        }
        if (kind->ints)
        {
            const Record* values = r.child(kind->ints);
            if (!values)
                continue;
            if (!numbersOf(*values, e.directInts))
                return fail(*values, at + "/" + kind->ints, "value out of range");
        }
        if (kind->index)
        {
            const Record* values = r.child(kind->index);
            bool needed = !kind->direct || e.reference == ReferenceType::IndexToDirect ||
                          e.reference == ReferenceType::Index;
            if (!values && needed)
                continue;
            if (values && !numbersOf(*values, e.index))
                return fail(*values, at + "/" + kind->index, "index out of range");
        }
        mesh.layerElements.push_back(std::move(e));
    }
    std::stable_sort(mesh.layerElements.begin(), mesh.layerElements.end(),
                     [](const LayerElement& a, const LayerElement& b)
                     {
                         if (a.layer != b.layer)
                             return a.layer < b.layer;
                         if (a.kind != b.kind)
                             return a.kind < b.kind;
                         return a.typedIndex < b.typedIndex;
                     });
    if (const LayerElement* uv = mesh.element(LayerElementKind::UV, 0))
        mesh.textureUvSource = static_cast<int>(uv - mesh.layerElements.data());
    return true;
}

void Document::Builder::buildNodes()
{
    // Every Model object is a candidate node; parent links come from object-object
    // connections in file order (that order is the children's order). A Model takes its
    // first parent only, so links form a forest and the walk from the root terminates.
    const size_t count = d_.objects_.size();
    std::vector<int> parentOf(count, kNoObject);
    std::vector<std::vector<int>> childrenOf(count);
    std::vector<int> rootChildren;
    std::vector<int> attributeOf(count, -1);
    auto isModel = [this](int i) { return i >= 0 && d_.objects_[i].record->name == "Model"; };
    for (const Connection& c : d_.connections_)
    {
        if (c.type != "OO" || c.child < 0)
            continue;
        const std::string& childRecord = d_.objects_[c.child].record->name;
        if (childRecord == "Model" && (c.parent == kRootObject || isModel(c.parent)))
        {
            if (parentOf[c.child] != kNoObject || c.parent == c.child)
                continue;
            parentOf[c.child] = c.parent;
            (c.parent == kRootObject ? rootChildren : childrenOf[c.parent]).push_back(c.child);
        }
        else if (!legacy() && (childRecord == "NodeAttribute" || childRecord == "Geometry") &&
                 isModel(c.parent))
        {
            if (attributeOf[c.parent] < 0)
                attributeOf[c.parent] = c.child;
        }
    }

    d_.nodes_.clear();
    Node root;
    root.name = "RootNode";
    d_.nodes_.push_back(std::move(root));
    // Depth-first without recursion (a hostile file may chain thousands of models).
    struct Pending
    {
        int object;
        int parentNode;
    };
    std::vector<Pending> stack;
    for (auto it = rootChildren.rbegin(); it != rootChildren.rend(); ++it)
        stack.push_back({*it, 0});
    std::vector<bool> visited(count, false);
    while (!stack.empty())
    {
        Pending p = stack.back();
        stack.pop_back();
        if (visited[p.object])
            continue;
        visited[p.object] = true;
        const Object& model = d_.objects_[p.object];
        Node n;
        n.name = model.name;
        n.model = &model;
        n.parent = p.parentNode;
        n.depth = d_.nodes_[p.parentNode].depth + 1;
        if (legacy())
        {
            n.attributeType = attributeTypeFromName(model.subClass);
            n.hasAttribute = n.attributeType != AttributeType::Unknown;
            if (n.hasAttribute)
                n.attribute = &model;
            n.mesh = meshOfObject_[p.object];
        }
        else if (int a = attributeOf[p.object]; a >= 0)
        {
            n.hasAttribute = true;
            n.attribute = &d_.objects_[a];
            n.attributeType = attributeTypeFromName(n.attribute->subClass);
            n.mesh = meshOfObject_[a];
        }
        if (n.attributeType != AttributeType::Mesh)
            n.mesh = -1;
        auto vec = [this, &model](const char* name, std::array<double, 3> fallback)
        {
            const PropertyValue* v = d_.findProperty(model, name);
            return v ? v->vec3(fallback) : fallback;
        };
        n.geometricTranslation = vec("GeometricTranslation", {0, 0, 0});
        n.geometricRotation = vec("GeometricRotation", {0, 0, 0});
        n.geometricScaling = vec("GeometricScaling", {1, 1, 1});
        int index = static_cast<int>(d_.nodes_.size());
        d_.nodes_[p.parentNode].children.push_back(index);
        d_.nodes_.push_back(std::move(n));
        d_.walk_.push_back(index);
        const std::vector<int>& kids = childrenOf[p.object];
        for (auto it = kids.rbegin(); it != kids.rend(); ++it)
            stack.push_back({*it, index});
    }
}

Document::Document() = default;
Document::Document(Document&&) noexcept = default;
Document& Document::operator=(Document&&) noexcept = default;
Document::~Document() = default;

Result<Document> Document::build(RecordTree tree)
{
    try
    {
        Document d;
        d.tree_ = std::make_unique<RecordTree>(std::move(tree));
        Builder b(d);
        if (!b.run())
            return b.error;
        return d;
    }
    catch (const std::bad_alloc&)
    {
        return Error{"out of memory", {}, -1, ErrorKind::TooLarge};
    }
}

Result<Document> Document::parse(std::span<const uint8_t> bytes, const ParseOptions& options)
{
    Result<RecordTree> tree = fbx::parse(bytes, options);
    if (!tree)
        return tree.error();
    return build(std::move(tree).value());
}

Result<Document> Document::load(const std::string& path, const ParseOptions& options)
{
    Result<FileBytes> file = readFile(path);
    if (!file)
        return file.error();
    return parse(file->span(), options);
}

const Object* Document::findObject(int64_t id) const
{
    auto it = byId_.find(id);
    return it == byId_.end() ? nullptr : &objects_[it->second];
}

const Object* Document::findObjectByName(std::string_view fullName) const
{
    auto it = byName_.find(std::string(fullName));
    return it == byName_.end() ? nullptr : &objects_[it->second];
}

const PropertyValue* Document::findProperty(const Object& object, std::string_view name) const
{
    for (const PropertyValue& v : object.properties)
        if (v.name == name)
            return &v;
    // Template defaults: prefer the template made for the object's class ("FbxMesh" for a
    // Geometry of class Mesh), then any template of its type.
    std::string_view type = object.record->name;
    std::string preferred(templateNameFor(object.subClass));
    if (preferred.empty())
        preferred = "Fbx" + object.subClass;
    auto it = templateIndex_.find(templateKey(type, preferred, name));
    if (it == templateIndex_.end())
        it = templateIndex_.find(templateKey(type, {}, name));
    return it == templateIndex_.end() ? nullptr : it->second;
}

} // namespace fbx
