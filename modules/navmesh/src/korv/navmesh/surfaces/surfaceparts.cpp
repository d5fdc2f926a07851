// Finds out which voxels are connected, without a look at single voxels.
//
// Each sheet falls into parts that hang together inside it, usually one; parts that are joined across the sheets' sides
// are the same surface (union-find). A surface is a piece of the plane, glued together from squares, so its holes need
// no walk either: squares - joins + places where four meet is 1 less the number of holes. Only surfaces with holes
// need bridges.
//
// Source of the hole count: Euler's formula for plane graphs.

#include "korv/navmesh/surfaces/surfaceparts.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 SHEETS_PER_TASK = 2048;

/// All voxels that hang together with a first one inside a sheet.
uint64 growPart(const SurfaceSheet& sheet, uint64 voxels)
{
    for (uint64 before = 0; before != voxels;)
    {
        before = voxels;
        voxels |= (voxels & sheet.mJoins[1] & ~PlaneBits::LAST_COLUMN) << 1;
        voxels |= (voxels & sheet.mJoins[3] & ~PlaneBits::FIRST_COLUMN) >> 1;
        voxels |= (voxels & sheet.mJoins[2]) << 8;
        voxels |= (voxels & sheet.mJoins[0]) >> 8;
    }
    return voxels;
}
} // namespace

SurfaceParts::SurfaceParts(SurfaceSheets& sheets, Common::Memory::Allocator* allocator)
    : mSheets(sheets), mParts(allocator), mSurfaces(allocator), mOrder(allocator), mFirstGathered(allocator),
      mGathered(allocator)
{
}

void SurfaceParts::build(const RangeRunner& runner)
{
    divide(runner, Measure::ALL);
    numberSurfaces();
    sortSurfaces();
    gatherParts();
}

/// Lists the parts of all sheets, and joins them to sets.
void SurfaceParts::divide(const RangeRunner& runner, Measure measure)
{
    mParts.clear();
    RangeResults<SurfacePart> results(mSheets.size(), SHEETS_PER_TASK, mParts.get_allocator().getAllocator());
    runner.run(mSheets.size(), SHEETS_PER_TASK,
               [&](uint32 begin, uint32 end)
               {
                   Vector<SurfacePart>& parts = results.getPart(begin);
                   for (uint32 sheet = begin; sheet < end; ++sheet)
                       addParts(sheet, measure, parts);
               });
    results.moveTo(mParts);
    for (uint32 part = static_cast<uint32>(mParts.size()); part-- > 0;)
    {
        mParts[part].mSurface = part;
        mSheets[mParts[part].mSheet].mFirstPart = part;
    }
    for (uint32 part = 0; part < mParts.size(); ++part)
        joinBeside(part);
}

void SurfaceParts::addParts(uint32 sheet, Measure measure, Vector<SurfacePart>& parts) const
{
    for (uint64 left = mSheets[sheet].mVoxels; left != 0;)
    {
        const uint64 voxels = growPart(mSheets[sheet], left & (~left + 1));
        left &= ~voxels;
        const int16 euler = measure == Measure::ALL ? computeEuler(mSheets[sheet], voxels) : int16{0};
        parts.push_back({voxels, sheet, 0, euler, static_cast<uint16>(countBits(voxels))});
    }
}

/// Every join and every place where four voxels meet counts where its first voxel is: the one with the smallest u and
/// v.
int16 SurfaceParts::computeEuler(const SurfaceSheet& sheet, uint64 voxels) const
{
    const uint64 joinsEast = sheet.mJoins[1] & voxels;
    const uint64 joinsNorth = sheet.mJoins[2] & voxels;
    uint64 eastJoinsNorth = PlaneBits::neighboursInside(sheet.mJoins[2], 1);
    if (sheet.mBeside[1] != VoxelBricks::NONE)
        eastJoinsNorth |= PlaneBits::neighboursBeside(mSheets[sheet.mBeside[1]].mJoins[2], 1);
    // what joins east and north joins the fourth as well: joins go by kind and branch, and both are transitive
    const uint64 squares = joinsEast & joinsNorth & eastJoinsNorth;
    // a sum below zero wraps, and the cast brings it back
    return static_cast<int16>(countBits(voxels) - countBits(joinsEast) - countBits(joinsNorth) + countBits(squares));
}

void SurfaceParts::joinBeside(uint32 part)
{
    const SurfacePart& from = mParts[part];
    const SurfaceSheet& sheet = mSheets[from.mSheet];
    for (const uint32 side : {1u, 2u})
    {
        const uint64 crossing = from.mVoxels & sheet.mJoins[side] & PlaneBits::EDGES[side];
        if (crossing == 0)
            continue;
        // bit by bit across: what lies beside the last column or row is the first one of the next sheet
        const uint64 beside = side == 1 ? crossing >> 7 : crossing >> 56;
        const uint32 next = sheet.mBeside[side];
        for (uint32 i = mSheets[next].mFirstPart; i < mParts.size() && mParts[i].mSheet == next; ++i)
        {
            if ((mParts[i].mVoxels & beside) == 0)
                continue;
            const uint32 a = findFirst(part);
            const uint32 b = findFirst(i);
            mParts[std::max(a, b)].mSurface = std::min(a, b);
        }
    }
}

uint32 SurfaceParts::findFirst(uint32 part)
{
    while (mParts[part].mSurface != part)
    {
        mParts[part].mSurface = mParts[mParts[part].mSurface].mSurface; // halves the way for the next search
        part = mParts[part].mSurface;
    }
    return part;
}

/// Turns the sets into numbers, in the order of their first parts.
void SurfaceParts::numberSurfaces()
{
    // a part's set is named by an earlier part, whose number is known when the part's turn comes
    for (uint32 part = 0; part < mParts.size(); ++part)
    {
        SurfacePart& current = mParts[part];
        if (current.mSurface == part)
        {
            current.mSurface = getNumSurfaces();
            mSurfaces.emplace_back();
        }
        else
            current.mSurface = mParts[current.mSurface].mSurface;
        addToSurface(current);
    }
}

void SurfaceParts::addToSurface(const SurfacePart& part)
{
    Surface& surface = mSurfaces[part.mSurface];
    surface.mNumVoxels += part.mNumVoxels;
    surface.mEuler += part.mEuler;
    uint64 border = part.mVoxels & ~mSheets[part.mSheet].getInterior();
    const bool isStarted = surface.mStartBit != VoxelBricks::NONE;
    if (isStarted && mSheets[surface.mStartSheet].mBrick != mSheets[part.mSheet].mBrick)
        return; // bricks come in the order of the octree
    for (; border != 0; border &= border - 1)
    {
        const uint32 bit = static_cast<uint32>(std::countr_zero(border));
        if (surface.mStartBit != VoxelBricks::NONE &&
            getRank(part.mSheet, bit) > getRank(surface.mStartSheet, surface.mStartBit))
            continue;
        surface.mStartSheet = part.mSheet;
        surface.mStartBit = bit;
    }
}

uint32 SurfaceParts::getRank(uint32 sheet, uint32 bit) const
{
    return mSheets.getBricks().getLayout().getRank(mSheets[sheet].mLevel * PlaneBits::NUM_BITS + bit);
}

void SurfaceParts::sortSurfaces()
{
    using Start = std::pair<uint64, uint32>; // place in the order of the octree, surface
    Vector<Start> starts(mOrder.get_allocator());
    starts.reserve(mSurfaces.size());
    for (uint32 i = 0; i < mSurfaces.size(); ++i)
    {
        const Surface& surface = mSurfaces[i];
        const uint64 brick = mSheets[surface.mStartSheet].mBrick;
        starts.emplace_back(brick * PlaneLayout::BRICK_VOXELS + getRank(surface.mStartSheet, surface.mStartBit), i);
    }
    std::sort(starts.begin(), starts.end());
    mOrder.resize(starts.size());
    std::transform(starts.begin(), starts.end(), mOrder.begin(), [](const Start& start) { return start.second; });
}

void SurfaceParts::gatherParts()
{
    mFirstGathered.assign(mSurfaces.size() + 1, 0);
    for (const SurfacePart& part : mParts)
        mFirstGathered[part.mSurface + 1] += mSurfaces[part.mSurface].countBorders() > 1 ? 1 : 0;
    for (size_t i = 0; i < mSurfaces.size(); ++i)
        mFirstGathered[i + 1] += mFirstGathered[i];
    mGathered.resize(mFirstGathered.back());
    // filling moves each begin to its end, so it is done from the back
    Vector<uint32> next(mFirstGathered.begin() + 1, mFirstGathered.end(), mFirstGathered.get_allocator());
    for (uint32 part = static_cast<uint32>(mParts.size()); part-- > 0;)
    {
        const uint32 surface = mParts[part].mSurface;
        if (mSurfaces[surface].countBorders() > 1)
            mGathered[--next[surface]] = part;
    }
}

void SurfaceParts::cutBranches(const RangeRunner& runner, uint64 minVoxels)
{
    divide(runner, Measure::SIZE);
    Vector<uint64> numVoxels(mParts.size(), 0, mParts.get_allocator()); // by the first part of a set
    for (uint32 part = 0; part < mParts.size(); ++part)
        numVoxels[findFirst(part)] += mParts[part].mNumVoxels;
    for (uint32 part = 0; part < mParts.size(); ++part)
    {
        if (numVoxels[findFirst(part)] < minVoxels)
            continue;
        SurfaceSheet& sheet = mSheets[mParts[part].mSheet];
        for (uint32 side = 0; side < PlaneDirections::NUM_SIDES; ++side)
            sheet.mJoins[side] &= ~(mParts[part].mVoxels & mSheets.getBranchEdges(sheet, side));
    }
}

uint64 SurfaceParts::countBorders() const
{
    uint64 count = 0;
    for (const Surface& surface : mSurfaces)
        count += surface.countBorders();
    return count;
}

std::pair<const uint32*, const uint32*> SurfaceParts::getParts(uint32 surface) const
{
    const uint32 index = mOrder[surface];
    return {mGathered.data() + mFirstGathered[index], mGathered.data() + mFirstGathered[index + 1]};
}

uint32 SurfaceParts::findPart(uint32 sheet, uint32 bit) const
{
    uint32 part = mSheets[sheet].mFirstPart;
    while (((mParts[part].mVoxels >> bit) & 1u) == 0)
        ++part;
    return part;
}
} // namespace KORV::NavMesh
