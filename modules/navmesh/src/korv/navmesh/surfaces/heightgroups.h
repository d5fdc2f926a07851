#pragma once

#include "korv/navmesh/heightclassifier.h"
#include "korv/navmesh/rules.h"

namespace KORV::NavMesh
{
/// Length of the rays that measure free heights: the largest character and one voxel more. [voxels, >= 1]
uint32 computeHeightRayLength(const HeightClassifier& classifier, float cubeSize);

/// The free heights that share a class. [world units, ends included]
struct HeightInterval
{
    float mLo = 0.0f;
    float mHi = 0.0f;

    bool contains(float height) const { return mLo <= height && height <= mHi; }
};

/// What the free heights of a run, counted in voxels, mean: their class, and which of them may join.
class HeightGroups
{
public:
    /// The free heights from a length on, up to the next group.
    struct Group
    {
        uint32 mLength;      ///< [voxels]
        uint32 mHeightClass; ///< never NO_CLASS
        bool mIsAlone;       ///< joins nobody, not even its like
    };

    /// @param classifier  must outlive the object.
    HeightGroups(const HeightClassifier& classifier, float cubeSize, Rules rules, Common::Memory::Allocator* allocator);

    uint32 getRayLength() const { return mRayLength; }
    /// In ascending length. Below the first no character fits.
    const Vector<Group>& getGroups() const { return mGroups; }

    /// The heights that may join those of a length, by the specified rules; a length without a class gives (0, 0).
    HeightInterval getInterval(uint32 length) const;
    float getHeight(uint32 length) const { return static_cast<float>(length) * mCubeSize; }

private:
    template <class Predicate>
    uint32 findFirst(uint32 begin, uint32 end, const Predicate& predicate) const;
    void addGroup(uint32 length, uint32 heightClass, bool isAlone);

    const HeightClassifier& mClassifier;
    float mCubeSize;
    uint32 mRayLength;
    Vector<Group> mGroups;
};
} // namespace KORV::NavMesh
