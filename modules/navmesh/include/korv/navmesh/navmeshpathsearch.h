#pragma once

#include "korv/common/astar/astar.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/navmeshnodeindex.h"
#include "korv/navmesh/navmeshsearchfilter.h"
#include "korv/navmesh/navmeshsearchgraph.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// One side that a path crosses.
struct NavMeshPathChunk
{
    int32 mNodeID;    ///< the node that the path leaves
    uint32 mBorderID; ///< the side it crosses, from corner mBorderID to the next; an index into mNeighbours, too
};

/// Path search over one mesh, in slices: the host decides how many nodes a call may expand.
///
/// Calling order: initSearch; runSearch while it returns 1; after 0, getPath. Another initSearch may follow at any
/// time. Copies share one search and its state; it is released with the last of them. The mesh is kept alive, and must
/// not be changed between initSearch and getPath (a change is harmless, but the path may then be wrong). Thread use:
/// one thread at a time for all copies. Searches over one mesh may run at once with runSearch and getPath;
/// construction, initSearch, copying and destruction change the mesh's reference count, which is not atomic.
class KORV_NAVMESH_API NavMeshPathSearch
{
public:
    /// @param navMesh  null is reported, and so are an empty mesh and one of 1,048,575 nodes or more.
    /// Throws OutOfMemoryException.
    explicit NavMeshPathSearch(const SharedPtr<NavMeshContainer>& navMesh);
    NavMeshPathSearch(const NavMeshPathSearch& other);
    NavMeshPathSearch& operator=(const NavMeshPathSearch& other);
    ~NavMeshPathSearch();

    SharedPtr<NavMeshContainer> getNavMeshContainer() const;

    /// Sets up a search between two points. [world units]
    /// @return false when a point is on no node; the search before is then as it was.
    /// Throws OutOfMemoryException; either the search before is then as it was, or none is set up.
    /// Cost: two searches for nodes, which are linear in the mesh.
    bool initSearch(const Vec3<float>& start, const Vec3<float>& end);
    /// The same with known nodes.
    /// @param startNodeID,endNodeID  -1: the node is searched for. Other ids are taken as they are, wherever the points
    ///                               lie; one out of range is reported and gives false.
    bool initSearch(const Vec3<float>& start, int startNodeID, const Vec3<float>& end, int endNodeID);

    /// Makes the searches to come those of one character; null: those of nobody in particular, as from the start.
    /// @param filter  copied. A node that it does not allow is never entered; a search from or to such a node finds no
    ///                way.
    /// Takes effect with the next initSearch, for all copies. Throws OutOfMemoryException.
    void setFilter(const NavMeshSearchFilter* filter);

    /// Makes the searches to come read a graph of the mesh instead of the mesh, which is faster and finds the same
    /// ways; null: the mesh, as from the start.
    /// @param graph  shared with other searches; one of another mesh is reported and ignored. While the mesh has
    /// another number of nodes than the graph, searches read the mesh. Takes effect with the next initSearch, for all
    /// copies.
    void setGraph(const SharedPtr<NavMeshSearchGraph>& graph);

    /// Expands up to @p maxSteps nodes.
    /// @return 0: path found, 1: not finished, -1: there is no path, 2 after a report that the state is not known.
    /// Without a search that was set up: a report and -1.
    /// Throws OutOfMemoryException; set the search up again then.
    int runSearch(unsigned int maxSteps);

    /// The sides that the path found crosses, from the start on; none when start and end lie in one node, and, after a
    /// report, when no search was set up. The list lives on the mesh's allocator and must not outlive it.
    Vector<NavMeshPathChunk> getPath() const;

    /// After runSearch returned -1: the place nearest to the end, in space, among all the nodes that can be reached
    /// from the start; before that, among those reached so far. Of places at the same distance that on the lowest node
    /// id. Not valid when there is none, and, after a report, when no search was set up.
    /// Cost: linear in the corners of the nodes that were reached, and a glance at every other node.
    NavMeshPlace getNearestReachable() const;
    /// As getPath, but to any node that the search has reached, such as that of getNearestReachable. None, after a
    /// report, for a node that it has not reached.
    Vector<NavMeshPathChunk> getPathTo(int nodeID) const;
    /// Whether the search has reached a node: it knows a way to it, the cheapest one perhaps not yet.
    bool isReached(int nodeID) const;
    /// Cost of the way found to a node that the search has reached, in the search's own measure; infinity for others.
    float getCost(int nodeID) const;

    SharedPtr<NavMeshContainer> mNavMesh;
    Common::Astar::AStar* mAStar = nullptr; ///< the engine that all copies share; null for a search without a mesh

private:
    class Engine;
    using EnginePtr =
        SharedPtr<Engine, Common::MemberReferenceCount<Common::ReferenceCounted, Common::ReferenceCounter, 4>>;

    bool isInitialized() const;
    Vector<uint32> createEdges() const;
    static Vector<NavMeshPathChunk> createPath(const Vector<uint32>& edges);

    EnginePtr mEngine;
};
} // namespace KORV::NavMesh
