// SPDX-License-Identifier: MIT
// The BMFont descriptor reader and the text layout on arbitrary text.
#include "render/FontManager.h"

#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    Font font;
    readFont(in, font);
    float advance = 0.0f;
    layoutText(font, "The quick brown fox, AVATAR WAVE \x7f\x80\xff", &advance);
    layoutText(font, std::string(reinterpret_cast<const char*>(data), size < 64 ? size : 64),
               &advance);
    return 0;
}
