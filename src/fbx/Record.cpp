// SPDX-License-Identifier: MIT
#include "fbx/Record.h"

#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace fbx
{

namespace
{
const size_t HUGE_PAGE = size_t(2) << 20;  // x86-64 transparent huge page size
const size_t HUGE_BLOCK = size_t(4) << 20; // below this, rounding up to huge pages wastes too much
} // namespace

void BlockDeleter::operator()(std::byte* p) const
{
    if (huge)
        ::operator delete(p, std::align_val_t(HUGE_PAGE));
    else
        ::operator delete(p);
}

Block allocateBlock(size_t bytes)
{
    if (bytes < HUGE_BLOCK)
        return Block(static_cast<std::byte*>(::operator new(bytes, std::nothrow)),
                     BlockDeleter{false});
    size_t rounded = (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    auto* p =
        static_cast<std::byte*>(::operator new(rounded, std::align_val_t(HUGE_PAGE), std::nothrow));
#if defined(MADV_HUGEPAGE)
    if (p)
        madvise(p, rounded, MADV_HUGEPAGE); // advice only: ignored where huge pages are off
#endif
    return Block(p, BlockDeleter{true});
}

Property Property::integer(PropertyType type, int64_t value)
{
    Property p;
    p.type_ = type;
    p.i_ = value;
    return p;
}

Property Property::real(PropertyType type, double value)
{
    Property p;
    p.type_ = type;
    p.d_ = value;
    return p;
}

Property Property::block(PropertyType type, size_t count)
{
    Property p;
    p.type_ = type;
    p.count_ = count;
    // Not value-initialised: the parser overwrites every byte, and zeroing a large array
    // first would cost a pass over memory the inflater is about to write anyway.
    p.block_ = allocateBlock(count * elementSize(type) + 1);
    return p;
}

size_t Property::elementSize(PropertyType type)
{
    switch (type)
    {
    case PropertyType::DoubleArray:
    case PropertyType::Int64Array:
        return 8;
    case PropertyType::FloatArray:
    case PropertyType::Int32Array:
        return 4;
    default:
        return 1; // bool/byte arrays, strings, raw
    }
}

bool Property::isArray() const
{
    switch (type_)
    {
    case PropertyType::FloatArray:
    case PropertyType::DoubleArray:
    case PropertyType::Int64Array:
    case PropertyType::Int32Array:
    case PropertyType::BoolArray:
    case PropertyType::ByteArray:
        return true;
    default:
        return false;
    }
}

bool Property::isInteger() const
{
    switch (type_)
    {
    case PropertyType::Int16:
    case PropertyType::Bool:
    case PropertyType::Int32:
    case PropertyType::Int64:
        return true;
    default:
        return false;
    }
}

int64_t Property::toInt64() const
{
    if (isInteger())
        return i_;
    if (type_ == PropertyType::Float || type_ == PropertyType::Double)
    {
        // Out-of-range doubles (and NaN) would be undefined behaviour to convert.
        if (!(d_ > -9.2e18 && d_ < 9.2e18))
            return 0;
        return static_cast<int64_t>(d_);
    }
    return 0;
}

double Property::toDouble() const
{
    if (isInteger())
        return static_cast<double>(i_);
    if (type_ == PropertyType::Float || type_ == PropertyType::Double)
        return d_;
    return 0.0;
}

std::string_view Property::toString() const
{
    if (!isString() || count_ == 0)
        return {};
    return {reinterpret_cast<const char*>(block_.get()), count_};
}

const Record* Record::child(std::string_view childName) const
{
    for (const Record& c : children)
        if (c.name == childName)
            return &c;
    return nullptr;
}

} // namespace fbx
