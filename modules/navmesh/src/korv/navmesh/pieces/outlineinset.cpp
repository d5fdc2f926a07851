#include "korv/navmesh/pieces/outlineinset.h"

#include "korv/navmesh/floatlanes.h"

#include <algorithm>
#include <limits>

namespace KORV::NavMesh
{
namespace
{
/// Up to four outlines on their way.
class InsetLanes
{
public:
    explicit InsetLanes(float distance) : mDistance(distance)
    {
        for (Lane& lane : mLanes)
            lane = {&mIdle, &mIdle, 0, 0};
    }

    bool isIdle(size_t lane) const { return mLanes[lane].mNumLeft == 0; }

    void start(size_t lane, const CornerRange& outline)
    {
        mLanes[lane] = {outline.mBegin, outline.mBegin, outline.mSize, 1};
        mBeforeX[lane] = outline.mBegin[outline.mSize - 1].mX;
        mBeforeY[lane] = outline.mBegin[outline.mSize - 1].mY;
    }

    /// Until the first of them is done. @return false when all are.
    bool advance()
    {
        size_t numSteps = std::numeric_limits<size_t>::max();
        for (const Lane& lane : mLanes)
            numSteps = lane.mNumLeft > 0 ? std::min(numSteps, lane.mNumLeft) : numSteps;
        if (numSteps == std::numeric_limits<size_t>::max())
            return false;
        for (; numSteps > 0; --numSteps)
            moveCorners();
        for (Lane& lane : mLanes)
            lane = lane.mNumLeft > 0 ? lane : Lane{&mIdle, &mIdle, 0, 0};
        return true;
    }

private:
    struct Lane
    {
        Vec2<float>* mFirst;
        Vec2<float>* mCorner; // the next to move
        size_t mNumLeft;
        size_t mStep; // 1, or 0 for one that is idle
    };

    void moveCorners()
    {
        FloatLanes x;
        FloatLanes y;
        FloatLanes afterX;
        FloatLanes afterY;
        for (size_t at = 0; at < NUM_LANES; ++at)
        {
            const Lane& lane = mLanes[at];
            const Vec2<float>& after = *(lane.mNumLeft > 1 ? lane.mCorner + 1 : lane.mFirst);
            x[at] = lane.mCorner->mX;
            y[at] = lane.mCorner->mY;
            afterX[at] = after.mX;
            afterY[at] = after.mY;
        }
        FloatLanes arrivingX = x - mBeforeX;
        FloatLanes arrivingY = y - mBeforeY;
        FloatLanes leavingX = afterX - x;
        FloatLanes leavingY = afterY - y;
        normaliseLanes(arrivingX, arrivingY);
        normaliseLanes(leavingX, leavingY);
        FloatLanes inwardX = arrivingY + leavingY;
        FloatLanes inwardY = -(arrivingX + leavingX);
        normaliseLanes(inwardX, inwardY);
        mBeforeX = x + inwardX * mDistance;
        mBeforeY = y + inwardY * mDistance;
        for (size_t at = 0; at < NUM_LANES; ++at)
        {
            Lane& lane = mLanes[at];
            *lane.mCorner = {mBeforeX[at], mBeforeY[at]};
            lane.mCorner += lane.mStep;
            lane.mNumLeft -= lane.mStep;
        }
    }

    Lane mLanes[NUM_LANES];
    FloatLanes mBeforeX{}; // where the corners before have moved to
    FloatLanes mBeforeY{};
    float mDistance;
    Vec2<float> mIdle;
};
} // namespace

void insetInPlace(const Vector<CornerRange>& outlines, float distance)
{
    InsetLanes lanes(distance);
    size_t next = 0;
    do
    {
        for (size_t lane = 0; lane < NUM_LANES; ++lane)
        {
            while (lanes.isIdle(lane) && next < outlines.size())
            {
                if (outlines[next].mSize > 0)
                    lanes.start(lane, outlines[next]);
                ++next;
            }
        }
    } while (lanes.advance());
}
} // namespace KORV::NavMesh
