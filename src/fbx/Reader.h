#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "fbx/Error.h"
#include "fbx/Record.h"

namespace fbx {

struct Version {
    int major = 0;
    int minor = 0;
    int revision = 0;
};

// The version of this reader (printed where the game used to print the FBX SDK's).
inline constexpr Version kReaderVersion{1, 0, 0};

// A file version as written (7400) split into major, minor, revision (7, 4, 0).
Version splitVersion(uint32_t fileVersion);

// Limits that keep a hostile file from taking the machine down.
struct ParseOptions {
    uint32_t maxDepth = 64;                   // records nested deeper are an error
    uint64_t memoryBudget = uint64_t(2) << 30; // bytes of parsed data (arrays, strings, records)
};

// A whole file in memory.
struct FileBytes {
    std::unique_ptr<uint8_t[]> data;
    size_t size = 0;
    std::span<const uint8_t> span() const { return {data.get(), size}; }
};

// Reads a whole file. Fails when it cannot be opened or read.
Result<FileBytes> readFile(const std::string& path);

// Recognises a binary FBX (by its magic) or an ASCII FBX (text that starts with a record)
// and reads its version, without parsing the rest.
Result<FileInfo> sniff(std::span<const uint8_t> bytes);

// Parses a binary (6.x/7.x, either byte order, 32- or 64-bit record headers) or ASCII FBX
// file into its record tree. Every read is bounds-checked; any inconsistency is an Error
// naming the byte offset and record path.
Result<RecordTree> parse(std::span<const uint8_t> bytes, const ParseOptions& options = {});

}  // namespace fbx
