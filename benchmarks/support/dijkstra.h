#pragma once

#include "level.h"

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/navmeshpathsearch.h"

#include <vector>

namespace KORV::Benchmarks
{
/// The true least costs on a mesh, by E. W. Dijkstra, "A Note on Two Problems in Connexion with Graphs", Numerische
/// Mathematik 1, 1959. Distances are those of the library's search, computed apart from it: between the middle points
/// of nodes, at the start and the end between the real positions.
class Dijkstra
{
public:
    explicit Dijkstra(const NavMesh::SharedPtr<NavMesh::NavMeshContainer>& mesh);

    /// @return infinity when there is no way.
    double leastCost(const Place& start, const Place& end) const;
    /// Cost of a way that the library found.
    double costOf(const Place& start, const Place& end, const NavMesh::Vector<NavMesh::NavMeshPathChunk>& path) const;

private:
    double distance(const Place& start, const Place& end, int from, int to) const;

    NavMesh::SharedPtr<NavMesh::NavMeshContainer> mMesh;
    std::vector<NavMesh::Vec3<float>> mMiddlePoints;
};
} // namespace KORV::Benchmarks
