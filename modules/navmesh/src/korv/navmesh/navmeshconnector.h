#pragma once

#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/meshdraft.h"
#include "korv/navmesh/rules.h"
#include "korv/navmesh/runcontrol.h"

namespace KORV::NavMesh
{
class RangeRunner;

/// Links the open sides of all nodes to sides that run along them in the ground plane, on the same level or within the
/// reach of jump and fall. Sides that are only partly met are split.
class NavMeshConnector : public Common::Memory::MemoryManaged
{
public:
    class Grid;

    /// The fraction of the stage that the host has been told of at the end: the nodes are still to be made.
    static constexpr float SHARE_OF_STAGE = 0.9f;

    /// @param overlapTolerance  length that two sides must share at least. [world units, > 0]
    /// @param distanceTolerance  distance in the ground plane at which sides still touch. [world units]
    NavMeshConnector(float overlapTolerance, float distanceTolerance, Rules rules = Rules::SPECIFIED);
    ~NavMeshConnector() override;

    /// Sets the neighbours of open sides (entry -1), inserts vertices where sides are split. A link is one-way where
    /// only the way down or only the way up is within reach.
    /// @param maxJumpHeight, maxFallHeight  the largest of all characters. [world units]
    /// @param axisValue  +1 when larger vertical coordinates are higher, else -1.
    /// @param vertComp  vertical component of a position, 0 to 2.
    /// @param pool  takes a part of the work; the links are the same for any number of workers.
    /// Throws what the run control throws, and InvalidStateException when vertex ids run out; the draft is then to be
    /// thrown away.
    /// Cost: near linear in the sides, as long as they are of like length.
    void buildConnections(MeshDraft& draft, float maxJumpHeight, float maxFallHeight, float axisValue, int32 vertComp,
                          Common::Threading::ThreadPool& pool, const RunControl& control);

private:
    struct Side;
    struct Match;
    class Run;

    /// Neighbour entry of an open side.
    static constexpr int32 OPEN = -1;

    /// What the search for a side comes to.
    enum class Outcome : uint32
    {
        UNKNOWN,
        NOTHING,
        OUT_OF_REACH,
        LINK,
        SPLIT
    };
    /// What a side has found ahead of its turn, in one word.
    struct Ahead
    {
        static constexpr uint32 EDGE_BITS = 29;

        void set(Outcome outcome, uint32 edge)
        {
            const bool fits = edge >> EDGE_BITS == 0;
            mEdge = edge & ((1u << EDGE_BITS) - 1);
            mOutcome = static_cast<uint32>(fits ? outcome : Outcome::UNKNOWN) & 7u;
        }

        uint32 mEdge : EDGE_BITS; ///< of the grid
        uint32 mOutcome : 32 - EDGE_BITS;
    };
    /// A node, and the numbers of its open sides in the grid.
    struct NodeSides
    {
        int32 mNode = -1;
        MeshDraft::Node mLists;
        uint32 mFirstEdge = 0;
        uint32 mEndEdge = 0;
    };

    void searchAhead(const RangeRunner& runner);
    void listFirstEdges(Vector<uint32>& firstEdges) const;
    void searchAhead(MeshDraft::Block& block, uint32 firstEdge);
    static NodeSides getNodeSides(MeshDraft::Block& block, size_t piece, uint32 firstEdge);
    void connectNodes(const RunControl& control);
    void connectNode();
    void fetchAhead(uint32 edge) const;
    uint32 connectSide(uint32 side, uint32 edge);
    Match recall(uint32 side, uint32 edge) const;
    Match search(const NodeSides& node, uint32 side) const;
    bool isSound(const NodeSides& node, uint32 side) const;
    [[gnu::noinline, gnu::cold]] bool reportSide(const NodeSides& node, uint32 side) const;
    bool makeSide(Side& made, const NodeSides& node, uint32 side) const;
    float getHeight(const Vec3<float>& vertex) const;
    Match judge(const Side& side, uint32 edge) const;
    bool isWithinRange(const Side& side, const Vec3<float>& start) const;
    bool runsAlong(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const;
    bool touches(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const;
    bool isWithinReach(float nodeHeight, float height) const;
    Match cover(const Side& side, uint32 edge, float t0, float t1) const;
    bool isShorter(const Side& side, const Match& split) const;
    bool settle(uint32 side, const Match& match);
    void splitSide(uint32 side, const Match& split);
    void insertPiece(uint32 side, uint32 edge);

    Grid* mGrid = nullptr;
    float mOverlapTolerance;
    float mDistanceTolerance;
    Rules mRules;

    // The run in progress. The grid of mGrid exists only then.
    MeshDraft* mDraft = nullptr;
    float mMaxJumpHeight = 0.0f;
    float mMaxFallHeight = 0.0f;
    float mAxisValue = 1.0f;
    Vector<Ahead> mAhead; ///< by edge of the grid

    // The node in progress, and its lists once it has been split.
    NodeSides mNode;
    bool mIsSplit = false;
    Vector<int32> mSplitCorners;
    Vector<int32> mSplitNeighbours;
    Vector<uint32> mSidesNearby;
};
} // namespace KORV::NavMesh
