#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Finds the outline edge that a ray from a corner meets first, through boxes around runs of edges.
/// One thread at a time.
class EdgeBoxes
{
public:
    /// @param polygon  is referred to; it may change between two calls of build.
    EdgeBoxes(const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator);

    /// Takes the outline as it is now, of three corners or more; it must not change until the last ray.
    void build();
    /// Whether no arithmetic on the outline can overflow; else there are no boxes.
    bool isBounded() const { return mBounded; }

    /// The edge that a ray from corner @p from meets first, of those that pass it from left to right; -1 for none.
    /// Edge k runs from corner k to k + 1. Of edges within 0.0001 of each other, taken in their order, the one whose
    /// midpoint is closest wins.
    /// @param dir  of unit length.
    /// Cost: a few operations for every 4096 edges, and the boxes along the ray.
    int32 findNearestEdge(int32 from, const Vec2<float>& dir);

    /// Another corner that lies in the triangle of three, which runs clockwise, by more than some depth; -1 for none.
    /// [units; negative: outside too]
    /// Cost: as for a short ray. There must be boxes.
    int32 findInside(int32 a, int32 b, int32 c, float depth);

    /// What findNearestEdge finds, by looking at every edge: what defines the result.
    int32 findNearestEdgeOfAll(int32 from, const Vec2<float>& dir) const;

private:
    static constexpr size_t FAN_OUT = 8;
    static constexpr size_t NUM_CORNERS = 8; // of a run
    static constexpr size_t NUM_EDGES = NUM_CORNERS - 1;
    /// Up to this many runs are all looked at by every ray.
    static constexpr size_t MAX_RUNS_WITHOUT_BOXES = 3;

    /// The corners of seven edges in a row; those past the end are the first corner.
    struct EdgeRun
    {
        float mX[NUM_CORNERS];
        float mY[NUM_CORNERS];
        float mSlack; // a ray as close to the end of an edge may be met
    };

    /// Boxes around eight runs of edges, or around eight of these groups; those past the end hold nothing.
    struct BoxGroup
    {
        BoxGroup();
        float mX[FAN_OUT]; // centre
        float mY[FAN_OUT];
        float mHalfX[FAN_OUT]; // half extents
        float mHalfY[FAN_OUT];
        float mCertain[FAN_OUT]; // share of a hit's distance that is
        float mGrowth[FAN_OUT];  // what it can be off beside
    };

    struct Box
    {
        float mMinX;
        float mMinY;
        float mMaxX;
        float mMaxY;
        float mLongest; // of the edges inside
    };

    struct Ray;
    struct Region;

    struct Hit
    {
        int32 mEdge;
        float mDistance;
    };

    /// The running choice among hits that arrive in the order of the edges.
    struct Nearest
    {
        float mDistance;
        int32 mEdge;
    };

    bool measure();
    void fill();
    void fillRuns();
    void fillGroups();
    static float findLongest(const EdgeRun& run);
    static Box boxOfRun(const EdgeRun& run);
    static Box unite(const Box& a, const Box& b);
    void putBox(BoxGroup& group, size_t place, const Box& box) const;
    bool needsBoxes() const { return mRuns.size() > MAX_RUNS_WITHOUT_BOXES; }
    uint32 meetGroup(const BoxGroup& group, const Ray& ray) const;
    static uint32 overlapGroup(const BoxGroup& group, const Region& region);
    int32 findInRun(size_t run, const Region& region) const;
    template <class Meet, class Visit>
    void visitRuns(const Meet& meet, const Visit& visit) const;
    template <class Meet, class Visit>
    void visitRunsOfTop(size_t top, const Meet& meet, const Visit& visit) const;
    template <class Meet, class Visit>
    void visitRunsOfGroup(size_t group, const Meet& meet, const Visit& visit) const;
    void meetRun(size_t run, const Ray& ray);
    void meetEdge(size_t run, size_t place, const Ray& ray);
    int32 choose(int32 from, const Vec2<float>& dir);
    void take(Nearest& nearest, const Hit& hit, int32 from) const;
    float squaredMidpointDistance(int32 edge, int32 from) const;
    int32 next(int32 corner) const { return corner + 1 < mN ? corner + 1 : 0; }
    int32 previous(int32 corner) const { return corner > 0 ? corner - 1 : mN - 1; }
    const Vec2<float>& point(int32 corner) const { return mPolygon[static_cast<size_t>(corner)]; }

    const Vector<Vec2<float>>& mPolygon;
    int32 mN = 0;
    float mNoise = 0.0f; // what float arithmetic can move a point of this outline by
    bool mFilled = false;
    bool mBounded = false; // else every edge is looked at
    Vector<EdgeRun> mRuns;
    Vector<BoxGroup> mGroups;    // around runs
    Vector<BoxGroup> mTopGroups; // around groups
    Vector<BoxGroup> mRoots;     // around top groups
    Vector<uint32> mLastRun;     // that the last ray from a corner ended in
    Vector<Hit> mHits;           // of the current ray
    float mNearestHit = 0.0f;
    size_t mFirstRun = 0; // the one that the current ray has looked at before all others
};
} // namespace KORV::NavMesh
