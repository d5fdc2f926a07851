#include "korv/navmesh/chordsolver.h"

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
// which is not convex. These, and chains with a corner that k does not see, get a search of their own. Such chains are
// common only at a reflex corner i: there the piece itself may be reflex.
//
// Memory: the visible pairs, and the chains of one search at a time. Only costs are kept; the chains of the pieces that
// are really used are searched again at the end. Time: about cubic in the corners that see each other. No recursion.
//
// Source: J. M. Keil, J. Snoeyink, "On the Time Bound for Convex Decomposition of Simple Polygons", Int. J. Comput.
// Geom. Appl. 12(3), 2002. It minimises the number of pieces; here the total length of the chords is minimised.

namespace KORV::NavMesh
{
ChordSolver::ChordSolver(const PlaneOutline& outline, Common::Memory::Allocator* allocator)
    : mOutline(outline), mTable(outline, allocator), mShared(mTable, allocator), mOwn(mTable, allocator),
      mSeenFrom(static_cast<size_t>(outline.size()), -1, allocator), mCorners(allocator)
{
}

ChordSolver::Result ChordSolver::solve(const std::atomic<bool>& stop)
{
    if (!mTable.build(stop))
        return Result::STOPPED;
    for (int32 i = mOutline.size() - 2; i >= 0; --i)
    {
        if (stop.load(std::memory_order_relaxed))
            return Result::STOPPED;
        mShared.begin(i);
        int32 numBetween = 0;
        for (const int32* k = mTable.laterBegin(i); k != mTable.laterEnd(i); ++k, ++numBetween)
        {
            const int32 numSeen = mShared.extend(*k);
            mSeenFrom[static_cast<size_t>(*k)] = i;
            const bool side = mTable.isSide(i, *k);
            float cost = 0.0f;
            if (i + 1 != *k && (side || mTable.isRoot(i, *k)))
                cost = solveChord(i, *k, numBetween, numSeen);
            if (side)
                mShared.addFirstSide(cost);
        }
    }
    return getRootCost() < ChordTable::UNSOLVED ? Result::SOLVED : Result::UNSOLVABLE;
}

/// Prices a chord with what the shared search knows, or with a search of its own where that may not be exact.
float ChordSolver::solveChord(int32 i, int32 k, int32 numBetween, int32 numSeen)
{
    const bool allSeen = numSeen == numBetween;
    int32 best = mShared.findClosing();
    float chainCost = best >= 0 ? mShared.getRecord(best).mCost : ChordTable::UNSOLVED;
    const bool exact = allSeen || (!mShared.metUnordered() && !mShared.wasForced() && mShared.seenByLast(best));
    if (!exact)
    {
        best = searchChord(i, k);
        chainCost = best >= 0 ? mOwn.getRecord(best).mCost : ChordTable::UNSOLVED;
    }
    const float cost = chordCost(i, k, chainCost);
    mTable.lowerBound(i, k)->mCost = cost;
    return cost;
}

float ChordSolver::chordCost(int32 i, int32 k, float chainCost) const
{
    return chainCost < ChordTable::UNSOLVED ? (mOutline[k] - mOutline[i]).getLength() + chainCost
                                            : ChordTable::UNSOLVED;
}

/// The cheapest chain from i to k over the corners that see both; mSeenFrom tells which see i.
int32 ChordSolver::searchChord(int32 i, int32 k)
{
    ++mNumOwnSearches;
    mOwn.begin(i);
    for (const ChordTable::Chord* chord = mTable.lowerBound(i + 1, k); chord != mTable.chordsEnd(k); ++chord)
    {
        const int32 corner = chord->mFrom;
        if (mSeenFrom[static_cast<size_t>(corner)] != i)
            continue;
        mOwn.extend(corner);
        if (mTable.isSide(i, corner))
            mOwn.addFirstSide(mTable.lowerBound(i, corner)->mCost);
    }
    mOwn.extend(k);
    return mOwn.findClosing();
}

float ChordSolver::getRootCost()
{
    return mTable.lowerBound(0, mOutline.size() - 1)->mCost;
}

void ChordSolver::extract(ConvexPieces& pieces)
{
    struct Open
    {
        int32 mFirst;
        int32 mLast;
        int32 mParent;
    };
    Vector<Open> queue(mCorners.get_allocator());
    queue.push_back({0, mOutline.size() - 1, -1});
    std::fill(mSeenFrom.begin(), mSeenFrom.end(), -1);
    for (size_t current = 0; current < queue.size(); ++current)
    {
        const Open open = queue[current];
        const size_t start = pieces.mCorners.size();
        appendPiece(pieces, open.mFirst, open.mLast);
        for (size_t at = start; at + 1 < pieces.mCorners.size(); ++at)
        {
            const int32 q = pieces.mCorners[at];
            const int32 j = pieces.mCorners[at + 1];
            if (j + 1 == q)
            {
                pieces.mNeighbours.push_back(-1);
                continue;
            }
            [[maybe_unused]] const bool fits =
                KORV_ASSERT(queue.size() < static_cast<size_t>(mOutline.size()), "(numPoly - startPoly) < mN",
                            "number of new polygons cannot be bigger than number of edges from the source polygon");
            pieces.mNeighbours.push_back(static_cast<int32>(queue.size()));
            queue.push_back({j, q, static_cast<int32>(current)});
        }
        pieces.mNeighbours.push_back(open.mParent);
    }
}

/// Appends the corners of the piece against chord (i, k), from k down to i.
void ChordSolver::appendPiece(ConvexPieces& pieces, int32 i, int32 k)
{
    for (const int32* seen = mTable.laterBegin(i); seen != mTable.laterEnd(i); ++seen)
        mSeenFrom[static_cast<size_t>(*seen)] = i;
    int32 record = searchChord(i, k);
    pieces.mStart.push_back(static_cast<uint32>(pieces.mCorners.size()));
    pieces.mCorners.push_back(k);
    // Side lengths are checked for the pieces in use only: a search looks at the same pair of corners again and again.
    [[maybe_unused]] const bool sound =
        KORV_ASSERT(mOwn.isLastReached(), "current->mStack", "stack should not be empty") &&
        KORV_ASSERT(record >= 0, "optimal", "no optimal fragment found") &&
        KORV_ASSERT((mOutline[i] - mOutline[k]).getLength() != 0.0f, "tmp2.getLength() != 0.0f",
                    "cannot normalize null length vector");
    for (; record >= 0; record = mOwn.getRecord(record).mPrevious)
    {
        const int32 corner = mOwn.getRecord(record).mFrom;
        [[maybe_unused]] const bool descending =
            KORV_ASSERT(pieces.mCorners.back() >= corner, "j >= i", "i must be greater or equal j");
        [[maybe_unused]] const bool apart =
            KORV_ASSERT((mOutline[corner] - mOutline[pieces.mCorners.back()]).getLength() != 0.0f,
                        "tmp1.getLength() != 0.0f", "cannot normalize null length vector");
        pieces.mCorners.push_back(corner);
    }
}
} // namespace KORV::NavMesh
