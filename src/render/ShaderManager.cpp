// SPDX-License-Identifier: MIT
#include "render/ShaderManager.h"

#include "render/Shader.h"

#include <GL/glew.h>

namespace
{
// Programs every part of the game shares; "font" is added by the font registry.
const char* const SHARED_PROGRAMS[] = {"unicolor-hud", "hud",  "minimal", "unicolor",
                                       "decal",        "menu", "level"};
} // namespace

void ShaderManager::created()
{
    for (const char* name : SHARED_PROGRAMS)
    {
        load(name);
    }
}

ShaderManager::ShaderManager()
    : view(math::identity()), perspective(math::identity()), ortho(math::identity())
{
}

ShaderManager::~ShaderManager()
{
    if (current)
    {
        glUseProgram(0);
    }
    programs.clear();
    replaced.clear();
}

Shader* ShaderManager::load(const std::string& name)
{
    auto shader = std::make_unique<Shader>(name);
    Shader* result = shader.get();
    std::unique_ptr<Shader>& slot = programs[name];
    if (slot)
    {
        replaced.push_back(std::move(slot));
    }
    slot = std::move(shader);
    return result;
}

Shader* ShaderManager::use(const std::string& name)
{
    glUseProgram(0);
    current = find(name);
    if (!current || !current->isLinked())
    {
        current = nullptr;
        return nullptr;
    }
    glUseProgram(current->getProgram());
    current->setMatrix("perspective", perspective);
    current->setMatrix("view", view);
    current->setMatrix("ortho", ortho);
    return current;
}

void ShaderManager::unuse()
{
    glUseProgram(0);
    current = nullptr;
}

Shader* ShaderManager::find(const std::string& name) const
{
    const auto it = programs.find(name);
    return it == programs.end() ? nullptr : it->second.get();
}

void ShaderManager::setMatrices(const Mat4& newView, const Mat4& newPerspective,
                                const Mat4& newOrtho)
{
    view = newView;
    perspective = newPerspective;
    ortho = newOrtho;
}
