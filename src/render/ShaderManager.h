// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include "core/Math.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class Shader;

// The process-wide registry of named shader programs. It also holds the current view,
// perspective and orthographic matrices, which every use() uploads to the program it binds.
// Created on the first instance() (which loads the shared programs), destroyed by destroy().
class ShaderManager : public Singleton<ShaderManager>
{
    friend class Singleton<ShaderManager>;

public:
    // Builds the program NAME and stores it under NAME. A program already stored there stays
    // alive (and unreachable) until destroy(); it is not deleted while something may still hold it.
    Shader* load(const std::string& name);
    // Binds the program NAME after unbinding whatever was bound, and uploads "perspective",
    // "view" and "ortho". An unknown name, or a program that did not link, binds nothing and
    // returns null.
    Shader* use(const std::string& name);
    // Unbinds any program and forgets which one was current.
    void unuse();
    Shader* find(const std::string& name) const;
    Shader* getCurrent() const { return current; }

    void setMatrices(const Mat4& view, const Mat4& perspective, const Mat4& ortho);
    const Mat4& getView() const { return view; }
    const Mat4& getPerspective() const { return perspective; }
    const Mat4& getOrtho() const { return ortho; }

private:
    ShaderManager();
    // Loads the shared programs once the registry is reachable.
    void created();
    ~ShaderManager();

    Mat4 view;
    Mat4 perspective;
    Mat4 ortho;
    Shader* current = nullptr;
    std::map<std::string, std::unique_ptr<Shader>> programs;
    std::vector<std::unique_ptr<Shader>> replaced;
};
