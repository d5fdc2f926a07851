#pragma once

#include "picturelayout.h"

#include <vector>

namespace KORV::Tool
{
/// An arrow across the side of a node. It belongs to the floor of the node that the way starts from.
struct Arrow
{
    PlanPoint mCrossing;
    float mOutX = 0.0f; ///< unit vector from the node across its side
    float mOutY = 0.0f;
    uint32 mFloor = 0;
    bool mUp = false;       ///< a way up leads out
    bool mDown = false;     ///< a way down leads out
    bool mBackUp = false;   ///< the way back leads up
    bool mBackDown = false; ///< the way back leads down
};

/// The jumps and drops, one arrow for a pair of nodes and its way back. Where arrows would lie closer together than
/// @p spacing (several times that for the steps of slopes), those with the greater difference in height are kept.
std::vector<Arrow> chooseArrows(const MeshView& view, const std::vector<Link>& links, const std::vector<Floor>& floors,
                                float spacing);
} // namespace KORV::Tool
