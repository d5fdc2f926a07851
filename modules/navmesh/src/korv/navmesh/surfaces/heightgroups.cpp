// Free heights come in whole voxels, and classes are intervals of them, so a handful of lengths tell all: from each on
// another class holds. By the specified rules a class ends 1e-4 below the next one, and a length may fall into that
// gap: it has the lower class but joins nobody, whichever side asks. The refined rules know no gap.

#include "korv/navmesh/surfaces/heightgroups.h"

namespace KORV::NavMesh
{
uint32 computeHeightRayLength(const HeightClassifier& classifier, float cubeSize)
{
    constexpr float LIMIT = 4294967040.0f; // the largest float below 2^32
    const float numCubes = classifier.getMaxPhysicalHeight() / cubeSize;
    return static_cast<uint32>(numCubes < LIMIT ? numCubes : LIMIT) + 1;
}

HeightGroups::HeightGroups(const HeightClassifier& classifier, float cubeSize, Rules rules,
                           Common::Memory::Allocator* allocator)
    : mClassifier(classifier), mCubeSize(cubeSize), mRayLength(computeHeightRayLength(classifier, cubeSize)),
      mGroups(allocator)
{
    Vector<float> heights(allocator);
    classifier.writeHeights(heights);
    const uint32 end = mRayLength + 1;
    for (uint32 i = 0; i < heights.size(); ++i)
    {
        const uint32 first = findFirst(0, end, [&](float height) { return height >= heights[i]; });
        if (first == end)
            return;
        addGroup(first, i, false);
        if (rules == Rules::REFINED)
            continue;
        const float upper = getInterval(first).mHi;
        const uint32 gap = findFirst(first, end, [upper](float height) { return height > upper; });
        if (gap != end)
            addGroup(gap, i, true);
    }
}

/// The first length whose height fulfils a condition that holds from some height on; the end when there is none.
template <class Predicate>
uint32 HeightGroups::findFirst(uint32 begin, uint32 end, const Predicate& predicate) const
{
    while (begin < end)
    {
        const uint32 middle = begin + (end - begin) / 2;
        if (predicate(getHeight(middle)))
            end = middle;
        else
            begin = middle + 1;
    }
    return begin;
}

/// A group without any length gives way to the next one.
void HeightGroups::addGroup(uint32 length, uint32 heightClass, bool isAlone)
{
    while (!mGroups.empty() && mGroups.back().mLength >= length)
        mGroups.pop_back();
    mGroups.push_back({length, heightClass, isAlone});
}

HeightInterval HeightGroups::getInterval(uint32 length) const
{
    HeightInterval interval;
    mClassifier.classify(getHeight(length), interval.mLo, interval.mHi);
    // the top class ends where the rays do
    if (mClassifier.getMaxPhysicalHeight() <= interval.mHi)
        interval.mHi = getHeight(mRayLength) + 1.0f;
    return interval;
}
} // namespace KORV::NavMesh
