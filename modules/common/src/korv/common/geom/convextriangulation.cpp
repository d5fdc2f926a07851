// Cuts a convex polygon into triangles of the smallest total perimeter.
//
// Idea: cost(i, k) is the smallest sum for the part of the polygon from corner i to corner k. The triangle on the chord
// (i, k) has its third corner j somewhere between, and leaves the parts (i, j) and (j, k). Parts are solved in an order
// in which both are known: last corner up, first corner down. Ties keep the smaller j.
//
// Numbers: costs are kept in both halves of a square table, so that the search for j reads both parts in memory order.
// Cost: n^3 / 6 steps, 12 bytes for each pair of corners; no recursion.
#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"
#include "korv/common/memory/memoryexception.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace KORV::Common::Geom::Utility
{
namespace
{
constexpr const char* FUNCTION = "KORV::Common::Geom::Utility::CreateTrianglesFromConvexPolygon";

struct Tables
{
    explicit Tables(Memory::Allocator* allocator) : mCosts(allocator), mLengths(allocator), mSplit(allocator) {}

    Container::Vector<float> mCosts;   // of the part between two corners, symmetric
    Container::Vector<float> mLengths; // distance of two corners, symmetric
    Container::Vector<int32> mSplit;   // third corner of the triangle on chord (i, k), at k * n + i; -1 for none
};

template <class T>
bool allocateTable(Container::Vector<T>& table, size_t corners, T value)
{
    try
    {
        table.assign(corners * corners, value);
        return true;
    }
    catch (Memory::OutOfMemoryException* error)
    {
        delete error;
        return false;
    }
}

bool allocateTables(Tables& tables, size_t corners)
{
    const bool costs = allocateTable(tables.mCosts, corners, 0.0f) && allocateTable(tables.mLengths, corners, 0.0f);
    return KORV_COMMON_ASSERT(FUNCTION, costs, "", "cannot alloc costs array") &&
           KORV_COMMON_ASSERT(FUNCTION, allocateTable(tables.mSplit, corners, -1), "", "cannot alloc min array");
}

void measureLengths(Tables& tables, const Container::Vector<uint32>& polygon,
                    const Container::Vector<Vec3<float>>& vertices)
{
    const size_t n = polygon.size();
    for (size_t k = 1; k < n; ++k)
    {
        for (size_t i = 0; i < k; ++i)
        {
            const float length = (vertices[polygon[k]] - vertices[polygon[i]]).getLength();
            tables.mLengths[k * n + i] = length;
            tables.mLengths[i * n + k] = length;
        }
    }
}

void solveChord(Tables& tables, size_t n, size_t i, size_t k)
{
    const float* costsFromI = tables.mCosts.data() + i * n;
    const float* costsToK = tables.mCosts.data() + k * n;
    const float* lengthsFromI = tables.mLengths.data() + i * n;
    const float* lengthsToK = tables.mLengths.data() + k * n;
    float best = std::numeric_limits<float>::max();
    int32 split = -1;
    for (size_t j = i + 1; j < k; ++j)
    {
        const float perimeter = lengthsFromI[j] + lengthsToK[j] + lengthsFromI[k];
        const float cost = costsFromI[j] + costsToK[j] + perimeter;
        if (cost < best)
        {
            best = cost;
            split = static_cast<int32>(j);
        }
    }
    tables.mCosts[k * n + i] = best;
    tables.mCosts[i * n + k] = best;
    tables.mSplit[k * n + i] = split;
}

/// Appends the triangles, that on a chord before those of the part before and after its third corner.
void emitTriangles(Container::Vector<uint32>& triangles, const Tables& tables, const Container::Vector<uint32>& polygon)
{
    const size_t n = polygon.size();
    Container::Vector<std::pair<size_t, size_t>> chords(triangles.get_allocator());
    chords.reserve(n);
    const size_t needed = triangles.size() + 3 * (n - 2);
    if (needed > triangles.capacity()) // room first: nothing is appended when memory runs out
        triangles.reserve(std::max(needed, 2 * triangles.capacity()));
    chords.emplace_back(size_t{0}, n - 1);
    while (!chords.empty())
    {
        const auto [i, k] = chords.back();
        chords.pop_back();
        const int32 split = tables.mSplit[k * n + i];
        if (split < 0)
            continue;
        const size_t j = static_cast<size_t>(split);
        triangles.push_back(polygon[i]);
        triangles.push_back(polygon[j]);
        triangles.push_back(polygon[k]);
        chords.emplace_back(j, k);
        chords.emplace_back(i, j);
    }
}
} // namespace

void CreateTrianglesFromConvexPolygon(Container::Vector<uint32>& triangles, const Container::Vector<uint32>& polygon,
                                      const Container::Vector<Vec3<float>>& vertices)
{
    const size_t n = polygon.size();
    if (!KORV_COMMON_ASSERT(FUNCTION, n >= 3, "", "polygon needs at least three vertices for triangulation"))
        return;
    for (const uint32 id : polygon)
    {
        if (!KORV_COMMON_ASSERT(FUNCTION, id < vertices.size(), "", "vertex id " << id << " is out of range"))
            return;
    }
    Tables tables(triangles.get_allocator().getAllocator());
    if (!allocateTables(tables, n))
        return;
    measureLengths(tables, polygon, vertices);
    for (size_t k = 2; k < n; ++k)
    {
        for (size_t i = k - 1; i-- > 0;)
            solveChord(tables, n, i, k);
    }
    emitTriangles(triangles, tables, polygon);
}
} // namespace KORV::Common::Geom::Utility
