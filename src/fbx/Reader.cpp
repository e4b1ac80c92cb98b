// SPDX-License-Identifier: MIT
#include "fbx/Reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "fbx/ParserDetail.h"

namespace fbx
{

namespace
{

// "Kaydara FBX Binary  " and its NUL; then 0x1A, the byte-order flag and the version.
const char BINARY_MAGIC[] = "Kaydara FBX Binary  ";
const size_t BINARY_MAGIC_SIZE = sizeof BINARY_MAGIC; // 21, with the NUL
const size_t BINARY_HEADER_SIZE = 27;
const uint32_t OLDEST_VERSION = 6000; // 6.0 files share 6.1's layout
const uint32_t NEWEST_VERSION = 7999; // 7.7 is the newest there is; 8.x would be a new format
const size_t ASCII_VERSION_SCAN = 64 * 1024; // "FBXVersion:" sits in the first few hundred bytes
// A file whose first 21 bytes are the binary magic but for this many is a damaged FBX file, not
// some other kind of file: random bytes never come that close.
const size_t DAMAGED_MAGIC_BYTES = 4;

// How many of the first bytes differ from the binary magic; all of them when the file is shorter.
size_t magicMismatches(std::span<const uint8_t> b)
{
    if (b.size() < BINARY_MAGIC_SIZE)
        return BINARY_MAGIC_SIZE;
    size_t differ = 0;
    for (size_t i = 0; i < BINARY_MAGIC_SIZE; ++i)
        differ += b[i] != static_cast<uint8_t>(BINARY_MAGIC[i]);
    return differ;
}

size_t firstMismatch(std::span<const uint8_t> b)
{
    size_t i = 0;
    while (i < BINARY_MAGIC_SIZE && b[i] == static_cast<uint8_t>(BINARY_MAGIC[i]))
        ++i;
    return i;
}

bool isSpace(uint8_t c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
bool isNameChar(uint8_t c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

size_t skipBom(std::span<const uint8_t> b)
{
    return b.size() >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF ? 3 : 0;
}

// True when the text starts, after blanks and ';' comments, with "Name:".
bool looksLikeAsciiRecords(std::span<const uint8_t> b)
{
    size_t i = skipBom(b);
    for (;;)
    {
        while (i < b.size() && isSpace(b[i]))
            ++i;
        if (i < b.size() && b[i] == ';')
        {
            while (i < b.size() && b[i] != '\n')
                ++i;
            continue;
        }
        break;
    }
    size_t start = i;
    while (i < b.size() && isNameChar(b[i]))
        ++i;
    return i > start && i < b.size() && b[i] == ':';
}

uint32_t digitsAt(std::span<const uint8_t> b, size_t& i)
{
    uint32_t v = 0;
    size_t start = i;
    while (i < b.size() && i - start < 9 && b[i] >= '0' && b[i] <= '9')
        v = v * 10 + (b[i++] - '0');
    return v;
}

// "; FBX 7.4.0 project file" on the first line, else "FBXVersion: 7400" near the top.
uint32_t asciiVersion(std::span<const uint8_t> b)
{
    size_t i = skipBom(b);
    const char tag[] = "; FBX ";
    if (b.size() - i > sizeof tag && std::memcmp(b.data() + i, tag, sizeof tag - 1) == 0)
    {
        i += sizeof tag - 1;
        uint32_t major = digitsAt(b, i);
        if (i < b.size() && b[i] == '.')
        {
            ++i;
            uint32_t minor = digitsAt(b, i);
            uint32_t revision = 0;
            if (i < b.size() && b[i] == '.')
            {
                ++i;
                revision = digitsAt(b, i);
            }
            if (major > 0 && major < 100 && minor < 10 && revision < 100)
                return major * 1000 + minor * 100 + revision;
        }
    }
    std::string_view text(reinterpret_cast<const char*>(b.data()),
                          std::min(b.size(), ASCII_VERSION_SCAN));
    size_t at = text.find("FBXVersion:");
    if (at == std::string_view::npos)
        return 0;
    size_t j = at + 11;
    while (j < text.size() && isSpace(static_cast<uint8_t>(text[j])))
        ++j;
    return digitsAt(b, j);
}

} // namespace

Version splitVersion(uint32_t v)
{
    return {static_cast<int>(v / 1000), static_cast<int>(v % 1000 / 100),
            static_cast<int>(v % 100)};
}

Result<FileBytes> readFile(const std::string& path)
{
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        return Error{"cannot open " + path + ": " + std::strerror(errno), {}, -1, ErrorKind::Io};
    FileBytes out;
    std::string failure;
    ErrorKind kind = ErrorKind::Io;
    if (std::fseek(f, 0, SEEK_END) != 0)
    {
        failure = "cannot seek in " + path;
    }
    else
    {
        long size = std::ftell(f);
        if (size < 0)
        {
            failure = "cannot tell the size of " + path;
        }
        else
        {
            std::rewind(f);
            out.size = static_cast<size_t>(size);
            out.block = allocateBlock(out.size + 1);
            if (!out.block)
            {
                failure = "not enough memory to read " + path;
                kind = ErrorKind::TooLarge;
            }
            else if (std::fread(out.block.get(), 1, out.size, f) != out.size)
                failure = "cannot read " + path;
        }
    }
    std::fclose(f);
    if (!failure.empty())
        return Error{failure, {}, -1, kind};
    return out;
}

Result<FileInfo> sniff(std::span<const uint8_t> bytes)
{
    FileInfo info;
    if (bytes.empty())
        return Error{"empty file", {}, 0};
    size_t common = std::min(bytes.size(), BINARY_MAGIC_SIZE);
    if (std::memcmp(bytes.data(), BINARY_MAGIC, common) == 0)
    {
        if (bytes.size() < BINARY_HEADER_SIZE)
            return Error{"file ends inside the binary FBX header", {}, 0};
        info.format = Format::Binary;
        if (bytes[22] > 1)
            return Error{"damaged binary FBX header: unknown byte order flag " +
                             std::to_string(bytes[22]),
                         {},
                         22};
        info.bigEndian = bytes[22] == 1;
        uint32_t v;
        std::memcpy(&v, bytes.data() + 23, 4);
        if (info.bigEndian)
            v = __builtin_bswap32(v);
        info.version = v;
        if (v < OLDEST_VERSION || v > NEWEST_VERSION)
            return Error{
                "unsupported FBX version " + std::to_string(v), {}, 23, ErrorKind::Unsupported};
        return info;
    }
    const size_t mismatches = magicMismatches(bytes);
    if (mismatches <= DAMAGED_MAGIC_BYTES)
        return Error{"damaged binary FBX header: " + std::to_string(mismatches) + " of the " +
                         std::to_string(BINARY_MAGIC_SIZE) +
                         " bytes of its \"Kaydara FBX Binary\" magic are wrong",
                     {},
                     static_cast<int64_t>(firstMismatch(bytes))};
    if (looksLikeAsciiRecords(bytes))
    {
        info.format = Format::Ascii;
        info.version = asciiVersion(bytes);
        if (info.version != 0 && (info.version < OLDEST_VERSION || info.version > NEWEST_VERSION))
            return Error{"unsupported FBX version " + std::to_string(info.version),
                         {},
                         0,
                         ErrorKind::Unsupported};
        return info;
    }
    return Error{"not an FBX file: neither the binary FBX header nor ASCII FBX records",
                 {},
                 0,
                 ErrorKind::NotFbx};
}

Result<RecordTree> parse(std::span<const uint8_t> bytes, const ParseOptions& options)
{
    Result<FileInfo> info = sniff(bytes);
    if (!info)
        return info.error();
    // The budget keeps allocations sane, but the machine may still run out: no exception
    // leaves the library.
    try
    {
        if (info->format == Format::Binary)
            return detail::parseBinary(bytes, *info, options);
        return detail::parseAscii(bytes, *info, options);
    }
    catch (const std::bad_alloc&)
    {
        return Error{"out of memory", {}, -1, ErrorKind::TooLarge};
    }
}

namespace detail
{

std::string joinPath(const std::vector<std::string_view>& names)
{
    std::string out;
    for (std::string_view n : names)
    {
        if (!out.empty())
            out += '/';
        // Record names are short identifiers; a hostile one is clipped and kept printable.
        for (char c : n.substr(0, 64))
            out += (c >= 32 && c < 127) ? c : '?';
    }
    return out;
}

} // namespace detail

} // namespace fbx
