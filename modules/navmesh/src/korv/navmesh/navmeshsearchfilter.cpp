#include "korv/navmesh/navmeshsearchfilter.h"

#include "korv/common/debug/assert.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
constexpr auto MAX_HEIGHT_CLASS = static_cast<uint32>(std::numeric_limits<int32>::max());

/// A limit that is negative or not a number is none that a level step could keep.
float getLimit(float height)
{
    return height > 0.0f ? height : 0.0f;
}
} // namespace

NavMeshSearchFilter::NavMeshSearchFilter(Common::Memory::Allocator* allocator) : mSurfaceFactors(allocator) {}

NavMeshSearchFilter::NavMeshSearchFilter(const NavMeshSearchFilter& other, Common::Memory::Allocator* allocator)
    : mHasCharacter(other.mHasCharacter), mMinHeightClass(other.mMinHeightClass), mJumpHeight(other.mJumpHeight),
      mFallHeight(other.mFallHeight), mBodyRadius(other.mBodyRadius), mSurfaceFactors(other.mSurfaceFactors, allocator)
{
}

void NavMeshSearchFilter::setCharacter(const CharacterInfo& character)
{
    mHasCharacter = true;
    mMinHeightClass = static_cast<int32>(std::min(character.mMaxHeightClassID, MAX_HEIGHT_CLASS));
    mJumpHeight = getLimit(character.mJumpHeight);
    mFallHeight = getLimit(character.mFallHeight);
}

void NavMeshSearchFilter::setBodyRadius(float radius)
{
    if (KORV_ASSERT(radius >= 0.0f && std::isfinite(radius), "radius >= 0",
                    "Body radius must be finite and not negative"))
        mBodyRadius = radius;
}

void NavMeshSearchFilter::setSurfaceCost(uint16 surfaceTypeID, float factor)
{
    if (!KORV_ASSERT(!std::isnan(factor), "factor == factor", "Surface cost factor is not a number"))
        return;
    if (factor <= 0.0f || std::isinf(factor))
        factor = FORBIDDEN;
    else if (!KORV_ASSERT(factor >= 1.0f, "factor >= 1", "Surface cost factor must be at least 1"))
        factor = 1.0f;

    const auto isBelow = [](const SurfaceFactor& entry, uint16 id) { return entry.mSurfaceTypeID < id; };
    const auto place = std::lower_bound(mSurfaceFactors.begin(), mSurfaceFactors.end(), surfaceTypeID, isBelow);
    if (place != mSurfaceFactors.end() && place->mSurfaceTypeID == surfaceTypeID)
        place->mFactor = factor;
    else
        mSurfaceFactors.insert(place, SurfaceFactor{surfaceTypeID, factor});
}

bool NavMeshSearchFilter::isNodeAllowed(const NavMeshContainer::NavNode& node) const
{
    if (mHasCharacter && node.mHeightClass < mMinHeightClass)
        return false;
    return getSurfaceFactor(node.mSurfaceTypeID) != FORBIDDEN;
}

float NavMeshSearchFilter::getSurfaceFactor(uint16 surfaceTypeID) const
{
    for (const SurfaceFactor& entry : mSurfaceFactors)
    {
        if (entry.mSurfaceTypeID >= surfaceTypeID)
            return entry.mSurfaceTypeID == surfaceTypeID ? entry.mFactor : 1.0f;
    }
    return 1.0f;
}
} // namespace KORV::NavMesh
