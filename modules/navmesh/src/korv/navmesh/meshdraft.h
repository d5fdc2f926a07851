#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/pieces/convexpieces.h"
#include "korv/navmesh/runcontrol.h"

namespace KORV::NavMesh
{
/// The nodes of a mesh in the making, as flat lists in blocks. They take a third of the memory that the container's
/// nodes do, each of which has two lists of its own; those are made when the last corner is known. Vertices go to the
/// container at once.
class MeshDraft
{
public:
    /// Vertex ids stay below.
    static constexpr size_t MAX_VERTICES = 0x7FFFFFFF;

    /// What the nodes of an outline have in common.
    struct Ground
    {
        uint32 mEnd; ///< the first node of the block that is not one of them
        int32 mHeightClass;
        uint16 mSurfaceTypeID;
    };
    /// Nodes that follow each other.
    struct Block
    {
        Block(ConvexPieces&& pieces, int32 firstNode)
            : mPieces(std::move(pieces)), mGrounds(mPieces.mStart.get_allocator()), mFirstNode(firstNode)
        {
        }

        ConvexPieces mPieces; ///< with vertex ids for corners and node ids for neighbours
        Vector<Ground> mGrounds;
        int32 mFirstNode;
    };
    /// The lists of a node.
    struct Node
    {
        int32* mCorners = nullptr; ///< vertex ids
        int32* mNeighbours = nullptr;
        uint32 mSize = 0;

        uint32 getNext(uint32 corner) const { return corner + 1 < mSize ? corner + 1 : 0; }
    };

    /// @param container  receives the vertices; must outlive the draft.
    MeshDraft(NavMeshContainer& container, Common::Memory::Allocator* allocator)
        : mContainer(container), mBlocks(allocator), mSplits(allocator), mSplitCorners(allocator),
          mSplitNeighbours(allocator)
    {
    }

    /// Makes a block of the pieces of some outlines. Each of these must be handed to appendOutline then, in order.
    void appendBlock(ConvexPieces&& pieces);
    /// Appends the corners of an outline, and makes nodes of the next pieces of the last block.
    /// @param end  the piece behind them.
    /// Throws InvalidStateException when vertex ids run out.
    void appendOutline(const SurfacePolygon& polygon, uint32 end);

    /// Sets the lists of a node with corners that its block does not have. Nodes must come in ascending order.
    void setSplitNode(int32 node, const Vector<int32>& corners, const Vector<int32>& neighbours);

    size_t size() const { return mNumNodes; }
    /// Makes room for more vertices at once. Throws InvalidStateException when their ids run out.
    void reserveVertices(size_t count);
    Vector<Vec3<float>>& getVertices() { return mContainer.mVertices; }
    const Vector<Vec3<float>>& getVertices() const { return mContainer.mVertices; }
    Vector<Block>& getBlocks() { return mBlocks; }
    const Vector<Block>& getBlocks() const { return mBlocks; }
    static Node getNode(Block& block, size_t piece);
    Node getNode(int32 node);

    /// Appends the nodes to the container, and gives each block back behind them.
    /// @param control  is told the fraction of the stage, from @p begin on. Throws what it throws; container and draft
    /// are then to be thrown away.
    void moveNodes(const RunControl& control, const char* stage, float begin);

private:
    /// Lists that begin there and end where those of the next one begin.
    struct Split
    {
        int32 mNode;
        uint32 mFirst;
    };

    void moveBlock(Block& block, size_t& nextSplit);
    Node getSplitNode(size_t split);

    NavMeshContainer& mContainer;
    Vector<Block> mBlocks;
    size_t mNumNodes = 0;
    Vector<Split> mSplits; // by node
    Vector<int32> mSplitCorners;
    Vector<int32> mSplitNeighbours;
};
} // namespace KORV::NavMesh
