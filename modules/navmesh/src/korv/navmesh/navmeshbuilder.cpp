// Inputs of a generation: the lists and their checks, and what can be computed from them before any work. The run
// itself is in navmeshgeneration.cpp.

#include "korv/navmesh/navmeshbuilder.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/navmesh/mainaxes.h"
#include "korv/navmesh/octreedepth.h"
#include "korv/navmesh/recordcopies.h"
#include "korv/navmesh/runcontrol.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
using Common::Debug::MessageText;
using Common::Exceptions::ArgumentException;
using Common::Exceptions::ArgumentNullException;
using Common::Exceptions::ArgumentOutOfRangeException;

constexpr float FLOAT_MAX = std::numeric_limits<float>::max();

/// Voxels across that each further level of the automatic split depth stands for.
constexpr double VOXELS_PER_SPLIT_LEVEL = 400.0;

/// By refined rules the automatic split depth leaves branches of so many levels whole: 128 voxels across.
constexpr int32 LEVELS_OF_WHOLE_BRANCHES = 7;

/// What the octree widens its box by, on every side. [world units]
constexpr float OCTREE_PAD = 0.5f;

template <class X>
[[noreturn]] void refuse(const char* argument, const MessageText& message)
{
    throw new X(argument, message.c_str());
}

bool isFinite(const Vec3<float>& v)
{
    return std::isfinite(v.mX) && std::isfinite(v.mY) && std::isfinite(v.mZ);
}

/// Lower corner and edge of the cube that holds the points it was given.
class BoundingCube
{
public:
    void extend(const Vec3<float>& point)
    {
        mEmpty = false;
        for (int c = 0; c < 3; ++c)
        {
            mMin[c] = std::min(mMin[c], point[c]);
            mMax[c] = std::max(mMax[c], point[c]);
        }
    }
    bool empty() const { return mEmpty; }
    float getMinX() const { return mMin.mX; }
    /// The upper end along x once all extents are the largest one.
    float getMaxX() const
    {
        const Vec3<float> extent = mMax - mMin;
        return mMin.mX + std::max({extent.mX, extent.mY, extent.mZ});
    }

private:
    Vec3<float> mMin{FLOAT_MAX, FLOAT_MAX, FLOAT_MAX};
    Vec3<float> mMax{-FLOAT_MAX, -FLOAT_MAX, -FLOAT_MAX};
    bool mEmpty = true;
};

void checkVertices(const GeometryInfo& geometry, size_t geometryID)
{
    if (geometry.mNumVertices == 0)
        return;
    if (geometry.mVertexData == nullptr)
        refuse<ArgumentNullException>("mVertexData", MessageText()
                                                         << "Geometry " << geometryID << " has "
                                                         << geometry.mNumVertices << " vertices, but no vertex data");
    if (geometry.mVertexStride < 3 * sizeof(float))
        refuse<ArgumentOutOfRangeException>("mVertexStride",
                                            MessageText() << "Geometry " << geometryID << " has a vertex stride of "
                                                          << geometry.mVertexStride << " bytes, a vertex takes 12");
    for (uint32 id = 0; id < geometry.mNumVertices; ++id)
    {
        // the raw position counts too: the automatic split depth looks at it
        const Vec3<float> vertex = geometry.getVertex(id);
        if (!isFinite(vertex))
            refuse<ArgumentException>("mVertexData", MessageText() << "Geometry " << geometryID << ", vertex " << id
                                                                   << " is not finite: " << vertex.mX << ' '
                                                                   << vertex.mY << ' ' << vertex.mZ);
        if (geometry.mUseTransform && !isFinite(geometry.mTransform.transformPoint(vertex)))
            refuse<ArgumentException>("mTransform", MessageText() << "Geometry " << geometryID << ", vertex " << id
                                                                  << " is not finite after the transform");
    }
}

void checkTriangles(const GeometryInfo& geometry, size_t geometryID)
{
    if (geometry.mNumTriangles == 0)
        return;
    if (geometry.mIndexData == nullptr)
        refuse<ArgumentNullException>("mIndexData", MessageText()
                                                        << "Geometry " << geometryID << " has "
                                                        << geometry.mNumTriangles << " triangles, but no index data");
    const uint32 triangleSize = geometry.mIndexSize == 4 ? 12 : 6;
    if (geometry.mTriangleStride < triangleSize)
        refuse<ArgumentOutOfRangeException>("mTriangleStride",
                                            MessageText() << "Geometry " << geometryID << " has a triangle stride of "
                                                          << geometry.mTriangleStride << " bytes, a triangle takes "
                                                          << triangleSize);
}

void checkGeometry(const GeometryInfo& geometry, size_t geometryID)
{
    if (geometry.mClassifier == nullptr)
        refuse<ArgumentNullException>("mClassifier", MessageText()
                                                         << "Geometry " << geometryID << " has no triangle classifier");
    const auto& entries = geometry.mTransform.mEntries;
    if (geometry.mUseTransform &&
        !std::all_of(std::begin(entries), std::end(entries), [](float entry) { return std::isfinite(entry); }))
        refuse<ArgumentException>("mTransform",
                                  MessageText() << "Geometry " << geometryID << " has a transform that is not finite");
    checkVertices(geometry, geometryID);
    checkTriangles(geometry, geometryID);
}
} // namespace

ProgressReceiver::~ProgressReceiver() = default;

RunCancelled RunCancelled::sInstance;

NavMeshBuilder::NavMeshBuilder() : mGeometries(getMemory()), mCharacters(getMemory()), mSurfaceTypes(getMemory()) {}

NavMeshBuilder::~NavMeshBuilder() = default;

const NavMeshBuilder::Parameter& NavMeshBuilder::getParameter() const
{
    return mParameter;
}

void NavMeshBuilder::setParameter(const Parameter& parameter)
{
    mParameter = parameter;
}

void NavMeshBuilder::addCharacter(const CharacterInfo& character)
{
    for (const CharacterInfo& held : mCharacters)
    {
        if (held.mName == character.mName)
            KORV_FAIL("There is already a character with equal name: " << character.mName);
    }
    mCharacters.push_back(copyRecord(character, getMemory()));
}

void NavMeshBuilder::clearCharacters()
{
    mCharacters.clear();
}

void NavMeshBuilder::addSurfaceType(const SurfaceType& surfaceType)
{
    for (const SurfaceType& held : mSurfaceTypes)
    {
        if (held.mID == surfaceType.mID || held.mName == surfaceType.mName)
            KORV_FAIL("There is already a surface type with equal name or id. Try to add:" << surfaceType.mName << " / "
                                                                                           << surfaceType.mID);
    }
    mSurfaceTypes.push_back(copyRecord(surfaceType, getMemory()));
}

const SurfaceType* NavMeshBuilder::findSurfaceType(const BasicString& name) const
{
    const auto found = std::find_if(mSurfaceTypes.begin(), mSurfaceTypes.end(),
                                    [&name](const SurfaceType& held) { return held.mName == name; });
    return found != mSurfaceTypes.end() ? &*found : nullptr;
}

const SurfaceType* NavMeshBuilder::findSurfaceType(uint16 id) const
{
    const auto found = std::find_if(mSurfaceTypes.begin(), mSurfaceTypes.end(),
                                    [id](const SurfaceType& held) { return held.mID == id; });
    return found != mSurfaceTypes.end() ? &*found : nullptr;
}

void NavMeshBuilder::clearSurfaceTypes()
{
    mSurfaceTypes.clear();
}

void NavMeshBuilder::addGeometry(const GeometryInfo& geometry)
{
    mGeometries.push_back(geometry);
}

void NavMeshBuilder::clearGeometries()
{
    mGeometries.clear();
}

void NavMeshBuilder::setProgressReceiver(ProgressReceiver* receiver)
{
    mProgressReceiver = receiver;
}

const NavMeshBuilder::Statistics& NavMeshBuilder::getStatistics() const
{
    return mStatistics;
}

uint32 NavMeshBuilder::mainSurfaceAxis() const
{
    const Vec3<float> up = mParameter.mGravityDir * -1.0f;
    float bestAngle = FLOAT_MAX;
    uint32 axis = NUM_MAIN_AXES;
    for (uint32 i = 0; i < NUM_MAIN_AXES; ++i)
    {
        // Beyond 1 the angle would be no number, and the very axis that fits best would be passed over. Dividing by the
        // length keeps a component within 1, other ways of normalising do not. What is no number stays none here.
        const float angle = std::acos(std::clamp(dot(up, MAIN_AXES[i]), -1.0f, 1.0f));
        if (angle < bestAngle)
        {
            bestAngle = angle;
            axis = i;
        }
    }
    [[maybe_unused]] const bool found = KORV_ASSERT(
        axis < NUM_MAIN_AXES, "axis < 6", "No main surface axis found, propably your gravity direction is 0/0/0");
    return axis;
}

int32 NavMeshBuilder::computeSplitDepth() const
{
    BoundingCube cube;
    for (const GeometryInfo& geometry : mGeometries)
    {
        for (uint32 id = 0; id < geometry.mNumVertices; ++id)
            cube.extend(geometry.getVertex(id)); // without the transform, even where one is used
    }
    if (cube.empty())
        return 1;
    const float numVoxels = (cube.getMaxX() - cube.getMinX()) / mParameter.mCubeSize;
    const double depth = std::trunc(static_cast<double>(numVoxels) / VOXELS_PER_SPLIT_LEVEL) + 1.0;
    const int32 automatic =
        depth < std::numeric_limits<int32>::max() ? static_cast<int32>(depth) : std::numeric_limits<int32>::max();
    if (!mRefined)
        return automatic;
    // the depth grows with the size of a scene, that of the octree only with its logarithm
    const int32 limit = static_cast<int32>(computeOctreeDepth()) - LEVELS_OF_WHOLE_BRANCHES;
    return std::min(automatic, std::max(limit, 1));
}

uint32 NavMeshBuilder::computeOctreeDepth() const
{
    BoundingCube cube;
    for (const GeometryInfo& geometry : mGeometries)
    {
        for (uint32 id = 0; id < geometry.mNumVertices; ++id)
            cube.extend(geometry.getWorldVertex(id));
    }
    if (cube.empty())
        return 0;
    const float edge = (cube.getMaxX() + OCTREE_PAD) - (cube.getMinX() - OCTREE_PAD);
    return NavMesh::computeOctreeDepth(edge, mParameter.mCubeSize);
}

void NavMeshBuilder::checkInputs() const
{
    // a zero gravity direction passes: the run reports it and goes on
    const Vec3<float>& gravity = mParameter.mGravityDir;
    if (!isFinite(gravity))
        refuse<ArgumentException>("mGravityDir", MessageText() << "The gravity direction is not finite: " << gravity.mX
                                                               << ' ' << gravity.mY << ' ' << gravity.mZ);
    if (!(mParameter.mCubeSize > 0.0f) || !std::isfinite(mParameter.mCubeSize))
        refuse<ArgumentOutOfRangeException>("mCubeSize", MessageText() << "The cube size must be finite and above 0: "
                                                                       << mParameter.mCubeSize);
    for (const CharacterInfo& character : mCharacters)
    {
        if (!std::isfinite(character.mPhysicalHeight))
            refuse<ArgumentException>("mPhysicalHeight", MessageText() << "The height of the character \""
                                                                       << character.mName << "\" is not finite");
    }
    for (size_t i = 0; i < mGeometries.size(); ++i)
        checkGeometry(mGeometries[i], i);
}
} // namespace KORV::NavMesh
