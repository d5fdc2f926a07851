#pragma once

#include "korv/navmesh/surfaces/surfacesheets.h"

namespace KORV::NavMesh
{
/// A voxel of a sheet and a side of it.
struct SheetState
{
    uint32 mSheet;
    uint32 mBit;
    uint32 mSide;

    friend bool operator==(const SheetState&, const SheetState&) = default;
};

/// Goes to a joined neighbour. @param sheets  anything that gives SheetLinks by index.
template <class Sheets>
void stepToSide(const Sheets& sheets, SheetState& state, uint32 side)
{
    if (PlaneBits::isOnEdge(state.mBit, side))
        state.mSheet = sheets[state.mSheet].mBeside[side];
    state.mBit = PlaneBits::step(state.mBit, side);
}

/// Goes on to the next edge of a border, with the surface on the left.
/// @return whether the border goes straight on there.
template <class Sheets>
bool advanceOnBorder(const Sheets& sheets, SheetState& state)
{
    const uint32 side = state.mSide;
    const uint32 left = leftOf(side);
    if (!sheets[state.mSheet].hasNeighbour(state.mBit, left))
    {
        state.mSide = left;
        return false;
    }
    stepToSide(sheets, state, left);
    if (!sheets[state.mSheet].hasNeighbour(state.mBit, side))
        return true;
    stepToSide(sheets, state, side);
    state.mSide = rightOf(side);
    return false;
}
} // namespace KORV::NavMesh
