// SPDX-License-Identifier: MIT
// The picture reader on arbitrary bytes, as a PNG and as a TGA (whose format only its name
// gives away).
#include "render/ImageFile.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    for (const char* extension : {".png", ".tga"})
    {
        const std::string path = "/tmp/fuzz-image-" + std::to_string(getpid()) + extension;
        std::FILE* f = std::fopen(path.c_str(), "wb");
        if (!f)
        {
            return 0;
        }
        std::fwrite(data, 1, size, f);
        std::fclose(f);
        ImageBits image;
        std::string why;
        if (readImage(path, image, why) && !image.bytes.empty())
        {
            // Every row must be there: the texture upload reads them all.
            volatile uint8_t last = image.bytes.back();
            (void)last;
        }
        std::remove(path.c_str());
    }
    return 0;
}
