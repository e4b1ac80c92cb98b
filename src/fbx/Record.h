// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace fbx
{

// Frees what allocateBlock() gave.
struct BlockDeleter
{
    bool huge = false;
    void operator()(std::byte* p) const;
};
using Block = std::unique_ptr<std::byte[], BlockDeleter>;

// Uninitialised memory for parsed data, null when there is none to be had. Large blocks are
// 2 MiB-aligned and advised for transparent huge pages: the kernel then maps a fresh 100 MB
// array in 2 MiB pages instead of 4 KiB ones, which makes filling it markedly faster.
Block allocateBlock(size_t bytes);

// The property type codes of the binary format. ASCII files are mapped onto the same codes:
// integers become Int32 (or Int64 when they do not fit), decimals Double, quoted text String,
// bare words (Shading: T) a Bool/char when one letter long and a String otherwise.
enum class PropertyType : char
{
    Int16 = 'Y',
    Bool = 'C', // one byte; also holds a character code ('T', 'Y', ...)
    Int32 = 'I',
    Float = 'F',
    Double = 'D',
    Int64 = 'L',
    String = 'S', // may hold any bytes, including the "\x00\x01" of binary object names
    Raw = 'R',
    FloatArray = 'f',
    DoubleArray = 'd',
    Int64Array = 'l',
    Int32Array = 'i',
    BoolArray = 'b',
    ByteArray = 'c',
};

// One typed value of a record. Scalars sit inline; strings and arrays own one heap block
// that the parser fills straight from the file (arrays inflate into it), so reading a mesh
// never goes through a per-element variant.
class Property
{
public:
    Property() = default;
    Property(Property&&) noexcept = default;
    Property& operator=(Property&&) noexcept = default;

    static Property integer(PropertyType type, int64_t value);
    static Property real(PropertyType type, double value);
    // String, Raw or any array type: `count` elements of the type's size, uninitialised.
    // Its data() is null when the memory could not be allocated.
    static Property block(PropertyType type, size_t count);

    PropertyType type() const { return type_; }
    bool isArray() const;
    bool isString() const { return type_ == PropertyType::String || type_ == PropertyType::Raw; }
    bool isInteger() const; // Int16, Bool, Int32, Int64
    bool isNumber() const
    {
        return isInteger() || type_ == PropertyType::Float || type_ == PropertyType::Double;
    }

    // Scalars only: integers convert to double and back; anything else gives 0.
    int64_t toInt64() const;
    double toDouble() const;
    // String and Raw only; empty otherwise.
    std::string_view toString() const;

    // Arrays: the element count; strings: the byte count; scalars: 0.
    size_t count() const { return count_; }
    // The elements when T is exactly the element type (float f, double d, int64_t l,
    // int32_t i, uint8_t b/c); an empty span otherwise.
    template <class T> std::span<const T> array() const;

    // The raw bytes of a string or array (count() elements of elementSize()); empty for scalars.
    std::span<const std::byte> bytes() const
    {
        return block_ ? std::span<const std::byte>(block_.get(), count_ * elementSize(type_))
                      : std::span<const std::byte>();
    }
    // Writable storage of a block property, for the parsers.
    std::byte* data() { return block_.get(); }
    static size_t elementSize(PropertyType type);

private:
    template <class T> static constexpr PropertyType arrayTypeOf();

    PropertyType type_ = PropertyType::Int32;
    union
    {
        int64_t i_ = 0;
        double d_;
    };
    Block block_;
    size_t count_ = 0;
};

// A record (a "node" in the format's own words): a name, its properties and nested records.
struct Record
{
    std::string name;
    std::vector<Property> properties;
    std::vector<Record> children;
    uint64_t offset = 0; // byte offset of the record in the file

    // The first child of that name, or null.
    const Record* child(std::string_view childName) const;
    // The property at index i, or null.
    const Property* property(size_t i) const
    {
        return i < properties.size() ? &properties[i] : nullptr;
    }
};

enum class Format
{
    Binary,
    Ascii
};

// What a file's first bytes say about it.
struct FileInfo
{
    Format format = Format::Binary;
    bool bigEndian = false;
    uint32_t version = 0; // 7400 for 7.4; 0 when an ASCII file does not say
};

// A parsed file: its top-level records are root.children.
struct RecordTree
{
    FileInfo info;
    Record root;
};

template <class T> constexpr PropertyType Property::arrayTypeOf()
{
    if constexpr (std::is_same_v<T, float>)
        return PropertyType::FloatArray;
    else if constexpr (std::is_same_v<T, double>)
        return PropertyType::DoubleArray;
    else if constexpr (std::is_same_v<T, int64_t>)
        return PropertyType::Int64Array;
    else if constexpr (std::is_same_v<T, int32_t>)
        return PropertyType::Int32Array;
    else
    {
        static_assert(std::is_same_v<T, uint8_t>, "no FBX array holds this element type");
        return PropertyType::ByteArray;
    }
}

template <class T> std::span<const T> Property::array() const
{
    constexpr PropertyType wanted = arrayTypeOf<T>();
    bool match =
        type_ == wanted || (wanted == PropertyType::ByteArray && type_ == PropertyType::BoolArray);
    if (!match || count_ == 0)
        return {};
    // Blocks are aligned for any element type (see allocateBlock).
    return {reinterpret_cast<const T*>(block_.get()), count_};
}

} // namespace fbx
