#include "korv/navmesh/pieces/edgeboxes.h"

#include "korv/common/geom/intersect/lineintersect.h"
#include "korv/navmesh/floatlanes.h"
#include "korv/navmesh/pieces/lanetriangle.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

// The nearest hit depends on the order of the edges: hits within a tolerance of the best one so far compete by their
// midpoints, but do not move the distance that later ones are compared with. So a ray gathers the hits close to the
// nearest one, and replays them in the order of the edges. A hit beyond a gap of more than the tolerance takes no part:
// it is thrown out by the first hit before the gap, or never let in.
//
// Edges lie in boxes of seven, these in groups of eight, and so on. A box is passed over when it lies beside the ray,
// behind it, or beyond the nearest hit so far. That must never lose a hit that the specified arithmetic reports, so
// boxes grow by what float arithmetic can be off: laterally by a share of the largest coordinate. Along the ray it can
// be off by much more, since the arithmetic divides by a sine that may be as small as 1e-4: there the error grows with
// the length of the edges and with the distance.
//
// The ray of before from the same corner is a good guess: its run of edges is looked at first, and bounds the rest.

namespace KORV::NavMesh
{
using Common::Geom::Intersect::LineRay;

namespace
{
constexpr float NO_HIT = std::numeric_limits<float>::max();
constexpr float TIE = 0.0001f;
/// Hits farther behind the nearest are not kept.
constexpr float MAX_CLUSTER = 100.0f * TIE;
/// Fewer hits than this within MAX_CLUSTER leave a gap of more than the tolerance.
constexpr size_t MAX_HITS = 48;
// LineRay: edges nearer to parallel don't meet, and the ends reach beyond.
constexpr float PARALLEL = 0.0001f;
constexpr float BEFORE_EDGE = -0.0001f;
constexpr float BEYOND_EDGE = 1.0001f;
/// How far they do, with room for rounding.
constexpr float END_SLACK = 0.0002f;
/// Lateral errors: about 2.4e-6 of the largest coordinate, of the box test and of LineRay together, and less than 1e-6
/// of the boxes themselves.
constexpr float NOISE = 6e-6f;
/// Errors along the ray, by unit of edge length and of distance: those of LineRay add up to 1.4e-2.
constexpr float GROWTH = 2e-2f;
/// From the centre of a box to the farthest point of its edges, and their length, in half extents.
constexpr float GROWTH_REACH = 6.0f;
constexpr float MAX_COORDINATE = 1e12f;

float smallest(FloatLanes lanes)
{
    return std::min(std::min(lanes[0], lanes[1]), std::min(lanes[2], lanes[3]));
}

float largest(FloatLanes lanes)
{
    return std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
}
} // namespace

struct EdgeBoxes::Ray
{
    Ray(const Vec2<float>& origin, const Vec2<float>& dir)
        : mDirX(sameLanes(dir.mX)), mDirY(sameLanes(dir.mY)), mOriginX(sameLanes(origin.mX)),
          mOriginY(sameLanes(origin.mY)), mOrigin(origin), mDir(dir)
    {
    }

    FloatLanes mDirX;
    FloatLanes mDirY;
    FloatLanes mOriginX;
    FloatLanes mOriginY;
    Vec2<float> mOrigin;
    Vec2<float> mDir;
};

/// A triangle of three corners, which runs clockwise, and its box.
struct EdgeBoxes::Region
{
    LaneTriangle mTriangle;
    Vec2<float> mCentre;
    Vec2<float> mHalf;
    int32 mCorners[3];
};

EdgeBoxes::BoxGroup::BoxGroup()
{
    std::fill_n(mX, FAN_OUT, 0.0f);
    std::fill_n(mY, FAN_OUT, 0.0f);
    std::fill_n(mHalfX, FAN_OUT, -NO_HIT / 4.0f); // no ray comes near
    std::fill_n(mHalfY, FAN_OUT, -NO_HIT / 4.0f);
    std::fill_n(mCertain, FAN_OUT, 0.0f);
    std::fill_n(mGrowth, FAN_OUT, 0.0f);
}

EdgeBoxes::EdgeBoxes(const Vector<Vec2<float>>& polygon, Common::Memory::Allocator* allocator)
    : mPolygon(polygon), mRuns(allocator), mGroups(allocator), mTopGroups(allocator), mRoots(allocator),
      mLastRun(allocator), mHits(allocator)
{
}

void EdgeBoxes::build()
{
    mN = static_cast<int32>(mPolygon.size());
    mBounded = measure();
    mFilled = false;
}

/// Makes the boxes, for the first that asks: many outlines do without.
void EdgeBoxes::fill()
{
    mFilled = true;
    fillRuns();
    if (!needsBoxes())
        return;
    fillGroups();
    mLastRun.resize(mPolygon.size());
    for (size_t corner = 0; corner < mLastRun.size(); ++corner)
        mLastRun[corner] = static_cast<uint32>(corner / NUM_EDGES);
}

bool EdgeBoxes::measure()
{
    float reach = 0.0f;
    for (const Vec2<float>& point : mPolygon)
    {
        const float farther = std::max(std::fabs(point.mX), std::fabs(point.mY));
        if (!(farther <= MAX_COORDINATE)) // nor one that is not a number
            return false;
        reach = std::max(reach, farther);
    }
    mNoise = NOISE * reach;
    return true;
}

/// The first corner follows the last one, and takes the places past the end.
void EdgeBoxes::fillRuns()
{
    const size_t n = mPolygon.size();
    mRuns.resize((n + NUM_EDGES - 1) / NUM_EDGES);
    for (size_t at = 0; at < mRuns.size(); ++at)
    {
        EdgeRun& run = mRuns[at];
        for (size_t place = 0; place < NUM_CORNERS; ++place)
        {
            const size_t corner = at * NUM_EDGES + place;
            const Vec2<float>& point = mPolygon[corner < n ? corner : 0];
            run.mX[place] = point.mX;
            run.mY[place] = point.mY;
        }
        run.mSlack = END_SLACK * findLongest(run) + mNoise;
    }
}

/// The most that an edge of a run is long, both axes added up.
float EdgeBoxes::findLongest(const EdgeRun& run)
{
    FloatLanes longest = sameLanes(0.0f);
    for (const size_t at : {size_t{0}, NUM_EDGES - NUM_LANES})
    {
        const FloatLanes x = loadLanes(run.mX + at + 1) - loadLanes(run.mX + at);
        const FloatLanes y = loadLanes(run.mY + at + 1) - loadLanes(run.mY + at);
        longest = largerLanes(longest, absoluteLanes(x) + absoluteLanes(y));
    }
    return largest(longest);
}

void EdgeBoxes::fillGroups()
{
    mGroups.assign((mRuns.size() + FAN_OUT - 1) / FAN_OUT, BoxGroup());
    mTopGroups.assign((mGroups.size() + FAN_OUT - 1) / FAN_OUT, BoxGroup());
    mRoots.assign((mTopGroups.size() + FAN_OUT - 1) / FAN_OUT, BoxGroup());
    Box top{};
    for (size_t group = 0; group < mGroups.size(); ++group)
    {
        const size_t first = group * FAN_OUT;
        Box whole{};
        for (size_t run = first; run < std::min(first + FAN_OUT, mRuns.size()); ++run)
        {
            const Box box = boxOfRun(mRuns[run]);
            putBox(mGroups[group], run - first, box);
            whole = run > first ? unite(whole, box) : box;
        }
        putBox(mTopGroups[group / FAN_OUT], group % FAN_OUT, whole);
        top = group % FAN_OUT > 0 ? unite(top, whole) : whole;
        const size_t place = group / FAN_OUT;
        putBox(mRoots[place / FAN_OUT], place % FAN_OUT, top);
    }
}

EdgeBoxes::Box EdgeBoxes::boxOfRun(const EdgeRun& run)
{
    const FloatLanes x[2] = {loadLanes(run.mX), loadLanes(run.mX + NUM_LANES)};
    const FloatLanes y[2] = {loadLanes(run.mY), loadLanes(run.mY + NUM_LANES)};
    return {smallest(smallerLanes(x[0], x[1])) - run.mSlack, smallest(smallerLanes(y[0], y[1])) - run.mSlack,
            largest(largerLanes(x[0], x[1])) + run.mSlack, largest(largerLanes(y[0], y[1])) + run.mSlack,
            findLongest(run)};
}

EdgeBoxes::Box EdgeBoxes::unite(const Box& a, const Box& b)
{
    return {std::min(a.mMinX, b.mMinX), std::min(a.mMinY, b.mMinY), std::max(a.mMaxX, b.mMaxX),
            std::max(a.mMaxY, b.mMaxY), std::max(a.mLongest, b.mLongest)};
}

void EdgeBoxes::putBox(BoxGroup& group, size_t place, const Box& box) const
{
    const float halfX = (box.mMaxX - box.mMinX) * 0.5f + mNoise;
    const float halfY = (box.mMaxY - box.mMinY) * 0.5f + mNoise;
    const float growth = GROWTH * box.mLongest; // by unit of distance
    group.mX[place] = (box.mMinX + box.mMaxX) * 0.5f;
    group.mY[place] = (box.mMinY + box.mMaxY) * 0.5f;
    group.mHalfX[place] = halfX;
    group.mHalfY[place] = halfY;
    group.mCertain[place] = std::max(1.0f - growth, 0.0f);
    group.mGrowth[place] = growth * GROWTH_REACH * (halfX + halfY);
}

float EdgeBoxes::squaredMidpointDistance(int32 edge, int32 from) const
{
    const Vec2<float> offset = (point(edge) + point(next(edge))) * 0.5f - point(from);
    return dot(offset, offset);
}

void EdgeBoxes::take(Nearest& nearest, const Hit& hit, int32 from) const
{
    if (hit.mDistance > nearest.mDistance + TIE || hit.mDistance <= TIE)
        return;
    if (hit.mDistance <= nearest.mDistance - TIE)
        nearest = {hit.mDistance, hit.mEdge};
    else if (hit.mDistance < nearest.mDistance + TIE &&
             squaredMidpointDistance(hit.mEdge, from) < squaredMidpointDistance(nearest.mEdge, from))
        nearest.mEdge = hit.mEdge;
}

int32 EdgeBoxes::findNearestEdgeOfAll(int32 from, const Vec2<float>& dir) const
{
    Nearest nearest{NO_HIT, -1};
    for (int32 edge = 0; edge < mN; ++edge)
    {
        float distance = 0.0f;
        if (cross(dir, point(next(edge)) - point(edge)) < 0.0f &&
            LineRay(distance, point(from), dir, point(edge), point(next(edge))))
            take(nearest, {edge, distance}, from);
    }
    return nearest.mEdge;
}

int32 EdgeBoxes::findNearestEdge(int32 from, const Vec2<float>& dir)
{
    if (!mBounded)
        return findNearestEdgeOfAll(from, dir);
    if (!mFilled)
        fill();
    const Ray ray(point(from), dir);
    mNearestHit = NO_HIT;
    mHits.clear();
    if (!needsBoxes())
    {
        for (size_t run = 0; run < mRuns.size(); ++run)
            meetRun(run, ray);
        return choose(from, dir);
    }
    mFirstRun = mLastRun[static_cast<size_t>(from)];
    meetRun(mFirstRun, ray);
    const auto visit = [&](size_t run)
    {
        if (run != mFirstRun)
            meetRun(run, ray);
    };
    visitRuns([&](const BoxGroup& group) { return meetGroup(group, ray); }, visit);
    const int32 edge = choose(from, dir);
    if (edge >= 0)
        mLastRun[static_cast<size_t>(from)] = static_cast<uint32>(edge) / static_cast<uint32>(NUM_EDGES);
    return edge;
}

int32 EdgeBoxes::findInside(int32 a, int32 b, int32 c, float depth)
{
    if (!mFilled)
        fill();
    const auto [lowX, highX] = std::minmax({point(a).mX, point(b).mX, point(c).mX});
    const auto [lowY, highY] = std::minmax({point(a).mY, point(b).mY, point(c).mY});
    const Region region{
        LaneTriangle(point(a), point(b), point(c), depth),
        {(lowX + highX) * 0.5f, (lowY + highY) * 0.5f},
        {(highX - lowX) * 0.5f + std::max(-depth, 0.0f), (highY - lowY) * 0.5f + std::max(-depth, 0.0f)},
        {a, b, c}};
    int32 inside = -1;
    const auto meet = [&](const BoxGroup& group) { return inside < 0 ? overlapGroup(group, region) : 0; };
    const auto visit = [&](size_t run) { inside = inside < 0 ? findInRun(run, region) : inside; };
    if (needsBoxes())
    {
        visitRuns(meet, visit);
        return inside;
    }
    for (size_t run = 0; run < mRuns.size(); ++run)
        visit(run);
    return inside;
}

/// A bit for each box that reaches into a region.
uint32 EdgeBoxes::overlapGroup(const BoxGroup& group, const Region& region)
{
    MaskLanes met[2];
    for (size_t half = 0; half < 2; ++half)
    {
        const size_t at = half * NUM_LANES;
        const FloatLanes x = absoluteLanes(loadLanes(group.mX + at) - region.mCentre.mX);
        const FloatLanes y = absoluteLanes(loadLanes(group.mY + at) - region.mCentre.mY);
        met[half] = (x <= loadLanes(group.mHalfX + at) + region.mHalf.mX) &
                    (y <= loadLanes(group.mHalfY + at) + region.mHalf.mY);
    }
    return gatherBits(met[0], met[1]);
}

int32 EdgeBoxes::findInRun(size_t run, const Region& region) const
{
    const EdgeRun& corners = mRuns[run];
    for (uint32 bits = region.mTriangle.findInside(corners.mX, corners.mY); bits != 0; bits &= bits - 1)
    {
        const int32 corner = static_cast<int32>(run * NUM_EDGES) + std::countr_zero(bits);
        if (corner < mN && std::find(region.mCorners, region.mCorners + 3, corner) == region.mCorners + 3)
            return corner;
    }
    return -1;
}

/// Visits the runs in boxes that are met. Boxes around a single one below are passed over.
/// @param meet  gives a bit for each box of a group.
template <class Meet, class Visit>
inline void EdgeBoxes::visitRuns(const Meet& meet, const Visit& visit) const
{
    if (mGroups.size() == 1)
        return visitRunsOfGroup(0, meet, visit);
    if (mTopGroups.size() == 1)
        return visitRunsOfTop(0, meet, visit);
    for (size_t root = 0; root < mRoots.size(); ++root)
    {
        for (uint32 tops = meet(mRoots[root]); tops != 0; tops &= tops - 1)
            visitRunsOfTop(root * FAN_OUT + static_cast<size_t>(std::countr_zero(tops)), meet, visit);
    }
}

template <class Meet, class Visit>
inline void EdgeBoxes::visitRunsOfTop(size_t top, const Meet& meet, const Visit& visit) const
{
    for (uint32 groups = meet(mTopGroups[top]); groups != 0; groups &= groups - 1)
        visitRunsOfGroup(top * FAN_OUT + static_cast<size_t>(std::countr_zero(groups)), meet, visit);
}

template <class Meet, class Visit>
inline void EdgeBoxes::visitRunsOfGroup(size_t group, const Meet& meet, const Visit& visit) const
{
    for (uint32 runs = meet(mGroups[group]); runs != 0; runs &= runs - 1)
        visit(group * FAN_OUT + static_cast<size_t>(std::countr_zero(runs)));
}

/// A bit for each box that the ray may meet edges in, up to the nearest hit.
inline uint32 EdgeBoxes::meetGroup(const BoxGroup& group, const Ray& ray) const
{
    const FloatLanes sizeX = absoluteLanes(ray.mDirX);
    const FloatLanes sizeY = absoluteLanes(ray.mDirY);
    const float bound = mNearestHit + MAX_CLUSTER;
    MaskLanes met[2];
    for (size_t half = 0; half < 2; ++half)
    {
        const size_t at = half * NUM_LANES;
        const FloatLanes x = loadLanes(group.mX + at) - ray.mOriginX;
        const FloatLanes y = loadLanes(group.mY + at) - ray.mOriginY;
        const FloatLanes halfX = loadLanes(group.mHalfX + at);
        const FloatLanes halfY = loadLanes(group.mHalfY + at);
        const FloatLanes along = (ray.mDirX * x + ray.mDirY * y) * loadLanes(group.mCertain + at);
        const FloatLanes lateral = ray.mDirX * y - ray.mDirY * x;
        const FloatLanes reach = sizeX * halfX + sizeY * halfY + loadLanes(group.mGrowth + at);
        met[half] = (absoluteLanes(lateral) <= sizeX * halfY + sizeY * halfX) & (along + reach >= 0.0f) &
                    (along - reach <= bound);
    }
    return gatherBits(met[0], met[1]);
}

/// Adds the hits of a run: of the edges that go from the left of the ray's line to its right, or come close to that.
inline void EdgeBoxes::meetRun(size_t run, const Ray& ray)
{
    const EdgeRun& edges = mRuns[run];
    MaskLanes left[2];
    MaskLanes right[2];
    for (size_t half = 0; half < 2; ++half)
    {
        const size_t at = half * NUM_LANES;
        const FloatLanes x = ray.mOriginX - loadLanes(edges.mX + at);
        const FloatLanes y = ray.mOriginY - loadLanes(edges.mY + at);
        const FloatLanes place = ray.mDirX * y - ray.mDirY * x;
        left[half] = place <= edges.mSlack;
        right[half] = place >= -edges.mSlack;
    }
    const uint32 passing = gatherBits(left[0], left[1]) & gatherBits(right[0], right[1]) >> 1;
    for (uint32 hits = passing; hits != 0; hits &= hits - 1)
        meetEdge(run, static_cast<size_t>(std::countr_zero(hits)), ray);
}

/// Adds the hit of an edge: the specified test, operation by operation, but what lies behind is sorted out before the
/// divisions, which take longer than all the rest.
inline void EdgeBoxes::meetEdge(size_t run, size_t place, const Ray& ray)
{
    const EdgeRun& edges = mRuns[run];
    const float x = ray.mOrigin.mX - edges.mX[place];
    const float y = ray.mOrigin.mY - edges.mY[place];
    const float edgeX = edges.mX[place + 1] - edges.mX[place];
    const float edgeY = edges.mY[place + 1] - edges.mY[place];
    const float denominator = edgeY * ray.mDir.mX - edgeX * ray.mDir.mY;
    const float distanceBy = edgeX * y - edgeY * x;
    if (!(denominator <= -PARALLEL && distanceBy < 0.0f))
        return;
    const float share = (ray.mDir.mX * y - ray.mDir.mY * x) / denominator;
    const float distance = distanceBy / denominator;
    if (!(share >= BEFORE_EDGE && share <= BEYOND_EDGE && distance > TIE && distance <= mNearestHit + MAX_CLUSTER))
        return;
    mHits.push_back({static_cast<int32>(run * NUM_EDGES + place), distance});
    mNearestHit = std::min(mNearestHit, distance);
}

int32 EdgeBoxes::choose(int32 from, const Vec2<float>& dir)
{
    if (mHits.size() <= 1)
        return mHits.empty() ? -1 : mHits[0].mEdge;
    const float bound = mNearestHit + MAX_CLUSTER;
    size_t kept = 0;
    for (const Hit& hit : mHits)
    {
        if (hit.mDistance <= bound)
            mHits[kept++] = hit;
    }
    if (kept >= MAX_HITS)
        return findNearestEdgeOfAll(from, dir);
    if (kept > 1)
        std::sort(mHits.begin(), mHits.begin() + static_cast<int64>(kept),
                  [](const Hit& a, const Hit& b) { return a.mEdge < b.mEdge; });
    Nearest nearest{NO_HIT, -1};
    for (size_t hit = 0; hit < kept; ++hit)
        take(nearest, mHits[hit], from);
    return nearest.mEdge;
}
} // namespace KORV::NavMesh
