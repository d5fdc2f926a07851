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
/// falls when the coordinate grows, so whatever lies in a box lies in its steps, too, whatever the rounding. Items of a
/// leaf are ordered by their id.
class BoxTree
{
public:
    static constexpr uint32 WIDTH = 16;
    /// 16 to the 8th is more items than a 32-bit index can count.
    static constexpr uint32 MAX_LEVELS = 8;
    /// Nodes that a walk can have put off: all but one child on every level, and the children of the last.
    static constexpr uint32 MAX_PENDING = MAX_LEVELS * WIDTH;
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
        float mScale[3]; ///< steps per unit; 0 where the box is flat
        uint32 mFirst;   ///< first child: a node, or on the last level an item
    };

    explicit BoxTree(Common::Memory::Allocator* allocator) : mNodes(allocator) {}

    /// Builds the tree anew and puts the items into the order of its leaves. All coordinates are finite, magnitudes at
    /// most 1e30.
    /// Cost: n log n.
    void build(Vector<Item>& items);

    bool empty() const { return mNodes.empty(); }
    bool isLeaf(uint32 node) const { return node >= mFirstLeaf; }
    const Node& getNode(uint32 node) const { return mNodes[node]; }
    const SearchBox& getBounds() const { return mBounds; }
    uint64 getMemoryUsage() const { return mNodes.capacity() * sizeof(Node); }

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
} // namespace KORV::NavMesh
