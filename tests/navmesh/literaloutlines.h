#pragma once

#include "korv/navmesh/surfaces/planedirections.h"

#include <deque>
#include <list>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace KORV::Testing
{
/// The straightforward way to outline one surface: links for labels and for bridges in the same four bits, each walk
/// taking the lowest, and a stack of open bridges. It fails where bridges share voxels; where it works it says what the
/// point sequence is. Points are in halves of a cube: the centre of voxel p lies at 2 p + 1.
class LiteralOutlines
{
public:
    using Position = NavMesh::Vec3<int32>;
    using Outline = std::vector<Position>;

    explicit LiteralOutlines(const NavMesh::PlaneDirections& directions) : mDirections(directions) {}

    /// Voxels are visited in the order added.
    /// @param neighbourBits  bit i: joined to the voxel on side i.
    void addVoxel(const Position& position, uint32 neighbourBits)
    {
        mVoxels.push_back({position, neighbourBits});
        mByPosition[key(position)] = &mVoxels.back();
    }

    void run()
    {
        for (Voxel& voxel : mVoxels)
            markBorder(voxel);
        findBridges();
        for (Voxel& voxel : mVoxels)
        {
            voxel.mTraced = 0;
            voxel.mEntered = false;
        }
        for (Voxel& voxel : mVoxels)
            traceOutline(voxel);
    }

    bool mFailed = false;
    std::vector<Outline> mOutlines;

private:
    struct Voxel
    {
        Position mPosition;
        uint32 mNeighbours;
        uint32 mLabel = NONE;
        uint32 mTraced = 0;
        uint32 mLinks = 0;
        bool mEntered = false;
        bool mBridge = false;
    };

    static constexpr uint32 NONE = 0xFFFFFF;
    static constexpr int MAX_STEPS = 100000;

    static std::tuple<int32, int32, int32> key(const Position& p) { return {p.mX, p.mY, p.mZ}; }
    static bool has(uint32 bits, uint32 i) { return ((bits >> i) & 1u) != 0; }
    static uint32 lowestClear(uint32 bits)
    {
        uint32 i = 0;
        while (i < 4 && has(bits, i))
            ++i;
        return i;
    }

    Voxel* step(const Voxel* voxel, uint32 side) const
    {
        return mByPosition.at(key(voxel->mPosition + mDirections.mSides[side]));
    }

    void joinLabels(uint32 a, uint32 b)
    {
        const uint32 from = mSets[b];
        for (uint32& set : mSets)
            set = set == from ? mSets[a] : set;
    }

    bool advance(Voxel*& voxel, uint32& side) const
    {
        const uint32 left = NavMesh::leftOf(side);
        if (!has(voxel->mNeighbours, left))
        {
            side = left;
            return !has(voxel->mTraced, left);
        }
        voxel = step(voxel, left);
        if (has(voxel->mNeighbours, side))
        {
            voxel = step(voxel, side);
            side = NavMesh::rightOf(side);
        }
        return !has(voxel->mTraced, side);
    }

    void markBorder(Voxel& start)
    {
        uint32 side = lowestClear(start.mNeighbours ^ start.mTraced);
        if (side == 4)
            return;
        const uint32 label = static_cast<uint32>(mSets.size());
        mSets.push_back(label);
        Voxel* voxel = &start;
        do
        {
            if (voxel->mLabel != NONE && mSets[voxel->mLabel] != mSets[label])
            {
                joinLabels(voxel->mLabel, label);
                voxel->mBridge = true;
            }
            if (voxel->mLabel == NONE)
                voxel->mLabel = label;
            voxel->mTraced |= 1u << side;
            mQueue.push_back(voxel);
        } while (advance(voxel, side));
    }

    void findBridges()
    {
        while (!mQueue.empty() && !mFailed)
        {
            Voxel* voxel = mQueue.front();
            mQueue.pop_front();
            for (uint32 i = 0; i < 4; ++i)
            {
                if (has(voxel->mNeighbours, i))
                    visit(voxel, i);
            }
        }
    }

    void visit(Voxel* voxel, uint32 side)
    {
        Voxel* neighbour = step(voxel, side);
        if (neighbour->mLabel == NONE)
        {
            neighbour->mLabel = voxel->mLabel;
            neighbour->mLinks |= 1u << NavMesh::oppositeOf(side);
            mQueue.push_back(neighbour);
        }
        else if (mSets[neighbour->mLabel] != mSets[voxel->mLabel])
        {
            voxel->mBridge = true;
            walkBack(voxel, side);
            voxel->mLinks |= 1u << side;
            walkBack(neighbour, NavMesh::oppositeOf(side));
            joinLabels(neighbour->mLabel, voxel->mLabel);
        }
    }

    void walkBack(Voxel* voxel, uint32 cameBy)
    {
        for (int steps = 0; voxel->mLinks != 0; ++steps)
        {
            if (steps > MAX_STEPS)
            {
                mFailed = true;
                return;
            }
            const uint32 k = lowestClear(~voxel->mLinks);
            voxel->mBridge = true;
            voxel->mLinks |= 1u << cameBy;
            cameBy = NavMesh::oppositeOf(k);
            voxel = step(voxel, k);
        }
        voxel->mLinks |= 1u << cameBy;
        voxel->mBridge = true;
    }

    Position centrePoint(const Voxel* voxel) const
    {
        return voxel->mPosition * 2 + Position(1, 1, 1) + mDirections.mUp;
    }

    Position corner(const Voxel* voxel, uint32 side) const
    {
        return centrePoint(voxel) + mDirections.mSides[side] + mDirections.mSides[NavMesh::leftOf(side)];
    }

    void traceOutline(Voxel& start)
    {
        uint32 side = lowestClear(start.mNeighbours ^ start.mTraced);
        if (side == 4 || mFailed)
            return;
        Outline& outline = mOutlines.emplace_back();
        std::vector<std::pair<Voxel*, uint32>> stack;
        Voxel* voxel = &start;
        do
        {
            outline.push_back(corner(voxel, side));
            voxel->mTraced |= 1u << side;
            if (voxel->mBridge)
                followBridge(outline, stack, voxel, side);
        } while (!mFailed && outline.size() < MAX_STEPS && advance(voxel, side));
        mFailed = mFailed || !stack.empty() || outline.size() >= MAX_STEPS;
    }

    void followBridge(Outline& outline, std::vector<std::pair<Voxel*, uint32>>& stack, Voxel*& voxel, uint32& side)
    {
        const bool wasEntered = voxel->mEntered;
        const Voxel* check = nullptr;
        if (!wasEntered)
        {
            stack.push_back({voxel, side});
        }
        else
        {
            if (stack.empty() || stack.back().first != voxel)
            {
                mFailed = true;
                return;
            }
            if (stack.back().second != side)
                return;
            stack.pop_back();
            if (stack.empty())
            {
                mFailed = true;
                return;
            }
            std::tie(check, side) = stack.back();
            stack.pop_back();
        }
        for (uint32 remaining = voxel->mLinks; outline.size() < MAX_STEPS;)
        {
            outline.push_back(centrePoint(voxel));
            const uint32 k = lowestClear(~remaining);
            if (k == 4)
                break;
            voxel = step(voxel, k);
            remaining = voxel->mLinks & ~(1u << NavMesh::oppositeOf(k));
        }
        voxel->mEntered = true;
        if (!wasEntered)
        {
            side = lowestClear(voxel->mNeighbours ^ voxel->mTraced);
            mFailed = mFailed || side == 4;
            stack.push_back({voxel, side});
        }
        else
        {
            mFailed = mFailed || voxel != check;
            voxel->mBridge = false;
        }
        if (!mFailed)
            outline.push_back(corner(voxel, side));
    }

    NavMesh::PlaneDirections mDirections;
    std::list<Voxel> mVoxels;
    std::map<std::tuple<int32, int32, int32>, Voxel*> mByPosition;
    std::vector<uint32> mSets;
    std::deque<Voxel*> mQueue;
};
} // namespace KORV::Testing
