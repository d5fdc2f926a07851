// The open list: the order of two plain linked lists, without walking them.
//
// Front: a small array, the best node last. Popping shortens it, and a new node, usually among the best, moves few
// others. While the costs are in order a place is found by bisection. A cost that was changed in place can break the
// order; then places are found by walking, as in a plain list, until the front has run empty and is filled again.
//
// Back: an array that grows at both ends, since a refill puts the nodes it rejects at the beginning. Records know their
// place, so a cost changes here without a search. A node that leaves makes a hole; nodes never move, until one end of
// the array is reached and all are packed into its middle again.
//
// Refill: a walk over the back keeps the 50 best so far. A node that is not better than the worst of them leaves no
// trace, so whole blocks of places are passed over when no cost in them is low enough. The rejected ones end up at the
// beginning in ascending order, where the next refill finds its first candidates: they are good ones, and most blocks
// are passed over.
//
// Ties: the candidates stand in ascending order of cost. Among equal ones that of the plain list is kept in reverse:
// the first 50 nodes are each put in front of the list, later ones at its end, and the worst is the first of the
// largest cost in the list, so the last one here. Only the first time it is the earliest comer instead.
//
// Cost: a push or pop moves the nodes of the front that are better, and is otherwise constant. A refill costs a
// comparison for every 64 places of the back and some 50 to 100 steps for each block it enters. Nothing depends on the
// size of the graph.
#include "korv/common/astar/openlist.h"

#include <algorithm>
#include <limits>

namespace KORV::Common::Astar
{
namespace
{
constexpr float INFINITE = std::numeric_limits<float>::infinity();
constexpr uint32 MIN_BACK_SIZE = 1024;
} // namespace

/// The best nodes that a refill has come across, in ascending order of cost.
struct OpenList::Best
{
    uint32 mCount = 0;
    Entry mEntries[NUM_BEST];

    bool isFull() const { return mCount == NUM_BEST; }
    float getWorstCost() const { return mEntries[NUM_BEST - 1].mCost; }
    /// Equal ones stand as they come.
    void add(const Entry& entry)
    {
        uint32 place = mCount++;
        for (; place > 0 && entry.mCost < mEntries[place - 1].mCost; --place)
            mEntries[place] = mEntries[place - 1];
        mEntries[place] = entry;
    }
    /// Puts a better node in place of the worst, before those of equal cost.
    Entry replaceWorst(const Entry& entry)
    {
        const Entry worst = mEntries[NUM_BEST - 1];
        uint32 place = NUM_BEST - 1;
        for (; place > 0 && !(mEntries[place - 1].mCost < entry.mCost); --place)
            mEntries[place] = mEntries[place - 1];
        mEntries[place] = entry;
        return worst;
    }
    /// Moves the first comer of those with the greatest cost to the end, where it is the next to be replaced.
    void preferFirstComer()
    {
        Entry* place = mEntries + NUM_BEST - 1;
        while (place > mEntries && place[-1].mCost == getWorstCost())
            --place;
        std::rotate(place, place + 1, mEntries + NUM_BEST);
    }
};

OpenList::OpenList(Memory::Allocator* allocator)
    : mFront(allocator), mBackCosts(allocator), mBackNodes(allocator), mBlockMinimum(allocator)
{
}

void OpenList::reset(AStarNode* records)
{
    mRecords = records;
    mFront.clear();
    mFrontSorted = true;
    clearBack();
}

void OpenList::insertIntoFront(const Entry& entry)
{
    size_t place = mFront.size();
    mFront.push_back(entry);
    for (; place > 0 && !(mFront[place - 1].mCost > entry.mCost); --place)
        mFront[place] = mFront[place - 1];
    mFront[place] = entry;
    mRecords[entry.mNode].openPlace = PLACE_FRONT;
}

size_t OpenList::findInFront(uint32 nodeID, float cost) const
{
    size_t place = 0;
    if (mFrontSorted)
    {
        const auto isAbove = [cost](const Entry& other) { return other.mCost > cost; };
        place = static_cast<size_t>(std::partition_point(mFront.begin(), mFront.end(), isAbove) - mFront.begin());
    }
    while (place < mFront.size() && mFront[place].mNode != nodeID)
        ++place;
    return place;
}

void OpenList::reposition(uint32 nodeID, float oldCost)
{
    if (mRecords[nodeID].openPlace != PLACE_FRONT)
    {
        changeInPlace(nodeID, oldCost);
        return;
    }
    const size_t place = findInFront(nodeID, oldCost);
    if (place == mFront.size())
        return;
    mFront.erase(mFront.begin() + static_cast<std::ptrdiff_t>(place));
    mRecords[nodeID].openPlace = PLACE_NONE;
    push(nodeID);
}

void OpenList::changeInPlace(uint32 nodeID, float oldCost)
{
    const uint32 place = mRecords[nodeID].openPlace;
    const float cost = mRecords[nodeID].totalCost;
    if (place == PLACE_FRONT)
    {
        const size_t i = findInFront(nodeID, oldCost);
        if (i == mFront.size())
            return;
        mFront[i].mCost = cost;
        if ((i > 0 && mFront[i - 1].mCost < cost) || (i + 1 < mFront.size() && cost < mFront[i + 1].mCost))
            mFrontSorted = false;
    }
    else if (place != PLACE_NONE)
    {
        mBackCosts[place] = cost;
        lowerBlockMinimum(place, cost);
    }
}

void OpenList::clearBack()
{
    if (mBackBegin < mBackEnd)
    {
        const auto minima = mBlockMinimum.begin();
        std::fill(minima + mBackBegin / BLOCK_SIZE, minima + (mBackEnd - 1) / BLOCK_SIZE + 1, INFINITE);
        std::fill(mBackCosts.begin() + mBackBegin, mBackCosts.begin() + mBackEnd, INFINITE);
    }
    mBackBegin = static_cast<uint32>(mBackNodes.size() / 2);
    mBackEnd = mBackBegin;
    mNumBack = 0;
}

/// Packs the nodes into the middle of an array with room for as many again, and half as many more, on both sides.
void OpenList::rebuildBack()
{
    const size_t wanted = std::max<size_t>(MIN_BACK_SIZE, (size_t{mNumBack} / BLOCK_SIZE + 1) * BLOCK_SIZE * 4);
    if (wanted > mBackNodes.size())
    {
        mBlockMinimum.resize(wanted / BLOCK_SIZE, INFINITE);
        mBackCosts.resize(wanted, INFINITE);
        mBackNodes.resize(wanted); // last, since its size tells how much room there is
    }

    // the costs stand in the records, too
    const auto source = mBackNodes.begin() + mBackBegin;
    const auto sourceEnd = std::remove(source, mBackNodes.begin() + mBackEnd, NO_NODE);
    const auto count = static_cast<uint32>(sourceEnd - source);
    const auto begin = static_cast<uint32>((mBackNodes.size() - count) / 2);
    if (begin < mBackBegin)
        std::copy(source, sourceEnd, mBackNodes.begin() + begin);
    else
        std::copy_backward(source, sourceEnd, mBackNodes.begin() + begin + count);
    clearBack();
    for (uint32 place = begin; place < begin + count; ++place)
        putBack(place, {mRecords[mBackNodes[place]].totalCost, mBackNodes[place]});
    mBackBegin = begin;
    mBackEnd = begin + count;
}

void OpenList::refillFront()
{
    // all memory first: when there is none, the list stays as it is
    mFront.reserve(NUM_BEST);
    if (mBackBegin < mNumBack)
        rebuildBack();

    Best best;
    takeFirst(best);
    if (best.isFull())
        replaceWorse(best);
    fillFront(best);
    mFrontSorted = true;
    if (mNumBack == 0)
        clearBack();
}

/// Worst node first; equal ones stay as they are.
void OpenList::fillFront(const Best& best)
{
    for (uint32 end = best.mCount; end > 0;)
    {
        uint32 begin = end - 1;
        while (begin > 0 && best.mEntries[begin - 1].mCost == best.mEntries[begin].mCost)
            --begin;
        mFront.insert(mFront.end(), best.mEntries + begin, best.mEntries + end);
        end = begin;
    }
    for (const Entry& entry : mFront)
        mRecords[entry.mNode].openPlace = PLACE_FRONT;
}

/// Takes the first nodes off the back.
void OpenList::takeFirst(Best& best)
{
    const auto minima = mBlockMinimum.begin();
    const uint32 firstBlock = mBackBegin / BLOCK_SIZE;
    for (; !best.isFull() && mBackBegin < mBackEnd; ++mBackBegin)
    {
        if (mBackNodes[mBackBegin] == NO_NODE)
            continue;
        best.add({mBackCosts[mBackBegin], mBackNodes[mBackBegin]});
        mBackCosts[mBackBegin] = INFINITE;
    }
    std::fill(minima + firstBlock, minima + mBackBegin / BLOCK_SIZE, INFINITE);
    mNumBack -= best.mCount;
}

/// Walks over the rest of the back: a node better than the worst of the best takes its place, and that one becomes the
/// first of the back, behind the walk.
void OpenList::replaceWorse(Best& best)
{
    bool isFirstTime = true;
    const uint32 numBlocks = (mBackEnd + BLOCK_SIZE - 1) / BLOCK_SIZE;
    for (uint32 block = mBackBegin / BLOCK_SIZE; block < numBlocks; ++block)
    {
        if (!(mBlockMinimum[block] < best.getWorstCost()))
            continue;
        uint32 candidates[BLOCK_SIZE];
        const uint32 count = findBelow(candidates, block * BLOCK_SIZE, best.getWorstCost());
        for (uint32 i = 0; i < count; ++i)
        {
            if (!(mBackCosts[candidates[i]] < best.getWorstCost()))
                continue;
            if (isFirstTime)
                best.preferFirstComer();
            isFirstTime = false;
            replaceWorst(best, candidates[i]);
        }
        updateBlockMinimum(block);
    }
}

/// Lists the places of a block that are below a limit. Whether one is, nobody can foresee, so there is no branch.
inline uint32 OpenList::findBelow(uint32* places, uint32 begin, float limit) const
{
    const float* costs = mBackCosts.data();
    uint32 count = 0;
    for (uint32 place = begin; place < begin + BLOCK_SIZE; ++place)
    {
        places[count] = place;
        count += costs[place] < limit ? 1 : 0;
    }
    return count;
}

inline void OpenList::replaceWorst(Best& best, uint32 place)
{
    const Entry entry{mBackCosts[place], mBackNodes[place]};
    mBackCosts[place] = INFINITE;
    mBackNodes[place] = NO_NODE;
    --mNumBack;
    putBack(--mBackBegin, best.replaceWorst(entry));
}

void OpenList::updateBlockMinimum(uint32 block)
{
    // four at a time, none of which waits for another
    constexpr uint32 NUM_LANES = 4;
    float minima[NUM_LANES] = {INFINITE, INFINITE, INFINITE, INFINITE};
    const float* costs = mBackCosts.data() + size_t{block} * BLOCK_SIZE;
    for (uint32 i = 0; i < BLOCK_SIZE; i += NUM_LANES)
    {
        for (uint32 lane = 0; lane < NUM_LANES; ++lane)
            minima[lane] = costs[i + lane] < minima[lane] ? costs[i + lane] : minima[lane];
    }
    mBlockMinimum[block] = *std::min_element(minima, minima + NUM_LANES);
}
} // namespace KORV::Common::Astar
