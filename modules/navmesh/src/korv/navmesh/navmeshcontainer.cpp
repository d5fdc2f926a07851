#include "korv/navmesh/navmeshcontainer.h"

#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"
#include "korv/navmesh/places/navmeshqueries.h"
#include "korv/navmesh/recordcopies.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace KORV::NavMesh
{
namespace
{
using NavNode = NavMeshContainer::NavNode;

Vector<NavNode> copyNodes(const Vector<NavNode>& nodes, Common::Memory::Allocator* allocator)
{
    Vector<NavNode> copies(allocator);
    copies.reserve(nodes.size());
    for (const NavNode& node : nodes)
        copies.emplace_back(node, allocator);
    return copies;
}

template <class Record, class Predicate>
const Record* findRecord(const Vector<Record>& records, Predicate matches)
{
    const auto found = std::find_if(records.begin(), records.end(), matches);
    return found != records.end() ? &*found : nullptr;
}

uint64 getNodeBytes(const NavNode& node)
{
    return sizeof(NavNode) + 4 * static_cast<uint64>(node.mPolygon.size() + node.mNeighbours.size());
}

uint32 saturate(uint64 bytes)
{
    return static_cast<uint32>(std::min<uint64>(bytes, std::numeric_limits<uint32>::max()));
}

/// For indices from outside, where a negative value must not wrap into the range.
template <class T>
bool isIndexOf(int64 index, const Vector<T>& list)
{
    return index >= 0 && static_cast<uint64>(index) < list.size();
}
} // namespace

NavMeshContainer::NavMeshContainer()
    : mVertices(getMemory()), mNodes(getMemory()), mHeight(getMemory()), mCharacters(getMemory()),
      mSurfaceTypes(getMemory())
{
}

NavMeshContainer::NavMeshContainer(const Vector<CharacterInfo>& characters, const Vector<SurfaceType>& surfaceTypes)
    : NavMeshContainer()
{
    mCharacters = copyRecords(characters, getMemory());
    mSurfaceTypes = copyRecords(surfaceTypes, getMemory());
}

NavMeshContainer::NavMeshContainer(const NavMeshContainer& other)
    : MemoryManaged(other), ReferenceCounted(other), mVertices(other.mVertices, getMemory()),
      mNodes(copyNodes(other.mNodes, getMemory())), mHeight(other.mHeight, getMemory()), mNormal(other.mNormal),
      mXAxis(other.mXAxis), mYAxis(other.mYAxis), mCubeSize(other.mCubeSize),
      mCharacters(copyRecords(other.mCharacters, getMemory())),
      mSurfaceTypes(copyRecords(other.mSurfaceTypes, getMemory()))
{
}

NavMeshContainer& NavMeshContainer::operator=(const NavMeshContainer& other)
{
    if (this == &other)
        return *this;
    // all copies first: when memory runs out, this mesh is as it was
    Vector<Vec3<float>> vertices(other.mVertices, getMemory());
    Vector<NavNode> nodes = copyNodes(other.mNodes, getMemory());
    Vector<float> height(other.mHeight, getMemory());
    Vector<CharacterInfo> characters = copyRecords(other.mCharacters, getMemory());
    Vector<SurfaceType> surfaceTypes = copyRecords(other.mSurfaceTypes, getMemory());
    mVertices = std::move(vertices);
    mNodes = std::move(nodes);
    mHeight = std::move(height);
    mCharacters = std::move(characters);
    mSurfaceTypes = std::move(surfaceTypes);
    mNormal = other.mNormal;
    mXAxis = other.mXAxis;
    mYAxis = other.mYAxis;
    mCubeSize = other.mCubeSize;
    return *this;
}

NavMeshContainer::~NavMeshContainer() = default;

bool NavMeshContainer::empty() const
{
    return mNodes.empty();
}

void NavMeshContainer::clear()
{
    mNodes.clear();
    mVertices.clear();
    mHeight.clear();
}

float NavMeshContainer::getHeightValue(int heightClassID) const
{
    const bool belowEnd = KORV_ASSERT(heightClassID < static_cast<int32>(mHeight.size()),
                                      "heightClassID < (int32)mHeight.size()", "Height class id is out of range");
    return belowEnd && heightClassID >= 0 ? mHeight[static_cast<size_t>(heightClassID)] : 0.0f;
}

const CharacterInfo* NavMeshContainer::getCharacter(const BasicString& name) const
{
    return findRecord(mCharacters, [&name](const CharacterInfo& character) { return character.mName == name; });
}

const CharacterInfo* NavMeshContainer::getCharacter(int64 userID) const
{
    return findRecord(mCharacters, [userID](const CharacterInfo& character) { return character.mUserID == userID; });
}

const SurfaceType* NavMeshContainer::getSurfaceType(const BasicString& name) const
{
    return findRecord(mSurfaceTypes, [&name](const SurfaceType& type) { return type.mName == name; });
}

const SurfaceType* NavMeshContainer::getSurfaceType(uint16 id) const
{
    return findRecord(mSurfaceTypes, [id](const SurfaceType& type) { return type.mID == id; });
}

Vector<const CharacterInfo*> NavMeshContainer::getCharactersByHeightClassID(uint32 heightClassID) const
{
    Vector<const CharacterInfo*> fitting(getMemory());
    for (const CharacterInfo& character : mCharacters)
    {
        if (character.mMaxHeightClassID <= heightClassID)
            fitting.push_back(&character);
    }
    return fitting;
}

uint32 NavMeshContainer::getMemoryUsage() const
{
    uint64 bytes = sizeof(NavMeshContainer) + mVertices.size() * sizeof(Vec3<float>) + mHeight.size() * sizeof(float) +
                   mCharacters.size() * sizeof(CharacterInfo) + mSurfaceTypes.size() * sizeof(SurfaceType);
    for (const NavNode& node : mNodes)
        bytes += getNodeBytes(node);
    return saturate(bytes);
}

uint32 NavMeshContainer::getMemoryUsage(int nodeIndex) const
{
    return isIndexOf(nodeIndex, mNodes) ? saturate(getNodeBytes(mNodes[static_cast<size_t>(nodeIndex)])) : 0;
}

void NavMeshContainer::initNodeSearch() {}

bool NavMeshContainer::isNodeSearchInitialized() const
{
    return true;
}

int NavMeshContainer::searchNode(const Vec3<float>& point) const
{
    const int numNodes = static_cast<int>(mNodes.size());
    for (int i = 0; i < numNodes; ++i)
    {
        if (isPointInsideNode(point, i))
            return i;
    }
    return -1;
}

bool NavMeshContainer::isPointInsideNode(const Vec3<float>& point, int nodeID) const
{
    if (!KORV_ASSERT(nodeID >= 0, "nodeID >= 0", "nodeID out of range") || !isIndexOf(nodeID, mNodes))
        return false;
    const NavNode& node = mNodes[static_cast<size_t>(nodeID)];
    if (node.mPolygon.empty() || node.mPolygon[0] >= mVertices.size() || !isIndexOf(node.mHeightClass, mHeight))
        return false;

    // written so that a height that is no number is on no node
    const float height = dot(mNormal, point - mVertices[node.mPolygon[0]]);
    const bool inReach = height >= -2.0f * mCubeSize && height <= mHeight[static_cast<size_t>(node.mHeightClass)];
    return inReach && isPointInConvexPolygon(projectToPlane(point, mXAxis, mYAxis), mVertices, node.mPolygon, false,
                                             mXAxis, mYAxis);
}

Vec3<float> NavMeshContainer::getNodeMiddlePoint(int nodeIndex) const
{
    if (!KORV_ASSERT(isIndexOf(nodeIndex, mNodes), "nodeIndex >= 0 && nodeIndex < (int32)mNodes.size()",
                     "nodeID out of range"))
        return {};
    return getMiddleOfCorners(mVertices, mNodes[static_cast<size_t>(nodeIndex)].mPolygon);
}

float NavMeshContainer::getDistanceToNearestEdgeOfNode(const Vec3<float>& point, int nodeID) const
{
    float best = std::numeric_limits<float>::max();
    if (!KORV_ASSERT(nodeID >= 0, "nodeID >= 0", "nodeID out of range") || !isIndexOf(nodeID, mNodes))
        return best;
    const Vector<uint32>& polygon = mNodes[static_cast<size_t>(nodeID)].mPolygon;
    const Vec2<float> p = projectToPlane(point, mXAxis, mYAxis);
    for (size_t i = 0; i < polygon.size(); ++i)
    {
        const uint32 from = polygon[i == 0 ? polygon.size() - 1 : i - 1];
        const uint32 to = polygon[i];
        if (from >= mVertices.size() || to >= mVertices.size())
            continue;
        const float distance = Common::Geom::PointSegmentDistance(projectToPlane(mVertices[from], mXAxis, mYAxis),
                                                                  projectToPlane(mVertices[to], mXAxis, mYAxis), p);
        if (distance < best)
            best = distance;
    }
    return best;
}
} // namespace KORV::NavMesh
