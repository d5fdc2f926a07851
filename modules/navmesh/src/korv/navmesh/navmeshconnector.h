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
    class Grid;
    class CellSides;
    struct Side;
    struct Match;
    struct Overlap;
    class Run;

    /// Sides run along each other when the cosine of their angle is at least this, in either direction.
    static constexpr float MIN_COSINE = 0.99f;

    /// Neighbour entry of an open side.
    static constexpr int32 OPEN = -1;

    /// What the search for a side comes to.
    enum class Outcome : uint32
    {
        NOTHING,
        UNKNOWN,
        OUT_OF_REACH,
        LINK,
        SPLIT
    };
    /// Open sides of a mesh, at most.
    static constexpr uint32 EDGE_BITS = 29;
    static constexpr uint32 MOST_EDGES = (1u << EDGE_BITS) - 1;

    /// What a side has found, ahead of its turn or then, in one word.
    class Found
    {
    public:
        Found() = default;
        Found(Outcome outcome, uint32 edge) : mBits(edge | (static_cast<uint32>(outcome) << EDGE_BITS)) {}

        Outcome getOutcome() const { return static_cast<Outcome>(mBits >> EDGE_BITS); }
        /// A side of the mesh, by its number in the grid.
        uint32 getEdge() const { return mBits & MOST_EDGES; }

    private:
        uint32 mBits = 0;
    };
    /// One open side.
    struct GridEdge
    {
        int32 mNode = -1;
        uint32 mVertices[2] = {};

        /// Whether others may find it.
        bool isUsable() const { return mVertices[0] != UNUSABLE; }

        static constexpr uint32 UNUSABLE = 0xFFFFFFFF;
    };
    /// Numbers of sides in the grid.
    struct EdgeRange
    {
        uint32 mBegin = 0;
        uint32 mEnd = 0;
    };
    /// A node, and the numbers of its open sides in the grid.
    struct NodeSides
    {
        int32 mNode = -1;
        MeshDraft::Node mLists;
        EdgeRange mEdges;
    };

    void searchAhead(const RangeRunner& runner);
    void searchCells(uint32 begin, uint32 end);
    void searchCell(const CellSides& sides);
    Match findInCell(const CellSides& sides, uint32 side) const;
    void reportMissingCorners() const;
    void connectNodes(const RunControl& control);
    void fetchAhead(uint32 edge) const;
    bool isSettled(uint32 edge) const;
    bool hasLeft(uint32 edge) const;
    void connectNode(uint32 edge);
    uint32 connectSide(uint32 side, uint32 edge);
    Match recall(uint32 edge) const;
    Match searchNow(const GridEdge& edge) const;
    template <class HasLeft>
    Match search(const GridEdge& edge, const EdgeRange& own, const HasLeft& hasLeft) const;
    GridEdge getEdge(uint32 side) const;
    Match judge(const Side& side, const Side& other, uint32 edge) const;
    bool runsAlong(const Side& side, const Side& other) const;
    bool isWithinRange(const Side& side, const Side& other) const;
    Match judgeParallel(const Side& side, const Side& other, uint32 edge) const;
    bool isWithinReach(float nodeHeight, float height) const;
    Match split(const Side& side, uint32 edge, const Overlap& overlap) const;
    bool isShorter(const Side& side, const Match& split) const;
    bool settle(uint32 side, const Match& match);
    void splitSide(uint32 side, const Match& split);
    void insertPiece(uint32 side, uint32 edge);
    void writeLinks(const RangeRunner& runner);

    Grid* mGrid = nullptr;
    float mOverlapTolerance;
    float mDistanceTolerance;
    Rules mRules;

    // The run in progress. The grid of mGrid exists only then.
    MeshDraft* mDraft = nullptr;
    float mMaxJumpHeight = 0.0f;
    float mMaxFallHeight = 0.0f;
    float mAxisValue = 1.0f;
    Vector<Found> mFound; ///< by edge of the grid

    // The node in progress, and its lists.
    NodeSides mNode;
    Vector<int32> mCorners;
    Vector<int32> mNeighbours;
    Vector<uint32> mSidesNearby;
};
} // namespace KORV::NavMesh
