#include "dijkstra.h"

#include <functional>
#include <limits>
#include <queue>
#include <utility>

namespace KORV::Benchmarks
{
using namespace NavMesh;

Dijkstra::Dijkstra(const SharedPtr<NavMeshContainer>& mesh) : mMesh(mesh)
{
    for (int node = 0; node < static_cast<int>(mesh->mNodes.size()); ++node)
        mMiddlePoints.push_back(mesh->getNodeMiddlePoint(node));
}

double Dijkstra::distance(const Place& start, const Place& end, int from, int to) const
{
    const Vec3<float>& a = from == start.mNode ? start.mPosition : mMiddlePoints[static_cast<std::size_t>(from)];
    const Vec3<float>& b = to == end.mNode ? end.mPosition : mMiddlePoints[static_cast<std::size_t>(to)];
    return double((b - a).getLength());
}

double Dijkstra::leastCost(const Place& start, const Place& end) const
{
    using Entry = std::pair<double, int>;
    std::priority_queue<Entry, std::vector<Entry>, std::greater<Entry>> open;
    std::vector<double> costs(mMesh->mNodes.size(), std::numeric_limits<double>::infinity());
    costs[static_cast<std::size_t>(start.mNode)] = 0.0;
    open.push({0.0, start.mNode});
    while (!open.empty())
    {
        const auto [cost, node] = open.top();
        open.pop();
        if (node == end.mNode)
            return cost;
        if (cost > costs[static_cast<std::size_t>(node)])
            continue;
        for (const int32 target : mMesh->mNodes[static_cast<std::size_t>(node)].mNeighbours)
        {
            if (target < 0)
                continue;
            const double next = cost + distance(start, end, node, target);
            if (next >= costs[static_cast<std::size_t>(target)])
                continue;
            costs[static_cast<std::size_t>(target)] = next;
            open.push({next, target});
        }
    }
    return std::numeric_limits<double>::infinity();
}

double Dijkstra::costOf(const Place& start, const Place& end, const Vector<NavMeshPathChunk>& path) const
{
    double sum = 0.0;
    for (const NavMeshPathChunk& chunk : path)
    {
        const auto node = static_cast<std::size_t>(chunk.mNodeID);
        sum += distance(start, end, chunk.mNodeID, mMesh->mNodes[node].mNeighbours[chunk.mBorderID]);
    }
    return sum;
}
} // namespace KORV::Benchmarks
