#pragma once

#include "figures.h"

#include <vector>

namespace KORV::Tool
{
/// Nodes that are drawn together, because none lies over another.
struct Floor
{
    std::vector<uint32> mNodes;
    float mLowest = 0.0f;
    float mHighest = 0.0f;
};

/// Sorts nodes into floors: what hangs together on one level stays together, and lies above whatever it covers. There
/// are at most MAX_FLOORS; what would lie higher is in the last.
std::vector<Floor> sortIntoFloors(const MeshView& view, const std::vector<Link>& links);

constexpr uint32 MAX_FLOORS = 12;

/// Where the panels of a picture lie, all of one size and scale.
struct PanelLayout
{
    PlanPoint mMinimum; ///< lower corner of what every panel shows
    PlanPoint mMaximum;
    float mScale = 1.0f; ///< [pixels per world unit]
    int mColumns = 1;
    float mWidth = 0.0f; ///< of a panel [pixels]
    float mHeight = 0.0f;
};

PanelLayout layOutPanels(const MeshView& view, std::size_t panels);
} // namespace KORV::Tool
