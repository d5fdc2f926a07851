#pragma once

#include "literaloutlines.h"
#include "support/voxelscenes.h"

#include <algorithm>
#include <random>

namespace KORV::Testing
{
/// A walkable surface: its voxels in the order of the octree.
struct Surface
{
    std::vector<std::pair<NavMesh::Vec3<int32>, NavMesh::LeafOctant>> mVoxels;
};

/// The surfaces that the neighbour bits make, in the order of their first voxel on a border.
inline std::vector<Surface> findSurfaces(OctreeRun& run, uint32 mainAxis)
{
    using namespace NavMesh;
    struct Gather : LeafFunctional
    {
        void operator()(const Vec3<int32>& position, LeafOctant& leaf) override
        {
            if (leaf.isWalkable())
                mLeaves->push_back({position, &leaf});
        }
        std::vector<std::pair<Vec3<int32>, LeafOctant*>>* mLeaves;
    };
    std::vector<std::pair<Vec3<int32>, LeafOctant*>> leaves;
    Gather gather;
    gather.mLeaves = &leaves;
    run.forEachLeaf(gather);

    std::map<LeafOctant*, size_t> surfaceOf;
    size_t numSurfaces = 0;
    for (const auto& [first, firstLeaf] : leaves)
    {
        if (firstLeaf->getBorderSides() == 0 || surfaceOf.count(firstLeaf) != 0)
            continue;
        std::vector<Vec3<int32>> open{first};
        surfaceOf[firstLeaf] = numSurfaces;
        while (!open.empty())
        {
            const Vec3<int32> position = open.back();
            open.pop_back();
            for (uint32 side = 0; side < 4; ++side)
            {
                const Vec3<int32> beside = position + PLANE_DIRECTIONS[mainAxis].mSides[side];
                if (!run.mOctree->getLeaf(position)->hasNeighbour(side))
                    continue;
                if (surfaceOf.emplace(run.mOctree->getLeaf(beside), numSurfaces).second)
                    open.push_back(beside);
            }
        }
        ++numSurfaces;
    }
    std::vector<Surface> surfaces(numSurfaces);
    for (const auto& [position, leaf] : leaves)
        surfaces[surfaceOf.at(leaf)].mVoxels.push_back({position, *leaf});
    return surfaces;
}

/// Eight times the number of cubes that a closed chain of half-cube points encloses counter-clockwise.
inline int64 areaInEighths(const LiteralOutlines::Outline& outline, const NavMesh::PlaneDirections& directions)
{
    int64 sum = 0;
    for (size_t i = 0; i < outline.size(); ++i)
    {
        const auto& p = outline[i];
        const auto& q = outline[(i + 1) % outline.size()];
        sum += int64{dot(p, directions.mSides[1])} * dot(q, directions.mSides[2]) -
               int64{dot(q, directions.mSides[1])} * dot(p, directions.mSides[2]);
    }
    return sum;
}

/// The points of an outline of a VoxelScene, in halves of a cube.
inline LiteralOutlines::Outline toHalves(const NavMesh::Vector<NavMesh::Vec3<float>>& points)
{
    LiteralOutlines::Outline outline;
    for (const auto& p : points)
        outline.push_back({int32(p.mX), int32(p.mY), int32(p.mZ)});
    return outline;
}

/// What a check of many outlines has seen.
struct OutlineCounts
{
    uint64 mSurfaces = 0;
    uint64 mWithHoles = 0;    ///< surfaces whose outline needs a bridge
    uint64 mLiteralFails = 0; ///< where the straightforward way does not give one outline of the right area
    uint64 mWrongAreas = 0;
    uint64 mDifferent = 0;    ///< from the straightforward way, where that works
    uint64 mWrongNumbers = 0; ///< fields with more or fewer outlines than surfaces
};

/// Compares the raw outlines of a run on a VoxelScene with its surfaces.
inline void checkOutlines(OctreeRun& run, uint32 mainAxis, OutlineCounts& counts)
{
    const NavMesh::PlaneDirections& directions = NavMesh::PLANE_DIRECTIONS[mainAxis];
    const std::vector<Surface> surfaces = findSurfaces(run, mainAxis);
    counts.mWrongNumbers += surfaces.size() != run.mPolygons.size() ? 1 : 0;
    auto polygon = run.mPolygons.begin();
    for (const Surface& surface : surfaces)
    {
        if (polygon == run.mPolygons.end())
            return;
        const LiteralOutlines::Outline outline = toHalves((polygon++)->mPoints);
        const int64 expected = 8 * static_cast<int64>(surface.mVoxels.size());
        LiteralOutlines literal(directions);
        for (const auto& [position, leaf] : surface.mVoxels)
            literal.addVoxel(position, static_cast<uint32>(leaf.flags) >> 4);
        literal.run();
        const bool works = !literal.mFailed && literal.mOutlines.size() == 1 &&
                           areaInEighths(literal.mOutlines[0], directions) == expected;
        ++counts.mSurfaces;
        counts.mLiteralFails += works ? 0 : 1;
        counts.mWrongAreas += areaInEighths(outline, directions) != expected ? 1 : 0;
        counts.mDifferent += works && literal.mOutlines[0] != outline ? 1 : 0;
        // a centre has odd coordinates, a corner even ones
        const auto isCentre = [&](const NavMesh::Vec3<int32>& p) { return dot(p, directions.mSides[1]) % 2 != 0; };
        counts.mWithHoles += std::any_of(outline.begin(), outline.end(), isCentre) ? 1 : 0;
    }
}

/// A field with holes of many kinds: single cells, rectangles, rings around islands, holes that touch at corners, two
/// surface types, and now and then ceilings of several heights and a second level.
inline void fillRandomField(VoxelScene& scene, int32 size, uint32 seed)
{
    std::mt19937 random(seed);
    const auto below = [&](int32 limit) { return static_cast<int32>(random() % static_cast<uint32>(limit)); };
    const int32 levels = below(4) == 0 ? 2 : 1;
    for (int32 level = 0; level < levels; ++level)
    {
        std::vector<int> cells(static_cast<size_t>(size) * static_cast<size_t>(size), 1);
        const auto at = [&](int32 u, int32 v) -> int&
        { return cells[static_cast<size_t>(v) * static_cast<size_t>(size) + static_cast<size_t>(u)]; };
        const int32 sparsity = 1 + below(30);
        for (int& cell : cells)
            cell = below(sparsity + 1) == 0 && below(3) != 0 ? 0 : 1;
        for (int32 n = below(8); n > 0; --n) // frames: holes with an island, or nested in another
        {
            const int32 u0 = below(size - 2), v0 = below(size - 2), w = 1 + below(8), h = 1 + below(8);
            for (int32 u = u0; u <= std::min(u0 + w, size - 1); ++u)
            {
                for (int32 v = v0; v <= std::min(v0 + h, size - 1); ++v)
                    at(u, v) = u == u0 || v == v0 || u == u0 + w || v == v0 + h ? 0 : at(u, v);
            }
        }
        if (below(3) == 0) // a lattice of pillars close enough to share voxels
        {
            const int32 pitch = 2 + below(3);
            for (int32 u = below(3); u < size; u += pitch)
            {
                for (int32 v = below(3); v < size; v += pitch)
                    at(u, v) = 0;
            }
        }
        const bool twoTypes = below(4) == 0;
        const bool ceilings = below(4) == 0;
        for (int32 u = 0; u < size; ++u)
        {
            for (int32 v = 0; v < size; ++v)
            {
                if (at(u, v) == 0)
                    continue;
                scene.addCell(u, v, level * 7, true, twoTypes && below(12) == 0 ? 1 : 0);
                if (ceilings && below(10) == 0)
                    scene.addCell(u, v, level * 7 + 1 + below(5), false);
            }
        }
    }
}
} // namespace KORV::Testing
