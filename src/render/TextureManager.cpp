// SPDX-License-Identifier: MIT
#include "render/TextureManager.h"

#include "core/DataPath.h"
#include "render/ImageFile.h"

#include <GL/glew.h>

#include <cstdio>
#include <filesystem>

TextureManager::~TextureManager()
{
    for (const auto& [name, id] : textures)
    {
        glDeleteTextures(1, &id);
    }
    textures.clear();
}

void TextureManager::load(const std::string& name, unsigned int pixelFormat,
                          const std::string& extension)
{
    if (textures.count(name))
    {
        return;
    }
    loadFile(dataFile("textures/" + name + "." + extension), name, pixelFormat, GL_RGBA, 0, 0);
}

void TextureManager::loadFontPage(const std::string& name, unsigned int pixelFormat)
{
    if (textures.count(name))
    {
        return;
    }
    loadFile(dataFile("fonts/" + name + "_0.tga"), name, pixelFormat, GL_RGBA, 0, 0);
}

bool TextureManager::loadFile(const std::string& path, const std::string& name,
                              unsigned int pixelFormat, int internalFormat, int level, int border)
{
    ImageBits image;
    std::string why;
    if (!readImage(path, image, why))
    {
        // A missing picture is left to the caller; one that is there but unreadable is named.
        if (std::filesystem::exists(path))
        {
            std::fprintf(stderr, "[ERROR] Texture '%s': %s cannot be read: %s\n", name.c_str(),
                         path.c_str(), why.c_str());
        }
        return false;
    }
    const int width = image.width;
    const int height = image.height;
    // The bytes go up as they stand, so an image whose depth does not match the pixel format
    // would be read past its end.
    const unsigned bpp = image.bitsPerPixel;
    const bool wantsAlpha = pixelFormat == GL_RGBA || pixelFormat == GL_BGRA;
    if (bpp != (wantsAlpha ? 32u : 24u))
    {
        std::fprintf(stderr, "[ERROR] Texture '%s': %s is a %u-bit image, expected %d-bit\n",
                     name.c_str(), path.c_str(), bpp, wantsAlpha ? 32 : 24);
        return false;
    }
    const uint8_t* bits = image.bytes.data();

    GLuint id = 0;
    glGenTextures(1, &id);
    glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(textures.size()));
    glBindTexture(GL_TEXTURE_2D, id);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4); // every row is padded to 4 bytes
    glTexImage2D(GL_TEXTURE_2D, level, internalFormat, width, height, border, pixelFormat,
                 GL_UNSIGNED_BYTE, bits);
    glGenerateMipmap(GL_TEXTURE_2D);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glBindTexture(GL_TEXTURE_2D, 0);

    textures[name] = id;
    std::printf("Loaded Texture: %s (%dx%d)\n", name.c_str(), width, height);
    return true;
}

void TextureManager::create(const std::string& name, int width, int height)
{
    GLuint id = 0;
    glGenTextures(1, &id);
    glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(textures.size()));
    glBindTexture(GL_TEXTURE_2D, id);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glBindTexture(GL_TEXTURE_2D, 0);
    textures[name] = id;
}

void TextureManager::forget(const std::string& name)
{
    textures.erase(name);
}

unsigned int TextureManager::get(const std::string& name)
{
    return textures[name];
}

int TextureManager::unit(const std::string& name)
{
    const unsigned int id = get(name);
    int position = 1;
    for (const auto& [key, value] : textures)
    {
        if (value == id)
        {
            return position;
        }
        ++position;
    }
    return position; // not reached: get() has just stored the name
}
