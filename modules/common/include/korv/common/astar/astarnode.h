#pragma once

#include "korv/common/types.h"

namespace KORV::Common::Astar
{
/// Stands for "no edge": it enters the start node.
constexpr uint32 NO_EDGE = 0xFFFFFFFF;
/// Stands for "no node".
constexpr uint32 NO_NODE = 0xFFFFFFFF;

/// What a search knows about a node. Two records fill a cache line and none crosses one.
struct alignas(32) AStarNode
{
    float totalCost;  ///< pathCost and the estimate from here to the goal
    float pathCost;   ///< cost of the best way found from the start
    uint32 inEdge;    ///< the edge by which that way enters the node; NO_EDGE for the start node
    uint32 openPlace; ///< for the storage: where in its open list the node stands
    float point[3];   ///< for the engine: where the node lies, if it wants to remember that
    bool hasPoint;    ///< false whenever the node is opened; the engine sets it
};
} // namespace KORV::Common::Astar
