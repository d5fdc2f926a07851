#include "korv/navmesh/pieces/convexpieces.h"

namespace KORV::NavMesh
{
namespace
{
/// The lists of a node, each of one block of its exact size.
void fillLists(NavMeshContainer::NavNode& node, const int32* corners, const int32* neighbours, size_t size, uint32 base,
               int32 firstNode)
{
    node.mPolygon.resize(size);
    node.mNeighbours.resize(size);
    for (size_t at = 0; at < size; ++at)
    {
        node.mPolygon[at] = base + static_cast<uint32>(corners[at]);
        node.mNeighbours[at] = neighbours[at] >= 0 ? firstNode + neighbours[at] : -1;
    }
}
} // namespace

void ConvexPieces::append(const ConvexPieces& other)
{
    const uint32 base = static_cast<uint32>(mCorners.size());
    for (const uint32 start : other.mStart)
        mStart.push_back(base + start);
    mCorners.insert(mCorners.end(), other.mCorners.begin(), other.mCorners.end());
    mNeighbours.insert(mNeighbours.end(), other.mNeighbours.begin(), other.mNeighbours.end());
}

void ConvexPieces::appendTo(NavMeshContainer& container, const SurfacePolygon& polygon) const
{
    if (size() == 0)
        return;
    const uint32 base = static_cast<uint32>(container.mVertices.size());
    const int32 firstNode = static_cast<int32>(container.mNodes.size());
    container.mVertices.insert(container.mVertices.end(), polygon.mPoints.begin(), polygon.mPoints.end());
    for (size_t piece = 0; piece < size(); ++piece)
    {
        NavMeshContainer::NavNode& node = container.mNodes.emplace_back(container.getMemory());
        fillLists(node, mCorners.data() + begin(piece), mNeighbours.data() + begin(piece), end(piece) - begin(piece),
                  base, firstNode);
        node.mHeightClass = static_cast<int32>(polygon.mHeightClass);
        node.mSurfaceTypeID = polygon.mSurfaceTypeID;
    }
}
} // namespace KORV::NavMesh
