#pragma once

#include "korv/navmesh/types.h"

#include <algorithm>
#include <bit>

namespace KORV::NavMesh
{
/// A box in three coordinates, borders included.
struct SearchBox
{
    float mLow[3];
    float mHigh[3];
};

/// A tree of boxes, 16 to a node, each node in 128 bytes. All leaves lie on one level.
///
/// A node keeps the boxes of its children on a scale of 128 steps across its own box. The step of a coordinate never
/// falls when the coordinate grows, so whatever lies in a box lies in its steps, too, whatever the rounding. Children
/// are ordered by the lowest id below them, items of a leaf by their id.
class BoxTree
{
public:
    static constexpr uint32 WIDTH = 16;
    /// 16 to the 8th is more items than a 32-bit index can count.
    static constexpr uint32 MAX_LEVELS = 8;
    /// Nodes that a walk can have put off: all but one child on every level, and the children of the last.
    static constexpr uint32 MAX_PENDING = MAX_LEVELS * WIDTH;
    static constexpr uint64 BYTES = 0x0101010101010101u;
    static constexpr uint64 TOP_BITS = 0x8080808080808080u;

    struct Item
    {
        SearchBox mBox;
        uint32 mID;
    };

    /// Byte i of word i / 8 belongs to child i. The bytes of mHigh have their top bits set, those of mLow do not.
    struct alignas(128) Node
    {
        uint64 mLow[3][2];
        uint64 mHigh[3][2];
        float mOrigin[3];
        float mScale[3];  ///< steps per unit; 0 where the box is flat
        uint32 mFirst;    ///< first child: a node, or on the last level an item
        uint32 mLowestID; ///< of all items below
    };

    /// A vertical line segment.
    struct Probe
    {
        float mX;
        float mY;
        float mLowZ;
        float mHighZ;
    };

    /// Children as the top bits of the bytes of two words.
    struct Hits
    {
        uint64 mWords[2];
    };

    explicit BoxTree(Common::Memory::Allocator* allocator) : mNodes(allocator) {}

    /// Builds the tree anew and puts the items into the order of its leaves. All coordinates are finite, magnitudes at
    /// most 1e30.
    /// @param probeLength  how long most probes will be; the tree is laid out for those. [>= 0]
    /// Cost: n log n.
    void build(Vector<Item>& items, double probeLength);

    bool empty() const { return mNodes.empty(); }
    bool isLeaf(uint32 node) const { return node >= mFirstLeaf; }
    const Node& getNode(uint32 node) const { return mNodes[node]; }
    const SearchBox& getBounds() const { return mBounds; }
    uint64 getMemoryUsage() const { return mNodes.capacity() * sizeof(Node); }

    /// The children whose boxes the probe may meet; all whose boxes it meets are among them.
    static Hits findHits(const Node& node, const Probe& probe);
    /// Squared lower bounds of the distances of a point from the boxes of all children; infinite for unused ones.
    static void boundDistances(double (&bounds)[WIDTH], const Node& node, const double (&point)[3]);

private:
    class Builder;

    static float toSteps(float value, float origin, float scale) { return (value - origin) * scale; }
    static uint32 clampSteps(float steps)
    {
        return static_cast<uint32>(static_cast<int32>(std::min(std::max(steps, 0.0f), 127.0f)));
    }

    Vector<Node> mNodes; // level by level, so the upper ones share the cache
    uint32 mFirstLeaf = 0;
    SearchBox mBounds{};
};

inline BoxTree::Hits BoxTree::findHits(const Node& node, const Probe& probe)
{
    const float x = toSteps(probe.mX, node.mOrigin[0], node.mScale[0]);
    const float y = toSteps(probe.mY, node.mOrigin[1], node.mScale[1]);
    const float lowZ = toSteps(probe.mLowZ, node.mOrigin[2], node.mScale[2]);
    const float highZ = toSteps(probe.mHighZ, node.mOrigin[2], node.mScale[2]);
    // the far border may be a rounding beyond the last step
    constexpr float END = 129.0f;
    if (x < 0.0f || x > END || y < 0.0f || y > END || highZ < 0.0f || lowZ > END)
        return {{0, 0}};
    const uint64 stepX = BYTES * clampSteps(x);
    const uint64 stepY = BYTES * clampSteps(y);
    const uint64 stepLowZ = BYTES * clampSteps(lowZ);
    const uint64 stepHighZ = BYTES * clampSteps(highZ);
    Hits hits;
    for (uint32 w = 0; w < 2; ++w)
    {
        // eight comparisons at once: a byte keeps its top bit unless the difference borrows
        const uint64 inX = ((stepX | TOP_BITS) - node.mLow[0][w]) & (node.mHigh[0][w] - stepX);
        const uint64 inY = ((stepY | TOP_BITS) - node.mLow[1][w]) & (node.mHigh[1][w] - stepY);
        const uint64 inZ = ((stepHighZ | TOP_BITS) - node.mLow[2][w]) & (node.mHigh[2][w] - stepLowZ);
        hits.mWords[w] = inX & inY & inZ & TOP_BITS;
    }
    return hits;
}
} // namespace KORV::NavMesh
