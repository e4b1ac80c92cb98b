#include "scene/Decal.h"

#include "app/Settings.h"
#include "render/GlBuffer.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "sound/SoundManager.h"

#include <GL/glew.h>

#include <cstdlib>
#include <string>

Decal::Decal(const std::list<DecalPolygon>& polygons, std::unique_ptr<Bounds> box, Vec4 paint)
    : color(paint), bounds(std::move(box))
{
    textureIndex = std::rand() % TEXTURE_COUNT;
    const std::string name = "paint0" + std::to_string(textureIndex + 1);
    TextureManager& textures = TextureManager::instance();
    textures.load(name, GL_RGBA, "png");
    texture = textures.get(name);

    SoundManager::instance().playSplash();

    for (const DecalPolygon& polygon : polygons)
    {
        const int n = static_cast<int>(polygon.size());
        auto positions = std::make_unique<float[]>(static_cast<size_t>(n) * 4);
        auto uvs = std::make_unique<float[]>(static_cast<size_t>(n) * 2);
        for (int i = 0; i < n; ++i)
        {
            positions[i * 4] = polygon[i].x;
            positions[i * 4 + 1] = polygon[i].y;
            positions[i * 4 + 2] = polygon[i].z;
            positions[i * 4 + 3] = 1.0f;
            uvs[i * 2] = polygon[i].u;
            uvs[i * 2 + 1] = polygon[i].v;
        }
        vertexBuffers.push_back(
            createStaticBuffer(GL_ARRAY_BUFFER, positions.get(), size_t(n) * 16));
        texcoordBuffers.push_back(createStaticBuffer(GL_ARRAY_BUFFER, uvs.get(), size_t(n) * 8));
        vertexArrays.push_back(std::move(positions));
        texcoordArrays.push_back(std::move(uvs));
        vertexCounts.push_back(n);
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

Decal::~Decal()
{
    if (!vertexBuffers.empty())
    {
        glDeleteBuffers(static_cast<GLsizei>(vertexBuffers.size()), vertexBuffers.data());
        glDeleteBuffers(static_cast<GLsizei>(texcoordBuffers.size()), texcoordBuffers.data());
    }
}

void Decal::applyFilters() const
{
    Settings& settings = Settings::instance();
    GLint mag = 0, min = 0;
    switch (settings.getInt("texture-mipmap"))
    {
    case 0:
        mag = min = settings.getInt("texture-quality") == 0 ? GL_NEAREST : GL_LINEAR;
        break;
    case 1:
        mag = GL_NEAREST;
        min = GL_NEAREST_MIPMAP_NEAREST;
        break;
    case 2:
        mag = GL_LINEAR;
        min = GL_LINEAR_MIPMAP_LINEAR;
        break;
    default:
        return; // any other value keeps the filters the picture was loaded with
    }
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, mag);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, min);
}

void Decal::draw(Shader*)
{
    Settings& settings = Settings::instance();
    if (settings.getBool("frustum") && !Frustum::instance().isVisible(*bounds))
    {
        return;
    }
    ShaderManager& shaders = ShaderManager::instance();
    Shader* shader = shaders.use("decal");
    if (!shader)
    {
        return;
    }
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, texture);
    applyFilters();
    shader->setInt("tex", 0);
    // 0 lets the splat's soft edge blend when transparency is on; the inversion is intended.
    shader->setInt("trans", settings.getBool("transparency") ? 0 : 1);
    shader->setMatrix("model", model);
    shader->setVec4("color", &color.x);

    const bool buffers = settings.getBool("vbo");
    for (size_t i = 0; i < vertexCounts.size(); ++i)
    {
        if (buffers)
        {
            glBindBuffer(GL_ARRAY_BUFFER, vertexBuffers[i]);
            shader->setAttributeBuffer("vertex", 4);
            glBindBuffer(GL_ARRAY_BUFFER, texcoordBuffers[i]);
            shader->setAttributeBuffer("texcoord", 2);
        }
        else
        {
            shader->setAttribute("vertex", 4, vertexArrays[i].get());
            shader->setAttribute("texcoord", 2, texcoordArrays[i].get());
        }
        glDrawArrays(GL_TRIANGLE_FAN, 0, vertexCounts[i]);
        shader->disableAttribute("vertex");
        shader->disableAttribute("texcoord");
        if (buffers)
        {
            glBindBuffer(GL_ARRAY_BUFFER, 0);
        }
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    shaders.unuse();
}
