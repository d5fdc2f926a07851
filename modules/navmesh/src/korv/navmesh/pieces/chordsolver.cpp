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
// same sums in the same order. (Where every corner takes part that sees i, there is no difference at all.) The argument
// fails at turns where float noise decides, see ChordTable, and where a chain had to take a corner which is not convex:
// with fewer corners, other chains may be let through there. A search notes these turns. They are no matter for chords
// whose end does not see both corners of the turn, nor where it sees all the chain that stops the others.
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
    : mOutline(outline), mTable(outline, allocator), mShared(mTable, true, allocator), mWindow(mTable, true, allocator),
      mOwn(mTable, false, allocator), mChains(allocator), mOpen(allocator)
{
}

ChordSolver::Result ChordSolver::solve(const std::atomic<bool>& stop)
{
    mRoot = {0, ChordTable::UNSOLVED, ChainSearch::NONE, NO_CHAIN};
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
    mTable.open(i);
    const ChordTable::Side* const end = mTable.sidesEnd(i);
    const ChordTable::Side* side = mTable.sidesBegin(i);
    const int32 lastChord = i == 0 ? mOutline.size() - 1 : side != end ? end[-1].mTo : i;
    if (lastChord <= i + 1)
        return; // an edge at most
    mShared.begin(i);
    mWindowStart = nullptr;
    for (const int32* k = mTable.laterBegin(i);; ++k)
    {
        mShared.reach(*k);
        if (side != end && side->mTo == *k)
        {
            if (i + 1 != *k)
                solveChord({i, *k, mTable.back(side->mArrival)}, mTable.arrivals()[side->mArrival]);
            ++side;
        }
        if (*k == lastChord)
            break;
        mShared.enter(*k, mTable.openArrival(*k));
    }
    if (i > 0)
        return;
    mRoot.mCost = mOutline.way(0, lastChord).getLength();
    solveChord({0, lastChord, mTable.direction(lastChord, 0)}, mRoot);
}

/// Prices a chord with the widest search that is exact for it, and keeps the chain that was found.
inline void ChordSolver::solveChord(const Chord& chord, ChordTable::Arrival& side)
{
    const uint32 best = mShared.findClosing(chord.mLast, chord.mBack);
    const bool exact = (!mShared.isDoubtful(chord.mLast, mShared.getCost(best)) || doAllSee(chord)) &&
                       keepIfSeen(chord, side, mShared, best);
    side.mCost += exact ? mShared.getCost(best) : priceOwn(chord, side);
    side.mCost = std::min(side.mCost, ChordTable::UNSOLVED);
}

/// The cost of the chain against a chord for which the shared search is not exact.
float ChordSolver::priceOwn(const Chord& chord, ChordTable::Arrival& side)
{
    const uint32 best = searchWindow(chord);
    const bool isOpen = mWindowStart != nullptr;
    if (isOpen && !mWindow.isDoubtful(chord.mLast, mWindow.getCost(best)) && keepIfSeen(chord, side, mWindow, best))
        return mWindow.getCost(best);
    ChainSearch& search = isOpen ? mWindow : mShared;
    float cost = 0.0f;
    if (search.priceSeenChains(cost, chord.mLast, chord.mBack) && !search.isDoubtful(chord.mLast, cost))
        return cost;
    const uint32 own = searchChord(chord);
    keepIfSeen(chord, side, mOwn, own);
    return mOwn.getCost(own);
}

/// Keeps the chain against a chord while there is room, if all its corners see the end of the chord. In a wide round
/// room chains are as long as the room has corners.
inline bool ChordSolver::keepIfSeen(const Chord& chord, ChordTable::Arrival& side, const ChainSearch& search,
                                    uint32 chain)
{
    if (chain == ChainSearch::NONE)
        return true;
    const size_t size = copyIfSeen(chord, search, chain);
    if (size > 0 && mNumKept < mRoom)
    {
        side.mChain = static_cast<int32>(mNumKept);
        mNumKept += size;
    }
    return size > 0;
}

inline size_t ChordSolver::copyIfSeen(const Chord& chord, const ChainSearch& search, uint32 chain)
{
    if (mChains.size() - mNumKept < mOutline.mPoints.size())
        growChains();
    return search.copyIfSeen(mChains.data() + mNumKept, chain, chord.mLast);
}

/// Makes room for the longest chain of the outline.
void ChordSolver::growChains()
{
    const size_t size = mChains.size() + mChains.size() / 2 + mOutline.mPoints.size();
    mChains.reserve(size); // resize would double it
    mChains.resize(size);
}

/// Whether all corners between the ends of a chord that its first end sees also see the other one.
bool ChordSolver::doAllSee(const Chord& chord) const
{
    const int32* corner = mTable.laterBegin(chord.mFirst);
    while (*corner != chord.mLast && mTable.sees(*corner, chord.mLast))
        ++corner;
    return *corner == chord.mLast;
}

/// The cheapest chain against a chord over a window, which is left closed where it is no use.
uint32 ChordSolver::searchWindow(const Chord& chord)
{
    const int32 last = chord.mLast;
    const int32* const begin = mTable.laterBegin(chord.mFirst);
    const int32* start = begin;
    while (!mTable.sees(*start, last) && *start != last)
        ++start;
    if (mWindowStart != nullptr && mWindowStart <= start)
    {
        const uint32 best = closeInWindow(chord);
        if (mWindowStart == start || mWindow.isChainSeen(best, last))
            return best;
    }
    mWindowStart = nullptr;
    if (start == begin || *start == last)
        return ChainSearch::NONE;
    openWindow(chord.mFirst, start);
    return closeInWindow(chord);
}

void ChordSolver::openWindow(int32 i, const int32* start)
{
    mWindowStart = start;
    mWindowReached = start;
    mWindow.begin(i);
    mWindow.reach(*start);
}

uint32 ChordSolver::closeInWindow(const Chord& chord)
{
    while (*mWindowReached != chord.mLast)
    {
        mWindow.enter(*mWindowReached, mTable.openArrival(*mWindowReached));
        mWindow.reach(*++mWindowReached);
    }
    return mWindow.findClosing(chord.mLast, chord.mBack);
}

/// The cheapest chain against a chord over the corners that see both its ends.
uint32 ChordSolver::searchChord(const Chord& chord)
{
    ++mNumOwnSearches;
    mOwn.begin(chord.mFirst);
    for (const int32* corner = mTable.laterBegin(chord.mFirst); *corner != chord.mLast; ++corner)
    {
        if (!mTable.sees(*corner, chord.mLast))
            continue;
        mOwn.reach(*corner);
        mOwn.enter(*corner, mTable.findArrival(*corner, chord.mFirst));
    }
    mOwn.reach(chord.mLast);
    return mOwn.findClosing(chord.mLast, chord.mBack);
}

void ChordSolver::extract(ConvexPieces& pieces)
{
    mOpen.clear();
    mOpen.push_back({0, mOutline.size() - 1, -1, mRoot.mChain});
    for (size_t current = 0; current < mOpen.size(); ++current)
        appendPiece(pieces, static_cast<int32>(current));
}

/// Finds the chain against a chord anew, where pricing has not kept it.
int32 ChordSolver::findChain(const Open& open)
{
    const Chord chord{open.mFirst, open.mLast, mTable.direction(open.mLast, open.mFirst)};
    const uint32 chain = searchChord(chord);
    [[maybe_unused]] const bool sound = KORV_ASSERT(mOwn.isReached(), "current->mStack", "stack should not be empty") &&
                                        KORV_ASSERT(chain != ChainSearch::NONE, "optimal", "no optimal fragment found");
    if (chain == ChainSearch::NONE)
        return NO_CHAIN;
    const size_t start = mNumKept;
    mNumKept += copyIfSeen(chord, mOwn, chain);
    return static_cast<int32>(start);
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
    int32 place = open.mChain >= 0 ? open.mChain : findChain(open);
    pieces.mStart.push_back(static_cast<uint32>(pieces.mCorners.size()));
    // Side lengths are checked for the pieces in use only: a search looks at the same pair of corners again and again.
    [[maybe_unused]] const bool sound = KORV_ASSERT(haveDistance(open.mLast, open.mFirst), "tmp2.getLength() != 0.0f",
                                                    "cannot normalize null length vector");
    int32 before = open.mLast;
    while (place >= 0)
    {
        const ChordTable::Arrival& side = mTable.arrivals()[mChains[static_cast<size_t>(place)]];
        const int32 corner = side.mFrom;
        [[maybe_unused]] const bool descending =
            KORV_ASSERT(before >= corner, "j >= i", "i must be greater or equal j");
        [[maybe_unused]] const bool apart = KORV_ASSERT(haveDistance(before, corner), "tmp1.getLength() != 0.0f",
                                                        "cannot normalize null length vector");
        pieces.mCorners.push_back(before);
        pieces.mNeighbours.push_back(corner + 1 == before ? -1 : openPiece({corner, before, current, side.mChain}));
        before = corner;
        place = corner != open.mFirst ? place + 1 : NO_CHAIN;
    }
    pieces.mCorners.push_back(before);
    pieces.mNeighbours.push_back(open.mParent);
}

/// @return the number of the piece.
int32 ChordSolver::openPiece(const Open& piece)
{
    [[maybe_unused]] const bool fits =
        KORV_ASSERT(mOpen.size() < static_cast<size_t>(mOutline.size()), "(numPoly - startPoly) < mN",
                    "number of new polygons cannot be bigger than number of edges from the source polygon");
    mOpen.push_back(piece);
    return static_cast<int32>(mOpen.size() - 1);
}
} // namespace KORV::NavMesh
