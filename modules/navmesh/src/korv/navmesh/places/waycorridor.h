#pragma once

#include "korv/navmesh/navmeshway.h"
#include "korv/navmesh/places/linkgeometry.h"
#include "korv/navmesh/places/waydents.h"
#include "korv/navmesh/places/wayfunnel.h"

namespace KORV::NavMesh
{
/// The ground along a path as a corridor of the plane: the portals that a way has to cross, and the shortest line from
/// start to end across all of them.
///
/// The plane is computed in double, relative to the start, and folded open where the path turns back at a border.
class WayCorridor
{
public:
    using Place = Vec2<double>;

    /// What a portal is part of.
    enum class Part : uint8
    {
        OPENING,
        LEAVING,
        LANDING
    };

    /// A segment to cross. The first place is that of the left end, as seen by who crosses.
    struct Portal
    {
        Place mPlaces[2];
        uint32 mEnds[2];    ///< positions of the ends on the side left
        uint32 mFarEnds[2]; ///< and on that of arrival
        uint32 mChunk;      ///< of the path
        float mShare;       ///< where the way crosses, from the left to the right end; set by who follows the line
        uint8 mLeft;        ///< which of the ends is the left one
        bool mIsKept;       ///< the corridor keeps the positions; else they are vertices of the mesh
        NavMeshMove mMove;
        Part mPart;
        bool mIsFold;   ///< who crosses turns back: a bend, though the line runs straight on
        bool mHasPoint; ///< the way may have a point there: a jump, a drop or a bend
    };

    /// A corner that sticks into its node.
    struct Dent
    {
        Vec3<float> mPosition;
        int32 mNode = -1;
        uint32 mNumPortals = 0; ///< those before it
    };

    WayCorridor(const NavMeshContainer& mesh, Common::Memory::Allocator* allocator);

    /// Follows a path.
    /// @param crossings  one for each chunk, receive all but the places; null where nobody asks for them.
    /// @return false, after a report, when the path does not fit the mesh.
    bool follow(const Vec3<float>& start, const Vector<NavMeshPathChunk>& path, NavMeshCrossing* crossings);
    /// The line through the corridor followed last, to its end. Valid until the next one.
    const Vector<WayFunnel::Corner>& findLine(const Vec3<float>& end);

    // what lies along the corridor followed last

    /// Where the way crosses a portal, on the side left and on that of arrival.
    Vec3<float> getLeaving(const Portal& portal) const { return getPosition(portal, portal.mEnds); }
    Vec3<float> getLanding(const Portal& portal) const { return getPosition(portal, portal.mFarEnds); }
    Portal* getPortals() { return mPortals.data(); }
    int32 getLastNode() const { return mLastNode; }
    double getTolerance() const { return mTolerance; }
    /// How many portals the line has crossed when it gets to a corner.
    size_t getNumPortals(const WayFunnel::Corner& corner) const;
    /// The dent that a corner is, or null.
    const Dent* getDent(const WayFunnel::Corner& corner) const;
    /// Whether a corner is an end of the line.
    static bool isEnd(const WayFunnel::Corner& corner) { return corner.mSource == AT_END; }

    float mBodyRadius = 0.0f;
    float mStepHeight = -1.0f; ///< negative: one cube

private:
    static constexpr uint32 AT_END = 0xFFFFFFFF; ///< source of the ends of the line
    static constexpr uint32 IS_DENT = 0x80000000;
    static constexpr size_t BLOCK = 16;      ///< links that are looked up at once
    static constexpr size_t MAX_PORTALS = 2; ///< of a link
    static constexpr size_t MAX_KEPT = 4;    ///< for a link

    /// The part of a node's border by which it is entered.
    struct Entrance
    {
        uint32 mNumCorners = 0; ///< of the node
        uint32 mFirstSide = 0;
        uint32 mNumSides = 0;
    };

    void begin(const Vec3<float>& start, size_t numChunks);
    Place place(const Vec3<float>& point) const;
    void fold(const Vec3<float>& start, const Vec3<float>& end);
    void forgetEnds() { mLastEnds[0] = mLastEnds[1] = nullptr; }
    size_t lookUp(const LinkMeasure& measure, const NavMeshPathChunk* chunks, size_t numChunks, size_t numAhead);
    void fetchAhead(const NavMeshPathChunk* chunk, size_t numAhead) const;
    bool isNode(int32 id) const { return static_cast<uint32>(id) < mNumNodes; }
    NavMeshMove classify(float height) const;
    bool crossLink(const LinkMeasure& measure, LinkEnds& ends, const NavMeshPathChunk& chunk, uint32 index,
                   NavMeshCrossing* crossings);
    bool crossOther(const LinkMeasure& measure, const LinkEnds& ends, const NavMeshPathChunk& chunk, uint32 index,
                    NavMeshCrossing* crossings);
    void fillCrossing(NavMeshCrossing& crossing, const NavMeshPathChunk& chunk, const LinkEnds& ends, float height,
                      float width) const;
    void passNode(const NavMeshPathChunk& chunk, const Vec3<float>& start, const Vec3<float>& end);
    void addDents(int32 nodeID, uint32 exit);
    void addIfDent(WayFunnel::Border border, int32 nodeID, const NavMeshContainer::NavNode& node, size_t index);
    void addWhole(const LinkEnds& link, uint32 chunk);
    void addOpening(const LinkGeometry& link, uint32 chunk);
    void keepEnds(Portal& portal, const Vec3<float>* ends, const Vec3<float>* farEnds, float width);
    void keep(uint32* ends, const Vec3<float>& left, const Vec3<float>& right, float width);
    void addPortal(Portal& portal, const Vec3<float>* left, const Vec3<float>* right);
    template <WayFunnel::Border BORDER>
    void addEnd(const Vec3<float>* end, uint32 source);
    bool leadsBeyond(const LinkGeometry& link) const;
    void markBends(const Vector<WayFunnel::Corner>& line);
    void straighten(Vector<WayFunnel::Corner>& line) const;

    Vec3<float> getPosition(const Portal& portal, const uint32* ends) const
    {
        const Vec3<float>* const positions = portal.mIsKept ? mKept.data() : mVertices;
        return between(positions[ends[portal.mLeft]], positions[ends[1 - portal.mLeft]], portal.mShare);
    }

    const NavMeshContainer& mMesh;
    WayFunnel mFunnel;
    Vector<Portal> mPortals; ///< the first mNumPortals of them count
    uint32 mNumPortals = 0;
    Vector<Vec3<float>> mKept; ///< positions that are no corners of the mesh; the first mNumKept of them count
    uint32 mNumKept = 0;
    Vector<Dent> mDents;
    WayDents mDentedNodes;
    LinkEnds mLinks[BLOCK]; ///< those looked up last
    Entrance mEntrance;
    int32 mLastNode = -1; ///< where the links looked up lead
    const NavMeshContainer::NavNode* mNodes = nullptr;
    size_t mNumNodes = 0;
    const Vec3<float>* mVertices = nullptr;
    const Vec3<float>* mLastEnds[2] = {}; ///< on the two borders; null as soon as they don't count
    Place mLastPlaces[2];
    Vec3<double> mOrigin;
    Place mColumns[3]; ///< place of a step along each axis of the world, mirrored by each fold
    Place mShift;
    bool mIsMirrored = false;
    bool mTurnsBack = false; ///< the node is left through the side it was entered by
    float mCubeSize = 0.0f;
    float mMaxStep = 0.0f; ///< the largest difference of height that is walked
    double mTolerance = 0.0;
};
} // namespace KORV::NavMesh
