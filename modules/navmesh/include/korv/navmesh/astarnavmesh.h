#pragma once

#include "korv/common/astar/astar.h"
#include "korv/common/astar/astargoal.h"
#include "korv/common/astar/astarmap.h"
#include "korv/common/astar/astarstoragefast.h"
#include "korv/common/astar/bitmask.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/navmeshsearchfilter.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
class NavMeshSearchGraph;

/// An edge id of the search graph is a crossing of a side: the source node in the low bits, the side in the others.
constexpr uint32 KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS = 20;
/// The largest value of the node field. It belongs to the edge id that means "no edge": node ids stay below it.
constexpr uint32 STARTNODE_MASK = Common::Utility::BitMask<KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS>::MASK;
/// The largest value of the side field; sides stay below it.
constexpr uint32 BORDER_MASK = Common::Utility::BitMask<32 - KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS>::MASK;

/// The mesh as a search graph: its nodes are the mesh's nodes, its edges the sides with a neighbour. Neighbour entries
/// that name no node are no edges. Keeps the mesh alive.
class KORV_NAVMESH_API AStarMapNavMesh : public Common::Astar::AStarMap
{
public:
    /// A null or empty mesh and one of STARTNODE_MASK nodes or more are reported.
    explicit AStarMapNavMesh(const SharedPtr<NavMeshContainer>& navMesh);
    ~AStarMapNavMesh() override;

    /// Appends the edges in the order of the sides. A side of BORDER_MASK or above is reported and left out.
    void getOutEdges(Vector<uint32>& edges, uint32 nodeID) override;
    /// @return NO_NODE, after a report, for an edge that does not exist.
    uint32 getEdgeTarget(uint32 edge) override;
    uint32 getEdgeSource(uint32 edge) override;
    uint32 getMaxNodeID() override;

    const SharedPtr<NavMeshContainer>& getNavMesh() const { return mNavMesh; }

    static uint32 getNode(uint32 edge) { return edge & STARTNODE_MASK; }
    static uint32 getBorder(uint32 edge) { return edge >> KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS; }
    static uint32 getEdge(uint32 nodeID, uint32 border)
    {
        return border << KORV_ASTARMAP_NAVMESH_EDGEINDEX_NODEBITS | nodeID;
    }
    /// Whether a side may be part of an edge id; another one is reported.
    static bool checkBorder(size_t border) { return border < BORDER_MASK || reportBorder(); }
    /// Node ids below this one can be the target of an edge.
    static uint32 getNodeLimit(const NavMeshContainer& mesh);

private:
    static bool reportBorder();

    SharedPtr<NavMeshContainer> mNavMesh;
};

/// Where a search measures its distances: in the middle points of the nodes, at the start and the end in the real
/// positions.
struct KORV_NAVMESH_API NMSearchPoints
{
    SharedPtr<NavMeshContainer> mNavMesh;
    Vec3<float> mStartPos;
    Vec3<float> mEndPos;
    int32 mStartNode = -1;
    int32 mEndNode = -1;
    /// Where the middle points of the nodes that a search has reached are kept; null: none are. Not owned.
    const Common::Astar::AStarStorageFast* mStorage = nullptr;

    /// The point where a way leaves a node, and the one where it arrives. [world units]
    Vec3<float> getFromPoint(uint32 nodeID) const;
    Vec3<float> getToPoint(uint32 nodeID) const;

private:
    Vec3<float> getMiddlePoint(uint32 nodeID) const;
};

/// The cost of crossing a side: the straight distance between the points of the two nodes, times what the filter asks
/// for the surface of the node entered. [world units]
class KORV_NAVMESH_API NMCostFunc : public Common::Astar::CostFunc
{
public:
    explicit NMCostFunc(const SharedPtr<NavMeshContainer>& navMesh);
    NMCostFunc(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& startPos, const Vec3<float>& endPos,
               int startNode, int endNode);
    ~NMCostFunc() override;

    /// @return infinity for an edge that does not exist or that the filter does not allow.
    float calcCost(uint32 edge) override;

    NMSearchPoints mPoints;
    const NavMeshSearchFilter* mFilter = nullptr; ///< null: all is allowed at the plain cost; not owned
};

/// The estimate: the straight distance to the point of the goal. [world units]
class KORV_NAVMESH_API NMHeuristicFunc : public Common::Astar::HeuristicFunc
{
public:
    explicit NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh);
    NMHeuristicFunc(const SharedPtr<NavMeshContainer>& navMesh, const Vec3<float>& startPos, const Vec3<float>& endPos,
                    int startNode, int endNode);
    ~NMHeuristicFunc() override;

    float calcHeuristic(uint32 nodeID, uint32 goalNodeID) override;

    NMSearchPoints mPoints;
};

/// A* over a mesh: the search of the base class, step by step, with the calls of graph, costs, estimates and storage
/// resolved beforehand. Middle points are computed once a search, and kept in the records.
class KORV_NAVMESH_API AStarNavMesh : public Common::Astar::AStar
{
public:
    /// Owns neither of the two.
    AStarNavMesh(Common::Astar::AStarStorageFast* nodeStorage, AStarMapNavMesh* meshMap,
                 const Common::Memory::AllocatorPtr& allocator);
    ~AStarNavMesh() override;

    /// Makes a goal over these two functions that of the engine, or null. Owns none of them.
    void setGoal(Common::Astar::ASGoalBase* searchGoal, NMCostFunc* costFunc, NMHeuristicFunc* heuristicFunc);

    /// Makes searches read links and middle points from there as long as it has as many nodes as the mesh; null: from
    /// the mesh. Not owned. Call it before a search is set up.
    void setGraph(const NavMeshSearchGraph* graph) { mGraph = graph; }

    /// A start that the filter of the cost function does not allow gives a search without open nodes.
    void initSearch() override;
    int runSearch(uint32 maxSteps) override;

private:
    bool isOwnSetup() const;
    bool isStartAllowed() const;
    template <bool FILTERED>
    int runMeshSteps(uint32 maxSteps);

    Common::Astar::AStarStorageFast* mOwnStorage;
    AStarMapNavMesh* mOwnMap;
    Common::Astar::ASGoalBase* mOwnGoal = nullptr;
    NMCostFunc* mOwnCostFunc = nullptr;
    NMHeuristicFunc* mOwnHeuristicFunc = nullptr;
    const NavMeshSearchGraph* mGraph = nullptr;
};
} // namespace KORV::NavMesh
