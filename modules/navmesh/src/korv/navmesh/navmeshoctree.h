#pragma once

#include "korv/common/container/segmentvector.h"
#include "korv/common/memory/memorymanaged.h"
#include "korv/navmesh/heightclassifier.h"
#include "korv/navmesh/navmeshbuilder.h"
#include "korv/navmesh/rules.h"
#include "korv/navmesh/runcontrol.h"
#include "korv/navmesh/surfacepolygon.h"

namespace KORV::NavMesh
{
/// An inner node of the octree. Its children lie one after the other, in ascending child number.
struct InnerOctant
{
    static constexpr uint32 NO_CHILD = 0xFFFFFFFF;

    uint8 childMask = 0;          ///< bit k: child k exists
    uint32 firstChild = NO_CHILD; ///< index of the first child, among the leaves on the last level
};

/// An occupied voxel. Floors of fifty million voxels are usual, so every stage keeps its marks in these 8 bytes.
struct LeafOctant
{
    static constexpr uint8 WALKABLE = 1;
    /// Merge search, on voxels that no border touches: the label came from the neighbour in direction LINK_SHIFT.
    static constexpr uint8 LINKED = 2;
    static constexpr uint32 LINK_SHIFT = 2;
    /// On border voxels, which have no such link: the voxel joins the two borders that pass through it.
    static constexpr uint8 JOINS_BORDERS = 4;
    static constexpr uint32 NEIGHBOUR_SHIFT = 4;
    static constexpr uint32 BRIDGE_SHIFT = 4;
    static constexpr uint32 ALL_SIDES = 15;

    uint8 flags = 0; ///< bit 0 walkable, bits 1 to 3 as above, bit 4 + i: joined to the neighbour in direction i
    uint8 marks = 0; ///< bit i: border edge i traced, bit 4 + i: a bridge leads on in direction i
    uint16 surfaceTypeID = 0; ///< 0 until a walkable triangle sets it
    /// What the running stage keeps: free height in voxels, then the label of a border, then the sides where a bridge
    /// meets the border.
    uint32 data = 0;

    bool isWalkable() const { return (flags & WALKABLE) != 0; }
    bool hasNeighbour(uint32 side) const { return ((flags >> (NEIGHBOUR_SHIFT + side)) & 1u) != 0; }
    /// Bit i: side i belongs to a border.
    uint32 getBorderSides() const { return ~(static_cast<uint32>(flags) >> NEIGHBOUR_SHIFT) & ALL_SIDES; }
    uint32 getTracedSides() const { return marks & ALL_SIDES; }
    void setTraced(uint32 side) { marks = static_cast<uint8>(marks | (1u << side)); }
    uint32 getBridges() const { return static_cast<uint32>(marks) >> BRIDGE_SHIFT; }
    void setBridge(uint32 side) { marks = static_cast<uint8>(marks | (1u << (BRIDGE_SHIFT + side))); }
};

static_assert(sizeof(InnerOctant) == 8 && sizeof(LeafOctant) == 8, "the octree's size is counted in 8-byte records");

/// The child numbers on the way from the root down to a voxel.
struct Trail
{
    static constexpr uint32 N_MAX_TRAIL = 200;

    /// An entry beyond N_MAX_TRAIL is reported and dropped.
    void append(uint8 child);

    uint8 mChildren[N_MAX_TRAIL] = {};
    uint32 mCurrPos = 0; ///< number of entries
};

/// A run of voxels along one axis, from the origin on.
struct Ray
{
    /// A direction that is not a unit vector along an axis is reported; its first component that is not zero then
    /// gives axis and sign.
    Ray(const Vec3<int32>& origin, const Vec3<int32>& direction, uint32 length);

    Vec3<int32> mOrigin;
    Vec3<int32> mDirection;
    uint32 mLength;             ///< [voxels]
    LeafOctant* mHit = nullptr; ///< the voxel found, null for none
};

class LeafCursor;
class VoxelBricks;

/// What to do with each voxel.
class LeafFunctional
{
public:
    virtual ~LeafFunctional() = default;
    virtual void operator()(const Vec3<int32>& position, LeafOctant& leaf) = 0;
};

/// Sparse octree of equal cubes (voxels) over the input, and the outlines of its walkable surfaces.
/// Thread use: built and walked on the thread of the run; during the neighbour stage the pool's workers read it.
class NavMeshOctree : public Common::Memory::MemoryManaged
{
public:
    /// Name of the stage in progress reports.
    static constexpr const char* STAGE_NAME = "Build maximal connected polygons";

    /// @param geometries  not copied; must outlive the octree, as must @p threadPool and @p control.
    /// @param isSplitDepthAutomatic  nobody has chosen the split depth, so small surfaces need not be cut by it.
    NavMeshOctree(const NavMeshBuilder::Parameter& parameter, const Vector<GeometryInfo>* geometries,
                  const HeightClassifier& classifier, Common::Threading::ThreadPool* threadPool,
                  const RunControl& control, Rules rules = Rules::SPECIFIED, bool isSplitDepthAutomatic = false);
    ~NavMeshOctree() override;
    NavMeshOctree(const NavMeshOctree&) = delete;
    NavMeshOctree& operator=(const NavMeshOctree&) = delete;

    /// Voxelises the geometries and appends one outline for every maximal connected walkable surface. Keeps records of
    /// the voxels only where their rules are applied one by one.
    /// @param mainAxis  index of the up direction among the six main axes.
    /// Throws ArgumentException when the grid gets too large, RunCancelled when the host stops the run, and passes on
    /// what classifiers throw. The pool is idle afterwards in every case.
    void buildMaxConnectedPolygons(SurfacePolygonList& polygons, uint32 mainAxis);

    /// Voxelises the geometries. [world units: cubeSize > 0]
    void buildTree(float cubeSize);

    /// The voxel at a position inside the grid, null when it is empty.
    LeafOctant* getLeaf(const Vec3<int32>& position);
    bool isInside(const Vec3<int32>& position) const;
    /// Appends the child numbers down to a position inside the grid, ending early where the branch is empty.
    void computeTrail(Trail& trail, const Vec3<int32>& position) const;
    /// Whether the ray meets a voxel, walkable or not. The ray's length becomes the number of empty voxels passed.
    /// A ray that reaches or passes the last cell of its axis ends one cell short of it, and a hit then counts the
    /// cells that were cut off as passed.
    bool castRay(Ray& ray);
    /// The same with the caller's cursor, which makes the rays of a row of voxels cheap.
    bool castRay(Ray& ray, LeafCursor& cursor);
    /// Calls the functional with every voxel, depth first, children in ascending number.
    void forEachLeaf(LeafFunctional& functional);

    /// World centre of a voxel's cube.
    Vec3<float> getCentre(const Vec3<int32>& position) const
    {
        return mFirstCentre + Vec3<float>(static_cast<float>(position.mX), static_cast<float>(position.mY),
                                          static_cast<float>(position.mZ)) *
                                  mCubeSize;
    }

    uint32 getDepth() const { return mDepth; }
    uint32 getDimension() const { return mDimension; }
    float getCubeSize() const { return mCubeSize; }
    const NavMeshBuilder::Parameter& getParameter() const { return mParameter; }
    const HeightClassifier& getHeightClassifier() const { return mHeightClassifier; }
    const RunControl& getControl() const { return mControl; }
    Rules getRules() const { return mRules; }
    bool isSplitDepthAutomatic() const { return mIsSplitDepthAutomatic; }
    Common::Threading::ThreadPool* getThreadPool() const { return mThreadPool; }

    // The records themselves, for the stages beside this class.

    using InnerOctants = Common::Container::SegmentVector<InnerOctant>;
    using LeafOctants = Common::Container::SegmentVector<LeafOctant>;

    const InnerOctants& getInnerOctants() const { return mInnerOctants; }
    LeafOctants& getLeafOctants() { return mLeafOctants; }

private:
    void prepareGrid(float cubeSize);
    bool computeBounds();
    template <class Insertion, class Output>
    void insertTriangles(Output& output);
    void logStatistics(uint64 numInner, uint64 numLeaves) const;
    uint64 buildBricks(VoxelBricks& bricks);
    void buildOnBits(SurfacePolygonList& polygons, uint32 mainAxis);
    void visit(LeafFunctional& functional, uint32 octant, uint32 level, const Vec3<int32>& corner);
    void extractSurfaces(SurfacePolygonList& polygons, const VoxelBricks& bricks, uint32 mainAxis);
    void buildVoxelByVoxel(SurfacePolygonList& polygons, uint32 mainAxis);
    void findNeighbours(uint32 mainAxis);
    void findBridges(uint32 mainAxis);
    void traceOutlines(SurfacePolygonList& polygons, uint32 mainAxis);

    NavMeshBuilder::Parameter mParameter;
    HeightClassifier mHeightClassifier;
    const Vector<GeometryInfo>* mGeometries;
    InnerOctants mInnerOctants; ///< the root comes first when the depth is above 0
    LeafOctants mLeafOctants;   ///< holds the root when the depth is 0
    float mCubeSize = 0.0f;
    bool mHasVertices = false;
    uint32 mDimension = 1; ///< voxels along an edge, 2 to the power of the depth
    Vec3<float> mMin;      ///< corners of the octree's cube [world units]
    Vec3<float> mMax;
    Vec3<float> mFirstCentre; ///< world centre of voxel (0, 0, 0)
    uint32 mDepth = 0;
    Common::Threading::ThreadPool* mThreadPool;
    const RunControl& mControl;
    Rules mRules;
    bool mIsSplitDepthAutomatic;
};
} // namespace KORV::NavMesh
