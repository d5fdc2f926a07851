#include "korv/common/astar/astarstoragefast.h"

#include "korv/common/astar/astargoal.h"
#include "korv/common/astar/astarmap.h"
#include "korv/common/memory/stlallocator.h"

#include <cstring>

namespace KORV::Common::Astar
{
namespace
{
constexpr size_t CACHE_LINE = 64;

uint32 getStateBytes(uint32 numNodes)
{
    return numNodes / 4 + 1;
}
} // namespace

AStarStorage::AStarStorage(const Memory::AllocatorPtr& allocator) : mAllocator(allocator) {}

AStarStorage::~AStarStorage() = default;

Memory::Allocator* AStarStorage::getMemory() const
{
    return mAllocator != nullptr ? mAllocator.get() : Memory::getDefaultAllocator();
}

AStarStorageFast::AStarStorageFast(AStarMap* edgeMap, const Memory::AllocatorPtr& allocator)
    : AStarStorage(allocator), mMap(edgeMap), mOpenList(getMemory()), mQueue(getMemory()), mEdges(getMemory())
{
}

AStarStorageFast::~AStarStorageFast()
{
    freeArrays();
}

void AStarStorageFast::setGoal(AStarGoal* goal)
{
    mGoal = goal;
}

void AStarStorageFast::initStorage(uint32 maxNodeID)
{
    const uint32 numNodes = maxNodeID + 1;
    mNumNodes = 0;
    mOpenList.reset(mRecords);
    if (mCapacity < numNodes)
    {
        freeArrays();
        // The records stay raw: one means nothing before its node has been reached.
        mStates = static_cast<uint8*>(Memory::allocateAligned(*getMemory(), getStateBytes(numNodes), CACHE_LINE));
        mRecords = static_cast<AStarNode*>(
            Memory::allocateAligned(*getMemory(), uint64{numNodes} * sizeof(AStarNode), CACHE_LINE));
        mCapacity = numNodes;
        mOpenList.reset(mRecords);
    }
    if (numNodes != 0)
        std::memset(mStates, 0, getStateBytes(numNodes));
    mNumNodes = numNodes;
}

void AStarStorageFast::freeArrays()
{
    mCapacity = 0;
    Memory::deallocateAligned(*getMemory(), mStates, CACHE_LINE);
    mStates = nullptr;
    Memory::deallocateAligned(*getMemory(), mRecords, CACHE_LINE);
    mRecords = nullptr;
}

void AStarStorageFast::updateOpenNode(uint32 nodeID, uint32 edge, float pathCost)
{
    if (nodeID >= mNumNodes || !(pathCost < mRecords[nodeID].pathCost))
        return;
    const float oldCost = mRecords[nodeID].totalCost;
    improve(mRecords[nodeID], edge, pathCost);
    mOpenList.reposition(nodeID, oldCost);
}

void AStarStorageFast::updateClosedNode(uint32 nodeID, uint32 edge, float pathCost)
{
    updateClosedNode(nodeID, edge, pathCost,
                     [this](uint32 source, auto&& reach)
                     {
                         mEdges.clear();
                         mMap->getOutEdges(mEdges, source);
                         for (const uint32 link : mEdges)
                         {
                             const uint32 target = mMap->getEdgeTarget(link);
                             if (getState(target) != STATE_NEW)
                                 reach(link, target, mGoal->getCost(link));
                         }
                     });
}

/// A node of which a cheaper way is known now offers that to one of its targets.
void AStarStorageFast::passOn(uint32 source, uint32 edge, uint32 target, float cost)
{
    const float pathCost = mRecords[source].pathCost + cost;
    if (!(pathCost < mRecords[target].pathCost))
        return;
    const float oldCost = mRecords[target].totalCost;
    improve(mRecords[target], edge, pathCost);
    mOpenList.changeInPlace(target, oldCost);
    mQueue.push_back(target);
}
} // namespace KORV::Common::Astar
