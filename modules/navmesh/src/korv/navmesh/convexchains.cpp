#include "korv/navmesh/convexchains.h"

#include "korv/common/debug/assert.h"

namespace KORV::NavMesh
{
namespace
{
/// Normalised cross product up to which a left turn still counts as straight; below it, float noise would decide.
constexpr float STRAIGHT_TOLERANCE = 0.0001f;
} // namespace

ConvexChains::ConvexChains(const ChordTable& table, Common::Memory::Allocator* allocator)
    : mTable(table), mStates(static_cast<size_t>(table.mN), State(), allocator), mRecords(allocator)
{
}

void ConvexChains::start(int32 first, int32 lowest)
{
    mFirst = first;
    mLowest = lowest;
    ++mStamp;
    mRecords.clear();
    mRecords.push_back({NONE, NONE, NONE, 0.0f}); // the first corner alone
    mStates[static_cast<size_t>(first)] = {mStamp, NONE, 0};
}

void ConvexChains::extend(int32 corner)
{
    int32 stack = NONE;
    if (corner - 1 > mFirst && isActive(corner - 1))
        stack = push(stack, corner - 1, corner, 0.0f);
    const ChordTable::Incoming* begin = mTable.mIncoming.data() + mTable.mIncomingStart[static_cast<size_t>(corner)];
    const ChordTable::Incoming* in = mTable.mIncoming.data() + mTable.mIncomingStart[static_cast<size_t>(corner) + 1];
    // downwards, so that the predecessor with the smallest index ends on top
    while (in != begin && (--in)->mFrom > mFirst)
    {
        const int32 from = in->mFrom;
        if (from != corner - 1 && isActive(from) && mTable.mayBoundPiece(from, corner))
            stack = push(stack, from, corner, mTable.mChords[in->mChord].mCost);
    }
    mStates[static_cast<size_t>(corner)] = {0, stack, NONE};
}

int32 ConvexChains::close(int32 corner) const
{
    int32 chain = mStates[static_cast<size_t>(corner)].mStack;
    // Where the closing side may bound a piece, it would stand on top as a chain of its own, at the cost of no cut.
    const bool isTopTaken = chain != NONE && !mTable.mayBoundPiece(mFirst, corner);
    int32 best = isTopTaken ? chain : NONE;
    float cost = isTopTaken ? getCost(chain) : NO_CUT;
    while (chain != NONE)
    {
        const Record& record = mRecords[static_cast<size_t>(chain)];
        if (!isConvexCorner(record.mFrom, corner, mFirst))
            break;
        if (cost >= record.mCost)
        {
            best = chain;
            cost = record.mCost;
        }
        chain = record.mBelow;
    }
    return best;
}

void ConvexChains::finish(int32 corner, float directCost)
{
    State& state = mStates[static_cast<size_t>(corner)];
    if (corner == mFirst + 1 || mTable.mayBoundPiece(mFirst, corner))
        state.mStack = push(state.mStack, mFirst, corner, directCost);
    if (state.mStack == NONE)
        return; // no convex chain leads here: the corner is left out
    state.mBest = state.mStack;
    state.mStamp = mStamp;
}

int32 ConvexChains::push(int32 stack, int32 from, int32 corner, float sideCost)
{
    const int32 chain = findBest(from, corner);
    mRecords.push_back({from, stack, chain, sideCost + getCost(chain)});
    return static_cast<int32>(mRecords.size()) - 1;
}

/// The cheapest chain to the pivot that can go on to the target. Targets ascend, so a chain that can go on to one can go
/// on to all later ones: it leaves the stack for good.
int32 ConvexChains::findBest(int32 pivot, int32 target)
{
    State& state = mStates[static_cast<size_t>(pivot)];
    while (state.mStack != NONE)
    {
        const Record& top = mRecords[static_cast<size_t>(state.mStack)];
        if (!isConvexCorner(top.mFrom, pivot, target))
            break;
        if (getCost(state.mBest) >= top.mCost)
            state.mBest = state.mStack;
        state.mStack = top.mBelow;
    }
    return state.mBest;
}

bool ConvexChains::isConvexCorner(int32 a, int32 b, int32 c) const
{
    const Vec2<float>& corner = mTable.mPolygon[static_cast<size_t>(b)];
    Vec2<float> tmp1 = corner - mTable.mPolygon[static_cast<size_t>(a)];
    Vec2<float> tmp2 = mTable.mPolygon[static_cast<size_t>(c)] - corner;
    KORV_ASSERT(tmp1.normalise() != 0.0f, "tmp1.getLength() != 0.0f", "cannot normalize null length vector");
    KORV_ASSERT(tmp2.normalise() != 0.0f, "tmp2.getLength() != 0.0f", "cannot normalize null length vector");
    return cross(tmp1, tmp2) <= STRAIGHT_TOLERANCE;
}
} // namespace KORV::NavMesh
