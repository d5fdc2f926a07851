#include "scenefile.h"

#include <charconv>

namespace KORV::Scenes
{
namespace
{
void append(std::string& text, float value)
{
    char digits[32];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    text.append(digits, end.ptr);
}

void append(std::string& text, const Vertex& vertex)
{
    append(text, vertex.mX);
    text += ' ';
    append(text, vertex.mY);
    text += ' ';
    append(text, vertex.mZ);
}

void appendColour(std::string& text, const Material& material)
{
    append(text, Vertex{material.mColour[0], material.mColour[1], material.mColour[2]});
}

std::vector<std::vector<const Triangle*>> byMaterial(const Scene& scene)
{
    std::vector<std::vector<const Triangle*>> groups(scene.mMaterials.size());
    for (const Triangle& triangle : scene.mTriangles)
        groups[triangle.mMaterial].push_back(&triangle);
    return groups;
}

// One shape a material, with only the vertices that it uses: an importer appends all points of a shape.
void appendShape(std::string& text, const Scene& scene, const Material& material,
                 const std::vector<const Triangle*>& triangles)
{
    std::vector<std::int64_t> newIndex(scene.mVertices.size(), -1);
    std::int64_t count = 0;
    std::string points;
    std::string indices;
    for (const Triangle* triangle : triangles)
    {
        indices += "     ";
        for (const std::uint32_t vertex : triangle->mVertices)
        {
            if (newIndex[vertex] < 0)
            {
                newIndex[vertex] = count++;
                points += "     ";
                append(points, scene.mVertices[vertex]);
                points += ",\n";
            }
            indices += ' ' + std::to_string(newIndex[vertex]);
        }
        indices += " -1\n";
    }
    text += "Shape {\n  appearance Appearance { material Material { diffuseColor ";
    appendColour(text, material);
    text += " } }\n  geometry IndexedFaceSet {\n    coord Coordinate { point [\n" + points +
            "    ] }\n    coordIndex [\n" + indices + "    ]\n  }\n}\n";
}
} // namespace

std::string objText(const Scene& scene, const std::string& materialFile)
{
    std::string text = "# y up, one unit is a metre\n";
    if (!materialFile.empty())
        text += "mtllib " + materialFile + "\n";
    for (const Vertex& vertex : scene.mVertices)
    {
        text += "v ";
        append(text, vertex);
        text += '\n';
    }
    const auto groups = byMaterial(scene);
    for (std::size_t group = 0; group < groups.size(); ++group)
    {
        if (groups[group].empty())
            continue;
        text += "usemtl " + scene.mMaterials[group].mName + '\n';
        for (const Triangle* triangle : groups[group])
        {
            text += 'f';
            for (const std::uint32_t vertex : triangle->mVertices)
                text += ' ' + std::to_string(vertex + 1);
            text += '\n';
        }
    }
    return text;
}

std::string materialText(const Scene& scene)
{
    std::string text;
    for (const Material& material : scene.mMaterials)
    {
        text += "newmtl " + material.mName + "\nKd ";
        appendColour(text, material);
        text += '\n';
    }
    return text;
}

std::string vrmlText(const Scene& scene)
{
    std::string text = "#VRML V2.0 utf8\n# y up, one unit is a metre\n";
    const auto groups = byMaterial(scene);
    for (std::size_t group = 0; group < groups.size(); ++group)
        if (!groups[group].empty())
            appendShape(text, scene, scene.mMaterials[group], groups[group]);
    return text;
}
} // namespace KORV::Scenes
