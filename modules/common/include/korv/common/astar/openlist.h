#pragma once

#include "korv/common/api.h"
#include "korv/common/astar/astarnode.h"
#include "korv/common/container/vector.h"

namespace KORV::Common::Astar
{
/// The open nodes of a search by total cost, in two parts: a sorted front of the best ones and an unsorted back. The
/// front is filled with the 50 best of the back when it has run empty; until then a new node joins it only if it is
/// better than the last node of the front, behind those of equal cost. All others are appended to the back.
///
/// The order, ties included, is that of two plain linked lists; how it is reached faster stands in the source.
class KORV_COMMON_API OpenList
{
public:
    /// Nodes that a refill of the front takes at most.
    static constexpr uint32 NUM_BEST = 50;

    explicit OpenList(Memory::Allocator* allocator);

    /// Empties the list. What it holds from now on are indices into @p records, whose openPlace belongs to the list.
    void reset(AStarNode* records);

    /// Adds a node that is in neither part. Throws OutOfMemoryException; the node is then not in the list.
    void push(uint32 nodeID)
    {
        const Entry entry{mRecords[nodeID].totalCost, nodeID};
        if (!mFront.empty() && entry.mCost < mFront.front().mCost)
            insertIntoFront(entry);
        else
            append(entry);
    }
    /// The best node, NO_NODE when there is none. Throws OutOfMemoryException; the list is then as it was.
    uint32 getBest()
    {
        if (mFront.empty())
        {
            if (mNumBack == 0)
                return NO_NODE;
            refillFront();
        }
        return mFront.back().mNode;
    }
    /// The same, taken off the list.
    uint32 popBest()
    {
        const uint32 nodeID = getBest();
        if (nodeID != NO_NODE)
        {
            mFront.pop_back();
            mRecords[nodeID].openPlace = PLACE_NONE;
        }
        return nodeID;
    }

    /// A node of the front, counted from the best one; NO_NODE where it ends.
    uint32 foresee(size_t place) const
    {
        return place < mFront.size() ? mFront[mFront.size() - 1 - place].mNode : NO_NODE;
    }

    /// The total cost in a node's record has changed from @p oldCost. A node of the front is taken out and pushed
    /// again, one of the back keeps its place, one in neither part stays outside.
    void reposition(uint32 nodeID, float oldCost);
    /// The same, but a node of the front keeps its place, too.
    void changeInPlace(uint32 nodeID, float oldCost);

private:
    struct Entry
    {
        float mCost; // the total cost in the node's record
        uint32 mNode;
    };
    struct Best;

    // openPlace of a record: a place in the back, or one of these
    static constexpr uint32 PLACE_NONE = 0xFFFFFFFF;
    static constexpr uint32 PLACE_FRONT = 0xFFFFFFFE;

    static constexpr uint32 BLOCK_SIZE = 64;

    void insertIntoFront(const Entry& entry);
    size_t findInFront(uint32 nodeID, float cost) const;

    void append(const Entry& entry)
    {
        if (mBackEnd == mBackNodes.size())
            rebuildBack();
        putBack(mBackEnd, entry);
        ++mBackEnd;
    }
    void putBack(uint32 place, const Entry& entry)
    {
        mBackCosts[place] = entry.mCost;
        mBackNodes[place] = entry.mNode;
        lowerBlockMinimum(place, entry.mCost);
        mRecords[entry.mNode].openPlace = place;
        ++mNumBack;
    }
    void lowerBlockMinimum(uint32 place, float cost)
    {
        float& minimum = mBlockMinimum[place / BLOCK_SIZE];
        if (cost < minimum)
            minimum = cost;
    }
    void clearBack();
    void rebuildBack();

    void refillFront();
    void fillFront(const Best& best);
    void takeFirst(Best& best);
    void replaceWorse(Best& best);
    uint32 findBelow(uint32* places, uint32 begin, float limit) const;
    void replaceWorst(Best& best, uint32 place);
    void updateBlockMinimum(uint32 block);

    AStarNode* mRecords = nullptr;
    Vector<Entry> mFront;     // worst node first, best last
    bool mFrontSorted = true; // false once a cost was changed in place and broke the order
    // The back, used from mBackBegin to mBackEnd, free on both sides, with holes. A place without a node costs
    // infinity; a hole holds NO_NODE.
    Vector<float> mBackCosts;
    Vector<uint32> mBackNodes;
    Vector<float> mBlockMinimum; // no cost in the block of BLOCK_SIZE places is lower
    uint32 mBackBegin = 0;
    uint32 mBackEnd = 0;
    uint32 mNumBack = 0; // nodes in the back, holes not counted
};
} // namespace KORV::Common::Astar
