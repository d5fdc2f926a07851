#pragma once

#include "korv/navmesh/types.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <utility>
#include <vector>

/// Outlines as the voxel stage delivers them: counter-clockwise seen from above (the axis is +z), closed implicitly,
/// holes bridged in along voxel centres.
namespace KORV::Testing::Outlines
{
using Outline = std::vector<NavMesh::Vec3<float>>;
using Field = std::vector<std::vector<char>>; ///< rows of cells, non-zero: walkable

inline float randomFloat(std::mt19937& random, float low, float high)
{
    return low + (high - low) * static_cast<float>(random() >> 8) / 16777216.0f;
}

inline Outline star(uint32 seed, int corners, float innerRadius = 1.0f, float outerRadius = 8.0f)
{
    std::mt19937 random(seed);
    Outline outline;
    for (int i = 0; i < corners; ++i)
    {
        const float angle =
            6.2831853f * (static_cast<float>(i) + randomFloat(random, -0.4f, 0.4f)) / static_cast<float>(corners);
        const float radius = randomFloat(random, innerRadius, outerRadius);
        outline.push_back({radius * std::cos(angle), radius * std::sin(angle), 0.0f});
    }
    return outline;
}

/// A corridor of width 1/2 that turns inwards at right angles.
inline Outline spiral(int turns)
{
    Outline outer;
    Outline inner;
    float low = 0.0f;
    float high = static_cast<float>(2 * turns + 2);
    for (int turn = 0; turn < turns; ++turn, low += 1.0f, high -= 1.0f)
    {
        outer.insert(outer.end(),
                     {{turn == 0 ? low : low - 1.0f, low, 0}, {high, low, 0}, {high, high, 0}, {low, high, 0}});
        inner.insert(inner.end(), {{turn == 0 ? low : low - 0.5f, low + 0.5f, 0},
                                   {high - 0.5f, low + 0.5f, 0},
                                   {high - 0.5f, high - 0.5f, 0},
                                   {low + 0.5f, high - 0.5f, 0}});
    }
    outer.push_back({low - 1.0f, low, 0});
    inner.push_back({low - 0.5f, low, 0});
    outer.insert(outer.end(), inner.rbegin(), inner.rend());
    return outer;
}

/// The border of a walkable field, one closed outline with its holes bridged in; the largest connected part is taken.
class FieldTracer
{
public:
    explicit FieldTracer(const Field& field, float cube = 1.0f)
        : mField(field), mCube(cube), mHeight(static_cast<int>(field.size())), mWidth(static_cast<int>(field[0].size()))
    {
        keepLargestPart();
    }

    /// Corner points in walking order, straight ones included.
    Outline trace()
    {
        for (int y = 0; y < mHeight; ++y)
            for (int x = 0; x < mWidth; ++x)
                for (int side = 0; side < 4; ++side)
                    if (isBorder(x, y, side) && !mLoopOf.count({x, y, side}))
                        traceLoop({x, y, side});
        for (size_t loop = 1; loop < mLoops.size(); ++loop)
            findBridge(loop);
        mOutline.clear();
        emitLoop(0, 0);
        return removeStraight(mOutline);
    }

    /// Twice the walkable area in quarter cells, to be compared exactly.
    int numCells() const
    {
        int cells = 0;
        for (const auto& row : mField)
            cells += static_cast<int>(std::count_if(row.begin(), row.end(), [](char cell) { return cell != 0; }));
        return cells;
    }

private:
    using Side = std::array<int, 3>; // x, y, direction
    static constexpr int DX[4] = {0, 1, 0, -1};
    static constexpr int DY[4] = {-1, 0, 1, 0};

    bool isWalkable(int x, int y) const
    {
        return x >= 0 && y >= 0 && x < mWidth && y < mHeight &&
               mField[static_cast<size_t>(y)][static_cast<size_t>(x)] != 0;
    }
    bool isBorder(int x, int y, int side) const { return isWalkable(x, y) && !isWalkable(x + DX[side], y + DY[side]); }

    void keepLargestPart()
    {
        Field part(mField.size(), std::vector<char>(mField[0].size(), 0));
        std::vector<std::pair<int, int>> largest;
        for (int y = 0; y < mHeight; ++y)
            for (int x = 0; x < mWidth; ++x)
            {
                std::vector<std::pair<int, int>> cells;
                const auto visit = [&](int cx, int cy)
                {
                    if (!isWalkable(cx, cy) || part[static_cast<size_t>(cy)][static_cast<size_t>(cx)])
                        return;
                    part[static_cast<size_t>(cy)][static_cast<size_t>(cx)] = 1;
                    cells.push_back({cx, cy});
                };
                visit(x, y);
                for (size_t c = 0; c < cells.size(); ++c)
                    for (int side = 0; side < 4; ++side)
                        visit(cells[c].first + DX[side], cells[c].second + DY[side]);
                if (cells.size() > largest.size())
                    largest.swap(cells);
            }
        for (auto& row : mField)
            std::fill(row.begin(), row.end(), char(0));
        for (const auto& [x, y] : largest)
            mField[static_cast<size_t>(y)][static_cast<size_t>(x)] = 1;
    }

    void traceLoop(const Side& start)
    {
        std::vector<Side> loop;
        Side at = start;
        do
        {
            mLoopOf[at] = {mLoops.size(), loop.size()};
            loop.push_back(at);
            const int d = at[2];
            const int left = (d + 1) & 3;
            const int wx = at[0] + DX[left];
            const int wy = at[1] + DY[left];
            if (!isWalkable(wx, wy))
                at = {at[0], at[1], left};
            else if (isWalkable(wx + DX[d], wy + DY[d]))
                at = {wx + DX[d], wy + DY[d], (d + 3) & 3};
            else
                at = {wx, wy, d};
        } while (at != start);
        mLoops.push_back(std::move(loop));
    }

    /// From the lowest side of a hole straight down to the border below it.
    void findBridge(size_t hole)
    {
        const auto& sides = mLoops[hole];
        size_t lowest = sides.size();
        for (size_t s = 0; s < sides.size(); ++s)
            if (sides[s][2] == 2 && (lowest == sides.size() || sides[s][1] < sides[lowest][1]))
                lowest = s;
        const int x = sides[lowest][0];
        int y = sides[lowest][1];
        while (isWalkable(x, y - 1))
            --y;
        mBridges[{x, y, 0}].push_back({hole, lowest});
    }

    NavMesh::Vec3<float> centre(int x, int y) const
    {
        return {(static_cast<float>(x) + 0.5f) * mCube, (static_cast<float>(y) + 0.5f) * mCube, 0.0f};
    }
    NavMesh::Vec3<float> corner(const Side& side) const
    {
        const int left = (side[2] + 1) & 3;
        const NavMesh::Vec3<float> c = centre(side[0], side[1]);
        return {c.mX + 0.5f * mCube * static_cast<float>(DX[side[2]] + DX[left]),
                c.mY + 0.5f * mCube * static_cast<float>(DY[side[2]] + DY[left]), 0.0f};
    }

    void emitLoop(size_t loop, size_t first)
    {
        for (size_t s = 0; s < mLoops[loop].size(); ++s)
        {
            const Side side = mLoops[loop][(first + s) % mLoops[loop].size()];
            mOutline.push_back(corner(side));
            const auto bridge = mBridges.find(side);
            if (bridge == mBridges.end())
                continue;
            for (const auto& [hole, start] : bridge->second)
            {
                const Side far = mLoops[hole][start];
                for (int y = side[1]; y <= far[1]; ++y)
                    mOutline.push_back(centre(side[0], y));
                mOutline.push_back(corner(far));
                emitLoop(hole, (start + 1) % mLoops[hole].size());
                for (int y = far[1]; y >= side[1]; --y)
                    mOutline.push_back(centre(side[0], y));
                mOutline.push_back(corner(side));
            }
        }
    }

    static Outline removeStraight(const Outline& outline)
    {
        Outline result;
        const size_t n = outline.size();
        for (size_t i = 0; i < n; ++i)
        {
            const auto a = result.empty() ? outline[n - 1] - outline[i] : result.back() - outline[i];
            const auto b = outline[(i + 1) % n] - outline[i];
            if (!(std::fabs(a.mX * b.mY - a.mY * b.mX) < 1e-6f && dot(a, b) < 0.0f))
                result.push_back(outline[i]);
        }
        return result;
    }

    Field mField;
    float mCube;
    int mHeight;
    int mWidth;
    std::vector<std::vector<Side>> mLoops;
    std::map<Side, std::pair<size_t, size_t>> mLoopOf;
    std::map<Side, std::vector<std::pair<size_t, size_t>>> mBridges;
    Outline mOutline;
};

inline Field emptyField(int width, int height)
{
    return Field(static_cast<size_t>(height), std::vector<char>(static_cast<size_t>(width), 1));
}

/// A field with single cells knocked out.
inline Field noise(uint32 seed, int width, int height, float blocked)
{
    std::mt19937 random(seed);
    Field field = emptyField(width, height);
    for (auto& row : field)
        for (char& cell : row)
            cell = randomFloat(random, 0.0f, 1.0f) >= blocked;
    return field;
}

/// A rectangle of rooms: whole rectangles knocked out, so that walls are long and lie on common grid lines.
inline Field rooms(uint32 seed, int width, int height, int walls)
{
    std::mt19937 random(seed);
    Field field = emptyField(width, height);
    for (int wall = 0; wall < walls; ++wall)
    {
        const int x = static_cast<int>(random() % static_cast<uint32>(width));
        const int y = static_cast<int>(random() % static_cast<uint32>(height));
        const bool wide = (random() & 1) != 0;
        const int length = 1 + static_cast<int>(random() % static_cast<uint32>(std::max(width, height) / 2));
        for (int l = 0; l < length; ++l)
        {
            const int cx = std::min(width - 1, wide ? x + l : x);
            const int cy = std::min(height - 1, wide ? y : y + l);
            field[static_cast<size_t>(cy)][static_cast<size_t>(cx)] = 0;
        }
    }
    return field;
}

/// A hall with rows of square pillars, each turned by an angle of its own.
inline Field pillarHall(uint32 seed, int pillarsAcross, int spacing, float halfEdge)
{
    std::mt19937 random(seed);
    const int size = pillarsAcross * spacing;
    Field field = emptyField(size, size);
    for (int py = 0; py < pillarsAcross; ++py)
        for (int px = 0; px < pillarsAcross; ++px)
        {
            const float angle = randomFloat(random, 0.0f, 1.5707963f);
            const float cx = (static_cast<float>(px) + 0.5f) * static_cast<float>(spacing);
            const float cy = (static_cast<float>(py) + 0.5f) * static_cast<float>(spacing);
            for (int y = py * spacing; y < (py + 1) * spacing; ++y)
                for (int x = px * spacing; x < (px + 1) * spacing; ++x)
                {
                    const float dx = static_cast<float>(x) + 0.5f - cx;
                    const float dy = static_cast<float>(y) + 0.5f - cy;
                    const float u = std::fabs(dx * std::cos(angle) + dy * std::sin(angle));
                    const float v = std::fabs(dy * std::cos(angle) - dx * std::sin(angle));
                    if (std::max(u, v) < halfEdge)
                        field[static_cast<size_t>(y)][static_cast<size_t>(x)] = 0;
                }
        }
    return field;
}

/// Teeth of different lengths on a common spine.
inline Field comb(uint32 seed, int teeth, int length)
{
    std::mt19937 random(seed);
    Field field(static_cast<size_t>(length) + 2, std::vector<char>(2 * static_cast<size_t>(teeth) + 1, 0));
    for (char& cell : field[0])
        cell = 1;
    for (int tooth = 0; tooth <= teeth; ++tooth)
    {
        const int reach = 1 + static_cast<int>(random() % static_cast<uint32>(length));
        for (int y = 1; y <= reach; ++y)
            field[static_cast<size_t>(y)][static_cast<size_t>(2 * tooth)] = 1;
    }
    return field;
}
} // namespace KORV::Testing::Outlines
