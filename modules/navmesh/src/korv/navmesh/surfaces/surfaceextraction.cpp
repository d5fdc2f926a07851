#include "korv/navmesh/surfaces/surfaceextraction.h"

#include "korv/common/debug/trace.h"
#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/surfaces/bridgedoutline.h"

#include <algorithm>
#include <cmath>

namespace KORV::NavMesh
{
namespace
{
// What the outlines of a task come to, roughly.
constexpr uint64 VOXELS_PER_TASK = 16384;
constexpr uint32 SURFACES_PER_TASK = 256;
} // namespace

bool SurfaceExtraction::isExact(const NavMeshOctree& octree)
{
    // A coordinate is off by 1.5 units in the last place, so two corners of a straight side can seem to lie 3 apart
    // sideways, at least a cube away from each other. Twice that, 7.2e-7 of the coordinate, must stay well below one
    // degree, 0.0175 of a cube.
    constexpr float MAX_CUBES = 16384.0f;
    const int32 last = static_cast<int32>(octree.getDimension());
    float largest = 0.0f;
    for (const Vec3<float>& corner : {octree.getCentre({-1, -1, -1}), octree.getCentre({last, last, last})})
    {
        for (int i = 0; i < 3; ++i)
            largest = std::max(largest, std::fabs(corner[i]));
    }
    return largest <= MAX_CUBES * octree.getCubeSize();
}

SurfaceExtraction::SurfaceExtraction(const NavMeshOctree& octree, const VoxelBricks& bricks, uint32 mainAxis)
    : mOctree(octree), mRunner(*octree.getThreadPool(), octree.getControl(), NavMeshOctree::STAGE_NAME),
      mBricks(bricks), mSheets(octree, mBricks), mParts(mSheets, octree.getMemory()),
      mPoints(octree, PLANE_DIRECTIONS[mainAxis])
{
}

void SurfaceExtraction::findSurfaces(float begin, float end)
{
    const float middle = (begin + end) / 2.0f;
    const bool keepsSmall = mOctree.getRules() == Rules::REFINED && mOctree.isSplitDepthAutomatic();
    mRunner.setSpan(begin, middle);
    mSheets.build(mRunner, keepsSmall);
    mRunner.setSpan(middle, end);
    if (keepsSmall)
        mParts.cutBranches(mRunner, MIN_SPLIT_VOXELS);
    mParts.build(mRunner);
}

void SurfaceExtraction::traceOutlines(SurfacePolygonList& polygons, float begin, float end)
{
    Common::Memory::Allocator* memory = mOctree.getMemory();
    Vector<uint32> batches(memory); // first surface of each, and the end
    listBatches(batches);
    const uint32 numBatches = static_cast<uint32>(batches.size()) - 1;
    RangeResults<Vec3<float>> points(numBatches, 1, memory);
    Vector<uint32> numPoints(mParts.getNumSurfaces(), 0, memory);
    const auto traceBatch = [&](uint32 batch, uint32)
    {
        Points& ofBatch = points.getPart(batch);
        for (uint32 surface = batches[batch]; surface < batches[batch + 1]; ++surface)
        {
            const size_t before = ofBatch.size();
            trace(surface, ofBatch);
            numPoints[surface] = static_cast<uint32>(ofBatch.size() - before);
        }
    };
    const auto addPolygons = [&](uint32 batch, uint32)
    {
        const Vec3<float>* next = points.getPart(batch).data();
        for (uint32 surface = batches[batch]; surface < batches[batch + 1]; ++surface)
        {
            addPolygon(surface, next, numPoints[surface], polygons);
            next += numPoints[surface];
        }
        Points(memory).swap(points.getPart(batch)); // given back at once
    };
    mRunner.setSpan(begin, end);
    mRunner.run(numBatches, 1, traceBatch, addPolygons);
}

void SurfaceExtraction::listBatches(Vector<uint32>& batches) const
{
    batches.push_back(0);
    uint64 numVoxels = 0;
    for (uint32 surface = 0; surface < mParts.getNumSurfaces(); ++surface)
    {
        if (numVoxels >= VOXELS_PER_TASK || surface - batches.back() == SURFACES_PER_TASK)
        {
            batches.push_back(surface);
            numVoxels = 0;
        }
        numVoxels += mParts[surface].mNumVoxels;
    }
    if (mParts.getNumSurfaces() > 0)
        batches.push_back(mParts.getNumSurfaces());
}

void SurfaceExtraction::trace(uint32 surface, Points& points) const
{
    constexpr float COLLINEAR_ANGLE = 0.017453292f; // one degree [radians]
    if (mParts[surface].countBorders() == 1)
    {
        traceBorder(mParts[surface], points);
        return;
    }
    Points outline(points.get_allocator());
    BridgedOutline(mParts, surface, mPoints, points.get_allocator().getAllocator()).trace(outline);
    Common::Geom::RemoveCollinearPoints(outline, COLLINEAR_ANGLE);
    points.insert(points.end(), outline.begin(), outline.end());
}

/// The outline of a surface without holes: the turns of its one border. Begins as RemoveCollinearPoints leaves it: with
/// the corner of the first edge, or the turn before when the border goes straight on there.
void SurfaceExtraction::traceBorder(const SurfaceParts::Surface& surface, Points& points) const
{
    const PlaneLayout& layout = mBricks.getLayout();
    SheetState start{surface.mStartSheet, surface.mStartBit, 0};
    while (mSheets[start.mSheet].hasNeighbour(start.mBit, start.mSide))
        ++start.mSide;
    SheetState state = start;
    const auto first = static_cast<std::ptrdiff_t>(points.size());
    bool beginsStraight = false;
    do
    {
        const SheetState corner = state;
        if (!advanceOnBorder(mSheets, state))
        {
            const Vec3<int32> position = mSheets.getPosition(mSheets[corner.mSheet], corner.mBit);
            points.push_back(mPoints.getCorner(layout.toGrid(position), corner.mSide));
        }
        else if (corner == start)
            beginsStraight = true;
    } while (!(state == start));
    if (beginsStraight)
        std::rotate(points.begin() + first, points.end() - 1, points.end());
}

void SurfaceExtraction::addPolygon(uint32 surface, const Vec3<float>* points, uint32 numPoints,
                                   SurfacePolygonList& polygons) const
{
    /// A typed message for a trace viewer: an outline begins.
    constexpr uint32 TRACE_OUTLINE = 9;
    const uint32 nothing = 0;
    Common::Debug::Trace::sendData(TRACE_OUTLINE, &nothing, sizeof(nothing));
    const SurfaceSheet& sheet = mSheets[mParts[surface].mStartSheet];
    SurfacePolygon& polygon = polygons.emplace_back(polygons.get_allocator().getAllocator());
    polygon.mPoints.assign(points, points + numPoints);
    polygon.mHeightClass = mSheets.getGroup(sheet).mHeightClass;
    polygon.mSurfaceTypeID = sheet.mSurfaceTypeID;
}
} // namespace KORV::NavMesh
