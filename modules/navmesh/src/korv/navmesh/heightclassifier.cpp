#include "korv/navmesh/heightclassifier.h"

#include <iterator>
#include <limits>
#include <utility>

namespace KORV::NavMesh
{
namespace
{
/// The gap between the heights of one class and the next.
constexpr double CLASS_GAP = 0.0001;

void raise(float& maximum, float value)
{
    if (value > maximum)
        maximum = value;
}
} // namespace

HeightClassifier::HeightClassifier(Common::Memory::Allocator* allocator) : mBins(allocator) {}

void HeightClassifier::insert(const CharacterInfo& character)
{
    mBins.insert(HeightBin{character.mPhysicalHeight, 0});
    raise(mMaxJumpHeight, character.mJumpHeight);
    raise(mMaxFallHeight, character.mFallHeight);
    raise(mMaxPhysicalHeight, character.mPhysicalHeight);
}

void HeightClassifier::finalizeIDs()
{
    // the elements of a set are constant, so the numbered bins make a new one
    Common::Container::Set<HeightBin> numbered(mBins.get_allocator());
    uint32 nextID = 0;
    for (const HeightBin& bin : mBins)
        numbered.insert(numbered.end(), HeightBin{bin.mHeight, nextID++});
    mBins = std::move(numbered);
}

uint32 HeightClassifier::classify(float height, float& lo, float& hi) const
{
    const auto above = mBins.upper_bound(HeightBin{height, 0});
    if (above == mBins.begin())
        return NO_CLASS;
    const auto bin = std::prev(above);
    lo = bin->mHeight;
    hi = above == mBins.end() ? std::numeric_limits<float>::max()
                              : static_cast<float>(static_cast<double>(above->mHeight) - CLASS_GAP);
    return bin->mClassID;
}

void HeightClassifier::writeHeights(Vector<float>& heights) const
{
    heights.reserve(heights.size() + mBins.size());
    for (const HeightBin& bin : mBins)
        heights.push_back(bin.mHeight);
}
} // namespace KORV::NavMesh
