// Walkable voxels and their joins, 64 at a time.
//
// A plane of a brick is a word. The voxels with nothing right above are those bits of the walkable ones that the plane
// above does not have; clearing the bits of one plane after the other on the way up leaves, at each step, the voxels
// whose ray has come that far. Lengths at which the height class changes are few, and what the word loses between two
// of them is a sheet. Two voxels side by side join exactly when they are in the same sheet, or in sheets of the same
// kind in bricks side by side, so joins are shifts of the words.
//
// Cost: a few operations per plane and voxel of free height, where one voxel at a time would take as many each.

#include "korv/navmesh/surfaces/surfacesheets.h"

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 BRICKS_PER_TASK = 256;
constexpr uint32 SHEETS_PER_TASK = 2048;

/// Cells that the rays from the voxels of a plane count as passed without a look at them.
/// @param length  of the rays. @param level  of the plane in the grid; the rays begin on the next one.
uint32 countUnseenCells(uint32 length, uint32 level, uint32 dimension, Rules rules)
{
    if (rules == Rules::REFINED)
        return 0; // and above the grid all is empty
    // rays that reach the last cell of the grid end one cell short of it, and what is cut off counts as passed
    const uint32 numSeen = level + 2 < dimension ? dimension - 2 - level : 0;
    return length > numSeen ? length - numSeen : 0;
}

} // namespace

/// A brick and those above it, looked up once for all planes of the brick.
class SurfaceSheets::Column
{
public:
    Column(const VoxelBricks& bricks, uint32 brick) : mBricks(bricks), mBottom(bricks[brick].mPosition)
    {
        mFound[0] = brick;
        mHeight = static_cast<uint32>(bricks.getTop() - mBottom.mZ) + 1;
    }

    /// The bricks above are empty from here on. [bricks, counted from the lowest]
    uint32 getHeight() const { return mHeight; }
    uint32 getBrickEdge() const { return mBricks.getLayout().getBrickEdge(); }

    /// The planes of a brick, null where it is empty.
    const uint64* getPlanes(uint32 brick)
    {
        const uint32 found = brick < MAX_FOUND ? findOnce(brick) : find(brick);
        return found != VoxelBricks::NONE ? mBricks[found].mOccupied : nullptr;
    }

private:
    static constexpr uint32 MAX_FOUND = 16;

    uint32 find(uint32 brick) const { return mBricks.find(mBottom + Vec3<int32>(0, 0, static_cast<int32>(brick))); }
    uint32 findOnce(uint32 brick)
    {
        for (; mNumFound <= brick; ++mNumFound)
            mFound[mNumFound] = find(mNumFound);
        return mFound[brick];
    }

    const VoxelBricks& mBricks;
    Vec3<int32> mBottom;
    uint32 mHeight;
    uint32 mNumFound = 1;
    uint32 mFound[MAX_FOUND];
};

/// The bricks on the four sides of a brick.
struct SurfaceSheets::BricksBeside
{
    uint32 mBrick = VoxelBricks::NONE;
    uint32 mBeside[PlaneDirections::NUM_SIDES] = {};

    void find(const VoxelBricks& bricks, uint32 brick)
    {
        constexpr Vec3<int32> STEPS[PlaneDirections::NUM_SIDES] = {{0, -1, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}};
        mBrick = brick;
        for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
            mBeside[side] = bricks.find(bricks[brick].mPosition + STEPS[side]);
    }
};

namespace
{
/// The voxels of a plane whose rays have not met anything yet, on the way up.
template <class Column>
class RaySweep
{
public:
    RaySweep(Column& column, uint32 level, uint64 voxels) : mColumn(column), mLevel(level), mVoxels(voxels) {}

    uint64 getVoxels() const { return mVoxels; }

    /// Goes on until that many cells above the voxels have been looked at.
    void advance(uint32 numCells)
    {
        const uint32 edge = mColumn.getBrickEdge();
        while (mNumCells < numCells && mVoxels != 0)
        {
            const uint32 next = mLevel + 1;
            if (next / edge >= mColumn.getHeight())
                return; // nothing can be met any more
            const uint32 count = std::min(edge - next % edge, numCells - mNumCells);
            if (const uint64* planes = mColumn.getPlanes(next / edge))
            {
                for (uint32 i = 0; i < count; ++i)
                    mVoxels &= ~planes[next % edge + i];
            }
            mLevel += count;
            mNumCells += count;
        }
    }

private:
    Column& mColumn;
    uint32 mLevel; // reached, counted from the column's lowest
    uint32 mNumCells = 0;
    uint64 mVoxels;
};
} // namespace

SurfaceSheets::SurfaceSheets(const NavMeshOctree& octree, const VoxelBricks& bricks)
    : mOctree(octree), mBricks(bricks),
      mGroups(octree.getHeightClassifier(), octree.getCubeSize(), octree.getRules(), octree.getMemory()),
      mBranchLevels(static_cast<uint32>(std::max(octree.getParameter().mSplitDepth, 0))), mSheets(octree.getMemory()),
      mFirstSheets(octree.getMemory())
{
}

void SurfaceSheets::build(const RangeRunner& runner, bool acrossBranches)
{
    RangeResults<SurfaceSheet> results(mBricks.size(), BRICKS_PER_TASK, mOctree.getMemory());
    mFirstSheets.resize(mBricks.size() + 1);
    runner.run(mBricks.size(), BRICKS_PER_TASK,
               [&](uint32 begin, uint32 end)
               {
                   Vector<SurfaceSheet>& sheets = results.getPart(begin);
                   for (uint32 brick = begin; brick < end; ++brick)
                   {
                       const size_t before = sheets.size();
                       makeSheets(brick, sheets);
                       mFirstSheets[brick + 1] = static_cast<uint32>(sheets.size() - before);
                   }
               });
    results.moveTo(mSheets);
    for (uint32 brick = 0; brick < mBricks.size(); ++brick)
        mFirstSheets[brick + 1] += mFirstSheets[brick];
    runner.run(size(), SHEETS_PER_TASK,
               [this, acrossBranches](uint32 begin, uint32 end) { linkRange(begin, end, acrossBranches); });
}

void SurfaceSheets::makeSheets(uint32 brick, Vector<SurfaceSheet>& sheets) const
{
    const VoxelBrick& source = mBricks[brick];
    uint16 types[PlaneLayout::BRICK_VOXELS];
    const bool hasManyTypes = (source.mTypes & VoxelBrick::MANY_TYPES) != 0;
    if (hasManyTypes)
        readTypes(source, types);
    Column column(mBricks, brick);
    SurfaceSheet sheet;
    sheet.mBrick = brick;
    sheet.mSurfaceTypeID = static_cast<uint16>(source.mTypes);
    for (uint32 level = 0; level < PlaneLayout::BRICK_EDGE; ++level)
    {
        sheet.mLevel = static_cast<uint16>(level);
        sheet.mVoxels = source.mWalkable[level];
        if (sheet.mVoxels != 0)
            addByHeight(hasManyTypes ? types + size_t{level} * PlaneBits::NUM_BITS : nullptr, column, sheet, sheets);
    }
}

/// The types of a brick's walkable voxels, by cell.
void SurfaceSheets::readTypes(const VoxelBrick& brick, uint16* types) const
{
    uint32 place = brick.mTypes & ~VoxelBrick::MANY_TYPES;
    for (uint32 level = 0; level < PlaneLayout::BRICK_EDGE; ++level)
    {
        for (uint64 bits = brick.mWalkable[level]; bits != 0; bits &= bits - 1)
            types[level * PlaneBits::NUM_BITS + static_cast<uint32>(std::countr_zero(bits))] = mBricks.getType(place++);
    }
}

/// Sorts the voxels of a plane by what room is above them.
void SurfaceSheets::addByHeight(const uint16* types, Column& column, SurfaceSheet& sheet,
                                Vector<SurfaceSheet>& sheets) const
{
    const PlaneLayout& layout = mBricks.getLayout();
    const uint32 firstLevel = static_cast<uint32>(mBricks[sheet.mBrick].mPosition.mZ) * layout.getBrickEdge();
    const uint32 level = firstLevel + sheet.mLevel;
    const uint32 numUnseen = countUnseenCells(mGroups.getRayLength(), level, layout.getDimension(), mOctree.getRules());
    RaySweep sweep(column, sheet.mLevel, sheet.mVoxels);
    if (level + 1 < layout.getDimension())
        sweep.advance(1); // whatever the rule, a voxel right above covers
    const Vector<HeightGroups::Group>& groups = mGroups.getGroups();
    uint64 reached = 0; // the voxels with room for the group before
    for (uint32 i = 0; i < groups.size(); ++i)
    {
        const uint32 length = groups[i].mLength;
        sweep.advance(length > numUnseen ? length - numUnseen : 0);
        sheet.mGroup = i - 1;
        sheet.mVoxels = reached & ~sweep.getVoxels();
        addByType(types, sheet, sheets);
        reached = sweep.getVoxels();
        if (reached == 0)
            return;
    }
    sheet.mGroup = static_cast<uint32>(groups.size()) - 1;
    sheet.mVoxels = reached;
    addByType(types, sheet, sheets);
}

/// Adds the voxels of a sheet as one sheet a surface type.
/// @param types  of the plane's voxels, null when they all have the sheet's.
void SurfaceSheets::addByType(const uint16* types, SurfaceSheet& sheet, Vector<SurfaceSheet>& sheets) const
{
    if (types == nullptr)
    {
        if (sheet.mVoxels != 0)
            sheets.push_back(sheet);
        return;
    }
    for (uint64 left = sheet.mVoxels; left != 0; left &= ~sheet.mVoxels)
    {
        sheet.mSurfaceTypeID = types[std::countr_zero(left)];
        sheet.mVoxels = left;
        for (uint64 bits = left; bits != 0; bits &= bits - 1)
        {
            const int bit = std::countr_zero(bits);
            if (types[bit] != sheet.mSurfaceTypeID)
                sheet.mVoxels &= ~(uint64{1} << bit);
        }
        sheets.push_back(sheet);
    }
}

void SurfaceSheets::linkRange(uint32 begin, uint32 end, bool acrossBranches)
{
    BricksBeside beside; // one look-up for all sheets of a brick
    for (uint32 i = begin; i < end; ++i)
    {
        if (mSheets[i].mBrick != beside.mBrick)
            beside.find(mBricks, mSheets[i].mBrick);
        link(mSheets[i], beside, acrossBranches);
    }
}

void SurfaceSheets::link(SurfaceSheet& sheet, const BricksBeside& beside, bool acrossBranches) const
{
    const bool isAlone = getGroup(sheet).mIsAlone;
    for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
    {
        sheet.mBeside[side] = VoxelBricks::NONE;
        if (isAlone)
            continue;
        uint64 neighbours = PlaneBits::neighboursInside(sheet.mVoxels, side);
        if ((sheet.mVoxels & PlaneBits::EDGES[side]) != 0 && beside.mBeside[side] != VoxelBricks::NONE)
            sheet.mBeside[side] = findSheet(beside.mBeside[side], sheet);
        if (sheet.mBeside[side] != VoxelBricks::NONE)
            neighbours |= PlaneBits::neighboursBeside(mSheets[sheet.mBeside[side]].mVoxels, side);
        sheet.mJoins[side] = sheet.mVoxels & neighbours;
        if (!acrossBranches)
            sheet.mJoins[side] &= ~getBranchEdges(sheet, side);
    }
}

uint32 SurfaceSheets::findSheet(uint32 brick, const SurfaceSheet& like) const
{
    for (uint32 i = mFirstSheets[brick]; i < mFirstSheets[brick + 1]; ++i)
    {
        const SurfaceSheet& sheet = mSheets[i];
        if (sheet.mLevel == like.mLevel && sheet.mGroup == like.mGroup && sheet.mSurfaceTypeID == like.mSurfaceTypeID)
            return i;
    }
    return VoxelBricks::NONE;
}

uint64 SurfaceSheets::getBranchEdges(const SurfaceSheet& sheet, uint32 side) const
{
    constexpr uint64 ALL = ~uint64{0};
    // columns or rows that end a branch of 1, 2 or 4 voxels on each side
    constexpr uint64 EDGES[4][3] = {{ALL, 0x00FF00FF00FF00FF, 0x000000FF000000FF},
                                    {ALL, 0xAAAAAAAAAAAAAAAA, 0x8888888888888888},
                                    {ALL, 0xFF00FF00FF00FF00, 0xFF000000FF000000},
                                    {ALL, 0x5555555555555555, 0x1111111111111111}};
    if (mBranchLevels == 0)
        return 0;
    const uint32 depth = mOctree.getDepth();
    if (mBranchLevels > depth)
        return ALL;                                // no voxel has that many levels above it
    const uint32 edgeBits = depth - mBranchLevels; // log2 of the voxels along a branch
    if (edgeBits < PlaneLayout::BRICK_LEVELS)
        return EDGES[side][edgeBits];
    const Vec3<int32>& brick = mBricks[sheet.mBrick].mPosition;
    const uint32 along = static_cast<uint32>(side % 2 != 0 ? brick.mX : brick.mY) + (side == 1 || side == 2 ? 1 : 0);
    const uint32 bricksMask = (1u << (edgeBits - PlaneLayout::BRICK_LEVELS)) - 1;
    return (along & bricksMask) == 0 ? PlaneBits::EDGES[side] : 0;
}

uint64 SurfaceSheets::countVoxels() const
{
    uint64 count = 0;
    for (const SurfaceSheet& sheet : mSheets)
        count += countBits(sheet.mVoxels);
    return count;
}
} // namespace KORV::NavMesh
