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

OpenList::OpenList(Memory::Allocator* allocator) : mFront(allocator), mBack(allocator), mBlockMinimum(allocator) {}

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
    if (mFrontSorted)
    {
        const auto isAbove = [&entry](const Entry& other) { return other.mCost > entry.mCost; };
        place = static_cast<size_t>(std::partition_point(mFront.begin(), mFront.end() - 1, isAbove) - mFront.begin());
        std::move_backward(mFront.begin() + static_cast<std::ptrdiff_t>(place), mFront.end() - 1, mFront.end());
    }
    else
    {
        for (; place > 0 && !(mFront[place - 1].mCost > entry.mCost); --place)
            mFront[place] = mFront[place - 1];
    }
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
        mBack[place].mCost = cost;
        lowerBlockMinimum(place, cost);
    }
}

void OpenList::clearBack()
{
    if (mBackBegin < mBackEnd)
    {
        const auto minima = mBlockMinimum.begin();
        std::fill(minima + mBackBegin / BLOCK_SIZE, minima + (mBackEnd - 1) / BLOCK_SIZE + 1, INFINITE);
    }
    mBackBegin = static_cast<uint32>(mBack.size() / 2);
    mBackEnd = mBackBegin;
    mNumBack = 0;
}

/// Packs the nodes into the middle of an array with room for as many again, and half as many more, on both sides.
void OpenList::rebuildBack()
{
    const size_t wanted = std::max<size_t>(MIN_BACK_SIZE, (size_t{mNumBack} / BLOCK_SIZE + 1) * BLOCK_SIZE * 4);
    Vector<Entry> larger(mBack.get_allocator());
    if (wanted > mBack.size())
    {
        larger.resize(wanted);
        mBlockMinimum.resize(wanted / BLOCK_SIZE, INFINITE);
    }

    const auto isHole = [](const Entry& entry) { return entry.mNode == NO_NODE; };
    const auto source = mBack.begin() + mBackBegin;
    const auto sourceEnd = std::remove_if(source, mBack.begin() + mBackEnd, isHole);
    const auto count = static_cast<uint32>(sourceEnd - source);
    const auto begin = static_cast<uint32>((std::max(wanted, mBack.size()) - count) / 2);
    if (!larger.empty())
        std::copy(source, sourceEnd, larger.begin() + begin);
    else if (begin < mBackBegin)
        std::copy(source, sourceEnd, mBack.begin() + begin);
    else
        std::copy_backward(source, sourceEnd, mBack.begin() + begin + count);
    if (!larger.empty())
        mBack.swap(larger);
    clearBack();
    for (uint32 place = begin; place < begin + count; ++place)
        putBack(place, mBack[place]);
    mBackBegin = begin;
    mBackEnd = begin + count;
}

void OpenList::refillFront()
{
    // all memory first: when there is none, the list stays as it is
    mFront.reserve(NUM_BEST);
    if (mBackBegin < mNumBack)
        rebuildBack();

    Entry best[NUM_BEST];
    const uint32 count = takeFirst(best);
    if (count == NUM_BEST)
        replaceWorse(best);
    for (uint32 end = count; end > 0;)
    {
        uint32 begin = end - 1;
        while (begin > 0 && best[begin - 1].mCost == best[begin].mCost)
            --begin;
        mFront.insert(mFront.end(), best + begin, best + end);
        end = begin;
    }
    for (const Entry& entry : mFront)
        mRecords[entry.mNode].openPlace = PLACE_FRONT;
    mFrontSorted = true;
    if (mNumBack == 0)
        clearBack();
}

/// Takes the first nodes off the back, in ascending order of cost, equal ones as they come.
/// @return how many there were, up to NUM_BEST.
uint32 OpenList::takeFirst(Entry* best)
{
    uint32 count = 0;
    uint32 place = mBackBegin;
    for (; count < NUM_BEST && place < mBackEnd; ++place)
    {
        const Entry entry = mBack[place];
        if (entry.mNode == NO_NODE)
            continue;
        uint32 i = count++;
        for (; i > 0 && entry.mCost < best[i - 1].mCost; --i)
            best[i] = best[i - 1];
        best[i] = entry;
    }
    mBackBegin = place;
    mNumBack -= count;
    return count;
}

/// Walks over the rest of the back: a node better than the worst of the best takes its place, and that one becomes the
/// first of the back, behind the walk.
void OpenList::replaceWorse(Entry* best)
{
    bool firstTime = true;
    for (uint32 place = mBackBegin, end; place < mBackEnd; place = end)
    {
        const uint32 block = place / BLOCK_SIZE;
        end = std::min(mBackEnd, (block + 1) * BLOCK_SIZE);
        if (!(mBlockMinimum[block] < best[NUM_BEST - 1].mCost))
            continue;
        for (; place < end; ++place)
        {
            if (mBack[place].mCost < best[NUM_BEST - 1].mCost)
            {
                replaceWorst(best, place, firstTime);
                firstTime = false;
            }
        }
        updateBlockMinimum(block);
    }
}

void OpenList::replaceWorst(Entry* best, uint32 place, bool firstTime)
{
    const Entry entry = mBack[place];
    mBack[place] = {INFINITE, NO_NODE};
    --mNumBack;

    uint32 worst = NUM_BEST - 1;
    while (firstTime && worst > 0 && best[worst - 1].mCost == best[worst].mCost)
        --worst;
    const Entry rejected = best[worst];
    std::copy(best + worst + 1, best + NUM_BEST, best + worst);
    uint32 i = NUM_BEST - 1;
    for (; i > 0 && !(best[i - 1].mCost < entry.mCost); --i)
        best[i] = best[i - 1];
    best[i] = entry;
    putBack(--mBackBegin, rejected);
}

void OpenList::updateBlockMinimum(uint32 block)
{
    const uint32 begin = std::max(mBackBegin, block * BLOCK_SIZE);
    const uint32 end = std::min(mBackEnd, (block + 1) * BLOCK_SIZE);
    float minimum = INFINITE;
    for (uint32 place = begin; place < end; ++place)
        minimum = mBack[place].mCost < minimum ? mBack[place].mCost : minimum;
    mBlockMinimum[block] = minimum;
}
} // namespace KORV::Common::Astar
