// Builds the tree from the top, level by level. A node with m items below gets the fewest children that hold them when
// all levels below are full, so nearly all leaves are full, too. The items are halved along one axis until there is a
// part for each child: along the axis that has the most boxes side by side, measured by their mean extent, since there
// the fewest boxes straddle the cut. Boxes at nearly the same
// place along that axis, such as those of one floor, are parted along the next best one.

#include "korv/navmesh/places/boxtree.h"

#include <limits>

namespace KORV::NavMesh
{
namespace
{
struct Range
{
    uint32 mBegin;
    uint32 mEnd;
};

void extend(SearchBox& box, const SearchBox& other)
{
    for (int axis = 0; axis < 3; ++axis)
    {
        box.mLow[axis] = std::min(box.mLow[axis], other.mLow[axis]);
        box.mHigh[axis] = std::max(box.mHigh[axis], other.mHigh[axis]);
    }
}

/// The order of items along a cut.
class CutOrder
{
public:
    CutOrder(const BoxTree::Item* begin, const BoxTree::Item* end);

    bool operator()(const BoxTree::Item& a, const BoxTree::Item& b) const
    {
        const int32 slabOfA = getSlab(a);
        const int32 slabOfB = getSlab(b);
        if (slabOfA != slabOfB)
            return slabOfA < slabOfB;
        const float middleOfA = getMiddle(a, mNextAxis);
        const float middleOfB = getMiddle(b, mNextAxis);
        return middleOfA != middleOfB ? middleOfA < middleOfB : a.mID < b.mID;
    }

private:
    /// Twice the middle, which orders as well.
    static float getMiddle(const BoxTree::Item& item, int axis) { return item.mBox.mLow[axis] + item.mBox.mHigh[axis]; }
    int32 getSlab(const BoxTree::Item& item) const
    {
        constexpr float MAX = 1e9f;
        return static_cast<int32>(std::min((getMiddle(item, mAxis) - mOrigin) * mSlabsPerUnit, MAX));
    }

    int mAxis = 0;
    int mNextAxis = 1;
    float mOrigin;
    float mSlabsPerUnit;
};

CutOrder::CutOrder(const BoxTree::Item* begin, const BoxTree::Item* end)
{
    const auto count = static_cast<double>(end - begin);
    SearchBox bounds = begin->mBox;
    double means[3] = {};
    for (const BoxTree::Item* item = begin; item != end; ++item)
    {
        extend(bounds, item->mBox);
        for (int axis = 0; axis < 3; ++axis)
            means[axis] += (double(item->mBox.mHigh[axis]) - double(item->mBox.mLow[axis])) / count;
    }
    double ratios[3];
    for (int axis = 0; axis < 3; ++axis)
    {
        const double extent = double(bounds.mHigh[axis]) - double(bounds.mLow[axis]);
        // also where all boxes are flat
        means[axis] += 1e-6 * extent;
        ratios[axis] = extent > 0.0 ? extent / means[axis] : 0.0;
    }
    int order[3] = {0, 1, 2};
    std::sort(order, order + 3,
              [&ratios](int a, int b) { return ratios[a] != ratios[b] ? ratios[a] > ratios[b] : a < b; });
    mAxis = order[0];
    mNextAxis = order[1];
    constexpr double SLABS_PER_BOX = 8.0;
    mOrigin = 2.0f * bounds.mLow[mAxis];
    mSlabsPerUnit = static_cast<float>(std::min(SLABS_PER_BOX / 2.0 / std::max(means[mAxis], 1e-30), 1e30));
}

uint32 countLevels(uint64 numItems)
{
    uint32 levels = 1;
    for (uint64 capacity = BoxTree::WIDTH; capacity < numItems; capacity *= BoxTree::WIDTH)
        ++levels;
    return levels;
}
} // namespace

class BoxTree::Builder
{
public:
    Builder(BoxTree& tree, Vector<Item>& items)
        : mTree(tree), mItems(items), mRanges(items.get_allocator()), mBoxes(items.get_allocator())
    {
    }

    void run();

private:
    void splitAll(uint64 capacityOfChild);
    void split(uint32 begin, uint32 end, uint32 numParts);
    void addRange(uint32 begin, uint32 end);
    void finishNode(uint32 node);
    void setBox(uint32 node, const SearchBox& box);
    void setChild(Node& node, uint32 slot, const SearchBox& box);

    BoxTree& mTree;
    Vector<Item>& mItems;
    Vector<Range> mRanges; // of each node: its items
    Vector<SearchBox> mBoxes;
    size_t mFirstOfLevel = 0;
};

void BoxTree::Builder::run()
{
    addRange(0, static_cast<uint32>(mItems.size()));
    uint64 capacityOfChild = 1;
    for (uint32 levels = countLevels(mItems.size()); levels > 1; --levels)
        capacityOfChild *= WIDTH;
    for (; capacityOfChild > 1; capacityOfChild /= WIDTH)
        splitAll(capacityOfChild);

    mTree.mFirstLeaf = static_cast<uint32>(mFirstOfLevel);
    mTree.mNodes.resize(mRanges.size());
    mBoxes.resize(mRanges.size());
    for (size_t i = mFirstOfLevel; i < mRanges.size(); ++i)
    {
        mTree.mNodes[i].mFirst = mRanges[i].mBegin;
        std::sort(mItems.begin() + mRanges[i].mBegin, mItems.begin() + mRanges[i].mEnd,
                  [](const Item& a, const Item& b) { return a.mID < b.mID; });
    }
    for (size_t i = mRanges.size(); i > 0; --i)
        finishNode(static_cast<uint32>(i - 1));
    mTree.mBounds = mBoxes[0];
}

/// Makes the next level from the one before.
void BoxTree::Builder::splitAll(uint64 capacityOfChild)
{
    const size_t firstChild = mRanges.size();
    mTree.mNodes.resize(firstChild);
    for (size_t i = mFirstOfLevel; i < firstChild; ++i)
    {
        const Range range = mRanges[i];
        mTree.mNodes[i].mFirst = static_cast<uint32>(mRanges.size());
        const uint64 numItems = range.mEnd - range.mBegin;
        split(range.mBegin, range.mEnd, static_cast<uint32>((numItems + capacityOfChild - 1) / capacityOfChild));
    }
    mFirstOfLevel = firstChild;
}

/// Calls itself for half of the parts, so at most four deep.
void BoxTree::Builder::split(uint32 begin, uint32 end, uint32 numParts)
{
    if (numParts <= 1)
    {
        addRange(begin, end);
        return;
    }
    const uint32 partsBefore = numParts / 2;
    const uint32 cut = begin + static_cast<uint32>(uint64(end - begin) * partsBefore / numParts);
    const CutOrder order(mItems.data() + begin, mItems.data() + end);
    std::nth_element(mItems.begin() + begin, mItems.begin() + cut, mItems.begin() + end, order);
    split(begin, cut, partsBefore);
    split(cut, end, numParts - partsBefore);
}

void BoxTree::Builder::addRange(uint32 begin, uint32 end)
{
    mRanges.push_back({begin, end});
}

/// Gives a node its boxes; those of its children are known.
void BoxTree::Builder::finishNode(uint32 index)
{
    Node& node = mTree.mNodes[index];
    const Range& range = mRanges[index];
    const bool isLeaf = mTree.isLeaf(index);
    uint32 numChildren = range.mEnd - range.mBegin;
    if (!isLeaf)
    {
        // the children's ranges make up the node's
        numChildren = 0;
        for (uint32 covered = 0; covered < range.mEnd - range.mBegin; ++numChildren)
            covered += mRanges[node.mFirst + numChildren].mEnd - mRanges[node.mFirst + numChildren].mBegin;
    }
    const auto getBox = [&](uint32 child) -> const SearchBox&
    { return isLeaf ? mItems[node.mFirst + child].mBox : mBoxes[node.mFirst + child]; };

    SearchBox bounds = getBox(0);
    for (uint32 child = 1; child < numChildren; ++child)
        extend(bounds, getBox(child));
    setBox(index, bounds);
    for (uint32 child = 0; child < numChildren; ++child)
        setChild(node, child, getBox(child));
}

void BoxTree::Builder::setBox(uint32 index, const SearchBox& box)
{
    // steps are counted up to here even in boxes that are nearly flat
    constexpr float MAX_SCALE = 1e30f;
    mBoxes[index] = box;
    Node& node = mTree.mNodes[index];
    for (int axis = 0; axis < 3; ++axis)
    {
        const float extent = box.mHigh[axis] - box.mLow[axis];
        node.mOrigin[axis] = box.mLow[axis];
        node.mScale[axis] = extent > 0.0f ? std::min(128.0f / extent, MAX_SCALE) : 0.0f;
        // no step lies above the last one and below the first, so nothing meets a child that is not there
        for (int word = 0; word < 2; ++word)
        {
            node.mLow[axis][word] = ~TOP_BITS;
            node.mHigh[axis][word] = TOP_BITS;
        }
    }
}

void BoxTree::Builder::setChild(Node& node, uint32 slot, const SearchBox& box)
{
    const uint32 word = slot / 8;
    const uint32 shift = 8 * (slot % 8);
    const uint64 mask = uint64(127) << shift;
    for (int axis = 0; axis < 3; ++axis)
    {
        const uint64 low = clampSteps(toSteps(box.mLow[axis], node.mOrigin[axis], node.mScale[axis]));
        const uint64 high = clampSteps(toSteps(box.mHigh[axis], node.mOrigin[axis], node.mScale[axis]));
        node.mLow[axis][word] = (node.mLow[axis][word] & ~mask) | low << shift;
        node.mHigh[axis][word] = (node.mHigh[axis][word] & ~mask) | high << shift;
    }
}

void BoxTree::build(Vector<Item>& items)
{
    mNodes.clear();
    mFirstLeaf = 0;
    if (!items.empty())
        Builder(*this, items).run();
}

void BoxTree::boundDistances(double (&bounds)[WIDTH], const Node& node, const double (&point)[3])
{
    // steps were counted in float, a few roundings off
    constexpr double SLACK = 1e-6 * 128.0;
    std::fill(std::begin(bounds), std::end(bounds), 0.0);
    for (int axis = 0; axis < 3; ++axis)
    {
        const double step = node.mScale[axis] > 0.0f ? 1.0 / double(node.mScale[axis]) : 0.0;
        const double offset = point[axis] - double(node.mOrigin[axis]);
        for (uint32 slot = 0; slot < WIDTH; ++slot)
        {
            const uint32 shift = 8 * (slot % 8);
            const auto low = static_cast<int32>(node.mLow[axis][slot / 8] >> shift & 127);
            const auto high = static_cast<int32>(node.mHigh[axis][slot / 8] >> shift & 127);
            const double below = (double(low) - SLACK) * step - offset;
            const double above = offset - (double(high) + 1.0 + SLACK) * step;
            const double gap = std::max({below, above, 0.0});
            bounds[slot] += low <= high ? gap * gap : std::numeric_limits<double>::infinity();
        }
    }
}
} // namespace KORV::NavMesh
