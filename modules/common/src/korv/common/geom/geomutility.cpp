#include "korv/common/geom/geomutility.h"

#include "korv/common/debug/assert.h"

#include <algorithm>

namespace KORV::Common::Geom
{
namespace
{
/// A closed outline whose corners can be unlinked. Corners keep their index.
class CornerRing
{
public:
    using Corners = Container::Vector<Vec3<float>>;

    explicit CornerRing(const Corners& corners)
        : mCorners(corners), mNext(corners.size(), corners.get_allocator()),
          mPrevious(corners.size(), corners.get_allocator()), mSize(corners.size())
    {
        for (size_t i = 0; i < mSize; ++i)
        {
            mNext[i] = (i + 1) % mSize;
            mPrevious[i] = (i + mSize - 1) % mSize;
        }
    }

    size_t size() const { return mSize; }
    size_t first() const { return mFirst; }
    size_t next(size_t corner) const { return mNext[corner]; }
    size_t previous(size_t corner) const { return mPrevious[corner]; }

    /// Cosine of the angle between the sides that meet at a corner: -1 where the outline goes straight on.
    float getCosine(size_t corner) const
    {
        const Vec3<float> a = normalised(mCorners[mPrevious[corner]] - mCorners[corner]);
        const Vec3<float> b = normalised(mCorners[mNext[corner]] - mCorners[corner]);
        return dot(a, b);
    }
    /// Takes a corner out; the ring's first corner hands that place to the one before it.
    void remove(size_t corner)
    {
        if (corner == mFirst)
            mFirst = mPrevious[corner];
        mNext[mPrevious[corner]] = mNext[corner];
        mPrevious[mNext[corner]] = mPrevious[corner];
        --mSize;
    }
    void clear() { mSize = 0; }

private:
    const Corners& mCorners;
    Container::Vector<size_t> mNext;
    Container::Vector<size_t> mPrevious;
    size_t mSize;
    size_t mFirst = 0;
};

/// Takes the straight corners out of a ring.
void removeStraightCorners(CornerRing& ring, float threshold)
{
    constexpr size_t MIN_CORNERS = 4; // with fewer, one corner less would leave no area
    size_t start = ring.first();
    size_t corner = start;
    do
    {
        const size_t next = ring.next(corner);
        if (!(ring.getCosine(corner) > threshold))
        {
            if (ring.size() < MIN_CORNERS)
            {
                ring.clear();
                return;
            }
            if (corner == start) // only in the first round: the walk must end at a corner that is still there
                start = ring.previous(corner);
            ring.remove(corner);
        }
        corner = next;
    } while (corner != start);

    // The corner where the walk ended has got other neighbours since, or has not been looked at yet.
    if (ring.getCosine(corner) > threshold)
        return;
    if (ring.size() < MIN_CORNERS)
        ring.clear();
    else
        ring.remove(corner);
}

// The steps of the separating-axis test. All coordinates are relative to the cube's centre.

/// Whether the axis on which the triangle covers [p, q] separates it from a cube that covers [-radius, radius].
bool separates(float p, float q, float radius)
{
    const float low = p < q ? p : q;
    const float high = p < q ? q : p;
    return low > radius || high < -radius;
}

/// The three axes made of an edge and the coordinate axes. The edge's ends project to the same place on each, so two
/// corners, p and q, stand for all three; the paper takes another pair for the z axis.
bool edgeSeparates(const Vec3<float>& edge, const Vec3<float>& p, const Vec3<float>& q, const Vec3<float>& pForZ,
                   const Vec3<float>& qForZ, float half)
{
    const float x = std::fabs(edge.mX);
    const float y = std::fabs(edge.mY);
    const float z = std::fabs(edge.mZ);
    return separates(edge.mZ * p.mY - edge.mY * p.mZ, edge.mZ * q.mY - edge.mY * q.mZ, z * half + y * half) ||
           separates(-edge.mZ * p.mX + edge.mX * p.mZ, -edge.mZ * q.mX + edge.mX * q.mZ, z * half + x * half) ||
           separates(edge.mY * pForZ.mX - edge.mX * pForZ.mY, edge.mY * qForZ.mX - edge.mX * qForZ.mY,
                     y * half + x * half);
}

bool extentSeparates(float a, float b, float c, float half)
{
    return std::min(std::min(a, b), c) > half || std::max(std::max(a, b), c) < -half;
}

/// Tests the two corners of the cube that lie furthest along the normal, against it and with it.
bool planeSeparates(const Vec3<float>& normal, const Vec3<float>& corner, float half)
{
    Vec3<float> low;
    Vec3<float> high;
    for (int i = 0; i < 3; ++i)
    {
        const float reach = normal[i] > 0.0f ? half : -half;
        low[i] = -reach - corner[i];
        high[i] = reach - corner[i];
    }
    if (dot(normal, low) > 0.0f)
        return true;
    return !(dot(normal, high) >= 0.0f);
}
} // namespace

void computePlaneBasis(Vec3<float>& xAxis, Vec3<float>& yAxis, const Vec3<float>& normal)
{
    int index = 0;
    float maxVal = -1.0f;
    for (int i = 0; i < 3; ++i)
    {
        if (std::fabs(normal[i]) > maxVal)
        {
            index = i;
            maxVal = std::fabs(normal[i]);
        }
    }
    [[maybe_unused]] const bool hasLength = KORV_BARE_ASSERT(maxVal > 0, "maxVal > 0");

    Vec3<float> axis;
    axis[(index + 1) % 3] = 1.0f;
    const Vec3<float> up = normal; // the caller may pass one vector twice
    yAxis = cross(up, axis);
    xAxis = cross(up, yAxis);
    xAxis.normalise();
    yAxis.normalise();
}

void RemoveCollinearPoints(Container::Vector<Vec3<float>>& outline, float angle)
{
    if (!KORV_BARE_ASSERT(outline.size() >= 3, "polygon.size() >= 3"))
        return;
    CornerRing ring(outline);
    removeStraightCorners(ring, std::cos(3.1415927f - angle));

    Container::Vector<Vec3<float>> kept(outline.get_allocator());
    kept.reserve(ring.size());
    size_t corner = ring.first();
    for (size_t i = 0; i < ring.size(); ++i)
    {
        kept.push_back(outline[corner]);
        corner = ring.next(corner);
    }
    outline.swap(kept);
}

bool TriangleBoxOverlap(const Vec3<float>& v0, const Vec3<float>& v1, const Vec3<float>& v2, const Vec3<float>& centre,
                        float edgeLength)
{
    const float half = edgeLength * 0.5f;
    const Vec3<float> a = v0 - centre;
    const Vec3<float> b = v1 - centre;
    const Vec3<float> c = v2 - centre;
    const Vec3<float> ab = b - a;
    const Vec3<float> bc = c - b;
    const Vec3<float> ca = a - c;
    // The pairs of corners are those of the paper: others can differ in the last bit.
    if (edgeSeparates(ab, a, c, b, c, half) || edgeSeparates(bc, a, c, a, b, half) ||
        edgeSeparates(ca, a, b, b, c, half))
        return false;
    if (extentSeparates(a.mX, b.mX, c.mX, half) || extentSeparates(a.mY, b.mY, c.mY, half) ||
        extentSeparates(a.mZ, b.mZ, c.mZ, half))
        return false;
    return !planeSeparates(cross(ab, bc), a, half);
}

float PointSegmentDistance(const Vec2<float>& a, const Vec2<float>& b, const Vec2<float>& point)
{
    const Vec2<float> edge = b - a;
    const float position = dot(edge, point - a) / dot(edge, edge);
    if (position >= 0.0f && position <= 1.0f)
        return std::fabs(cross(edge, a - point)) / edge.getLength();
    if (position < 0.0f)
        return (point - a).getLength();
    return (point - b).getLength();
}
} // namespace KORV::Common::Geom
