#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/surfacepolygon.h"

namespace KORV::NavMesh
{
/// The convex pieces of an outline, or of several in a row, in the order in which they become nodes.
class ConvexPieces
{
public:
    explicit ConvexPieces(Common::Memory::Allocator* allocator)
        : mStart(allocator), mCorners(allocator), mNeighbours(allocator)
    {
    }
    /// A copy on another allocator.
    ConvexPieces(const ConvexPieces& other, Common::Memory::Allocator* allocator)
        : mStart(other.mStart, allocator), mCorners(other.mCorners, allocator),
          mNeighbours(other.mNeighbours, allocator)
    {
    }

    size_t size() const { return mStart.size(); }
    size_t begin(size_t piece) const { return mStart[piece]; }
    size_t end(size_t piece) const { return piece + 1 < mStart.size() ? mStart[piece + 1] : mCorners.size(); }
    void clear()
    {
        mStart.clear();
        mCorners.clear();
        mNeighbours.clear();
    }

    /// Adds the pieces of another outline; they keep their own numbers.
    void append(const ConvexPieces& other);

    /// Appends the corners of the outline and a node for each piece; nothing when there are no pieces.
    void appendTo(NavMeshContainer& container, const SurfacePolygon& polygon) const;

    Vector<uint32> mStart;     ///< first corner of each piece
    Vector<int32> mCorners;    ///< corners of the outline, decreasing within a piece
    Vector<int32> mNeighbours; ///< piece across the side that starts at the corner, or -1
};
} // namespace KORV::NavMesh
