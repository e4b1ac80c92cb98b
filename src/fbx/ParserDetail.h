// SPDX-License-Identifier: MIT
#pragma once

// Internal to src/fbx: the two parsers behind fbx::parse().

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fbx/Error.h"
#include "fbx/Reader.h"
#include "fbx/Record.h"

namespace fbx::detail
{

Result<RecordTree> parseBinary(std::span<const uint8_t> bytes, const FileInfo& info,
                               const ParseOptions& options);
Result<RecordTree> parseAscii(std::span<const uint8_t> bytes, const FileInfo& info,
                              const ParseOptions& options);

// "Objects/Geometry/Vertices"
std::string joinPath(const std::vector<std::string_view>& names);

} // namespace fbx::detail
