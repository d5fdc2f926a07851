// Splits one outline into convex pieces of minimal total chord length.
//
// Idea: cost(i, k) is the cheapest way to split the stretch of outline from corner i to corner k. The piece against the
// chord (i, k) is a convex chain of corners from i to k, all of which see both ends; each of its sides is an outline edge
// or a chord with a cost of its own. A chain grows corner by corner. Each corner keeps a stack of the chains that end in
// it; a next corner takes those off that turn the right way, and only the cheapest of them lives on.
//
// What makes it scale: the chains from i hardly depend on k, so one search over the corners that i sees, in ascending
// order, prices the chords from i to all of them. They do depend on k where i is reflex: a chain is then of use to k only
// if its first corner sees k. So the chain found for k is checked: when all its corners see k, it is the best of a larger
// set, and so of k's own. Otherwise the search starts anew from the first corner that sees k, which serves all later k as
// well, since the corners that see k move on with k. Where even that does not give a chain of k's own (rounding), k is
// priced by a search over just the corners that see both i and k, which is the definition.
//
// Only costs are kept. The chain of a piece is found again by the defining search when the piece is written out.
//
// Numbers: a left turn of up to 1e-4 still counts as straight. On equal cost the predecessor with the larger index wins.
// Cost: memory of the order of the visible chords; time near cubic in the corners that see each other.
//
// Source: J. M. Keil, J. Snoeyink, "On the Time Bound for Convex Decomposition of Simple Polygons", Int. J. Comput.
// Geom. Appl. 12(3), 2002. It minimises the number of pieces; here the total length of the chords is minimised.

#include "korv/navmesh/chordsolver.h"

#include "korv/common/exceptions/exception.h"
#include "korv/navmesh/outlinevisibility.h"

#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr int32 NONE = ConvexChains::NONE;
/// Corners between two looks at the watch.
constexpr int32 CORNERS_PER_LOOK = 64;
} // namespace

ChordSolver::ChordSolver(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                         Common::Memory::Allocator* allocator)
    : mTable(polygon, reflex, allocator), mAllocator(allocator), mFan(polygon.size(), NONE, allocator),
      mSeers(polygon.size(), 0, allocator)
{
}

float ChordSolver::solve(WorkWatch& watch)
{
    if (!findChords(watch))
        return NO_CUT;
    buildIncoming();
    mChains.emplace(mTable, mAllocator);
    mLiteral.emplace(mTable, mAllocator);
    for (int32 first = mTable.mN - 2; first >= 0; --first)
    {
        if (first % CORNERS_PER_LOOK == 0 && !watch.keepGoing())
            return NO_CUT;
        priceChordsFrom(first);
    }
    return mTable.mChords[mTable.mChordStart[1] - 1].mCost; // the closing edge is the last chord of corner 0
}

bool ChordSolver::findChords(WorkWatch& watch)
{
    OutlineVisibility visibility(mTable.mPolygon, mTable.mReflex, mAllocator);
    Vector<int32> visible(mAllocator);
    const int32 last = mTable.mN - 1;
    mTable.mChordStart.reserve(static_cast<size_t>(mTable.mN) + 1);
    for (int32 from = 0; from < last; ++from)
    {
        if (from % CORNERS_PER_LOOK == 0 && !watch.keepGoing())
            return false;
        mTable.mChordStart.push_back(static_cast<uint32>(mTable.mChords.size()));
        visible.clear();
        visibility.appendVisible(visible, from);
        if (from == 0 && (visible.empty() || visible.back() != last))
            visible.push_back(last); // the closing edge counts as seen
        if (mTable.mChords.size() + visible.size() >= std::numeric_limits<uint32>::max())
            throw new Common::Exceptions::NotSupportedException("An outline has too many corners that see each other");
        for (const int32 to : visible)
            mTable.mChords.push_back({to, to == from + 1 ? 0.0f : NO_CUT});
    }
    mTable.mChordStart.push_back(static_cast<uint32>(mTable.mChords.size()));
    mTable.mChordStart.push_back(static_cast<uint32>(mTable.mChords.size()));
    return true;
}

void ChordSolver::buildIncoming()
{
    Vector<uint32>& start = mTable.mIncomingStart;
    start.assign(static_cast<size_t>(mTable.mN) + 1, 0);
    for (const ChordTable::Chord& chord : mTable.mChords)
        ++start[static_cast<size_t>(chord.mTo) + 1];
    for (size_t corner = 1; corner < start.size(); ++corner)
        start[corner] += start[corner - 1];
    mTable.mIncoming.resize(mTable.mChords.size());
    Vector<uint32> end(start, mAllocator);
    for (int32 from = 0; from < mTable.mN; ++from)
    {
        const auto row = static_cast<size_t>(from);
        for (uint32 chord = mTable.mChordStart[row]; chord < mTable.mChordStart[row + 1]; ++chord)
            mTable.mIncoming[end[static_cast<size_t>(mTable.mChords[chord].mTo)]++] = {from, chord};
    }
}

void ChordSolver::priceChordsFrom(int32 first)
{
    const auto row = static_cast<size_t>(first);
    for (uint32 chord = mTable.mChordStart[row]; chord < mTable.mChordStart[row + 1]; ++chord)
        mFan[static_cast<size_t>(mTable.mChords[chord].mTo)] = first;
    mChains->start(first, first + 1);
    for (uint32 chord = mTable.mChordStart[row]; chord < mTable.mChordStart[row + 1]; ++chord)
    {
        const int32 last = mTable.mChords[chord].mTo;
        mChains->extend(last);
        const bool isClosing = first == 0 && last == mTable.mN - 1;
        if (last != first + 1 && (isClosing || mTable.mayBoundPiece(first, last)))
            mTable.mChords[chord].mCost = priceChord(first, chord);
        mChains->finish(last, mTable.mChords[chord].mCost);
    }
}

/// The cost of a chord whose upper corner has just been reached by the chains.
float ChordSolver::priceChord(int32 first, uint32 chord)
{
    const int32 last = mTable.mChords[chord].mTo;
    const int32 lowest = markSeers(first, last);
    if (lowest == NONE)
        return NO_CUT;
    const float length = (mTable.mPolygon[static_cast<size_t>(last)] - mTable.mPolygon[static_cast<size_t>(first)]).getLength();
    if (lowest >= mChains->getLowest())
    {
        int32 chain = mChains->close(last);
        if (chain == NONE || !isSeenByAll(*mChains, chain))
            chain = restart(first, lowest, chord);
        if (chain != NONE && isSeenByAll(*mChains, chain))
            return length + mChains->getCost(chain);
    }
    const int32 chain = searchLiterally(first, chord);
    return chain != NONE ? length + mLiteral->getCost(chain) : NO_CUT;
}

/// Grows the shared chains anew, up to a chord, from the lowest corner that sees both its ends.
int32 ChordSolver::restart(int32 first, int32 lowest, uint32 chord)
{
    if (lowest == mChains->getLowest())
        return NONE;
    mChains->start(first, lowest);
    for (uint32 before = mTable.mChordStart[static_cast<size_t>(first)]; before < chord; ++before)
    {
        const ChordTable::Chord& other = mTable.mChords[before];
        if (other.mTo < lowest)
            continue;
        mChains->extend(other.mTo);
        mChains->finish(other.mTo, other.mCost);
    }
    mChains->extend(mTable.mChords[chord].mTo);
    return mChains->close(mTable.mChords[chord].mTo);
}

/// The best chain over just the corners that see both ends of a chord. After markSeers.
int32 ChordSolver::searchLiterally(int32 first, uint32 chord)
{
    mLiteral->start(first, first + 1);
    for (uint32 before = mTable.mChordStart[static_cast<size_t>(first)]; before < chord; ++before)
    {
        const ChordTable::Chord& other = mTable.mChords[before];
        if (!sees(other.mTo))
            continue;
        mLiteral->extend(other.mTo);
        mLiteral->finish(other.mTo, other.mCost);
    }
    mLiteral->extend(mTable.mChords[chord].mTo);
    return mLiteral->close(mTable.mChords[chord].mTo);
}

/// Marks the corners that see @p last, and returns the lowest of them that sees @p first too; NONE for none.
int32 ChordSolver::markSeers(int32 first, int32 last)
{
    ++mSeerMark;
    int32 lowest = NONE;
    const ChordTable::Incoming* begin = mTable.mIncoming.data() + mTable.mIncomingStart[static_cast<size_t>(last)];
    const ChordTable::Incoming* in = mTable.mIncoming.data() + mTable.mIncomingStart[static_cast<size_t>(last) + 1];
    while (in != begin && (--in)->mFrom > first)
    {
        mSeers[static_cast<size_t>(in->mFrom)] = mSeerMark;
        if (mFan[static_cast<size_t>(in->mFrom)] == first)
            lowest = in->mFrom;
    }
    return lowest;
}

bool ChordSolver::isSeenByAll(const ConvexChains& chains, int32 chain) const
{
    return chains.allInnerCorners(chain, [this](int32 corner) { return sees(corner); });
}

bool ChordSolver::appendPiece(Vector<int32>& corners, int32 first, int32 last)
{
    const auto row = static_cast<size_t>(first);
    uint32 chord = mTable.mChordStart[row];
    for (uint32 other = chord; other < mTable.mChordStart[row + 1]; ++other)
    {
        mFan[static_cast<size_t>(mTable.mChords[other].mTo)] = first;
        if (mTable.mChords[other].mTo <= last)
            chord = other;
    }
    if (chord == mTable.mChordStart[row + 1] || mTable.mChords[chord].mTo != last || markSeers(first, last) == NONE)
        return false;
    const int32 chain = searchLiterally(first, chord);
    if (chain == NONE)
        return false;
    corners.push_back(last);
    mLiteral->allInnerCorners(chain, [&corners](int32 corner) {
        corners.push_back(corner);
        return true;
    });
    corners.push_back(first);
    return true;
}
} // namespace KORV::NavMesh
