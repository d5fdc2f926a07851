#pragma once

#include "korv/navmesh/rangetask.h"
#include "korv/navmesh/surfaces/heightgroups.h"
#include "korv/navmesh/voxels/voxelbricks.h"

namespace KORV::NavMesh
{
/// Voxels of one plane as a word, bit 8 * v + u, and steps between them. Side 1 is u + 1, side 2 is v + 1.
struct PlaneBits
{
    static constexpr uint32 NUM_BITS = 64;
    static constexpr uint64 FIRST_COLUMN = 0x0101010101010101;
    static constexpr uint64 LAST_COLUMN = FIRST_COLUMN << 7;
    static constexpr uint64 FIRST_ROW = 0xFF;
    static constexpr uint64 LAST_ROW = FIRST_ROW << 56;
    /// The voxels along the edge of the plane on each side.
    static constexpr uint64 EDGES[4] = {FIRST_ROW, LAST_COLUMN, LAST_ROW, FIRST_COLUMN};

    /// For each voxel the bit of its neighbour on a side, within a plane.
    static constexpr uint64 neighboursInside(uint64 bits, uint32 side)
    {
        switch (side)
        {
        case 0:
            return bits << 8;
        case 1:
            return (bits & ~FIRST_COLUMN) >> 1;
        case 2:
            return bits >> 8;
        default:
            return (bits & ~LAST_COLUMN) << 1;
        }
    }

    /// The same for the voxels along the edge, from the plane beside.
    static constexpr uint64 neighboursBeside(uint64 bits, uint32 side)
    {
        switch (side)
        {
        case 0:
            return bits >> 56;
        case 1:
            return (bits & FIRST_COLUMN) << 7;
        case 2:
            return bits << 56;
        default:
            return (bits & LAST_COLUMN) >> 7;
        }
    }

    /// Goes one voxel to a side; past the edge it comes in again at the other end.
    static constexpr uint32 step(uint32 bit, uint32 side)
    {
        switch (side)
        {
        case 0:
            return (bit + 56) % NUM_BITS;
        case 1:
            return (bit & ~7u) | ((bit + 1) & 7u);
        case 2:
            return (bit + 8) % NUM_BITS;
        default:
            return (bit & ~7u) | ((bit + 7) & 7u);
        }
    }

    static constexpr bool isOnEdge(uint32 bit, uint32 side) { return ((EDGES[side] >> bit) & 1u) != 0; }
};

/// How the voxels of a plane are joined, and where it goes on.
struct SheetLinks
{
    uint64 mJoins[4] = {};  ///< for each side: voxels joined to their neighbour there
    uint32 mBeside[4] = {}; ///< for each side: the sheet that goes on there, VoxelBricks::NONE for none

    bool hasNeighbour(uint32 bit, uint32 side) const { return ((mJoins[side] >> bit) & 1u) != 0; }
    /// Voxels with all four neighbours.
    uint64 getInterior() const { return mJoins[0] & mJoins[1] & mJoins[2] & mJoins[3]; }
};

/// Walkable voxels of one plane of a brick that share surface type and height class.
struct SurfaceSheet : SheetLinks
{
    uint64 mVoxels = 0;
    uint32 mBrick = 0;
    uint32 mGroup = 0; ///< of the free heights
    uint16 mSurfaceTypeID = 0;
    uint16 mLevel = 0;     ///< of the plane within its brick
    uint32 mFirstPart = 0; ///< kept by whoever divides the sheets
};

/// The walkable surfaces of a scene as sheets. A sheet joins its like in the bricks beside it, so what belongs
/// together takes a few word operations for up to 64 voxels.
class SurfaceSheets
{
public:
    /// @param bricks  must outlive the object.
    SurfaceSheets(const NavMeshOctree& octree, const VoxelBricks& bricks);

    /// Makes the sheets of all bricks and links them; voxels of different branches are not joined
    /// unless @p acrossBranches.
    void build(const RangeRunner& runner, bool acrossBranches);
    /// For each of the voxels, on a side: whether the neighbour there is in another branch of the octree.
    uint64 getBranchEdges(const SurfaceSheet& sheet, uint32 side) const;

    uint32 size() const { return static_cast<uint32>(mSheets.size()); }
    SurfaceSheet& operator[](uint32 sheet) { return mSheets[sheet]; }
    const SurfaceSheet& operator[](uint32 sheet) const { return mSheets[sheet]; }
    const VoxelBricks& getBricks() const { return mBricks; }
    const HeightGroups::Group& getGroup(const SurfaceSheet& sheet) const { return mGroups.getGroups()[sheet.mGroup]; }
    uint64 countVoxels() const;
    /// Position in the plane's coordinates of a voxel.
    Vec3<int32> getPosition(const SurfaceSheet& sheet, uint32 bit) const
    {
        const auto brickEdge = static_cast<int32>(mBricks.getLayout().getBrickEdge());
        return mBricks[sheet.mBrick].mPosition * brickEdge +
               Vec3<int32>(static_cast<int32>(bit % 8), static_cast<int32>(bit / 8), sheet.mLevel);
    }

private:
    class Column;
    struct BricksBeside;

    void makeSheets(uint32 brick, Vector<SurfaceSheet>& sheets) const;
    void readTypes(const VoxelBrick& brick, uint16* types) const;
    void addByHeight(const uint16* types, Column& column, SurfaceSheet& sheet, Vector<SurfaceSheet>& sheets) const;
    void addByType(const uint16* types, SurfaceSheet& sheet, Vector<SurfaceSheet>& sheets) const;
    void linkRange(uint32 begin, uint32 end, bool acrossBranches);
    void link(SurfaceSheet& sheet, const BricksBeside& beside, bool acrossBranches) const;
    uint32 findSheet(uint32 brick, const SurfaceSheet& like) const;

    const NavMeshOctree& mOctree;
    const VoxelBricks& mBricks;
    HeightGroups mGroups;
    uint32 mBranchLevels; // that joined voxels share; more than there are: no voxel joins another
    Vector<SurfaceSheet> mSheets;
    Vector<uint32> mFirstSheets; // of each brick, and the end
};
} // namespace KORV::NavMesh
