// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include <map>
#include <string>

// The process-wide registry from a short texture name ("menu01", "paint03", a font name,
// "motionblur1") to a GL texture. Images are decoded with SDL_image and uploaded bottom row
// first with blue before red in every pixel (see ImageFile.h), so the caller's pixel format
// decides how the bytes are read (a 24-bit image passed as GL_BGR comes out right).
class TextureManager : public Singleton<TextureManager>
{
    friend class Singleton<TextureManager>;

public:
    virtual ~TextureManager();

    // Loads data/textures/NAME.EXTENSION once; a name already present is left alone.
    void load(const std::string& name, unsigned int pixelFormat, const std::string& extension);
    // Loads data/fonts/NAME_0.tga once, registered under the bare font name.
    void loadFontPage(const std::string& name, unsigned int pixelFormat);
    // Decodes PATH and registers it under NAME with mipmaps. False, silently, when the file is
    // missing, unreadable or not an image: nothing is registered then.
    bool loadFile(const std::string& path, const std::string& name, unsigned int pixelFormat,
                  int internalFormat, int level, int border);
    // An empty RGBA8 render target with nearest filtering. Replaces (without deleting) any
    // texture stored under NAME.
    void create(const std::string& name, int width, int height);
    // Drops NAME from the registry without deleting its texture: for render targets whose owner
    // deletes them itself.
    void forget(const std::string& name);
    // The GL texture name; an unknown name is recorded with 0, which also stops later loads of
    // that name from retrying a file that was not there.
    unsigned int get(const std::string& name);
    // The texture unit to bind NAME to: the 1-based position, in name order, of the first entry
    // holding the same texture. Unit 0 is never handed out here.
    int unit(const std::string& name);

    size_t size() const { return textures.size(); }

protected:
    TextureManager() = default;

private:
    std::map<std::string, unsigned int> textures;
};
