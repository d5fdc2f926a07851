#include "classifier.h"

#include <algorithm>
#include <cmath>

namespace KORV::Tool
{
namespace
{
using Vector3d = Common::Math::Vec3<double>;

// A ramp built for the limit must pass it, although its corners are rounded to floats.
constexpr double COSINE_TOLERANCE = 1e-6;
constexpr double RADIANS = 3.14159265358979323846 / 180.0;

Vector3d toDouble(const Common::Math::Vec3<float>& v)
{
    return {static_cast<double>(v.mX), static_cast<double>(v.mY), static_cast<double>(v.mZ)};
}

/// The first surface option that one of the part's names matches, or -1.
int findSurface(const Scene::Part& part, const std::vector<SurfaceOption>& surfaces)
{
    for (std::size_t index = 0; index < surfaces.size(); ++index)
        if (std::find(part.mNames.begin(), part.mNames.end(), surfaces[index].mName) != part.mNames.end())
            return static_cast<int>(index);
    return -1;
}
} // namespace

bool isWalkable(const WalkRules& rules, const Common::Math::Vec3<float> (&corners)[3])
{
    const Vector3d origin = toDouble(corners[0]);
    const Vector3d normal = cross(toDouble(corners[1]) - origin, toDouble(corners[2]) - origin);
    const double length = normal.getLength();
    if (!(length > 0.0) || !std::isfinite(length))
        return false;
    const double ccwCosine = dot(normal, toDouble(rules.mUp)) / length;
    const double cosine = rules.mWinding == Winding::Both        ? std::abs(ccwCosine)
                          : rules.mWinding == Winding::Clockwise ? -ccwCosine
                                                                 : ccwCosine;
    return cosine >= std::cos(rules.mMaxSlope * RADIANS) - COSINE_TOLERANCE;
}

SceneClassifier::SceneClassifier(const Scene& scene, const WalkRules& rules)
    : mClasses(scene.mTriangles.size()), mMatched(rules.mSurfaces.size(), false)
{
    std::vector<uint16> idOfPart;
    for (const Scene::Part& part : scene.mParts)
    {
        const int surface = findSurface(part, rules.mSurfaces);
        idOfPart.push_back(surface >= 0 ? rules.mSurfaces[static_cast<std::size_t>(surface)].mID : uint16{0});
        if (surface >= 0)
            mMatched[static_cast<std::size_t>(surface)] = true;
    }
    for (std::size_t index = 0; index < mClasses.size(); ++index)
    {
        const auto& ids = scene.mTriangles[index].mVertices;
        const Common::Math::Vec3<float> corners[3] = {scene.mVertices[ids[0]], scene.mVertices[ids[1]],
                                                      scene.mVertices[ids[2]]};
        mClasses[index].mWalkable = isWalkable(rules, corners);
        mClasses[index].mSurfaceTypeID = idOfPart[scene.mPartOfTriangle[index]];
        mWalkableCount += mClasses[index].mWalkable ? 1 : 0;
    }
}

void SceneClassifier::classifyTriangle(NavMesh::TriangleClass& result, const NavMesh::GeometryInfo&, uint32 triangle)
{
    result = mClasses[triangle];
}
} // namespace KORV::Tool
