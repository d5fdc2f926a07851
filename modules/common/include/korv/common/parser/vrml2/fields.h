#pragma once

#include "korv/common/container/vector.h"
#include "korv/common/math/vec3.h"
#include "korv/common/memory/memorymanaged.h"
#include "korv/common/sharedptr.h"
#include "korv/common/types.h"

namespace KORV::Common::Parser::VRML2
{
/// What a field of a node holds, and so how its value is written.
enum FieldType : uint32
{
    SFBOOL = 1,
    SFVEC3F = 2,
    MFVEC3F = 3,
    SFTHREEFLOATS = 6,
    MFTHREEFLOATS = 7,
    SFROTATION = 8,
    SFFOURFLOATS = 10,
    SFINT32 = 12,
    MFINT32 = 13,
    SFFLOAT = 14,
    SFSTRING = 15,
    MFSTRING = 16,
    SFSCENENODE = 17,
    MFSCENENODE = 18,
    SFGEOMETRYNODE = 19,
    MFGEOMETRYNODE = 20,
    SFGEOMETRICPROPERTY = 21
};

/// A turn about an axis.
struct Rotation
{
    Math::Vec3<float> mAxis{0.0f, 0.0f, 1.0f}; ///< as written in the file, where it need not have length 1
    float mAngle = 0.0f;                       ///< [radians]
};

struct Quaternion
{
    float mComponents[4] = {1.0f, 0.0f, 0.0f, 0.0f};
};

/// The values of a multi-valued field. Copies share them until one is edited, so that the many copies of a node that
/// a file refers to again and again cost no memory for its contents.
template <class T>
class MultiValue
{
public:
    const Vector<T>& get() const
    {
        static const Vector<T> none;
        return mValues == nullptr ? none : mValues->mList;
    }
    bool empty() const { return get().empty(); }
    size_t size() const { return get().size(); }

    /// The values for a change that this copy alone sees; they live on @p allocator if it has none of its own yet.
    [[gnu::noinline]] Vector<T>& edit(const Memory::AllocatorPtr& allocator)
    {
        if (mValues == nullptr || !mValues.isLastReference())
        {
            SharedPtr<Values> own(new (allocator) Values);
            own->mList.assign(get().begin(), get().end());
            mValues = std::move(own);
        }
        return mValues->mList;
    }

private:
    struct Values : public Memory::MemoryManaged, public ReferenceCounted
    {
        Vector<T> mList{getMemory()};
    };

    SharedPtr<Values> mValues;
};
} // namespace KORV::Common::Parser::VRML2
