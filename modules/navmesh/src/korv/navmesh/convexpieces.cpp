#include "korv/navmesh/convexpieces.h"

namespace KORV::NavMesh
{
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
        node.mPolygon.reserve(end(piece) - begin(piece));
        node.mNeighbours.reserve(end(piece) - begin(piece));
        for (size_t at = begin(piece); at < end(piece); ++at)
        {
            node.mPolygon.push_back(base + static_cast<uint32>(mCorners[at]));
            node.mNeighbours.push_back(mNeighbours[at] >= 0 ? firstNode + mNeighbours[at] : -1);
        }
        node.mHeightClass = static_cast<int32>(polygon.mHeightClass);
        node.mSurfaceTypeID = polygon.mSurfaceTypeID;
    }
}
} // namespace KORV::NavMesh
