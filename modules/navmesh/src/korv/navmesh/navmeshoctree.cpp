// The voxels of a run and the questions about them.
//
// From input to outlines: voxelise the triangles (voxelinsertion), find the voxels with room above and join those that
// belong together (neighbourbits), label the borders of the surfaces (borders), connect the borders of each surface
// (bridges), walk each surface's outline (finalpolygon). All but the first step exist twice with the same result: one
// voxel after the other in these files, on the octree's records, and on bits (surfaceextraction), which need no
// records. The bits do the work; the voxels take over by the specified rules where coordinates are so large that their
// rounding decides which corners an outline has.
//
// Numbers: the box around the input is widened by half a world unit on every side, so that nothing lies on its faces.

#include "korv/navmesh/navmeshoctree.h"

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"
#include "korv/common/geom/geomutility.h"
#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/octreedepth.h"
#include "korv/navmesh/stageclock.h"
#include "korv/navmesh/surfaces/bridges.h"
#include "korv/navmesh/surfaces/finalpolygon.h"
#include "korv/navmesh/surfaces/neighbourbits.h"
#include "korv/navmesh/surfaces/surfaceextraction.h"
#include "korv/navmesh/voxels/directinsertion.h"
#include "korv/navmesh/voxels/leaffunction.h"
#include "korv/navmesh/voxels/voxelinsertion.h"
#include "korv/navmesh/voxels/voxeloutput.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
using Common::Debug::MessageText;
using Common::Debug::Trace;

constexpr const char* BUILD_TREE = "KORV::NavMesh::NavMeshOctree::buildTree";
constexpr const char* BUILD_POLYGONS = "KORV::NavMesh::NavMeshOctree::buildMaxConnectedPolygons";

constexpr float BOX_MARGIN = 0.5f;              // [world units]
constexpr float COLLINEAR_ANGLE = 0.017453292f; // one degree [radians]
constexpr uint32 BATCH = 1000;

// How much of the stage is done when a step ends; the steps of the longest stage of a run should look steady.
constexpr float INSERTION_DONE = 0.6f;
constexpr float HEIGHTS_DONE = 0.7f;
constexpr float NEIGHBOURS_DONE = 0.8f;
constexpr float BORDERS_DONE = 0.85f;
constexpr float BRIDGES_DONE = 0.9f;

void logPolygons(const MessageText& text)
{
    Trace::message(MessageText() << BUILD_POLYGONS << " : " << text);
}

void logTime(const char* step, const StageClock& clock)
{
    logPolygons(MessageText() << step << " Time used: " << clock.getLogSeconds());
}

void logBorders(uint64 numBorders)
{
    logPolygons(MessageText() << "Mark Face Border");
    logPolygons(MessageText() << "built borders: " << numBorders);
    logPolygons(MessageText() << "find merge positions");
}

/// Tells the host about a pass over all voxels while passing them on.
class ReportedFunction : public LeafFunctional
{
public:
    ReportedFunction(LeafFunctional& functional, const NavMeshOctree& octree, uint32 numLeaves, float begin, float end)
        : mFunctional(functional), mControl(octree.getControl()), mNumLeaves(numLeaves), mBegin(begin), mEnd(end)
    {
    }

    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override
    {
        mFunctional(position, leaf);
        if (++mCount % LEAVES_PER_REPORT != 0)
            return;
        const float done = static_cast<float>(mCount) / static_cast<float>(mNumLeaves);
        mControl.report(NavMeshOctree::STAGE_NAME, mBegin + (mEnd - mBegin) * std::min(done, 1.0f));
    }

private:
    static constexpr uint32 LEAVES_PER_REPORT = 8192;

    LeafFunctional& mFunctional;
    const RunControl& mControl;
    uint32 mNumLeaves;
    float mBegin;
    float mEnd;
    uint32 mCount = 0;
};

/// Runs a functional on every voxel, on the workers of the pool.
template <class F>
void runOnPool(NavMeshOctree& octree, const F& prototype, float begin, float end)
{
    MultiThreadedLeafFunction<F, BATCH> function(prototype, *octree.getThreadPool());
    ReportedFunction reported(function, octree, octree.getLeafOctants().size(), begin, end);
    octree.forEachLeaf(reported);
    function.finish();
}

/// Straightens each outline as soon as it is complete, which keeps the memory low.
class CollectOutlines : public LeafFunctional
{
public:
    CollectOutlines(NavMeshOctree& octree, uint32 mainAxis, SurfacePolygonList& polygons)
        : mBuilder(octree, mainAxis, polygons), mPolygons(polygons)
    {
    }

    void operator()(const Vec3<int32>& position, LeafOctant& leaf) override
    {
        const size_t before = mPolygons.size();
        mBuilder(position, leaf);
        if (mPolygons.size() == before)
            return;
        Common::Geom::RemoveCollinearPoints(mPolygons.back().mPoints, COLLINEAR_ANGLE); // leaves no spare room either
    }

private:
    BuildFinalPolygon mBuilder;
    SurfacePolygonList& mPolygons;
};

void extend(Vec3<float>& min, Vec3<float>& max, const Vec3<float>& point)
{
    for (int i = 0; i < 3; ++i)
    {
        min[i] = std::min(min[i], point[i]);
        max[i] = std::max(max[i], point[i]);
    }
}
} // namespace

void Trail::append(uint8 child)
{
    if (KORV_ASSERT(mCurrPos < N_MAX_TRAIL, "mCurrPos < N_MAX_TRAIL", "Index out of range"))
        mChildren[mCurrPos++] = child;
}

Ray::Ray(const Vec3<int32>& origin, const Vec3<int32>& direction, uint32 length)
    : mOrigin(origin), mDirection(direction), mLength(length)
{
    const Vec3<int32>& d = direction;
    const bool alongAxis =
        KORV_ASSERT((d.mY == 0 && d.mZ == 0) || (d.mX == 0 && d.mZ == 0) || (d.mX == 0 && d.mY == 0),
                    "(dir.mY == 0 && dir.mZ == 0) || (dir.mX == 0 && dir.mZ == 0) || (dir.mX == 0 && dir.mY == 0)",
                    "direction of the ray can only have one non-zero component");
    const bool unitLength = KORV_ASSERT(std::abs(int64{d.mX}) + std::abs(int64{d.mY}) + std::abs(int64{d.mZ}) == 1,
                                        "dir.getLength() == 1", "direction must be normalized");
    if (alongAxis && unitLength)
        return;
    mDirection = Vec3<int32>();
    const int axis = d.mX != 0 ? 0 : d.mY != 0 ? 1 : 2;
    mDirection[axis] = d[axis] > 0 ? 1 : d[axis] < 0 ? -1 : 0;
}

NavMeshOctree::NavMeshOctree(const NavMeshBuilder::Parameter& parameter, const Vector<GeometryInfo>* geometries,
                             const HeightClassifier& classifier, Common::Threading::ThreadPool* threadPool,
                             const RunControl& control, Rules rules, bool isSplitDepthAutomatic)
    : mParameter(parameter), mHeightClassifier(classifier), mGeometries(geometries), mInnerOctants(getMemory()),
      mLeafOctants(getMemory()), mThreadPool(threadPool), mControl(control), mRules(rules),
      mIsSplitDepthAutomatic(isSplitDepthAutomatic)
{
}

NavMeshOctree::~NavMeshOctree() = default;

void NavMeshOctree::buildMaxConnectedPolygons(SurfacePolygonList& polygons, uint32 mainAxis)
{
    const uint32 axis = mainAxis < NUM_MAIN_AXES ? mainAxis : 0;
    prepareGrid(mParameter.mCubeSize);
    NavMeshBuilder::Statistics& statistics = mControl.getStatistics();
    statistics.mOctreeDepth = mDepth;
    const size_t before = polygons.size();
    if (mRules == Rules::REFINED || SurfaceExtraction::isExact(*this))
        buildOnBits(polygons, axis);
    else
        buildVoxelByVoxel(polygons, axis);
    statistics.mNumSurfaces = static_cast<uint32>(polygons.size() - before);
}

void NavMeshOctree::buildOnBits(SurfacePolygonList& polygons, uint32 mainAxis)
{
    const StageClock clock;
    VoxelBricks bricks(mDepth, mainAxis, getMemory());
    const uint64 numVoxels = buildBricks(bricks);
    logTime("Build Octree", clock);
    mControl.getStatistics().mNumVoxels = numVoxels;
    if (numVoxels > 0)
        extractSurfaces(polygons, bricks, mainAxis);
}

/// @return the number of voxels.
uint64 NavMeshOctree::buildBricks(VoxelBricks& bricks)
{
    BrickOutput output(bricks);
    if (DirectInsertion::suits(*mGeometries, mDepth))
        insertTriangles<DirectInsertion>(output);
    else
        insertTriangles<VoxelInsertion>(output);
    logStatistics(output.countInnerOctants(), output.countVoxels());
    bricks.buildIndex();
    return output.countVoxels();
}

void NavMeshOctree::extractSurfaces(SurfacePolygonList& polygons, const VoxelBricks& bricks, uint32 mainAxis)
{
    SurfaceExtraction extraction(*this, bricks, mainAxis);
    extraction.findSurfaces(INSERTION_DONE, BORDERS_DONE);
    mControl.getStatistics().mNumWalkableVoxels = extraction.countVoxels();
    logPolygons(MessageText() << "Build NeighbourBits");
    logBorders(extraction.countBorders());
    logTime("Find Merge Positions", StageClock()); // is part of the next step
    logPolygons(MessageText() << "build final borders");
    const StageClock clock;
    extraction.traceOutlines(polygons, BORDERS_DONE, 1.0f);
    logTime("Build Final Polygons", clock);
}

void NavMeshOctree::buildVoxelByVoxel(SurfacePolygonList& polygons, uint32 mainAxis)
{
    const StageClock clock;
    buildTree(mParameter.mCubeSize);
    logTime("Build Octree", clock);
    mControl.getStatistics().mNumVoxels = mLeafOctants.size();
    if (mLeafOctants.empty())
        return;
    findNeighbours(mainAxis);
    findBridges(mainAxis);
    traceOutlines(polygons, mainAxis);
}

void NavMeshOctree::findNeighbours(uint32 mainAxis)
{
    runOnPool(*this, MeasureFreeHeight(*this, mainAxis), INSERTION_DONE, HEIGHTS_DONE);
    runOnPool(*this, BuildNeighbourBits(*this, mainAxis), HEIGHTS_DONE, NEIGHBOURS_DONE);
    logPolygons(MessageText() << "Build NeighbourBits");

    uint64 numWalkable = 0;
    for (uint32 i = 0; i < mLeafOctants.size(); ++i)
        numWalkable += mLeafOctants.getUnchecked(i).isWalkable() ? 1 : 0;
    mControl.getStatistics().mNumWalkableVoxels = numWalkable;
}

void NavMeshOctree::findBridges(uint32 mainAxis)
{
    for (uint32 i = 0; i < mLeafOctants.size(); ++i)
        mLeafOctants.getUnchecked(i).data = LabelSets::NO_LABEL;
    LabelSets labels(getMemory());
    Common::Container::Deque<Vec3<int32>> borderVoxels(getMemory());
    MarkFaceBorder markBorders(*this, mainAxis, labels, borderVoxels);
    ReportedFunction reported(markBorders, *this, mLeafOctants.size(), NEIGHBOURS_DONE, BORDERS_DONE);
    forEachLeaf(reported);
    logBorders(labels.size());
    const StageClock clock;
    BridgeSearch(*this, mainAxis, labels, borderVoxels).run();
    logTime("Find Merge Positions", clock);
}

void NavMeshOctree::traceOutlines(SurfacePolygonList& polygons, uint32 mainAxis)
{
    for (uint32 i = 0; i < mLeafOctants.size(); ++i)
    {
        LeafOctant& leaf = mLeafOctants.getUnchecked(i);
        leaf.data = 0;
        leaf.marks = static_cast<uint8>(leaf.marks & ~LeafOctant::ALL_SIDES); // the bridges stay
    }
    logPolygons(MessageText() << "build final borders");
    const StageClock clock;
    CollectOutlines collect(*this, mainAxis, polygons);
    ReportedFunction reported(collect, *this, mLeafOctants.size(), BRIDGES_DONE, 1.0f);
    forEachLeaf(reported);
    logTime("Build Final Polygons", clock);
}

void NavMeshOctree::buildTree(float cubeSize)
{
    prepareGrid(cubeSize);
    RecordOutput output(mInnerOctants, mLeafOctants);
    insertTriangles<VoxelInsertion>(output);
    logStatistics(mInnerOctants.size(), mLeafOctants.size());
}

void NavMeshOctree::prepareGrid(float cubeSize)
{
    mCubeSize = cubeSize;
    mHasVertices = computeBounds();
    if (!mHasVertices)
        return;
    mDepth = computeOctreeDepth(mMax.mX - mMin.mX, cubeSize);
    mDimension = 1u << mDepth;
    const float edge = static_cast<float>(mDimension) * cubeSize;
    const float half = cubeSize * 0.5f;
    mMax = mMin + Vec3<float>(edge, edge, edge);
    mFirstCentre = mMin + Vec3<float>(half, half, half);
}

template <class Insertion, class Output>
void NavMeshOctree::insertTriangles(Output& output)
{
    if (!mHasVertices)
        return;
    Insertion insertion(*mGeometries, output, mControl, INSERTION_DONE, mThreadPool, getMemory());
    insertion.insert((mMin + mMax) * 0.5f, mMax.mX - mMin.mX, mDepth);
}

/// The box around all vertices, made a cube and widened.
/// @return false without vertices.
bool NavMeshOctree::computeBounds()
{
    constexpr float LARGEST = std::numeric_limits<float>::max();
    mMin = {LARGEST, LARGEST, LARGEST};
    mMax = {-LARGEST, -LARGEST, -LARGEST};
    bool any = false;
    for (const GeometryInfo& geometry : *mGeometries)
    {
        for (uint32 i = 0; i < geometry.mNumVertices; ++i)
            extend(mMin, mMax, geometry.getWorldVertex(i));
        any = any || geometry.mNumVertices > 0;
    }
    if (!any)
        return false;
    const Vec3<float> extent = mMax - mMin;
    const float edge = std::max({extent.mX, extent.mY, extent.mZ});
    const Vec3<float> margin(BOX_MARGIN, BOX_MARGIN, BOX_MARGIN);
    mMax = mMin + Vec3<float>(edge, edge, edge) + margin;
    mMin = mMin - margin;
    return true;
}

void NavMeshOctree::logStatistics(uint64 numInner, uint64 numLeaves) const
{
    const auto log = [](const MessageText& text) { Trace::message(MessageText() << BUILD_TREE << " : " << text); };
    const double dimension = mDimension;
    const double filled = static_cast<double>(numLeaves) / (dimension * dimension * dimension) * 100.0;
    log(MessageText() << "------------- Octree statistics ---------------");
    log(MessageText() << "Number of inner octants: " << numInner);
    log(MessageText() << "Bytes of inner octants: " << numInner * sizeof(InnerOctant));
    log(MessageText() << "Number of leaf octants: " << numLeaves);
    log(MessageText() << "Bytes of leaf octants: " << numLeaves * sizeof(LeafOctant));
    log(MessageText() << "Bytes of complete octree: "
                      << numInner * sizeof(InnerOctant) + numLeaves * sizeof(LeafOctant));
    log(MessageText() << "Dimension: " << mDimension << " / " << mDimension << " / " << mDimension);
    log(MessageText() << "Percentage filled: " << static_cast<float>(filled) << " %");
    log(MessageText() << "------------------------------------------------");
}

LeafOctant* NavMeshOctree::getLeaf(const Vec3<int32>& position)
{
    return LeafCursor(*this).find(position);
}

bool NavMeshOctree::isInside(const Vec3<int32>& position) const
{
    // a negative component wraps to something larger than any dimension
    return static_cast<uint32>(position.mX) < mDimension && static_cast<uint32>(position.mY) < mDimension &&
           static_cast<uint32>(position.mZ) < mDimension;
}

void NavMeshOctree::computeTrail(Trail& trail, const Vec3<int32>& position) const
{
    uint32 octant = 0;
    for (uint32 level = 0; level < mDepth; ++level)
    {
        const uint32 child = childOnLevel(position, mDepth - 1 - level);
        const InnerOctant& inner = mInnerOctants[octant];
        if (((inner.childMask >> child) & 1u) == 0)
            return;
        trail.append(static_cast<uint8>(child));
        octant = childIndex(inner, child);
    }
}

bool NavMeshOctree::castRay(Ray& ray)
{
    LeafCursor cursor(*this);
    return castRay(ray, cursor);
}

bool NavMeshOctree::castRay(Ray& ray, LeafCursor& cursor)
{
    const int axis = ray.mDirection.mX != 0 ? 0 : ray.mDirection.mY != 0 ? 1 : 2;
    const int32 step = ray.mDirection[axis];
    const int64 dimension = mDimension;
    const int64 start = ray.mOrigin[axis];
    const int64 end = start + step * int64{ray.mLength};
    if ((start < 0 && end < 0) || (start >= dimension && end >= dimension) || step == 0)
        return false;
    const int64 first = std::clamp<int64>(start, 0, dimension - 1);
    Vec3<int32> position = ray.mOrigin;
    position[axis] = static_cast<int32>(first);
    if (!isInside(position))
        return false;

    // the last cell of the axis is cut off, and what is cut off counts as passed
    int64 remaining = int64{ray.mLength} - std::abs(start - first);
    ray.mHit = nullptr;
    if (step < 0 && first - remaining < 0)
        remaining = first;
    if (step > 0 && first + remaining >= dimension)
        remaining = dimension - 1 - first;
    for (; remaining > 0; --remaining, position[axis] += step)
    {
        ray.mHit = cursor.find(position);
        if (ray.mHit != nullptr)
            break;
    }
    ray.mLength -= static_cast<uint32>(remaining);
    return ray.mHit != nullptr;
}

void NavMeshOctree::forEachLeaf(LeafFunctional& functional)
{
    if (!mLeafOctants.empty())
        visit(functional, 0, 0, Vec3<int32>());
}

/// Depth first; recursion is as deep as the tree, at most 30.
void NavMeshOctree::visit(LeafFunctional& functional, uint32 octant, uint32 level, const Vec3<int32>& corner)
{
    if (level == mDepth)
    {
        functional(corner, mLeafOctants.getUnchecked(octant));
        return;
    }
    const InnerOctant& inner = mInnerOctants.getUnchecked(octant);
    const int32 half = static_cast<int32>(mDimension >> (level + 1));
    uint32 child = inner.firstChild;
    for (uint32 k = 0; k < NUM_CHILDREN; ++k)
    {
        if (((inner.childMask >> k) & 1u) != 0)
            visit(functional, child++, level + 1, corner + CHILD_CORNERS[k] * half);
    }
}
} // namespace KORV::NavMesh
