#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/navmesh/characterinfo.h"

namespace KORV::NavMesh
{
/// Sorts free heights into classes: class k means that at least the k-th smallest character height fits.
class HeightClassifier
{
public:
    /// What classify returns where no character fits.
    static constexpr uint32 NO_CLASS = 0xFFFFFFFF;

    explicit HeightClassifier(Common::Memory::Allocator* allocator);

    void insert(const CharacterInfo& character);
    /// Numbers the classes in ascending height.
    void finalizeIDs();

    /// @param height  free height. [world units]
    /// @param lo,hi  the heights that share the class; untouched where there is none.
    /// @return the class id or NO_CLASS.
    uint32 classify(float height, float& lo, float& hi) const;

    float getMaxPhysicalHeight() const { return mMaxPhysicalHeight; }
    float getMaxJumpHeight() const { return mMaxJumpHeight; }
    float getMaxFallHeight() const { return mMaxFallHeight; }

    /// Appends the height of every class in ascending order.
    void writeHeights(Vector<float>& heights) const;

private:
    struct HeightBin
    {
        float mHeight = 0.0f;
        uint32 mClassID = 0;

        friend bool operator<(const HeightBin& a, const HeightBin& b) { return a.mHeight < b.mHeight; }
    };

    Common::Container::Set<HeightBin> mBins;
    float mMaxPhysicalHeight = 0.0f;
    float mMaxJumpHeight = 0.0f;
    float mMaxFallHeight = 0.0f;
};
} // namespace KORV::NavMesh
