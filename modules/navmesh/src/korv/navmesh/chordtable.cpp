#include "korv/navmesh/chordtable.h"

#include "korv/common/debug/assert.h"
#include "korv/navmesh/outlinevisibility.h"

#include <algorithm>

// The search for pieces asks again and again whether a chain that comes from f may go over p to t. For corners that p
// sees, directions turn with the index, so the f that may are a leading run, and it grows with t. The table keeps the
// end of that run with the chord (p, t): the question becomes a comparison of indices. Where float noise breaks the
// order (near-collinear corners, slits), the corner p is marked and the question is asked of the points.

namespace KORV::NavMesh
{
namespace
{
/// A left turn of up to this sine still counts as straight; under it, float noise would decide.
constexpr float CORNER_TOLERANCE = 0.0001f;

bool turnsConvex(const Vec2<float>& arriving, const Vec2<float>& leaving)
{
    return cross(arriving, leaving) <= CORNER_TOLERANCE;
}
} // namespace

bool isConvexCorner(const PlaneOutline& outline, int32 a, int32 b, int32 c)
{
    return turnsConvex(normalised(outline[b] - outline[a]), normalised(outline[c] - outline[b]));
}

ChordTable::ChordTable(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mLaterStart(allocator), mLater(allocator), mChordStart(allocator), mChords(allocator),
      mFilled(allocator), mEdgeHidden(allocator), mOrdered(allocator), mArrivals(allocator)
{
}

bool ChordTable::build(const std::atomic<bool>& stop)
{
    if (!findVisible(stop))
        return false;
    countChords();
    const int32 n = mOutline.size();
    mOrdered.assign(static_cast<size_t>(n), 1);
    mFilled.assign(static_cast<size_t>(n), 0);
    for (int32 p = 0; p < n; ++p)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        gatherArrivals(p);
        computeCloseLimits(p);
        computeTurnLimits(p);
    }
    return true;
}

bool ChordTable::findVisible(const std::atomic<bool>& stop)
{
    const int32 n = mOutline.size();
    OutlineVisibility visibility(mOutline.mPoints, mOutline.mReflex, mLater.get_allocator().getAllocator());
    mLaterStart.assign(static_cast<size_t>(n) + 1, 0);
    mEdgeHidden.assign(static_cast<size_t>(n), 0);
    for (int32 i = 0; i < n; ++i)
    {
        if (stop.load(std::memory_order_relaxed))
            return false;
        const size_t start = mLater.size();
        if (i + 1 < n)
            visibility.appendVisible(mLater, i);
        if (i + 1 < n && (mLater.size() == start || mLater[start] != i + 1))
            mEdgeHidden[static_cast<size_t>(i) + 1] = 1;
        // the closing edge is there, whatever the sweep says
        if (i == 0 && (mLater.empty() || mLater.back() != n - 1))
            mLater.push_back(n - 1);
        mLaterStart[static_cast<size_t>(i) + 1] = static_cast<uint32>(mLater.size());
    }
    return true;
}

void ChordTable::countChords()
{
    mChordStart.assign(static_cast<size_t>(mOutline.size()) + 1, 0);
    for (const int32 k : mLater)
        ++mChordStart[static_cast<size_t>(k) + 1];
    for (size_t k = 1; k < mChordStart.size(); ++k)
        mChordStart[k] += mChordStart[k - 1];
    mChords.resize(mLater.size());
}

ChordTable::Chord* ChordTable::lowerBound(int32 i, int32 k)
{
    [[maybe_unused]] const bool ordered =
        KORV_ASSERT(k >= i, "k >= i", "to node index must be greate von from node index");
    return std::lower_bound(mChords.data() + mChordStart[static_cast<size_t>(k)],
                            mChords.data() + mChordStart[static_cast<size_t>(k) + 1], i,
                            [](const Chord& chord, int32 first) { return chord.mFrom < first; });
}

void ChordTable::gatherArrivals(int32 p)
{
    mArrivals.clear();
    for (const Chord* chord = chordsBegin(p); chord != chordsEnd(p); ++chord)
    {
        if (isSide(chord->mFrom, p))
            mArrivals.push_back({chord->mFrom, direction(chord->mFrom, p)});
    }
    if (isEdgeHidden(p))
        mArrivals.push_back({p - 1, direction(p - 1, p)});
}

/// For each chord that ends at p: which arrivals at p may close a piece against it.
void ChordTable::computeCloseLimits(int32 p)
{
    Chord* chord = mChords.data() + mChordStart[static_cast<size_t>(p)];
    const size_t numArrivals = mArrivals.size();
    size_t next = 0; // first arrival after the chord's corner
    for (; chord != chordsEnd(p); ++chord)
    {
        chord->mCloseLimit = NONE;
        while (next < numArrivals && mArrivals[next].mFrom <= chord->mFrom)
            ++next;
        const Vec2<float> back = direction(p, chord->mFrom);
        size_t end = next;
        for (; end < numArrivals && turnsConvex(mArrivals[end].mDirection, back); ++end)
            chord->mCloseLimit = mArrivals[end].mFrom;
        for (; end < numArrivals; ++end)
        {
            if (turnsConvex(mArrivals[end].mDirection, back))
                chord->mCloseLimit = UNORDERED;
        }
    }
}

/// For each chord that starts at p: which arrivals at p may go on along it. Stores the chord.
void ChordTable::computeTurnLimits(int32 p)
{
    const size_t numArrivals = mArrivals.size();
    size_t run = 0; // arrivals that may go on to the target before
    bool ordered = p + 1 >= mOutline.size() || !isEdgeHidden(p + 1);
    for (const int32* target = laterBegin(p); target != laterEnd(p); ++target)
    {
        const size_t slot = mChordStart[static_cast<size_t>(*target)] + mFilled[static_cast<size_t>(*target)]++;
        mChords[slot] = {p, p + 1 == *target ? 0.0f : UNSOLVED, NONE, NONE};
        if (!isSide(p, *target))
            continue;
        const Vec2<float> leaving = direction(p, *target);
        size_t end = 0;
        while (end < numArrivals && turnsConvex(mArrivals[end].mDirection, leaving))
            ++end;
        for (size_t later = end; later < numArrivals && ordered; ++later)
            ordered = !turnsConvex(mArrivals[later].mDirection, leaving);
        ordered = ordered && end >= run;
        run = end;
        // at a convex corner every turn is convex, whichever arrivals there are
        if (!mOutline.isReflex(p))
            ordered = ordered && end == numArrivals;
        if (end > 0)
            mChords[slot].mTurnLimit = mArrivals[end - 1].mFrom;
    }
    mOrdered[static_cast<size_t>(p)] = ordered ? 1 : 0;
}
} // namespace KORV::NavMesh
