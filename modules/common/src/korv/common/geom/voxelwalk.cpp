#include "korv/common/debug/assert.h"
#include "korv/common/geom/geomutility.h"

#include <limits>

namespace KORV::Common::Geom::Utility
{
namespace
{
constexpr float END_OF_GRID = 4294967295.0f; // rounds to 2^32

/// One component of the walk.
struct Axis
{
    int64 mVoxel;
    int64 mStep;
    uint64 mLeft; // steps to the end voxel: rounding can't make the walk miss it
    float mNext;  // distance along the line to the next cell; infinite when there is none to enter
    float mDelta; // distance between cells

    void advance()
    {
        mVoxel += mStep;
        --mLeft;
        mNext = mLeft > 0 ? mNext + mDelta : std::numeric_limits<float>::infinity();
    }
};

bool isInGrid(float value)
{
    return value >= 0.0f && value < END_OF_GRID;
}

int64 toVoxel(float value)
{
    if (!(value >= 0.0f))
        return 0;
    return value < END_OF_GRID ? static_cast<int64>(value) : int64{std::numeric_limits<uint32>::max()};
}

Axis makeAxis(float start, float end, float direction)
{
    Axis axis{};
    axis.mVoxel = toVoxel(start);
    const int64 way = toVoxel(end) - axis.mVoxel;
    axis.mStep = way >= 0 ? 1 : -1;
    axis.mLeft = static_cast<uint64>(way * axis.mStep);
    const int64 border = axis.mVoxel + (direction >= 0.0f ? 1 : 0);
    axis.mNext =
        axis.mLeft > 0 ? (static_cast<float>(border) - start) / direction : std::numeric_limits<float>::infinity();
    axis.mDelta = 1.0f / std::fabs(direction);
    return axis;
}

/// The axis whose next cell is nearest; on a tie z before y before x. One that is at its end is never taken.
Axis& chooseAxis(Axis& x, Axis& y, Axis& z)
{
    Axis& xOrY = y.mLeft > 0 && (x.mLeft == 0 || y.mNext <= x.mNext) ? y : x;
    return z.mLeft > 0 && (xOrY.mLeft == 0 || z.mNext <= xOrY.mNext) ? z : xOrY;
}

void checkEnds(const Vec3<float>& a, const Vec3<float>& b)
{
    constexpr const char* FUNCTION = "KORV::Common::Geom::Utility::ComputeVoxelOnLine3D";
    const struct
    {
        float mValue;
        const char* mCondition;
        const char* mMessage;
    } checks[] = {
        {a.mX, "a.mX >= 0 && a.mX < maxUInt32", "a.mX is out of range [0,X_MAX_UINT32["},
        {a.mY, "a.mY >= 0 && a.mY < maxUInt32", "a.mY is out of range [0,X_MAX_UINT32["},
        {a.mZ, "a.mZ >= 0 && a.mZ < maxUInt32", "a.mZ is out of range [0,X_MAX_UINT32["},
        {b.mX, "b.mX >= 0 && b.mX < maxUInt32", "b.mX is out of range [0,X_MAX_UINT32["},
        {b.mY, "b.mY >= 0 && b.mY < maxUInt32", "b.mY is out of range [0,X_MAX_UINT32["},
        {b.mZ, "b.mZ >= 0 && b.mZ < maxUInt32", "b.mZ is out of range [0,X_MAX_UINT32["},
    };
    for (const auto& check : checks)
    {
        [[maybe_unused]] const bool inGrid =
            KORV_COMMON_ASSERT(FUNCTION, isInGrid(check.mValue), check.mCondition, check.mMessage);
    }
}
} // namespace

void ComputeVoxelOnLine3D(Container::Vector<Vec3<uint32>>& voxels, const Vec3<float>& a, const Vec3<float>& b)
{
    checkEnds(a, b);
    const Vec3<float> direction = normalised(b - a);
    Axis x = makeAxis(a.mX, b.mX, direction.mX);
    Axis y = makeAxis(a.mY, b.mY, direction.mY);
    Axis z = makeAxis(a.mZ, b.mZ, direction.mZ);
    voxels.reserve(voxels.size() + x.mLeft + y.mLeft + z.mLeft + 1); // refused at once when it can't be held
    for (;;)
    {
        voxels.emplace_back(static_cast<uint32>(x.mVoxel), static_cast<uint32>(y.mVoxel),
                            static_cast<uint32>(z.mVoxel));
        if (x.mLeft + y.mLeft + z.mLeft == 0)
            return;
        chooseAxis(x, y, z).advance();
    }
}
} // namespace KORV::Common::Geom::Utility
