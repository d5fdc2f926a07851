#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Finds the outline edge that a ray from a corner meets first, through a uniform grid over the edges.
/// Holds a reference to the outline, which must not change. One thread at a time.
class EdgeGrid
{
public:
    EdgeGrid(const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator);

    /// The edge that a ray from corner @p from meets first, of those that pass it from left to right; -1 for none.
    /// Edge k runs from corner k to k + 1. Of edges within 0.0001 of each other the one whose midpoint is closest wins.
    /// @param dir  of unit length.
    /// Cost: the edges near the ray up to the hit.
    int32 findNearestEdge(int32 from, const Vec2<float>& dir);

    /// The same by looking at every edge: what small outlines use, and what defines the result.
    int32 findNearestEdgeOfAll(int32 from, const Vec2<float>& dir) const;

private:
    /// An edge as a cell holds it: with its ends, so that a ray reads one run of memory a cell.
    struct CellEdge
    {
        Vec2<float> mA;
        Vec2<float> mB;
        int32 mEdge;
    };

    struct Hit
    {
        int32 mEdge;
        float mDistance;
    };

    /// The running choice among hits that arrive in the order of the edges.
    struct Nearest
    {
        float mDistance;
        int32 mEdge;
    };

    void buildCells();
    double balancedCellSize(double area) const;
    template <class Visit>
    void forEachCell(int32 edge, const Visit& visit) const;
    int32 column(double x) const;
    int32 row(double y) const;
    CellEdge edgeOf(int32 edge) const;
    void take(Nearest& nearest, const Hit& hit, int32 from) const;
    float squaredMidpointDistance(int32 edge, int32 from) const;
    void collectCell(size_t cell, const Vec2<float>& origin, const Vec2<float>& dir);
    float clusterEnd();
    int32 replay(int32 from, const Vec2<float>& dir);

    const Vector<Vec2<float>>& mPolygon;
    int32 mN;
    double mMinX = 0.0;
    double mMinY = 0.0;
    double mCellSize = 1.0;
    double mCellsPerUnit = 1.0;
    double mNoise = 0.0; // what float arithmetic can move a point of this outline by
    int32 mColumns = 0;  // 0: no grid, every edge is looked at
    int32 mRows = 0;
    Vector<uint32> mCellStart; // first entry of each cell, one more at the end
    Vector<CellEdge> mCellEdges;
    Vector<Hit> mHits; // of the current ray; an edge that lies in several cells may come twice
    float mNearestHit = 0.0f;
};
} // namespace KORV::NavMesh
