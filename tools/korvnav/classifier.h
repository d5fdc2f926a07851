#pragma once

#include "options.h"
#include "scene.h"

#include "korv/navmesh/geometryinfo.h"

#include <vector>

namespace KORV::Tool
{
/// What makes a triangle walkable, and its surface type.
struct WalkRules
{
    Common::Math::Vec3<float> mUp;
    double mMaxSlope = 45.0; ///< [degrees] between up and the normal, this angle included
    Winding mWinding = Winding::CounterClockwise;
    std::vector<SurfaceOption> mSurfaces;
};

/// Knows the class of every triangle of one scene beforehand, so that the many questions of a generation cost nothing.
class SceneClassifier : public NavMesh::TriangleClassifier
{
public:
    SceneClassifier(const Scene& scene, const WalkRules& rules);

    void classifyTriangle(NavMesh::TriangleClass& result, const NavMesh::GeometryInfo& geometry,
                          uint32 triangle) override;

    uint64 getWalkableCount() const { return mWalkableCount; }
    /// Whether the surface option of that index has matched a part of the scene.
    bool hasMatched(std::size_t surface) const { return mMatched[surface]; }

private:
    std::vector<NavMesh::TriangleClass> mClasses;
    std::vector<bool> mMatched;
    uint64 mWalkableCount = 0;
};

/// Whether a triangle with those corners can be walked on. A triangle without area cannot.
bool isWalkable(const WalkRules& rules, const Common::Math::Vec3<float> (&corners)[3]);
} // namespace KORV::Tool
