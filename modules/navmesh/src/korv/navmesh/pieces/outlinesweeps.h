#pragma once

#include "korv/navmesh/pieces/edgeboxes.h"

namespace KORV::NavMesh
{
/// Two sweeps around each corner of an outline define which others see it; whole or in part, they are done here.
/// The outline runs clockwise, its interior lies to the right of each edge. Holds references to all it is given.
///
/// A sweep walks along the outline from a corner i, the eye. A reflex corner at which the outline turns away from the
/// eye casts a shadow: what lies between it and the edge that its ray meets is hidden, and the sweep goes on there.
/// The places of a sweep are corners from i + 1 on; an index beyond the end of the outline goes on at its start.
class OutlineSweeps
{
public:
    enum class Way : uint8
    {
        FORWARD, ///< from the eye to the end of the outline
        BACKWARD ///< all the way round
    };

    static constexpr int32 NONE = -1;
    /// A chain that turns away by less still counts as turning around the corner. [square units]
    static constexpr float TURN_TOLERANCE = 0.0001f;

    /// @param reflex  a flag for each corner.
    OutlineSweeps(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex, EdgeBoxes& boxes,
                  Common::Memory::Allocator* allocator);

    /// Takes outline, flags and boxes as they are now; they must not change until the last corner.
    /// @param reach  a shadow that ends at a corner as far behind its ray is not doubted. [units]
    void build(float reach);

    /// Appends the corners after the eye that see it, in increasing order, by two whole sweeps.
    /// Cost: linear in the corners with a small factor, and a ray for each one that hides others.
    void appendVisible(Vector<int32>& visible, int32 eye);

    /// Whether the outline turns away from the eye at a corner that a sweep comes to.
    /// @param turn  by more than that. [square units]
    bool casts(Way way, int32 eye, int32 corner, float turn = TURN_TOLERANCE) const;
    /// The corner whose shadow hides another one, of those that a sweep on its way meets from one on; NONE for none.
    /// @param corner  after the eye, when the way is forward.
    int32 findHider(Way way, int32 eye, int32 from, int32 corner);
    /// Where a sweep goes on behind the shadow of a corner that casts one: a place; that of the corner for no shadow.
    int32 land(Way way, int32 eye, int32 corner);
    /// Whether it has been asked where the shadow of a corner ends, for this eye.
    bool hasLanded(Way way, int32 eye, int32 corner) const
    {
        return (way == Way::FORWARD ? mForwardShadows : mBackwardShadows)[static_cast<size_t>(corner)].mEye == eye;
    }
    /// Whether some shadow so far has not ended as it should: its ray has met nothing at all, or it has ended at a
    /// corner behind the ray.
    bool isDoubtful() const { return mDoubtful; }
    /// Forgets all doubts.
    void trust() { mDoubtful = false; }

    int32 placeOf(int32 corner, int32 eye) const { return corner > eye ? corner : corner + mN; }
    int32 cornerAt(int32 place) const { return place < mN ? place : place - mN; }

private:
    /// Something of each reflex corner, with room for whole lanes.
    struct Casters
    {
        explicit Casters(Common::Memory::Allocator* allocator) : mX(allocator), mY(allocator) {}
        Vector<float> mX;
        Vector<float> mY;
    };

    /// Of a corner, as the eye before has seen it.
    struct Shadow
    {
        int32 mEye = NONE;
        int32 mEnd = 0;         // a place; that of the corner for none
        bool mDoubtful = false; // it has not ended as it should
    };

    void gatherCasters();
    void showAll(int32 eye);
    void hide(int32 first, int32 count, int32 eye);
    void hideRun(int32 first, int32 last);
    void sweepForward(int32 eye);
    void sweepBackward(int32 eye);
    uint64 findCasters(size_t word, const Casters& onward, int32 eye, bool forward) const;
    int32 nextCaster(int32 rank, int32 eye);
    int32 previousCaster(int32 rank, int32 eye);
    int32 castRay(int32 eye, int32 corner, Vec2<float>& direction);
    Shadow castForward(int32 eye, int32 corner);
    Shadow castBackward(int32 eye, int32 corner);
    int32 next(int32 k) const { return k + 1 < mN ? k + 1 : 0; }
    int32 previous(int32 k) const { return k > 0 ? k - 1 : mN - 1; }
    /// Steps from one corner forward to another.
    int32 stepsForward(int32 a, int32 b) const { return b >= a ? b - a : b - a + mN; }
    const Vec2<float>& point(int32 k) const { return mPolygon[static_cast<size_t>(k)]; }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    EdgeBoxes& mBoxes;
    int32 mN = 0;
    float mReach = 0.0f;
    bool mDoubtful = false;
    Vector<Shadow> mForwardShadows; // by corner
    Vector<Shadow> mBackwardShadows;

    // of whole sweeps, gathered for the first one
    bool mGathered = false;
    Vector<uint64> mSeen;   // a bit for each corner; only those after the eye count
    Vector<int32> mCorners; // the reflex corners
    Vector<int32> mRanks;   // reflex corners before a corner; one more at the end
    Casters mPlaces;        // of the reflex corners
    Casters mForward;       // their edges to the next corner
    Casters mBackward;      // and to the one before
    size_t mWord = 0;       // word of reflex corners that mTurning is about
    uint64 mTurning = 0;    // those that turn away from the eye
};
} // namespace KORV::NavMesh
