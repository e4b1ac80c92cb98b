// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "fbx/Error.h"
#include "fbx/Record.h"

namespace fbx
{

struct Version
{
    int major = 0;
    int minor = 0;
    int revision = 0;
};

// The version of this reader (printed where the game used to print the FBX SDK's).
inline constexpr Version kReaderVersion{1, 0, 0};

// A file version as written (7400) split into major, minor, revision (7, 4, 0).
Version splitVersion(uint32_t fileVersion);

// Limits that keep a hostile file from taking the machine down, and how to read fast.
struct ParseOptions
{
    uint32_t maxDepth = 64;                    // records nested deeper are an error
    uint64_t memoryBudget = uint64_t(2) << 30; // bytes of parsed data (arrays, strings, records)
    // Compressed arrays that inflate to at least parallelInflateBytes may be inflated after the
    // records are read, several at once: on up to inflateThreads threads (0: one per core,
    // at most 4; 1: never start a thread). Errors are the same as reading in file order.
    // Only levels with arrays this large start threads; every smaller file reads on the caller's.
    uint32_t inflateThreads = 0;
    uint64_t parallelInflateBytes = uint64_t(8) << 20;
};

// A whole file in memory.
struct FileBytes
{
    Block block;
    size_t size = 0;
    const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(block.get()); }
    std::span<const uint8_t> span() const { return {data(), size}; }
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

} // namespace fbx
