#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/surfacepolygon.h"

namespace KORV::NavMesh
{
/// How an outline is cut: for each piece its corners, as indices into the outline and counter-clockwise in the mesh's
/// plane, and the piece across each side.
struct PieceList
{
    explicit PieceList(Common::Memory::Allocator* allocator) : mCorners(allocator), mNeighbours(allocator), mEnds(allocator)
    {
    }

    size_t size() const { return mEnds.size(); }
    size_t begin(size_t piece) const { return piece > 0 ? mEnds[piece - 1] : 0; }
    size_t end(size_t piece) const { return mEnds[piece]; }
    void clear()
    {
        mCorners.clear();
        mNeighbours.clear();
        mEnds.clear();
    }

    /// Appends the outline's corners as vertices and the pieces as nodes.
    void appendTo(NavMeshContainer& container, const SurfacePolygon& polygon) const;

    Vector<int32> mCorners;     ///< of all pieces, one after the other
    Vector<int32> mNeighbours;  ///< piece across the side from a corner to the next; -1 for none
    Vector<uint32> mEnds;       ///< end of each piece in the two lists
};
} // namespace KORV::NavMesh
