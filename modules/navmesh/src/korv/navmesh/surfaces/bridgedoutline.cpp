// What makes this the same as one voxel at a time on the octree: borders begin where the octree's order meets them
// first, labels spread in the order in which borders were walked, and the walk over the bridges is the same walk. What
// makes it fast: no way through the tree, and the spreading of labels ends when all borders are connected.

#include "korv/navmesh/surfaces/bridgedoutline.h"

#include "korv/common/debug/assert.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
uint32 gatherSides(const uint64 (&words)[4], uint32 bit)
{
    uint32 sides = 0;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
        sides |= static_cast<uint32>((words[side] >> bit) & 1u) << side;
    return sides;
}

void setBit(uint64& word, uint32 bit)
{
    word |= uint64{1} << bit;
}
} // namespace

void BridgedOutline::Sheet::openBorders()
{
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
        mOpen[side] = mVoxels & ~mJoins[side];
}

BridgedOutline::BridgedOutline(const SurfaceParts& parts, uint32 surface, const OutlinePoints& outlinePoints,
                               Common::Memory::Allocator* allocator)
    : mParts(parts), mSurface(parts[surface]), mOwnParts(parts.getParts(surface)), mPoints(outlinePoints),
      mSheets(allocator), mLocalOfParts(allocator), mSets(allocator), mFront(allocator), mReached(allocator)
{
}

void BridgedOutline::trace(Vector<Vec3<float>>& points)
{
    copySheets();
    linkSheets();
    markBorders();
    searchBridges();
    traceOutline(points);
}

void BridgedOutline::copySheets()
{
    const size_t numParts = static_cast<size_t>(mOwnParts.second - mOwnParts.first);
    mLocalOfParts.reserve(numParts);
    mSheets.reserve(numParts);
    for (const uint32* part = mOwnParts.first; part != mOwnParts.second; ++part)
    {
        const SurfacePart& source = mParts.getPart(*part);
        if (mSheets.empty() || mSheets.back().mSheet != source.mSheet)
        {
            mSheets.emplace_back();
            mSheets.back().mSheet = source.mSheet;
        }
        mSheets.back().mVoxels |= source.mVoxels;
        mLocalOfParts.push_back(static_cast<uint32>(mSheets.size()) - 1);
    }
}

void BridgedOutline::linkSheets()
{
    for (Sheet& sheet : mSheets)
    {
        const SurfaceSheet& source = mParts.getSheets()[sheet.mSheet];
        for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
        {
            sheet.mJoins[side] = source.mJoins[side] & sheet.mVoxels;
            const uint64 crossing = sheet.mJoins[side] & PlaneBits::EDGES[side];
            if (crossing == 0)
                continue;
            const uint32 bit = PlaneBits::step(static_cast<uint32>(std::countr_zero(crossing)), side);
            sheet.mBeside[side] = findLocal(mParts.findPart(source.mBeside[side], bit));
        }
        sheet.openBorders();
    }
}

uint32 BridgedOutline::findLocal(uint32 part) const
{
    const uint32* found = std::lower_bound(mOwnParts.first, mOwnParts.second, part);
    return mLocalOfParts[static_cast<size_t>(found - mOwnParts.first)];
}

/// Gives each border a label. A voxel's turn comes once, in the order of the octree, and with it one border; every
/// border has an edge on side 0, and at that voxel its turn comes first.
void BridgedOutline::markBorders()
{
    const PlaneLayout& layout = mParts.getSheets().getBricks().getLayout();
    mNumSets = mSurface.countBorders();
    for (uint32 i = 0; i < mSheets.size(); ++i)
    {
        Sheet& sheet = mSheets[i];
        const uint32 plane = mParts.getSheets()[sheet.mSheet].mLevel * PlaneBits::NUM_BITS;
        uint64 left = sheet.mVoxels;
        while ((left &= sheet.mOpen[0] | sheet.mOpen[1] | sheet.mOpen[2] | sheet.mOpen[3]) != 0)
        {
            uint32 first = static_cast<uint32>(std::countr_zero(left));
            for (uint64 bits = left & (left - 1); bits != 0; bits &= bits - 1)
            {
                const uint32 bit = static_cast<uint32>(std::countr_zero(bits));
                if (layout.getRank(plane + bit) < layout.getRank(plane + first))
                    first = bit;
            }
            left &= ~(uint64{1} << first);
            markBorder({i, first, static_cast<uint32>(std::countr_zero(gatherSides(sheet.mOpen, first)))});
        }
    }
}

void BridgedOutline::markBorder(SheetState state)
{
    const uint32 border = mSets.addLabel();
    do
    {
        Sheet& sheet = mSheets[state.mSheet];
        uint32& label = sheet.mLabels[state.mBit];
        if (label == 0)
        {
            label = (border + 1) << LABEL_SHIFT;
            mFront.push_back(state.mSheet * PlaneBits::NUM_BITS + state.mBit);
        }
        else if (!mSets.isSameSet((label >> LABEL_SHIFT) - 1, border))
        {
            addJoin((label >> LABEL_SHIFT) - 1, border);
            setBit(sheet.mJoinsBorders, state.mBit);
        }
        sheet.mOpen[state.mSide] &= ~(uint64{1} << state.mBit);
        advanceOnBorder(mSheets, state);
    } while (mSheets[state.mSheet].isOpen(state.mBit, state.mSide));
}

void BridgedOutline::addJoin(uint32 a, uint32 b)
{
    mSets.join(a, b);
    --mNumSets;
}

void BridgedOutline::searchBridges()
{
    while (mNumSets > 1 && !mFront.empty())
    {
        for (size_t i = 0; i < mFront.size() && mNumSets > 1; ++i)
            visit(mFront[i]);
        mFront.swap(mReached);
        mReached.clear();
    }
}

void BridgedOutline::visit(uint32 voxel)
{
    const SheetState from{voxel / PlaneBits::NUM_BITS, voxel % PlaneBits::NUM_BITS, 0};
    const Sheet& sheet = mSheets[from.mSheet];
    const uint32 border = sheet.mLabels[from.mBit] >> LABEL_SHIFT;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
    {
        if (!sheet.hasNeighbour(from.mBit, side))
            continue;
        SheetState to = from;
        stepToSide(mSheets, to, side);
        uint32& label = labelOf(to);
        if (label == 0)
        {
            label = (border << LABEL_SHIFT) | LINKED | oppositeOf(side);
            mReached.push_back(to.mSheet * PlaneBits::NUM_BITS + to.mBit);
        }
        else if (label >> LABEL_SHIFT != border)
            meet(from, side, to);
    }
}

/// Where the fronts of two borders come together.
void BridgedOutline::meet(const SheetState& from, uint32 side, const SheetState& to)
{
    const uint32 border = (labelOf(from) >> LABEL_SHIFT) - 1;
    const uint32 other = (labelOf(to) >> LABEL_SHIFT) - 1;
    if (mSets.isSameSet(other, border))
        return;
    buildBridge(from, side);
    buildBridge(to, oppositeOf(side));
    addJoin(other, border);
}

/// Marks half a bridge, from where the fronts met back to the border.
void BridgedOutline::buildBridge(SheetState state, uint32 firstSide)
{
    setBit(mSheets[state.mSheet].mBridges[firstSide], state.mBit);
    while ((labelOf(state) & LINKED) != 0)
    {
        const uint32 side = labelOf(state) % 4;
        setBit(mSheets[state.mSheet].mBridges[side], state.mBit);
        stepToSide(mSheets, state, side);
        setBit(mSheets[state.mSheet].mBridges[oppositeOf(side)], state.mBit);
    }
}

void BridgedOutline::traceOutline(Vector<Vec3<float>>& points)
{
    for (Sheet& sheet : mSheets)
        sheet.openBorders();
    SheetState start{findLocal(mParts.findPart(mSurface.mStartSheet, mSurface.mStartBit)), mSurface.mStartBit, 0};
    start.mSide = static_cast<uint32>(std::countr_zero(gatherSides(mSheets[start.mSheet].mOpen, start.mBit)));
    SheetState state = start;
    bool isFirst = true;
    do
    {
        const SheetState corner = state;
        mSheets[state.mSheet].mOpen[state.mSide] &= ~(uint64{1} << state.mBit);
        const bool crosses = meetsBridge(state);
        if (crosses)
        {
            points.push_back(mPoints.getCorner(getPosition(corner), corner.mSide));
            crossBridges(points, state);
            points.push_back(mPoints.getCorner(getPosition(state), state.mSide));
        }
        const bool isStraight = advanceOnBorder(mSheets, state);
        if (!crosses && (!isStraight || isFirst))
            points.push_back(mPoints.getCorner(getPosition(corner), corner.mSide));
        isFirst = false;
    } while (mSheets[state.mSheet].isOpen(state.mBit, state.mSide));
    KORV_ASSERT(state == start, "mergeStack.empty()",
                "Internal Error, please reduce navmesh resolution value to some degree and try again");
}

/// Whether the walk leaves the border here. Settles the place for a bridge that has met no side of the voxel so far.
bool BridgedOutline::meetsBridge(const SheetState& state)
{
    Sheet& sheet = mSheets[state.mSheet];
    const uint32 bit = state.mBit;
    if (sheet.joinsBorders(bit))
        prepareWaysOut(sheet, bit);
    else if (gatherSides(sheet.mBridges, bit) != 0 && gatherSides(sheet.mWaysOut, bit) == 0)
        setBit(sheet.mWaysOut[state.mSide], bit);
    return ((sheet.mWaysOut[state.mSide] >> bit) & 1u) != 0;
}

/// Goes from a corner into its voxel and over bridges, and comes out at a corner again: on another border, or on the
/// same one after all that hangs on the bridge has been walked around.
void BridgedOutline::crossBridges(Vector<Vec3<float>>& points, SheetState& state)
{
    uint32 cameBy = 2 * state.mSide + 1;
    for (;;)
    {
        points.push_back(mPoints.getCentre(getPosition(state)));
        const Sheet& sheet = mSheets[state.mSheet];
        const uint32 ways =
            CentreWays::get(gatherSides(sheet.mBridges, state.mBit), gatherSides(sheet.mWaysOut, state.mBit));
        const uint32 way = CentreWays::turnClockwise(ways, cameBy);
        state.mSide = way / 2;
        if (way % 2 != 0)
            return;
        stepToSide(mSheets, state, state.mSide);
        prepareWaysOut(mSheets[state.mSheet], state.mBit);
        cameBy = 2 * oppositeOf(state.mSide);
    }
}

/// Settles where a bridge meets the border of a voxel that the walk reaches over the bridge.
void BridgedOutline::prepareWaysOut(Sheet& sheet, uint32 bit)
{
    if (!sheet.isOnBorder(bit) || gatherSides(sheet.mWaysOut, bit) != 0)
        return;
    if (sheet.joinsBorders(bit))
    {
        for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
            sheet.mWaysOut[side] |= ~sheet.mJoins[side] & (uint64{1} << bit);
        return;
    }
    const uint32 open = gatherSides(sheet.mOpen, bit);
    if (KORV_BARE_ASSERT(open != 0, "neighbourID != 4"))
        setBit(sheet.mWaysOut[static_cast<uint32>(std::countr_zero(open))], bit);
}

Vec3<int32> BridgedOutline::getPosition(const SheetState& state) const
{
    const SurfaceSheets& sheets = mParts.getSheets();
    return sheets.getBricks().getLayout().toGrid(sheets.getPosition(sheets[mSheets[state.mSheet].mSheet], state.mBit));
}
} // namespace KORV::NavMesh
