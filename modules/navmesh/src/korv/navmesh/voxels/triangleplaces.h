#pragma once

#include "korv/common/container/vector.h"
#include "korv/navmesh/voxels/cellgrid.h"
#include "korv/navmesh/voxels/leafcursor.h"

namespace KORV::NavMesh
{
/// Where the triangles of a scene begin their way down an octree: each at the smallest octant, not below a given level,
/// that its box surely lies in. Octants that triangles lie in form a tree of places.
class TrianglePlaces
{
public:
    static constexpr uint32 NONE = 0xFFFFFFFF;
    static constexpr uint32 ROOT = 0;

    explicit TrianglePlaces(Common::Memory::Allocator* allocator);

    /// @param centre,edge  the cube of the octree. [world units]
    /// @param levels  below its root that triangles are sorted into at most.
    void start(const Vec3<float>& centre, float edge, uint32 levels, uint32 numTriangles);
    /// In ascending order.
    void add(uint32 number, const Vec3<float> (&corners)[3]);

    /// The triangles that begin at a place, in ascending order; NONE ends them, and there are none at place NONE.
    uint32 getFirst(uint32 place) const { return place != NONE ? mPlaces[place].mFirst : NONE; }
    uint32 getNext(uint32 number) const { return mNext[number]; }
    /// The place of a child, NONE where no triangle begins there or below.
    uint32 getChild(uint32 place, uint32 child) const;
    /// The children that have places, bit k for child k.
    uint32 getChildren(uint32 place) const;

private:
    struct Place
    {
        uint32 mFirst = NONE;
        uint32 mLast = NONE;
        uint32 mChildren[NUM_CHILDREN] = {}; // 0 where there is none: the root is nobody's child
    };

    uint32 makePlace(const CellRange& range);

    CellGrid mGrid;
    uint32 mLevels = 0;
    Vector<Place> mPlaces;
    Vector<uint32> mNext; // by number
};
} // namespace KORV::NavMesh
