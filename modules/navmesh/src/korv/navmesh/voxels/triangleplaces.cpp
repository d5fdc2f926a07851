#include "korv/navmesh/voxels/triangleplaces.h"

#include <algorithm>

namespace KORV::NavMesh
{
namespace
{
constexpr uint32 MOST_LEVELS = 10; // below that the places in a grid would be too uncertain
} // namespace

TrianglePlaces::TrianglePlaces(Common::Memory::Allocator* allocator) : mPlaces(allocator), mNext(allocator) {}

void TrianglePlaces::start(const Vec3<float>& centre, float edge, uint32 levels, uint32 numTriangles)
{
    mLevels = std::min(levels, MOST_LEVELS);
    mGrid = CellGrid(centre, edge, mLevels);
    mPlaces.assign(1, Place());
    mNext.assign(numTriangles, NONE);
}

void TrianglePlaces::add(uint32 number, const Vec3<float> (&corners)[3])
{
    CellRange range;
    const bool isClear = mLevels > 0 && mGrid.find(corners, range) && range.mIsInside;
    Place& place = mPlaces[isClear ? makePlace(range) : ROOT];
    if (place.mFirst == NONE)
        place.mFirst = number;
    else
        mNext[place.mLast] = number;
    place.mLast = number;
}

uint32 TrianglePlaces::makePlace(const CellRange& range)
{
    const uint32 lowest = range.getCommonLevels();
    uint32 place = ROOT;
    for (uint32 level = mLevels; level-- > lowest;)
    {
        const uint32 child = childOnLevel(range.getFirst(), level);
        if (mPlaces[place].mChildren[child] == 0)
        {
            const uint32 added = static_cast<uint32>(mPlaces.size());
            mPlaces.emplace_back();
            mPlaces[place].mChildren[child] = added;
        }
        place = mPlaces[place].mChildren[child];
    }
    return place;
}

uint32 TrianglePlaces::getChild(uint32 place, uint32 child) const
{
    const uint32 found = place != NONE ? mPlaces[place].mChildren[child] : 0;
    return found != 0 ? found : NONE;
}

uint32 TrianglePlaces::getChildren(uint32 place) const
{
    uint32 children = 0;
    for (uint32 child = 0; child < NUM_CHILDREN; ++child)
        children |= getChild(place, child) != NONE ? 1u << child : 0;
    return children;
}
} // namespace KORV::NavMesh
