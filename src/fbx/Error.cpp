// SPDX-License-Identifier: MIT
#include "fbx/Error.h"

namespace fbx
{

std::string Error::text() const
{
    std::string out = path;
    if (offset >= 0)
    {
        out += out.empty() ? "at byte " : " at byte ";
        out += std::to_string(offset);
    }
    if (!out.empty())
        out += ": ";
    return out + reason;
}

} // namespace fbx
