#pragma once

#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshpathsearch.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// How a way gets on.
enum class NavMeshMove : uint8
{
    WALK,
    JUMP_UP,
    DROP_DOWN
};

/// One point of a way.
struct NavMeshWayPoint
{
    Vec3<float> mPosition;                 ///< [world units]
    int32 mNodeID = -1;                    ///< a node that the point lies in, up to rounding
    NavMeshMove mMove = NavMeshMove::WALK; ///< how the way goes on to the next point
    float mHeight = 0.0f; ///< height of the next point over this one, for a jump (> 0) or a drop (< 0); 0 for a walk
};

/// How a way crosses from one node into the next.
struct NavMeshCrossing
{
    int32 mFromNode = -1;
    int32 mToNode = -1;
    uint32 mBorderID = 0; ///< side of the node that is left
    NavMeshMove mMove = NavMeshMove::WALK;
    float mHeight = 0.0f; ///< of the landing above the side left, whatever the kind [world units]
    float mWidth = 0.0f;  ///< of the opening, before the body radius takes its share [world units]
    Vec3<float> mLeaving; ///< where the way leaves the one node; on its border [world units]
    Vec3<float> mLanding; ///< where it arrives in the other; on its border [world units]
};

/// A way that a body can follow.
struct KORV_NAVMESH_API NavMeshWay
{
    explicit NavMeshWay(Common::Memory::Allocator* allocator) : mPoints(allocator), mCrossings(allocator) {}

    Vector<NavMeshWayPoint> mPoints;    ///< from start to end, both included; a jump or drop has a point at each end
    Vector<NavMeshCrossing> mCrossings; ///< one for each side crossed, in order
    float mLength = 0.0f;               ///< sum of the straight legs [world units]
};

/// Pulls a path tight: the shortest line from start to end through the nodes of a path, as seen from above.
///
/// The legs run straight from point to point and stay inside the nodes of the path in the ground plane; they go around
/// the dents that a generated node may have (under a cube deep), except in the first and the last node. In height they
/// may cut through steps of at most the step height. Across a jump or drop the way runs from the point on the one
/// border to that on the other. Where a link leads to ground right below or above the node, so that the way turns back
/// at the border, the line is the shortest as well. In the plane it is never longer than the line through the middles
/// of the openings.
///
/// Method: the funnel (string pulling) of B. Chazelle, "A theorem on polygon cutting with applications", FOCS 1982, and
/// D. T. Lee and F. P. Preparata, "Euclidean shortest paths in the presence of rectilinear barriers", Networks 14,
/// 1984. Scratch memory is kept between calls, and which nodes have dents: a mesh whose nodes are edited in place needs
/// another finder. Thread use: one object per thread; creating and destroying one changes
/// the mesh's reference count, which is not atomic.
class KORV_NAVMESH_API NavMeshWayFinder
{
public:
    /// @param navMesh  kept alive; null is reported, and no way is found then.
    /// Throws OutOfMemoryException.
    explicit NavMeshWayFinder(const SharedPtr<NavMeshContainer>& navMesh);
    ~NavMeshWayFinder();
    NavMeshWayFinder(const NavMeshWayFinder&) = delete;
    NavMeshWayFinder& operator=(const NavMeshWayFinder&) = delete;

    /// Half the width of the body: openings shrink by that much at both ends, narrower ones to their middle. So the way
    /// keeps that distance from both ends of every side it crosses, but not from walls elsewhere: a leg from one side
    /// to another may pass a corner of the node between them more closely.
    /// [world units, >= 0, finite; else reported and ignored]
    void setBodyRadius(float radius);
    /// Differences of height up to this are walked, not jumped or dropped: slopes and stairs are strips one cube apart.
    /// [world units, >= 0, finite, else reported and ignored; one cube size unless set] A thousandth more still counts,
    /// for rounding.
    void setStepHeight(float height);

    /// Finds the way along a path.
    /// @param way  receives it, its lists are emptied first; without a point when the path does not fit the mesh.
    /// @param start,end  in the first and the last node of the path; taken as they are. [world units]
    /// @param path  as NavMeshPathSearch::getPath gives it.
    /// @param startNodeID  the node of the start, which matters for an empty path only; -1: not known.
    /// @return false, after a report, when a chunk names no side with a neighbour, or is not where the one before led,
    /// when a position is not finite or the node of an empty path does not exist.
    /// Throws OutOfMemoryException; the way is then incomplete.
    /// Cost: linear in the sides of the nodes on the path. No memory is taken once lists and scratch are large enough,
    /// as long as the mesh keeps its nodes.
    bool findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                 const Vector<NavMeshPathChunk>& path, int startNodeID = -1);
    /// The same way without its crossings, which is quicker: NavMeshWay::mCrossings stays empty.
    bool findPoints(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                    const Vector<NavMeshPathChunk>& path, int startNodeID = -1);

private:
    class Worker;

    bool findWay(NavMeshWay& way, const Vec3<float>& start, const Vec3<float>& end,
                 const Vector<NavMeshPathChunk>& path, int startNodeID, bool hasCrossings);
    bool isValid(const Vec3<float>& start, const Vec3<float>& end, const Vector<NavMeshPathChunk>& path,
                 int startNodeID) const;

    SharedPtr<NavMeshContainer> mNavMesh;
    Worker* mWorker = nullptr;
};
} // namespace KORV::NavMesh
