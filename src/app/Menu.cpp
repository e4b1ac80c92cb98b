// SPDX-License-Identifier: MIT
#include "app/Menu.h"

#include "app/GameState.h"
#include "core/Settings.h"
#include "render/GlBuffer.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"

#include <GL/glew.h>

Menu::Menu()
{
    TextureManager& textures = TextureManager::instance();
    textures.load("menu01", GL_BGR, "png");
    textures.load("menu02", GL_BGR, "png");
    startTexture = textures.get("menu01");
    endTexture = textures.get("menu02");

    vertexBuffer = createStaticBuffer(GL_ARRAY_BUFFER, VERTICES, sizeof(VERTICES));
    indexBuffer = createStaticBuffer(GL_ELEMENT_ARRAY_BUFFER, INDICES, sizeof(INDICES));
    texCoordBuffer = createStaticBuffer(GL_ARRAY_BUFFER, TEXCOORDS, sizeof(TEXCOORDS));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

Menu::~Menu()
{
    glDeleteBuffers(1, &vertexBuffer);
    glDeleteBuffers(1, &indexBuffer);
    glDeleteBuffers(1, &texCoordBuffer);
}

void Menu::draw()
{
    Shader* shader = ShaderManager::instance().use("menu");
    if (!shader)
    {
        return;
    }
    glDisable(GL_DEPTH_TEST);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, gameState() == GameState::Menu ? startTexture : endTexture);
    shader->setInt("tex", 0);

    if (Settings::instance().getBool("vbo"))
    {
        glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
        shader->setAttributeBuffer("in_vertex", 4);
        glBindBuffer(GL_ARRAY_BUFFER, texCoordBuffer);
        shader->setAttributeBuffer("in_texture", 2);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indexBuffer);
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, nullptr);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
        shader->disableAttribute("in_texture");
        shader->disableAttribute("in_vertex");
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    else
    {
        shader->setAttribute("in_vertex", 4, VERTICES);
        shader->setAttribute("in_texture", 2, TEXCOORDS);
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, INDICES);
        shader->disableAttribute("in_texture");
        shader->disableAttribute("in_vertex");
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    glEnable(GL_DEPTH_TEST);
}
