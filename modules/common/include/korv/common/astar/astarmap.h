#pragma once

#include "korv/common/api.h"
#include "korv/common/container/vector.h"

namespace KORV::Common::Astar
{
/// The graph that is searched. Node ids run from 0 to the largest one; what an edge id means is the map's affair, but
/// NO_EDGE is none.
class KORV_COMMON_API AStarMap
{
public:
    AStarMap() = default;
    virtual ~AStarMap();
    AStarMap(const AStarMap&) = delete;
    AStarMap& operator=(const AStarMap&) = delete;

    /// Appends the edges that leave a node. Their targets must be valid node ids.
    virtual void getOutEdges(Vector<uint32>& edges, uint32 nodeID) = 0;
    /// The node an edge leads to.
    virtual uint32 getEdgeTarget(uint32 edge) = 0;
    /// The node an edge leaves.
    virtual uint32 getEdgeSource(uint32 edge) = 0;
    /// The largest node id.
    virtual uint32 getMaxNodeID() = 0;
};
} // namespace KORV::Common::Astar
