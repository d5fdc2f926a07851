#pragma once

#include "scenes.h"

/// Texts of a scene in file formats. Numbers are written with the digits that give the same float again.
namespace KORV::Scenes
{
/// @param materialFile  name of the file that holds the text of materialText; empty for none
std::string objText(const Scene& scene, const std::string& materialFile);
std::string materialText(const Scene& scene);
std::string vrmlText(const Scene& scene);
} // namespace KORV::Scenes
