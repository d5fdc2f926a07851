// Sorts the nodes of a mesh into floors, so that each can be drawn without hiding another.
//
// Idea: nodes joined by level links form a plate (a floor, a terrace, a step). The plates are entered into a fine grid
// seen from above; where two meet in a cell, the upper one covers the lower. Taken from low to high, a plate goes one
// floor above the highest that it covers, so nothing on a floor lies over anything else on it. A staircase or a slope
// covers nothing but what is under it and so stays on the floor where it stands.
//
// Numbers: GRID cells along the longer side see what a picture can show. Plates that meet in less than two squares of a
// cube, or in a hundredth of the smaller, only touch at their edges.
//
// Cost: the covered cells, sorted.

#include "picturelayout.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>

namespace KORV::Tool
{
namespace
{
constexpr float GRID = 1024.0f;

struct Box
{
    PlanPoint mMinimum;
    PlanPoint mMaximum;
};

Box boxOf(const MeshView& view)
{
    constexpr float LARGEST = std::numeric_limits<float>::max();
    Box box{{LARGEST, LARGEST, LARGEST}, {-LARGEST, -LARGEST, -LARGEST}};
    bool any = false;
    for (uint32 node = 0; node < view.getMesh().mNodes.size(); ++node)
    {
        for (const PlanPoint& corner : view.corners(node))
        {
            any = true;
            for (int axis = 0; axis < 3; ++axis)
            {
                box.mMinimum[axis] = std::min(box.mMinimum[axis], corner[axis]);
                box.mMaximum[axis] = std::max(box.mMaximum[axis], corner[axis]);
            }
        }
    }
    return any ? box : Box{};
}

float meanHeight(const std::vector<PlanPoint>& polygon)
{
    float sum = 0.0f;
    for (const PlanPoint& corner : polygon)
        sum += corner.mZ;
    return polygon.empty() ? 0.0f : sum / static_cast<float>(polygon.size());
}

/// Plates by union and find.
class Plates
{
public:
    explicit Plates(std::size_t nodes) : mParent(nodes) { std::iota(mParent.begin(), mParent.end(), 0u); }

    uint32 find(uint32 node)
    {
        while (mParent[node] != node)
            node = mParent[node] = mParent[mParent[node]];
        return node;
    }
    void join(uint32 a, uint32 b) { mParent[find(a)] = find(b); }

private:
    std::vector<uint32> mParent;
};

/// The part of a cell that a plate covers.
struct Sample
{
    uint32 mCell;
    uint32 mPlate;
    float mHeight;
};

/// Enters a convex polygon: every cell whose centre lies in it, row by row.
void enter(std::vector<Sample>& samples, const std::vector<PlanPoint>& polygon, uint32 plate, const Box& box,
           float cell)
{
    const float height = meanHeight(polygon);
    float low = std::numeric_limits<float>::max();
    float high = -low;
    for (const PlanPoint& corner : polygon)
    {
        low = std::min(low, corner.mY);
        high = std::max(high, corner.mY);
    }
    const auto indexOf = [&](float offset) { return static_cast<int>(std::ceil(offset / cell - 0.5f)); };
    for (int row = indexOf(low - box.mMinimum.mY); row < indexOf(high - box.mMinimum.mY); ++row)
    {
        const float y = box.mMinimum.mY + (static_cast<float>(row) + 0.5f) * cell;
        float left = std::numeric_limits<float>::max();
        float right = -left;
        for (std::size_t corner = 0; corner < polygon.size(); ++corner)
        {
            const PlanPoint& a = polygon[corner];
            const PlanPoint& b = polygon[(corner + 1) % polygon.size()];
            if ((a.mY <= y) == (b.mY <= y))
                continue;
            const float x = a.mX + (b.mX - a.mX) * ((y - a.mY) / (b.mY - a.mY));
            left = std::min(left, x);
            right = std::max(right, x);
        }
        if (left > right)
            continue;
        for (int column = indexOf(left - box.mMinimum.mX); column < indexOf(right - box.mMinimum.mX); ++column)
            samples.push_back({static_cast<uint32>(row) * 4096u + static_cast<uint32>(column), plate, height});
    }
}

/// Which plates cover which: pairs of a lower and an upper one with the number of cells they share.
std::map<std::pair<uint32, uint32>, uint32> findCovers(std::vector<Sample>& samples, float minimumRise)
{
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b)
              {
                  return a.mCell != b.mCell       ? a.mCell < b.mCell
                         : a.mHeight != b.mHeight ? a.mHeight < b.mHeight
                                                  : a.mPlate < b.mPlate;
              });
    std::map<std::pair<uint32, uint32>, uint32> covers;
    for (std::size_t index = 1; index < samples.size(); ++index)
    {
        const Sample& lower = samples[index - 1];
        const Sample& upper = samples[index];
        if (lower.mCell == upper.mCell && lower.mPlate != upper.mPlate && upper.mHeight - lower.mHeight > minimumRise)
            ++covers[{lower.mPlate, upper.mPlate}];
    }
    return covers;
}

/// The floor of every plate; nodes that are no plate's root have none.
std::vector<uint32> floorsOfPlates(const MeshView& view, Plates& plates)
{
    const auto count = static_cast<uint32>(view.getMesh().mNodes.size());
    const Box box = boxOf(view);
    const float cell = std::max(box.mMaximum.mX - box.mMinimum.mX, box.mMaximum.mY - box.mMinimum.mY) / GRID;
    const float cube = view.getMesh().mCubeSize;
    std::vector<Sample> samples;
    std::vector<double> area(count, 0.0);
    std::vector<double> weighted(count, 0.0);
    for (uint32 node = 0; node < count; ++node)
    {
        const std::vector<PlanPoint> polygon = view.corners(node);
        const uint32 plate = plates.find(node);
        const double nodeArea = view.area(node) + 1e-12;
        area[plate] += nodeArea;
        weighted[plate] += nodeArea * static_cast<double>(meanHeight(polygon));
        if (cell > 0.0f && std::isfinite(cell))
            enter(samples, polygon, plate, box, cell);
    }

    std::vector<std::vector<uint32>> under(count);
    const double cellArea = static_cast<double>(cell) * static_cast<double>(cell);
    for (const auto& [pair, cells] : findCovers(samples, 1.25f * cube))
    {
        const double shared = cells * cellArea;
        const double smaller = std::min(area[pair.first], area[pair.second]);
        if (shared > 0.01 * smaller &&
            shared > std::min(2.0 * static_cast<double>(cube) * static_cast<double>(cube), 0.5 * smaller))
            under[pair.second].push_back(pair.first);
    }

    std::vector<std::pair<double, uint32>> order; // mean height and plate
    for (uint32 plate = 0; plate < count; ++plate)
        if (plates.find(plate) == plate)
            order.emplace_back(weighted[plate] / area[plate], plate);
    std::sort(order.begin(), order.end());
    std::vector<uint32> floor(count, 0);
    for (const auto& [height, plate] : order)
        for (const uint32 lower : under[plate])
            floor[plate] = std::min(std::max(floor[plate], floor[lower] + 1), MAX_FLOORS - 1);
    return floor;
}
} // namespace

std::vector<Floor> sortIntoFloors(const MeshView& view, const std::vector<Link>& links)
{
    const auto count = static_cast<uint32>(view.getMesh().mNodes.size());
    Plates plates(count);
    for (const Link& link : links)
        if (link.mKind == LinkKind::Level)
            plates.join(link.mNode, link.mNeighbour);
    const std::vector<uint32> floorOf = floorsOfPlates(view, plates);

    std::vector<Floor> floors(1);
    for (uint32 node = 0; node < count; ++node)
    {
        const uint32 floor = floorOf[plates.find(node)];
        if (floor >= floors.size())
            floors.resize(floor + 1);
        floors[floor].mNodes.push_back(node);
    }
    std::erase_if(floors, [](const Floor& floor) { return floor.mNodes.empty(); });
    for (Floor& floor : floors)
    {
        std::vector<std::pair<float, uint32>> byHeight;
        for (const uint32 node : floor.mNodes)
            byHeight.emplace_back(meanHeight(view.corners(node)), node);
        std::sort(byHeight.begin(), byHeight.end());
        std::transform(byHeight.begin(), byHeight.end(), floor.mNodes.begin(),
                       [](const auto& entry) { return entry.second; });
        floor.mLowest = byHeight.front().first;
        floor.mHighest = byHeight.back().first;
    }
    return floors;
}

PanelLayout layOutPanels(const MeshView& view, std::size_t panels)
{
    constexpr float MARGIN = 0.02f;        // of the larger side
    constexpr float TOTAL_WIDTH = 1500.0f; // what all panels together may take [pixels]
    constexpr float TOTAL_HEIGHT = 1050.0f;
    const Box box = boxOf(view);
    PanelLayout layout;
    layout.mMinimum = box.mMinimum;
    layout.mMaximum = box.mMaximum;
    const float larger = std::max({box.mMaximum.mX - box.mMinimum.mX, box.mMaximum.mY - box.mMinimum.mY, 1e-6f});
    for (int axis = 0; axis < 2; ++axis)
    {
        layout.mMinimum[axis] -= MARGIN * larger;
        layout.mMaximum[axis] += MARGIN * larger;
    }
    const float width = layout.mMaximum.mX - layout.mMinimum.mX;
    const float height = layout.mMaximum.mY - layout.mMinimum.mY;
    layout.mScale = 0.0f;
    for (int columns = 1; columns <= static_cast<int>(panels);
         ++columns) // the number of columns that gives the largest panels
    {
        const int rows = (static_cast<int>(panels) + columns - 1) / columns;
        const float scale = std::min(TOTAL_WIDTH / (static_cast<float>(columns) * width),
                                     TOTAL_HEIGHT / (static_cast<float>(rows) * height));
        if (scale <= layout.mScale)
            continue;
        layout.mScale = scale;
        layout.mColumns = columns;
    }
    layout.mWidth = width * layout.mScale;
    layout.mHeight = height * layout.mScale;
    return layout;
}
} // namespace KORV::Tool
