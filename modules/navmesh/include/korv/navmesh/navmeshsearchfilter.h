#pragma once

#include "korv/navmesh/api.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// What one character may cross, and what ground costs it. Without any call everything is allowed, at the plain cost.
///
/// A value: a search keeps a copy. Lengths are in world units. Thread use: const operations may run at once.
class KORV_NAVMESH_API NavMeshSearchFilter
{
public:
    /// @param allocator  for the list of factors; must outlive the filter and its copies. The mesh's own will do.
    explicit NavMeshSearchFilter(Common::Memory::Allocator* allocator);
    /// A copy with its list on another allocator.
    NavMeshSearchFilter(const NavMeshSearchFilter& other, Common::Memory::Allocator* allocator);

    /// Only nodes whose height class is at least that of the character, and only links that climb at most its jump
    /// height and drop at most its fall height. Heights that are negative or not a number are taken as 0.
    void setCharacter(const CharacterInfo& character);
    /// Half the width of the body: crossings narrower than twice that are refused. [>= 0, finite; else reported and
    /// ignored]
    void setBodyRadius(float radius);
    float getBodyRadius() const { return mBodyRadius; }
    /// The cost of entering nodes of a surface type is multiplied by that factor. [at least 1; 0, negative and infinite
    /// factors forbid the surface; one between 0 and 1 is reported and taken as 1, since an estimate must not exceed
    /// the cost; one that is not a number is reported and ignored]
    void setSurfaceCost(uint16 surfaceTypeID, float factor);

    /// Whether the character may stand on a node: height class and surface.
    bool isNodeAllowed(const NavMeshContainer::NavNode& node) const;
    /// Whether the rise or fall of a link is within the character's reach. [height above the node left; world units]
    /// @param tolerance  by how much the measured height may be wrong.
    bool isHeightAllowed(float height, float tolerance = 0.0f) const
    {
        return !mHasCharacter || (height - tolerance <= mJumpHeight && -height - tolerance <= mFallHeight);
    }
    /// Whether a crossing leaves room for the body. [length of the opening; world units]
    bool isWidthAllowed(float width, float tolerance = 0.0f) const { return width + tolerance >= 2.0f * mBodyRadius; }
    /// Whether links have to be measured at all: without limits on heights and widths every link is allowed.
    bool measuresLinks() const { return mHasCharacter || mBodyRadius > 0.0f; }
    /// Factor of a surface type, at least 1; 0 when it is forbidden.
    float getSurfaceFactor(uint16 surfaceTypeID) const;

    /// The factor that stands for a surface that must not be entered.
    static constexpr float FORBIDDEN = 0.0f;

private:
    struct SurfaceFactor
    {
        uint16 mSurfaceTypeID;
        float mFactor;
    };

    bool mHasCharacter = false;
    int32 mMinHeightClass = 0;
    float mJumpHeight = 0.0f;
    float mFallHeight = 0.0f;
    float mBodyRadius = 0.0f;
    Vector<SurfaceFactor> mSurfaceFactors; // ascending ids
};
} // namespace KORV::NavMesh
