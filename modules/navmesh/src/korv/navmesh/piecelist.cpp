#include "korv/navmesh/piecelist.h"

#include "korv/common/exceptions/exception.h"

#include <limits>

namespace KORV::NavMesh
{
void PieceList::appendTo(NavMeshContainer& container, const SurfacePolygon& polygon) const
{
    const size_t firstNode = container.mNodes.size();
    const size_t firstVertex = container.mVertices.size();
    if (firstNode + size() > static_cast<size_t>(std::numeric_limits<int32>::max()) ||
        firstVertex + polygon.mPoints.size() > std::numeric_limits<uint32>::max())
        throw new Common::Exceptions::NotSupportedException("The mesh has more nodes or vertices than their ids can count; "
                                                            "use a larger cube size");
    container.mVertices.insert(container.mVertices.end(), polygon.mPoints.begin(), polygon.mPoints.end());
    for (size_t piece = 0; piece < size(); ++piece)
    {
        NavMeshContainer::NavNode& node = container.mNodes.emplace_back(container.getMemory());
        node.mPolygon.reserve(end(piece) - begin(piece));
        node.mNeighbours.reserve(end(piece) - begin(piece));
        for (size_t side = begin(piece); side < end(piece); ++side)
        {
            node.mPolygon.push_back(static_cast<uint32>(firstVertex) + static_cast<uint32>(mCorners[side]));
            const int32 neighbour = mNeighbours[side];
            node.mNeighbours.push_back(neighbour < 0 ? -1 : static_cast<int32>(firstNode) + neighbour);
        }
        node.mHeightClass = static_cast<int32>(polygon.mHeightClass);
        node.mSurfaceTypeID = polygon.mSurfaceTypeID;
    }
}
} // namespace KORV::NavMesh
