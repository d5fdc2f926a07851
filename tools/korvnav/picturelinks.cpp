#include "picturelinks.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace KORV::Tool
{
namespace
{
// A slope is a series of steps of one cube; it gets fewer arrows than jumps do.
constexpr int STEP_SPACING = 3;

struct Candidate
{
    Link mLink;
    float mLength = 0.0f;  ///< of the side
    bool mHasBack = false; ///< there is a way back on the same floor
};

/// The ends of a link's side; false where the mesh is broken there.
bool sideOf(const MeshView& view, const Link& link, PlanPoint& a, PlanPoint& b)
{
    const auto& mesh = view.getMesh();
    const auto& polygon = mesh.mNodes[link.mNode].mPolygon;
    if (link.mSide >= polygon.size())
        return false;
    const uint32 first = polygon[link.mSide];
    const uint32 second = polygon[(link.mSide + 1) % polygon.size()];
    if (first >= mesh.mVertices.size() || second >= mesh.mVertices.size())
        return false;
    a = view.project(mesh.mVertices[first]);
    b = view.project(mesh.mVertices[second]);
    return true;
}

/// One candidate for every ordered pair of nodes: its longest side.
std::map<std::pair<uint32, uint32>, Candidate> longestSides(const MeshView& view, const std::vector<Link>& links)
{
    std::map<std::pair<uint32, uint32>, Candidate> longest;
    for (const Link& link : links)
    {
        PlanPoint a;
        PlanPoint b;
        if (link.mKind == LinkKind::Level || !sideOf(view, link, a, b))
            continue;
        const float length = std::hypot(b.mX - a.mX, b.mY - a.mY);
        Candidate& candidate = longest[{link.mNode, link.mNeighbour}];
        if (length >= candidate.mLength)
            candidate = {link, length, false};
    }
    return longest;
}

Arrow arrowFor(const MeshView& view, const Candidate& candidate, const std::vector<uint32>& floorOf)
{
    PlanPoint a;
    PlanPoint b;
    sideOf(view, candidate.mLink, a, b);
    Arrow arrow;
    arrow.mCrossing = (a + b) * 0.5f;
    arrow.mFloor = floorOf[candidate.mLink.mNode];
    PlanPoint centre;
    const std::vector<PlanPoint> polygon = view.corners(candidate.mLink.mNode);
    for (const PlanPoint& corner : polygon)
        centre = centre + corner * (1.0f / static_cast<float>(polygon.size()));
    const float length = std::max(candidate.mLength, 1e-12f);
    arrow.mOutX = (b.mY - a.mY) / length;
    arrow.mOutY = -(b.mX - a.mX) / length;
    const PlanPoint away = arrow.mCrossing - centre;
    if (away.mX * arrow.mOutX + away.mY * arrow.mOutY < 0.0f)
    {
        arrow.mOutX = -arrow.mOutX;
        arrow.mOutY = -arrow.mOutY;
    }
    const bool up = candidate.mLink.mKind == LinkKind::Up;
    arrow.mUp = up;
    arrow.mDown = !up;
    arrow.mBackDown = candidate.mHasBack && up;
    arrow.mBackUp = candidate.mHasBack && !up;
    return arrow;
}

/// Keeps arrows of one floor apart, by squares of the plane.
class Spacing
{
public:
    explicit Spacing(float size) : mSize(size) {}

    /// Whether no arrow has been taken within so many sizes of this one.
    bool isFree(const Arrow& arrow, int sizes) const
    {
        const auto [x, y] = squareOf(arrow);
        for (int dx = -sizes; dx <= sizes; ++dx)
        {
            for (int dy = -sizes; dy <= sizes; ++dy)
            {
                const auto near = mTaken.find({arrow.mFloor, x + dx, y + dy});
                if (near != mTaken.end() &&
                    std::hypot(near->second.mX - arrow.mCrossing.mX, near->second.mY - arrow.mCrossing.mY) <
                        mSize * static_cast<float>(sizes))
                    return false;
            }
        }
        return true;
    }
    void take(const Arrow& arrow)
    {
        const auto [x, y] = squareOf(arrow);
        mTaken[{arrow.mFloor, x, y}] = arrow.mCrossing;
    }

private:
    std::pair<int, int> squareOf(const Arrow& arrow) const
    {
        return {static_cast<int>(std::floor(arrow.mCrossing.mX / mSize)),
                static_cast<int>(std::floor(arrow.mCrossing.mY / mSize))};
    }

    float mSize;
    std::map<std::tuple<uint32, int, int>, PlanPoint> mTaken;
};
} // namespace

std::vector<Arrow> chooseArrows(const MeshView& view, const std::vector<Link>& links, const std::vector<Floor>& floors,
                                float spacing)
{
    std::vector<uint32> floorOf(view.getMesh().mNodes.size(), 0);
    for (uint32 floor = 0; floor < floors.size(); ++floor)
        for (const uint32 node : floors[floor].mNodes)
            floorOf[node] = floor;

    const auto longest = longestSides(view, links);
    std::vector<Candidate> candidates;
    for (const auto& [pair, candidate] : longest)
    {
        const auto back = longest.find({pair.second, pair.first});
        const bool hasBack = back != longest.end() && back->second.mLink.mKind != candidate.mLink.mKind &&
                             floorOf[pair.first] == floorOf[pair.second];
        if (hasBack && candidate.mLink.mKind == LinkKind::Down)
            continue; // drawn with the way up
        candidates.push_back(candidate);
        candidates.back().mHasBack = hasBack;
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& a, const Candidate& b)
              {
                  const float riseA = std::abs(a.mLink.mRise);
                  const float riseB = std::abs(b.mLink.mRise);
                  return riseA != riseB ? riseA > riseB
                                        : std::pair(a.mLink.mNode, a.mLink.mNeighbour) <
                                              std::pair(b.mLink.mNode, b.mLink.mNeighbour);
              });

    Spacing all(std::max(spacing, 1e-6f));
    Spacing steps(std::max(spacing, 1e-6f));
    std::vector<Arrow> arrows;
    for (const Candidate& candidate : candidates)
    {
        const Arrow arrow = arrowFor(view, candidate, floorOf);
        const bool step = std::abs(candidate.mLink.mRise) < 1.5f * view.getMesh().mCubeSize;
        if (step && !steps.isFree(arrow, STEP_SPACING))
            continue;
        if (!all.isFree(arrow, 1))
            continue;
        all.take(arrow);
        if (step)
            steps.take(arrow);
        arrows.push_back(arrow);
    }
    return arrows;
}
} // namespace KORV::Tool
