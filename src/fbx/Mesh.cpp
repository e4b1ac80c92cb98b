// SPDX-License-Identifier: MIT
#include "fbx/Mesh.h"

namespace fbx
{

const LayerElement* Mesh::element(LayerElementKind kind, int layer) const
{
    for (const LayerElement& e : layerElements)
        if (e.kind == kind && e.layer == layer)
            return &e;
    return nullptr;
}

std::vector<const LayerElement*> Mesh::elements(LayerElementKind kind) const
{
    std::vector<const LayerElement*> out;
    for (const LayerElement& e : layerElements)
    {
        // One element of a kind per layer, as in the SDK: the first one wins.
        if (e.kind == kind && (out.empty() || out.back()->layer != e.layer))
            out.push_back(&e);
    }
    return out;
}

int32_t Mesh::textureUvIndex(size_t polygonVertexIndexPosition) const
{
    if (textureUvSource < 0 || static_cast<size_t>(textureUvSource) >= layerElements.size())
        return -1;
    const LayerElement* uv = &layerElements[textureUvSource];
    if (uv->mapping != MappingType::ByPolygonVertex)
        return -1;
    if (uv->reference == ReferenceType::Direct)
    {
        return polygonVertexIndexPosition <= INT32_MAX
                   ? static_cast<int32_t>(polygonVertexIndexPosition)
                   : -1;
    }
    if (uv->reference == ReferenceType::IndexToDirect || uv->reference == ReferenceType::Index)
    {
        return polygonVertexIndexPosition < uv->index.size() ? uv->index[polygonVertexIndexPosition]
                                                             : -1;
    }
    return -1;
}

} // namespace fbx
