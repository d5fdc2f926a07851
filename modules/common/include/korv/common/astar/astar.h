#pragma once

#include "korv/common/api.h"
#include "korv/common/astar/astarnode.h"
#include "korv/common/container/vector.h"

namespace KORV::Common::Astar
{
class AStarGoal;
class AStarMap;
class AStarStorage;

/// A* search in slices: a host decides how many nodes a call may expand. Graph, costs and estimates are plugged in.
/// Calling order: initSearch, then runSearch while it returns UNFINISHED; after FOUND the goal has the path. Another
/// initSearch starts over, with the same storage.
class KORV_COMMON_API AStar
{
public:
    // results of runSearch
    static constexpr int FOUND = 0;
    static constexpr int UNFINISHED = 1;
    static constexpr int NO_PATH = 2;

    /// Owns none of the three. The goal may be null until a search is set up.
    AStar(AStarStorage* nodeStorage, AStarGoal* searchGoal, AStarMap* edgeMap, const Memory::AllocatorPtr& allocator);
    virtual ~AStar();
    AStar(const AStar&) = delete;
    AStar& operator=(const AStar&) = delete;

    /// Sets up a new search from the start node of the goal.
    /// Throws OutOfMemoryException; the search is then empty and must be set up again.
    virtual void initSearch();
    /// Expands up to @p maxSteps nodes.
    /// @return FOUND (a further call goes on searching), UNFINISHED or NO_PATH.
    /// Throws OutOfMemoryException; the search must then be set up again.
    virtual int runSearch(uint32 maxSteps);

    AStarStorage* storage;
    AStarGoal* goal;
    AStarMap* map;

protected:
    Memory::AllocatorPtr mAllocator;
    Vector<uint32> mEdges; // out-edges of the node that is being expanded
};

/// The loop of a search. An engine that knows its storage and graph passes their own types, and the compiler then sees
/// through all calls.
/// @param steps  offers bool isGoal(node); void putBack(node), which makes a goal that was popped an open node again;
///               void expand(node), which reports every edge of the node to the storage.
template <class Storage, class Steps>
int runSteps(Storage& storage, Steps& steps, uint32 maxSteps)
{
    for (; maxSteps > 0; --maxSteps)
    {
        AStarNode* node = storage.popBestNode();
        if (node == nullptr)
            return AStar::NO_PATH;
        if (steps.isGoal(node))
        {
            steps.putBack(node);
            return AStar::FOUND;
        }
        steps.expand(node);
        storage.closeNode(node);
    }
    return AStar::UNFINISHED;
}
} // namespace KORV::Common::Astar
