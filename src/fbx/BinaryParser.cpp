// SPDX-License-Identifier: MIT
// The binary FBX record format.
//
// After the 27-byte header, a list of records. A record is
//   end offset, property count, property list length   (u32 each; u64 from version 7500 on)
//   name length (u8), name
//   properties: a type code, then the value
//   nested records, then a null record, up to the end offset
// A list ends with a null record: a header of zeros. The top-level list's null record is
// followed by a footer that nothing here needs.

#include <libdeflate.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "fbx/ParserDetail.h"

namespace fbx::detail
{

namespace
{

const uint64_t RECORDS_START = 27;
const uint32_t WIDE_HEADER_VERSION = 7500; // 64-bit record header fields from 7.5 on
// Deflate cannot expand data by more than about 1032:1 (a 258-byte match in ~2 bits), so a
// larger declared size is a lie and is refused before anything is allocated.
const uint64_t MAX_INFLATE_RATIO = 1032;
const uint32_t MAX_INFLATE_THREADS = 4; // inflation is memory-bound well before this

// A large compressed array left for inflatePending().
struct PendingInflate
{
    const uint8_t* source;
    uint64_t stored;
    std::byte* target;
    uint64_t count;
    size_t elementSize;
    uint64_t at;      // the compressed bytes' offset, for the error
    std::string path; // the record path, for the error
    bool ok = false;
};

class BinaryParser
{
public:
    BinaryParser(std::span<const uint8_t> bytes, const FileInfo& info, const ParseOptions& options)
        : data_(bytes.data()), size_(bytes.size()), info_(info), options_(options),
          bigEndian_(info.bigEndian), wide_(info.version >= WIDE_HEADER_VERSION)
    {
    }
    ~BinaryParser()
    {
        if (inflater_)
            libdeflate_free_decompressor(inflater_);
    }
    BinaryParser(const BinaryParser&) = delete;
    BinaryParser& operator=(const BinaryParser&) = delete;

    Result<RecordTree> run();

private:
    bool parseList(uint64_t cursor, uint64_t end, std::vector<Record>& out, uint32_t depth,
                   bool topLevel);
    bool parseRecord(uint64_t& cursor, uint64_t end, std::vector<Record>& out, uint32_t depth,
                     bool& sawNull);
    bool parseProperties(uint64_t at, uint64_t end, uint64_t count, Record& record);
    bool parseArray(PropertyType type, uint64_t& at, uint64_t end, Record& record);
    bool charge(uint64_t bytes, uint64_t at);
    bool fail(uint64_t at, std::string reason, ErrorKind kind = ErrorKind::Corrupt);

    uint16_t u16(uint64_t at) const
    {
        uint16_t v;
        std::memcpy(&v, data_ + at, 2);
        return bigEndian_ ? __builtin_bswap16(v) : v;
    }
    uint32_t u32(uint64_t at) const
    {
        uint32_t v;
        std::memcpy(&v, data_ + at, 4);
        return bigEndian_ ? __builtin_bswap32(v) : v;
    }
    uint64_t u64(uint64_t at) const
    {
        uint64_t v;
        std::memcpy(&v, data_ + at, 8);
        return bigEndian_ ? __builtin_bswap64(v) : v;
    }
    bool inflatePending();
    void swapElements(std::byte* p, size_t count, size_t size) const;

    const uint8_t* data_;
    uint64_t size_;
    FileInfo info_;
    ParseOptions options_;
    bool bigEndian_;
    bool wide_;
    libdeflate_decompressor* inflater_ = nullptr;
    uint32_t threads_ = 1;
    std::vector<PendingInflate> pending_;
    uint64_t used_ = 0; // bytes charged against the memory budget
    std::vector<std::string_view>
        path_; // names of the records being read (they point into the file)
    Error error_;
};

Result<RecordTree> BinaryParser::run()
{
    threads_ = options_.inflateThreads
                   ? options_.inflateThreads
                   : std::clamp(std::thread::hardware_concurrency(), 1u, MAX_INFLATE_THREADS);
    RecordTree tree;
    tree.info = info_;
    bool ok = parseList(RECORDS_START, size_, tree.root.children, 0, true);
    // The deferred arrays all lie before whatever stopped the parse, so a failure among them
    // is the file's first error, the one a reader going in file order reports.
    if (!inflatePending())
        return error_;
    if (!ok)
        return error_;
    return tree;
}

bool BinaryParser::inflatePending()
{
    if (pending_.empty())
        return true;
    // Largest first, taken by whichever thread is free: the threads finish close together.
    std::vector<size_t> order(pending_.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [this](size_t a, size_t b)
              {
                  return pending_[a].count * pending_[a].elementSize >
                         pending_[b].count * pending_[b].elementSize;
              });
    std::atomic<size_t> next{0};
    auto work = [this, &order, &next]
    {
        libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
        for (size_t i; (i = next.fetch_add(1)) < order.size();)
        {
            PendingInflate& job = pending_[order[i]];
            job.ok = inflater && libdeflate_zlib_decompress(inflater, job.source, job.stored,
                                                            job.target, job.count * job.elementSize,
                                                            nullptr) == LIBDEFLATE_SUCCESS;
            if (job.ok && bigEndian_)
                swapElements(job.target, job.count, job.elementSize);
        }
        if (inflater)
            libdeflate_free_decompressor(inflater);
    };
    std::vector<std::thread> helpers;
    try
    {
        for (uint32_t t = 1; t < std::min<size_t>(threads_, order.size()); ++t)
            helpers.emplace_back(work);
    }
    catch (const std::system_error&)
    {
        // No thread to be had: this one does all the work.
    }
    work();
    for (std::thread& t : helpers)
        t.join();
    for (const PendingInflate& job : pending_)
    {
        if (!job.ok)
        {
            error_ = Error{"compressed array does not inflate to " +
                               std::to_string(job.count * job.elementSize) + " bytes",
                           job.path, static_cast<int64_t>(job.at)};
            pending_.clear();
            return false;
        }
    }
    pending_.clear();
    return true;
}

bool BinaryParser::fail(uint64_t at, std::string reason, ErrorKind kind)
{
    error_ = Error{std::move(reason), joinPath(path_), static_cast<int64_t>(at), kind};
    return false;
}

bool BinaryParser::charge(uint64_t bytes, uint64_t at)
{
    used_ += bytes;
    if (used_ > options_.memoryBudget)
        return fail(
            at, "exceeds the memory budget of " + std::to_string(options_.memoryBudget) + " bytes",
            ErrorKind::TooLarge);
    return true;
}

bool BinaryParser::parseList(uint64_t cursor, uint64_t end, std::vector<Record>& out,
                             uint32_t depth, bool topLevel)
{
    for (;;)
    {
        if (cursor == end)
        {
            // A nested list may end at its parent's end offset; the top-level one must close
            // with its null record, or the file was cut short.
            if (topLevel)
                return fail(cursor,
                            "file ends before the end of the top-level record list (truncated?)");
            return true;
        }
        bool sawNull = false;
        if (!parseRecord(cursor, end, out, depth, sawNull))
            return false;
        if (sawNull)
            return true;
    }
}

bool BinaryParser::parseRecord(uint64_t& cursor, uint64_t end, std::vector<Record>& out,
                               uint32_t depth, bool& sawNull)
{
    const uint64_t start = cursor;
    const uint64_t headerSize = wide_ ? 25 : 13;
    if (end - start < headerSize)
        return fail(start, "record header runs past the end of its parent");
    uint64_t endOffset, propertyCount, propertyBytes;
    if (wide_)
    {
        endOffset = u64(start);
        propertyCount = u64(start + 8);
        propertyBytes = u64(start + 16);
    }
    else
    {
        endOffset = u32(start);
        propertyCount = u32(start + 4);
        propertyBytes = u32(start + 8);
    }
    const uint8_t nameLength = data_[start + headerSize - 1];
    // Only an all-zero end, name and count make the end-of-list marker: real leaf records
    // with a zero end offset exist (maya_zero_end_7400_binary.fbx).
    if (endOffset == 0 && nameLength == 0 && propertyCount == 0)
    {
        cursor = start + headerSize;
        sawNull = true;
        return true;
    }
    const uint64_t nameAt = start + headerSize;
    if (nameLength > end - nameAt)
        return fail(start, "record name runs past the end of its parent");
    path_.emplace_back(reinterpret_cast<const char*>(data_ + nameAt), nameLength);
    if (depth >= options_.maxDepth)
        return fail(start,
                    "records nested deeper than " + std::to_string(options_.maxDepth) + " levels");

    const uint64_t propertiesAt = nameAt + nameLength;
    if (propertyBytes > end - propertiesAt)
        return fail(start, "property list of " + std::to_string(propertyBytes) +
                               " bytes runs past the end of its parent at byte " +
                               std::to_string(end));
    const uint64_t propertiesEnd = propertiesAt + propertyBytes;
    uint64_t recordEnd = propertiesEnd; // a zero end offset: a leaf that ends with its properties
    if (endOffset != 0)
    {
        if (endOffset < propertiesEnd || endOffset > end)
            return fail(start, "end offset " + std::to_string(endOffset) + " lies outside bytes " +
                                   std::to_string(propertiesEnd) + ".." + std::to_string(end));
        recordEnd = endOffset;
    }
    // Every property takes at least two bytes, so a larger count is a lie; checking it here
    // keeps the reserve below from asking for absurd memory.
    if (propertyCount > propertyBytes / 2)
        return fail(start, std::to_string(propertyCount) + " properties cannot fit in " +
                               std::to_string(propertyBytes) + " bytes");
    if (!charge(sizeof(Record) + propertyCount * sizeof(Property), start))
        return false;

    Record& record = out.emplace_back();
    record.name.assign(path_.back());
    record.offset = start;
    record.properties.reserve(propertyCount);
    if (!parseProperties(propertiesAt, propertiesEnd, propertyCount, record))
        return false;
    if (recordEnd > propertiesEnd &&
        !parseList(propertiesEnd, recordEnd, record.children, depth + 1, false))
        return false;
    path_.pop_back();
    cursor = recordEnd;
    return true;
}

bool BinaryParser::parseProperties(uint64_t at, uint64_t end, uint64_t count, Record& record)
{
    for (uint64_t i = 0; i < count; ++i)
    {
        if (at >= end)
            return fail(at, "property " + std::to_string(i) + " of " + std::to_string(count) +
                                " runs past the end of the property list");
        const char code = static_cast<char>(data_[at]);
        const uint64_t valueAt = at + 1;
        const uint64_t left = end - valueAt;
        const PropertyType type = static_cast<PropertyType>(code);
        switch (type)
        {
        case PropertyType::Int16:
            if (left < 2)
                return fail(at, "Int16 property runs past the end of the property list");
            record.properties.push_back(
                Property::integer(type, static_cast<int16_t>(u16(valueAt))));
            at = valueAt + 2;
            break;
        case PropertyType::Bool:
            if (left < 1)
                return fail(at, "Bool property runs past the end of the property list");
            record.properties.push_back(Property::integer(type, data_[valueAt]));
            at = valueAt + 1;
            break;
        case PropertyType::Int32:
            if (left < 4)
                return fail(at, "Int32 property runs past the end of the property list");
            record.properties.push_back(
                Property::integer(type, static_cast<int32_t>(u32(valueAt))));
            at = valueAt + 4;
            break;
        case PropertyType::Float:
        {
            if (left < 4)
                return fail(at, "Float property runs past the end of the property list");
            uint32_t bits = u32(valueAt);
            float f;
            std::memcpy(&f, &bits, 4);
            record.properties.push_back(Property::real(type, f));
            at = valueAt + 4;
            break;
        }
        case PropertyType::Double:
        {
            if (left < 8)
                return fail(at, "Double property runs past the end of the property list");
            uint64_t bits = u64(valueAt);
            double d;
            std::memcpy(&d, &bits, 8);
            record.properties.push_back(Property::real(type, d));
            at = valueAt + 8;
            break;
        }
        case PropertyType::Int64:
            if (left < 8)
                return fail(at, "Int64 property runs past the end of the property list");
            record.properties.push_back(
                Property::integer(type, static_cast<int64_t>(u64(valueAt))));
            at = valueAt + 8;
            break;
        case PropertyType::String:
        case PropertyType::Raw:
        {
            if (left < 4)
                return fail(at, "string length runs past the end of the property list");
            const uint64_t length = u32(valueAt);
            if (length > left - 4)
                return fail(at, "string of " + std::to_string(length) +
                                    " bytes runs past the end of the property list");
            if (!charge(length, at))
                return false;
            Property p = Property::block(type, length);
            if (!p.data())
                return fail(at,
                            "out of memory for a string of " + std::to_string(length) + " bytes");
            if (length)
                std::memcpy(p.data(), data_ + valueAt + 4, length);
            record.properties.push_back(std::move(p));
            at = valueAt + 4 + length;
            break;
        }
        case PropertyType::FloatArray:
        case PropertyType::DoubleArray:
        case PropertyType::Int64Array:
        case PropertyType::Int32Array:
        case PropertyType::BoolArray:
        case PropertyType::ByteArray:
            at = valueAt;
            if (!parseArray(type, at, end, record))
                return false;
            break;
        default:
        {
            char hex[8];
            std::snprintf(hex, sizeof hex, "0x%02x", static_cast<unsigned>(data_[at]));
            return fail(at, std::string("unknown property type ") + hex);
        }
        }
    }
    if (at != end)
        return fail(at, "properties end at byte " + std::to_string(at) +
                            " but the property list ends at byte " + std::to_string(end));
    return true;
}

bool BinaryParser::parseArray(PropertyType type, uint64_t& at, uint64_t end, Record& record)
{
    const uint64_t headerAt = at - 1; // the type code
    if (end - at < 12)
        return fail(headerAt, "array header runs past the end of the property list");
    const uint64_t count = u32(at);
    const uint32_t encoding = u32(at + 4);
    const uint64_t stored = u32(at + 8);
    at += 12;
    if (stored > end - at)
        return fail(headerAt, "array of " + std::to_string(stored) +
                                  " stored bytes runs past the end of the property list");
    const size_t elementSize = Property::elementSize(type);
    const uint64_t bytes = count * elementSize; // < 2^35: no overflow
    if (encoding == 0)
    {
        if (stored != bytes)
            return fail(headerAt, "raw array of " + std::to_string(count) + " elements needs " +
                                      std::to_string(bytes) + " bytes but holds " +
                                      std::to_string(stored));
    }
    else if (encoding == 1)
    {
        if (bytes > stored * MAX_INFLATE_RATIO)
            return fail(headerAt, "compressed array of " + std::to_string(stored) +
                                      " bytes cannot inflate to " + std::to_string(bytes) +
                                      " bytes");
    }
    else
    {
        return fail(headerAt, "unknown array encoding " + std::to_string(encoding));
    }
    if (!charge(bytes, headerAt))
        return false;

    Property p = Property::block(type, count);
    if (!p.data())
        return fail(headerAt, "out of memory for an array of " + std::to_string(bytes) + " bytes",
                    ErrorKind::TooLarge);
    if (encoding == 0)
    {
        if (bytes)
            std::memcpy(p.data(), data_ + at, bytes);
    }
    else if (threads_ > 1 && bytes >= options_.parallelInflateBytes)
    {
        // Inflated (and byte-swapped) later, with the other large arrays, in parallel.
        pending_.push_back({data_ + at, stored, p.data(), count, elementSize, at, joinPath(path_)});
        record.properties.push_back(std::move(p));
        at += stored;
        return true;
    }
    else
    {
        if (!inflater_)
        {
            inflater_ = libdeflate_alloc_decompressor();
            if (!inflater_)
                return fail(headerAt, "cannot allocate the zlib decompressor");
        }
        // Exactly the declared size, or the array is corrupt: libdeflate reports a stream
        // that ends early (SHORT_OUTPUT) or runs long (INSUFFICIENT_SPACE) as failures.
        libdeflate_result r =
            libdeflate_zlib_decompress(inflater_, data_ + at, stored, p.data(), bytes, nullptr);
        if (r != LIBDEFLATE_SUCCESS)
            return fail(at,
                        "compressed array does not inflate to " + std::to_string(bytes) + " bytes");
    }
    if (bigEndian_)
        swapElements(p.data(), count, elementSize);
    record.properties.push_back(std::move(p));
    at += stored;
    return true;
}

void BinaryParser::swapElements(std::byte* p, size_t count, size_t size) const
{
    if (size == 4)
    {
        for (size_t i = 0; i < count; ++i)
        {
            uint32_t v;
            std::memcpy(&v, p + i * 4, 4);
            v = __builtin_bswap32(v);
            std::memcpy(p + i * 4, &v, 4);
        }
    }
    else if (size == 8)
    {
        for (size_t i = 0; i < count; ++i)
        {
            uint64_t v;
            std::memcpy(&v, p + i * 8, 8);
            v = __builtin_bswap64(v);
            std::memcpy(p + i * 8, &v, 8);
        }
    }
}

} // namespace

Result<RecordTree> parseBinary(std::span<const uint8_t> bytes, const FileInfo& info,
                               const ParseOptions& options)
{
    BinaryParser parser(bytes, info, options);
    return parser.run();
}

} // namespace fbx::detail
