// Stands in for the peer where it is not installed.

#include "detourmesh.h"
#include "recastbuild.h"

namespace KORV::Benchmarks::Peer
{
bool isAvailable()
{
    return false;
}

BuildFigures buildSolo(const Scenes::Scene&, float)
{
    return {};
}

struct DetourMesh::Data
{
};

DetourMesh::DetourMesh(std::unique_ptr<Data> data) : mData(std::move(data)) {}

DetourMesh::~DetourMesh() = default;

std::unique_ptr<DetourMesh> DetourMesh::build(const Scenes::Scene&, float)
{
    return nullptr;
}

std::size_t DetourMesh::getNumPolygons() const
{
    return 0;
}

std::uint32_t DetourMesh::findNearest(const Point&, const Point&) const
{
    return 0;
}

bool DetourMesh::findPath(std::uint32_t, std::uint32_t, const Point&, const Point&, std::vector<std::uint32_t>&) const
{
    return false;
}

std::size_t DetourMesh::countExpanded() const
{
    return 0;
}

int DetourMesh::findStraightPath(const Point&, const Point&, const std::vector<std::uint32_t>&) const
{
    return 0;
}
} // namespace KORV::Benchmarks::Peer
