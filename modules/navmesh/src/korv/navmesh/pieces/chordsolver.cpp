#include "korv/navmesh/pieces/chordsolver.h"

#include "korv/common/debug/assert.h"

#include <algorithm>

// Splits one outline into convex pieces of minimal total chord length.
//
// Idea: cost(i, k) is the cheapest way to split the stretch of outline from corner i to corner k. The piece against
// chord (i, k) is a convex chain of corners that all see i and k; each of its sides is an outline edge or a chord with
// a cost of its own. A chain from i has nothing to do with k, except that all its corners must see k. So one search per
// first corner i, over all corners that i sees, prices every chord (i, k), from the last first corner down.
//
// When the shared search is exact for (i, k): it takes the minimum over more chains than the search for (i, k) alone,
// so its cost is a lower bound; and when all corners of its cheapest chain see k, the lower bound is reached, with the
// same sums in the same order. (Where every corner takes part that sees i, there is no difference at all.) Two things
// break the argument: corners at which convexity is out of order, see ChordTable, and chains that had to take a corner
// which is not convex.
//
// Chains with a corner that k does not see are common at a reflex corner i: there the piece itself may be reflex, with
// a first side that lies more than half a turn from (i, k). A second search over the window of corners from the first
// one that sees k leaves these out. It serves the next chords too, for which the window may begin a little early; it is
// opened anew when that is too early. The argument is the same. Such chains are common too where a wall that is not
// along the voxels makes steps: three of its corners in a row are straight within the tolerance, yet one hides the
// other. There the next best chains are looked through, by their lower bounds. What is left gets a search of its own.
//
// Memory: the visible pairs, and the chains of one search at a time. The cheapest chain of a chord is kept as long as
// there is room for some corners a side; else, and where pricing has only found the cost, it is searched again at the
// end if its piece is really used. Time: about cubic in the corners that see each other.
//
// Source: J. M. Keil, J. Snoeyink, "On the Time Bound for Convex Decomposition of Simple Polygons", Int. J. Comput.
// Geom. Appl. 12(3), 2002. It minimises the number of pieces; here the total length of the chords is minimised.

namespace KORV::NavMesh
{
namespace
{
/// Most chains have two to four.
constexpr size_t KEPT_CORNERS_PER_SIDE = 6;
constexpr size_t MAX_KEPT_CORNERS = size_t{1} << 30;
} // namespace

ChordSolver::ChordSolver(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mTable(outline, allocator), mShared(mTable, allocator), mWindow(mTable, allocator),
      mOwn(mTable, allocator), mUnordered(allocator), mChains(allocator), mCorners(allocator), mOpen(allocator)
{
}

ChordSolver::Result ChordSolver::solve(const std::atomic<bool>& stop)
{
    mRoot = {mOutline.size() - 1, ChordTable::UNSOLVED, {}, ChainSearch::NONE};
    mNumOwnSearches = 0;
    mNumKept = 0;
    if (!mTable.build(stop))
        return Result::STOPPED;
    mRoom = std::min(mTable.getNumSides() * KEPT_CORNERS_PER_SIDE, MAX_KEPT_CORNERS);
    mShared.reset();
    mWindow.reset();
    mOwn.reset();
    for (int32 i = mOutline.size() - 2; i >= 0; --i)
    {
        if (stop.load(std::memory_order_relaxed))
            return Result::STOPPED;
        solveFrom(i);
    }
    return mRoot.mCost < ChordTable::UNSOLVED ? Result::SOLVED : Result::UNSOLVABLE;
}

/// Prices all chords that start at a corner.
void ChordSolver::solveFrom(int32 i)
{
    const ChordTable::Side* const end = mTable.sidesEnd(i);
    ChordTable::Side* side = mTable.sidesBegin(i);
    const int32 lastChord = i == 0 ? mOutline.size() - 1 : side != end ? end[-1].mTo : i;
    if (lastChord <= i + 1)
        return; // an edge at most
    mSeenEnd = mTable.laterEnd(i);
    while (mSeenEnd[-1] != lastChord)
        --mSeenEnd;
    mShared.begin(i, mTable.laterBegin(i), mSeenEnd);
    mUnordered.clear();
    mWindowStart = nullptr;
    for (const int32* k = mTable.laterBegin(i); *k != lastChord; ++k)
    {
        if (side != end && side->mTo == *k)
        {
            if (i + 1 != *k)
                solveChord(i, *side);
            mShared.addFirstSide(*side);
            ++side;
        }
        mShared.pass(*k);
        if (mTable.getTurns(*k) == ChordTable::Turns::UNORDERED)
            mUnordered.push_back(*k);
    }
    if (i == 0)
        mRoot = {lastChord, mOutline.way(i, lastChord).getLength(), mTable.direction(i, lastChord), ChainSearch::NONE};
    solveChord(i, i == 0 ? mRoot : *side);
}

/// Prices a chord with the widest search that is exact for it, and keeps the chain that was found.
inline void ChordSolver::solveChord(int32 i, ChordTable::Side& chord)
{
    const int32 k = chord.mTo;
    const int32 best = mShared.findClosing(k, {-chord.mDirection.mX, -chord.mDirection.mY});
    const bool exact = (isTrustworthy(mShared, k) && mShared.isChainSeen(best, k)) || doAllSee(i, k);
    const float chainCost = exact ? takeChain(chord, mShared, best) : priceOwn(i, chord);
    chord.mCost = chainCost < ChordTable::UNSOLVED ? chord.mCost + chainCost : ChordTable::UNSOLVED;
}

/// The cost of the chain against a chord for which the shared search is not exact.
float ChordSolver::priceOwn(int32 i, ChordTable::Side& chord)
{
    const int32 k = chord.mTo;
    const Vec2<float> back{-chord.mDirection.mX, -chord.mDirection.mY};
    const int32 best = searchWindow(i, k, back);
    ChainSearch& search = mWindowStart != nullptr ? mWindow : mShared;
    if (isTrustworthy(search, k))
    {
        if (mWindowStart != nullptr && mWindow.isChainSeen(best, k))
            return takeChain(chord, mWindow, best);
        float cost = 0.0f;
        if (search.priceSeenChains(cost, k, back))
            return cost;
    }
    return takeChain(chord, mOwn, searchChord(i, k, back));
}

/// The cost of the chain against a chord, which is kept while there is room. In a wide round room chains are as long as
/// the room has corners.
inline float ChordSolver::takeChain(ChordTable::Side& chord, const ChainSearch& search, int32 record)
{
    if (record < 0)
        return ChordTable::UNSOLVED;
    if (mNumKept < mRoom)
        chord.mChain = appendChain(search, record);
    return search.getRecord(record).mCost;
}

/// Keeps the corners of a chain; the last one of them is the first of the search.
inline int32 ChordSolver::appendChain(const ChainSearch& search, int32 record)
{
    const size_t start = mNumKept;
    if (mChains.size() - start < mOutline.mPoints.size())
        growChains();
    mNumKept += search.copyChain(mChains.data() + start, record);
    return static_cast<int32>(start);
}

/// Makes room for the longest chain of the outline.
void ChordSolver::growChains()
{
    mChains.resize(2 * mChains.size() + mOutline.mPoints.size());
}

/// Whether the costs of a search that has passed all its corners before k are lower bounds for k.
inline bool ChordSolver::isTrustworthy(const ChainSearch& search, int32 k) const
{
    return !search.wasForced() && (mUnordered.empty() || !isUnorderedSeen(k));
}

bool ChordSolver::isUnorderedSeen(int32 k) const
{
    return std::any_of(mUnordered.begin(), mUnordered.end(),
                       [this, k](int32 corner) { return mTable.sees(corner, k); });
}

/// Whether all corners between i and k that i sees also see k.
bool ChordSolver::doAllSee(int32 i, int32 k) const
{
    const int32* corner = mTable.laterBegin(i);
    while (*corner != k && mTable.sees(*corner, k))
        ++corner;
    return *corner == k;
}

/// The cheapest chain from i to k over a window, which is left closed where it is no use.
int32 ChordSolver::searchWindow(int32 i, int32 k, const Vec2<float>& back)
{
    const int32* start = mTable.laterBegin(i);
    while (!mTable.sees(*start, k) && *start != k)
        ++start;
    if (mWindowStart != nullptr && mWindowStart <= start)
    {
        const int32 best = closeInWindow(i, k, back);
        if (mWindowStart == start || mWindow.isChainSeen(best, k))
            return best;
    }
    mWindowStart = nullptr;
    if (start == mTable.laterBegin(i) || *start == k)
        return ChainSearch::NONE;
    openWindow(i, start);
    return closeInWindow(i, k, back);
}

void ChordSolver::openWindow(int32 i, const int32* start)
{
    mWindowStart = start;
    mWindowNext = start;
    mWindowSide = mTable.sidesBegin(i);
    mWindow.begin(i, start, mSeenEnd);
}

int32 ChordSolver::closeInWindow(int32 i, int32 k, const Vec2<float>& back)
{
    const ChordTable::Side* const sidesEnd = mTable.sidesEnd(i);
    for (; *mWindowNext != k; ++mWindowNext)
    {
        while (mWindowSide != sidesEnd && mWindowSide->mTo < *mWindowNext)
            ++mWindowSide;
        if (mWindowSide != sidesEnd && mWindowSide->mTo == *mWindowNext)
            mWindow.addFirstSide(*mWindowSide);
        mWindow.pass(*mWindowNext);
    }
    return mWindow.findClosing(k, back);
}

/// The cheapest chain from i to k over the corners that see both.
int32 ChordSolver::searchChord(int32 i, int32 k, const Vec2<float>& back)
{
    ++mNumOwnSearches;
    mCorners.clear();
    for (const int32* corner = mTable.laterBegin(i); *corner != k; ++corner)
    {
        if (mTable.sees(*corner, k))
            mCorners.push_back(*corner);
    }
    mCorners.push_back(k);
    mOwn.begin(i, mCorners.data(), mCorners.data() + mCorners.size());
    const ChordTable::Side* side = mTable.sidesBegin(i);
    for (size_t at = 0; at + 1 < mCorners.size(); ++at)
    {
        while (side != mTable.sidesEnd(i) && side->mTo < mCorners[at])
            ++side;
        if (side != mTable.sidesEnd(i) && side->mTo == mCorners[at])
            mOwn.addFirstSide(*side);
        mOwn.pass(mCorners[at]);
    }
    return mOwn.findClosing(k, back);
}

void ChordSolver::extract(ConvexPieces& pieces)
{
    mOpen.clear();
    mOpen.push_back({0, mOutline.size() - 1, -1});
    for (size_t current = 0; current < mOpen.size(); ++current)
        appendPiece(pieces, static_cast<int32>(current));
}

/// Where the chain against chord (i, k) begins; found anew where pricing has not kept it.
int32 ChordSolver::findChain(int32 i, int32 k)
{
    int32 chain = mRoot.mChain;
    if (!mTable.isRoot(i, k))
    {
        const ChordTable::Side* const side =
            std::lower_bound(mTable.sidesBegin(i), mTable.sidesEnd(i), k,
                             [](const ChordTable::Side& a, int32 to) { return a.mTo < to; });
        chain = side->mChain;
    }
    if (chain >= 0)
        return chain;
    const Vec2<float> direction = mTable.direction(i, k);
    const int32 record = searchChord(i, k, {-direction.mX, -direction.mY});
    [[maybe_unused]] const bool sound =
        KORV_ASSERT(mOwn.isReached(k), "current->mStack", "stack should not be empty") &&
        KORV_ASSERT(record >= 0, "optimal", "no optimal fragment found");
    return record >= 0 ? appendChain(mOwn, record) : ChainSearch::NONE;
}

/// Whether a way has a length; its square does exactly then.
bool ChordSolver::haveDistance(int32 a, int32 b) const
{
    const Vec2<float> way = mOutline.way(a, b);
    return dot(way, way) != 0.0f;
}

/// Appends an open piece, its corners from the last to the first, and opens those behind its chords.
void ChordSolver::appendPiece(ConvexPieces& pieces, int32 current)
{
    const Open open = mOpen[static_cast<size_t>(current)];
    int32 place = findChain(open.mFirst, open.mLast);
    pieces.mStart.push_back(static_cast<uint32>(pieces.mCorners.size()));
    // Side lengths are checked for the pieces in use only: a search looks at the same pair of corners again and again.
    [[maybe_unused]] const bool sound = KORV_ASSERT(haveDistance(open.mLast, open.mFirst), "tmp2.getLength() != 0.0f",
                                                    "cannot normalize null length vector");
    int32 before = open.mLast;
    while (place >= 0)
    {
        const int32 corner = mChains[static_cast<size_t>(place)];
        [[maybe_unused]] const bool descending =
            KORV_ASSERT(before >= corner, "j >= i", "i must be greater or equal j");
        [[maybe_unused]] const bool apart = KORV_ASSERT(haveDistance(before, corner), "tmp1.getLength() != 0.0f",
                                                        "cannot normalize null length vector");
        pieces.mCorners.push_back(before);
        pieces.mNeighbours.push_back(corner + 1 == before ? -1 : openPiece(corner, before, current));
        before = corner;
        place = corner != open.mFirst ? place + 1 : ChainSearch::NONE;
    }
    pieces.mCorners.push_back(before);
    pieces.mNeighbours.push_back(open.mParent);
}

/// @return the number of the piece.
int32 ChordSolver::openPiece(int32 first, int32 last, int32 parent)
{
    [[maybe_unused]] const bool fits =
        KORV_ASSERT(mOpen.size() < static_cast<size_t>(mOutline.size()), "(numPoly - startPoly) < mN",
                    "number of new polygons cannot be bigger than number of edges from the source polygon");
    mOpen.push_back({first, last, parent});
    return static_cast<int32>(mOpen.size() - 1);
}
} // namespace KORV::NavMesh
