#include "korv/navmesh/meshdraft.h"

#include "korv/common/exceptions/exception.h"
#include "korv/navmesh/trim.h"

#include <algorithm>
#include <iterator>

namespace KORV::NavMesh
{
void MeshDraft::appendBlock(ConvexPieces&& pieces)
{
    mBlocks.emplace_back(std::move(pieces), static_cast<int32>(mNumNodes));
}

void MeshDraft::appendOutline(const SurfacePolygon& polygon, uint32 end)
{
    Block& block = mBlocks.back();
    const uint32 first = block.mGrounds.empty() ? 0 : block.mGrounds.back().mEnd;
    if (first == end)
        return;
    Vector<Vec3<float>>& vertices = mContainer.mVertices;
    reserveVertices(polygon.mPoints.size());
    const auto firstVertex = static_cast<int32>(vertices.size());
    const auto firstNode = static_cast<int32>(mNumNodes);
    vertices.insert(vertices.end(), polygon.mPoints.begin(), polygon.mPoints.end());
    ConvexPieces& pieces = block.mPieces;
    for (size_t at = pieces.begin(first); at < pieces.end(end - 1); ++at)
    {
        pieces.mCorners[at] += firstVertex;
        if (pieces.mNeighbours[at] >= 0)
            pieces.mNeighbours[at] += firstNode;
    }
    block.mGrounds.push_back({end, static_cast<int32>(polygon.mHeightClass), polygon.mSurfaceTypeID});
    mNumNodes += end - first;
}

void MeshDraft::reserveVertices(size_t count)
{
    Vector<Vec3<float>>& vertices = mContainer.mVertices;
    if (count > MAX_VERTICES - vertices.size())
        throw new Common::Exceptions::InvalidStateException("The navigation mesh has too many vertices.");
    // by an eighth, not by doubling: memory is short at this time, and nearly all have got their room at once
    if (vertices.capacity() - vertices.size() < count)
        vertices.reserve(vertices.size() + std::max(count, vertices.size() / 8));
}

void MeshDraft::setSplitNode(int32 node, const Vector<int32>& corners, const Vector<int32>& neighbours)
{
    mSplits.push_back({node, static_cast<uint32>(mSplitCorners.size())});
    mSplitCorners.insert(mSplitCorners.end(), corners.begin(), corners.end());
    mSplitNeighbours.insert(mSplitNeighbours.end(), neighbours.begin(), neighbours.end());
}

MeshDraft::Node MeshDraft::getNode(Block& block, size_t piece)
{
    ConvexPieces& pieces = block.mPieces;
    const size_t begin = pieces.begin(piece);
    return {pieces.mCorners.data() + begin, pieces.mNeighbours.data() + begin,
            static_cast<uint32>(pieces.end(piece) - begin)};
}

MeshDraft::Node MeshDraft::getNode(int32 node)
{
    const auto isBefore = [](int32 number, const Block& block) { return number < block.mFirstNode; };
    Block& block = *std::prev(std::upper_bound(mBlocks.begin(), mBlocks.end(), node, isBefore));
    return getNode(block, static_cast<size_t>(node - block.mFirstNode));
}

MeshDraft::Node MeshDraft::getSplitNode(size_t split)
{
    const uint32 begin = mSplits[split].mFirst;
    const size_t end = split + 1 < mSplits.size() ? mSplits[split + 1].mFirst : mSplitCorners.size();
    return {mSplitCorners.data() + begin, mSplitNeighbours.data() + begin, static_cast<uint32>(end - begin)};
}

void MeshDraft::moveNodes(const RunControl& control, const char* stage, float begin)
{
    trim(mSplits); // the nodes are what takes most memory, so nothing else may take too much
    trim(mSplitCorners);
    trim(mSplitNeighbours);
    mContainer.mNodes.reserve(mContainer.mNodes.size() + mNumNodes);
    size_t nextSplit = 0;
    for (Block& block : mBlocks)
    {
        const float share = static_cast<float>(block.mFirstNode) / static_cast<float>(mNumNodes);
        control.report(stage, begin + (1.0f - begin) * share);
        moveBlock(block, nextSplit);
        const Block emptied(std::move(block));
    }
    mBlocks.clear();
}

void MeshDraft::moveBlock(Block& block, size_t& nextSplit)
{
    auto ground = block.mGrounds.begin();
    for (size_t piece = 0; piece < block.mPieces.size(); ++piece)
    {
        const bool isSplit =
            nextSplit < mSplits.size() && mSplits[nextSplit].mNode == block.mFirstNode + static_cast<int32>(piece);
        const Node node = isSplit ? getSplitNode(nextSplit++) : getNode(block, piece);
        if (piece == ground->mEnd)
            ++ground;
        NavMeshContainer::NavNode& made = mContainer.mNodes.emplace_back(mContainer.getMemory());
        // each list gets one block of its exact size
        const auto* corners = reinterpret_cast<const uint32*>(node.mCorners);
        made.mPolygon.assign(corners, corners + node.mSize);
        made.mNeighbours.assign(node.mNeighbours, node.mNeighbours + node.mSize);
        made.mHeightClass = ground->mHeightClass;
        made.mSurfaceTypeID = ground->mSurfaceTypeID;
    }
}
} // namespace KORV::NavMesh
