#pragma once

#include "scenes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KORV::Benchmarks::Peer
{
/// A position. [metres]
struct Point
{
    float mCoordinates[3];
};

/// The peer's mesh of a scene with its queries, built in tiles since one tile holds 65,535 corners at most.
class DetourMesh
{
public:
    /// Most nodes that a search of the peer can hold.
    static constexpr int MAX_SEARCH_NODES = 65535;

    /// @return null where there is no peer, or where it can't.
    static std::unique_ptr<DetourMesh> build(const Scenes::Scene& scene, float cube);
    ~DetourMesh();

    std::size_t getNumPolygons() const;
    /// The nearest polygon to a point in a box of these half lengths around it, or 0.
    std::uint32_t findNearest(const Point& point, const Point& halfExtents) const;

    /// Finds the corridor between two polygons; false when there is none or when nodes run out.
    bool findPath(std::uint32_t start, std::uint32_t end, const Point& startPoint, const Point& endPoint,
                  std::vector<std::uint32_t>& corridor) const;
    /// Nodes that the last search expanded.
    std::size_t countExpanded() const;
    /// Number of points of the straight path through a corridor.
    int findStraightPath(const Point& startPoint, const Point& endPoint,
                         const std::vector<std::uint32_t>& corridor) const;

private:
    struct Data;
    explicit DetourMesh(std::unique_ptr<Data> data);

    std::unique_ptr<Data> mData;
};
} // namespace KORV::Benchmarks::Peer
