#pragma once

#include "korv/common/geom/intersect/lineintersect.h"
#include "korv/navmesh/types.h"

#include <deque>
#include <limits>
#include <utility>
#include <vector>

namespace KORV::Testing
{
/// The decomposition written down plainly: a table of all pairs, recursion, chains kept for every pair. Needs N^2
/// memory and up to N^4 time; the fast solver must find the same pieces.
class LiteralDecomposition
{
public:
    using Point = NavMesh::Vec2<float>;

    static constexpr float UNSOLVED = 3.4028235e+38f;

    explicit LiteralDecomposition(std::vector<Point> points) : mP(std::move(points)), mN(static_cast<int>(mP.size()))
    {
        for (int i = 0; i < mN; ++i)
            mReflex.push_back(area2(at(i - 1), at(i), at(i + 1)) >= -0.0001f);
        mEdges.resize(static_cast<size_t>(mN) * static_cast<size_t>(mN + 1) / 2);
        for (int i = 0; i + 1 < mN; ++i)
            computeVisibility(i);
        edge(mN - 1, mN - 1).mFlags = 1;
        edge(0, mN - 1).mFlags = 1;
    }

    float solve() { return solve(0, mN - 1); }

    /// Corners of each piece, in the order of the nodes.
    std::vector<std::vector<int>> pieces()
    {
        std::vector<std::vector<int>> result;
        std::deque<std::pair<int, int>> queue{{0, mN - 1}};
        for (; !queue.empty(); queue.pop_front())
        {
            result.push_back(edge(queue.front().first, queue.front().second).mChain);
            const std::vector<int>& chain = result.back();
            for (size_t s = 1; s < chain.size(); ++s)
            {
                if (edge(chain[s], chain[s - 1]).mCost > 0.0f)
                    queue.push_back({chain[s], chain[s - 1]});
            }
        }
        return result;
    }

    bool sees(int i, int k) { return (edge(i, k).mFlags & 1) != 0; }

    /// A candidate without admissible predecessor was met, and dropped.
    bool mDropped = false;
    /// A shadow passed over the corner it was cast from.
    bool mDegenerate = false;

private:
    struct Edge
    {
        int mFlags = 0;
        float mCost = -1.0f;
        std::vector<int> mChain;
    };
    struct Stack
    {
        int mFrom;
        float mCost;
        std::vector<int> mChain; // from mFrom back to the first corner
    };
    struct VertexData
    {
        int mIndex;
        std::vector<Stack> mStack{};
        Stack mBest{-1, 0.0f, {}};
    };

    static float area2(const Point& a, const Point& b, const Point& c)
    {
        return a.mX * (b.mY - c.mY) + b.mX * (c.mY - a.mY) + c.mX * (a.mY - b.mY);
    }
    int wrap(int i) const { return (i % mN + mN) % mN; }
    const Point& at(int i) const { return mP[static_cast<size_t>(wrap(i))]; }
    Edge& edge(int i, int k)
    {
        return mEdges[static_cast<size_t>(k) * static_cast<size_t>(k + 1) / 2 + static_cast<size_t>(i)];
    }

    int findNearestEdge(int a, const Point& dir) const
    {
        float bestDistance = std::numeric_limits<float>::max();
        int best = -1;
        const auto middle = [&](int k)
        {
            const Point offset = (at(k) + at(k + 1)) * 0.5f - at(a);
            return dot(offset, offset);
        };
        for (int k = 0; k < mN; ++k)
        {
            float t = 0.0f;
            if (!(cross(dir, at(k + 1) - at(k)) < 0.0f) ||
                !Common::Geom::Intersect::LineRay(t, at(a), dir, at(k), at(k + 1)))
                continue;
            if (t > bestDistance + 0.0001f || t <= 0.0001f)
                continue;
            if (t <= bestDistance - 0.0001f)
            {
                best = k;
                bestDistance = t;
            }
            else if (t < bestDistance + 0.0001f && middle(k) < middle(best))
                best = k;
        }
        return best;
    }

    void computeVisibility(int i)
    {
        std::vector<int> side(static_cast<size_t>(mN), 0);
        std::vector<int> seen(static_cast<size_t>(mN), 1);
        sweep(i, 1, side, seen);
        sweep(i, -1, side, seen);
        for (int k = i; k < mN; ++k)
        {
            if (seen[static_cast<size_t>(k)])
                edge(i, k).mFlags = mReflex[static_cast<size_t>(k)] || mReflex[static_cast<size_t>(i)] ? 3 : 1;
        }
    }

    void sweep(int i, int step, std::vector<int>& side, std::vector<int>& seen)
    {
        const auto turnsAway = [&](const Point& d, int j)
        {
            const float turn = cross(d, at(j + step) - at(j));
            return step > 0 ? !(turn <= 0.0001f) : !(turn >= -0.0001f);
        };
        int j = wrap(i + step);
        while (j != i)
        {
            side[static_cast<size_t>(j)] = step;
            Point d = at(j) - at(i);
            const bool shadow = mReflex[static_cast<size_t>(j)] && turnsAway(d, j);
            d.normalise();
            int e = shadow ? findNearestEdge(j, d) : -1;
            if (e == -1 || side[static_cast<size_t>(e)] == step)
            {
                j = wrap(j + step);
                continue;
            }
            const float beyond = cross(d, at(e) - at(i));
            if (step > 0 ? beyond > 0.0f : beyond < -0.0001f)
                e = wrap(e + step);
            if (wrap((e - j) * step) > wrap((i - j) * step) || e == j)
            {
                mDegenerate = true;
                j = wrap(j + step);
                continue;
            }
            for (int k = wrap(j + step); k != e; k = wrap(k + step))
            {
                side[static_cast<size_t>(k)] = step;
                seen[static_cast<size_t>(k)] = 0;
            }
            j = e;
        }
    }

    bool isConvexCorner(int a, int b, int c) const
    {
        return cross(normalised(at(b) - at(a)), normalised(at(c) - at(b))) <= 0.0001f;
    }

    float solve(int i, int k)
    {
        Edge& pair = edge(i, k);
        if (pair.mFlags & 4)
            return pair.mCost;
        pair.mFlags |= 4;
        if (k == i + 1)
            return pair.mCost = 0.0f;
        pair.mCost = UNSOLVED;
        std::vector<VertexData> list{{i}};
        for (int j = i + 1; j <= k; ++j)
        {
            if (sees(i, j) && sees(j, k))
                list.push_back({j});
        }
        if (list.size() <= 2)
            return UNSOLVED;
        for (size_t cur = 1; cur < list.size();)
        {
            extendChains(list, cur);
            if (!list[cur].mStack.empty())
            {
                ++cur;
                continue;
            }
            mDropped = true;
            if (list[cur].mIndex == k)
                return UNSOLVED;
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(cur));
        }
        const Stack best = findBest(list.back(), i);
        pair.mCost = (at(k) - at(i)).getLength() + best.mCost;
        pair.mChain = best.mChain;
        pair.mChain.insert(pair.mChain.begin(), k);
        return pair.mCost;
    }

    void extendChains(std::vector<VertexData>& list, size_t cur)
    {
        VertexData& target = list[cur];
        for (size_t p = cur; p-- > 0;)
        {
            VertexData& pivot = list[p];
            if (!(edge(pivot.mIndex, target.mIndex).mFlags & 2) && pivot.mIndex + 1 != target.mIndex)
                continue;
            const float cost = solve(pivot.mIndex, target.mIndex);
            const Stack& best = findBest(pivot, target.mIndex);
            std::vector<int> chain = best.mChain;
            chain.insert(chain.begin(), pivot.mIndex);
            target.mStack.push_back({pivot.mIndex, cost + best.mCost, std::move(chain)});
        }
        if (!target.mStack.empty())
            target.mBest = target.mStack.back();
    }

    const Stack& findBest(VertexData& pivot, int target)
    {
        while (!pivot.mStack.empty() && isConvexCorner(pivot.mStack.back().mFrom, pivot.mIndex, target))
        {
            if (pivot.mBest.mCost >= pivot.mStack.back().mCost)
                pivot.mBest = pivot.mStack.back();
            pivot.mStack.pop_back();
        }
        return pivot.mBest;
    }

    std::vector<Point> mP;
    int mN;
    std::vector<bool> mReflex;
    std::vector<Edge> mEdges;
};
} // namespace KORV::Testing
