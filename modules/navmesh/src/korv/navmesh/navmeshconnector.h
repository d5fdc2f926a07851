#pragma once

#include "korv/common/container/segmentvector.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/rules.h"
#include "korv/navmesh/runcontrol.h"

#include <unordered_map>

namespace KORV::NavMesh
{
/// Links the open sides of all nodes to sides that run along them in the ground plane, on the same level or within the
/// reach of jump and fall. Sides that are only partly met are split. Runs on one thread.
class NavMeshConnector : public Common::Memory::MemoryManaged
{
public:
    class Grid;

    /// One open side in the grid, shared by the cells that the side crosses.
    struct GridEdge
    {
        int32 mNode = -1;
        int32 mSide = -1;
        float mHeight = 0.0f; ///< vertical coordinate of the side's first vertex
        int32 mRefCount = 0;  ///< cells that list the record
        uint32 mVisited = 0;  ///< the last findCandidates that met it
        Vec2<float> mEnds[2]; ///< in the ground plane

        bool isRemoved() const { return mNode < 0; }
    };

    using CandidateList = Vector<GridEdge*>;

    /// An upright rectangle in the ground plane.
    struct Box
    {
        Vec2<float> mMin;
        Vec2<float> mMax;

        /// Whether the box of a segment touches this one; true as well where an end is not a number.
        bool meets(const Vec2<float>& a, const Vec2<float>& b) const
        {
            return !((a.mX > mMax.mX && b.mX > mMax.mX) || (a.mX < mMin.mX && b.mX < mMin.mX) ||
                     (a.mY > mMax.mY && b.mY > mMax.mY) || (a.mY < mMin.mY && b.mY < mMin.mY));
        }
    };

    /// @param overlapTolerance  length that two sides must share at least. [world units, > 0]
    /// @param distanceTolerance  distance in the ground plane at which sides still touch. [world units]
    NavMeshConnector(float overlapTolerance, float distanceTolerance, Rules rules = Rules::SPECIFIED);
    ~NavMeshConnector() override;

    /// Sets the neighbours of open sides (entry -1), inserts vertices where sides are split. A link is one-way where
    /// only the way down or only the way up is within reach.
    /// @param maxJumpHeight, maxFallHeight  the largest of all characters. [world units]
    /// @param axisValue  +1 when larger vertical coordinates are higher, else -1.
    /// @param vertComp  vertical component of a position, 0 to 2.
    /// Throws what the run control throws, and InvalidStateException when vertex ids run out. The mesh is then linked
    /// in part, but consistent.
    /// Cost: near linear in the sides, as long as they are of like length.
    void buildConnections(NavMeshContainer& container, float maxJumpHeight, float maxFallHeight, float axisValue,
                          int32 vertComp, const RunControl& control);

private:
    struct Side;
    class Run;
    enum class Decision
    {
        NEXT_CANDIDATE,
        STOP
    };

    void insertOpenSides(const RunControl& control);
    void connectNodes(const RunControl& control);
    void connectNode(int32 node);
    void queueOpenSides();
    void connectSide(uint64 edgeID);
    bool makeSide(Side& side, uint32 edge) const;
    Decision examineCandidate(const Side& side, const GridEdge& candidate);
    bool touches(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const;
    bool runsAlong(const Side& side, const Vec2<float>& p0, const Vec2<float>& p1) const;
    bool isWithinReach(float height) const;
    Decision link(const Side& side, int32 neighbour, float t0, float t1);
    Decision splitSide(const Side& side, const float* cuts, uint32 numCuts);
    bool isShorter(const Side& side, const Vec3<float>* corners, uint32 numPieces) const;

    NavMeshContainer::NavNode& getNode() { return mNavMesh->mNodes[static_cast<size_t>(mNode)]; }
    const NavMeshContainer::NavNode& getNode() const { return mNavMesh->mNodes[static_cast<size_t>(mNode)]; }
    float getHeight(const Vec3<float>& vertex) const;

    Grid* mGrid = nullptr;
    float mOverlapTolerance;
    float mDistanceTolerance;
    Rules mRules;

    // The run in progress. The grid of mGrid exists only then.
    NavMeshContainer* mNavMesh = nullptr;
    float mMaxJumpHeight = 0.0f;
    float mMaxFallHeight = 0.0f;
    float mAxisValue = 1.0f;

    // The node in progress. The queue's front is at its back; its entries miss the sides that splitting has added.
    int32 mNode = -1;
    float mNodeHeight = 0.0f;
    int64 mOffset = 0;
    Vector<int64> mSideQueue;
    Vector<int32> mKeptSides;
    CandidateList mCandidates;
};

/// Finds the open sides near a side: a grid of square cells over the ground plane, each with the records of the sides
/// that cross it, in the order inserted. A huge grid takes memory only for the cells that are used.
class NavMeshConnector::Grid : public Common::Memory::MemoryManaged
{
public:
    /// Sets the cells up for the open sides of a mesh, which must outlive the grid; registers none yet.
    Grid(const NavMeshContainer& navMesh, int32 vertComp);
    ~Grid() override;

    /// False when there is no side that could be registered.
    bool isUsable() const { return mCellSize > 0.0f; }

    /// Registers a side. One with an invalid corner, or without a finite length above 0, can't be linked and is
    /// ignored, by the other operations too.
    void insertEdge(int32 node, int32 side);
    /// Takes back what insertEdge has registered; the first corner must be the same as then. The cells forget the
    /// record when they are next looked at.
    void removeEdge(int32 node, int32 side);
    /// Appends the sides in the cells of a side that lie within a range of heights, each once, in the order met.
    /// @param box  null, or where they must lie at least in part.
    void findCandidates(CandidateList& candidates, int32 node, int32 side, float range, const Box* box = nullptr);

    /// A position in the ground plane.
    Vec2<float> getPosition(const Vec3<float>& vertex) const { return {vertex[mHorizComp[0]], vertex[mHorizComp[1]]}; }
    /// The ends of a side in the ground plane; false when the side or a corner does not exist.
    bool getEnds(Vec2<float>& a, Vec2<float>& b, const NavMeshContainer::NavNode& node, size_t side) const;

    float mCellSize = -1.0f;
    Vec2<float> mOrigin;
    int32 mVertComp;
    int32 mHorizComp[2];
    int32 mGridX = 0;
    int32 mGridY = 0;

private:
    static constexpr uint32 NONE = 0xFFFFFFFF;

    /// Where a segment's box lies about a cell, in steps too coarse to be told apart by more than the box itself: of
    /// two coordinates in order, the steps are in order, too.
    struct CoarseBox
    {
        uint8 mMinX = 0;
        uint8 mMinY = 0;
        uint8 mMaxX = 255;
        uint8 mMaxY = 255;

        bool meets(const CoarseBox& other) const
        {
            return mMinX <= other.mMaxX && other.mMinX <= mMaxX && mMinY <= other.mMaxY && other.mMinY <= mMaxY;
        }
    };
    struct Entry
    {
        uint32 mEdge = NONE;
        CoarseBox mBox;
    };
    /// A cache line of a cell's list.
    struct Chunk
    {
        static constexpr uint8 SIZE = 7;

        uint32 mNext = NONE;
        uint8 mBegin = 0;
        uint8 mEnd = 0;
        Entry mEntries[SIZE];
    };
    struct Cell
    {
        uint32 mFirst = NONE;
        uint32 mLast = NONE;
    };
    using CellTable = std::unordered_map<uint64, Cell, std::hash<uint64>, std::equal_to<uint64>,
                                         Common::Memory::STLAllocator<std::pair<const uint64, Cell>>>;
    struct Position
    {
        int32 mX;
        int32 mY;
    };
    class CellWalk;

    void measure();
    float averageOpenLength(uint64& numOpen) const;
    int32 countCells(float extent) const;
    static int32 toCell(float coordinate, int32 numCells);
    bool isInside(const Position& position) const;
    bool measureSide(Vec2<float>& a, Vec2<float>& b, GridEdge& edge, int32 node, int32 side) const;
    Vec2<float> toGridCoords(const Vec2<float>& position) const;
    uint64 getKey(const Position& position) const;
    Cell& getCell(const Position& position);
    Cell* findCell(const Position& position);
    uint32 takeEdge(const GridEdge& edge);
    static CoarseBox coarseBox(const Position& cell, const Vec2<float>& a, const Vec2<float>& b);
    void append(Cell& cell, const Entry& entry);
    uint32 takeChunk();
    void dropRemoved(Chunk& chunk);
    uint32 unlink(Cell& cell, uint32 previous, uint32 chunk);
    template <class Visitor>
    void visit(Cell* cell, const CoarseBox& box, Visitor&& visitor);

    const NavMeshContainer& mNavMesh;
    Vector<Cell> mCells;  ///< by number, y * mGridX + x; none where a table of all cells would be huge
    CellTable mUsedCells; ///< takes its place: short sides in a wide mesh
    Vector<Chunk> mChunks;
    uint32 mFreeChunks = NONE; ///< the first of those not in use, a list of their own
    Common::Container::SegmentVector<GridEdge, 512> mEdges;
    Vector<uint32> mFreeEdges;
    uint32 mNumSearches = 0;
};
} // namespace KORV::NavMesh
