#pragma once

#include "korv/navmesh/pieces/edgeboxes.h"

namespace KORV::NavMesh
{
/// Finds which corners of an outline see each other, by two sweeps around each corner.
/// The outline runs clockwise, its interior lies to the right of each edge. Holds references to outline and flags.
class OutlineVisibility
{
public:
    /// @param reflex  a flag for each corner.
    OutlineVisibility(const Vector<Vec2<float>>& polygon, const Vector<uint8>& reflex,
                      Common::Memory::Allocator* allocator);

    /// Takes outline and flags as they are now; they must not change until the last corner.
    void build();

    /// Appends the corners after @p corner that see it, in increasing order.
    /// Cost: linear in the corners with a small factor, and a ray for each one that hides others.
    void appendVisible(Vector<int32>& visible, int32 corner);

private:
    /// The corners between two others that are hidden from the corner at hand. An index beyond the end of the outline
    /// goes on at its start.
    struct Shadow
    {
        int32 mBegin;
        int32 mEnd;
    };

    /// Whether a corner is found to be an ear of the outline.
    enum class Ear : uint8
    {
        UNKNOWN,
        YES,
        NO
    };

    /// Something of each reflex corner, and room for lanes that begin at any of them.
    struct Casters
    {
        explicit Casters(Common::Memory::Allocator* allocator) : mX(allocator), mY(allocator) {}
        Vector<float> mX;
        Vector<float> mY;
    };

    void measureTolerances();
    void findVisible(int32 i);
    void showAll(int32 i);
    void sweepForward(int32 i);
    void sweepBackward(int32 i, int32 start);
    uint64 findCasters(size_t word, const Casters& onward, int32 i, bool forward) const;
    int32 nextCaster(int32 rank, int32 i);
    int32 previousCaster(int32 rank, int32 i);
    int32 castShadow(int32 i, int32 j, Vec2<float>& direction);
    int32 castForward(int32 i, int32 j);
    int32 castBackward(int32 i, int32 j);
    bool isStep(int32 i, int32 j, int32 middle, int32 end);
    bool isEar(int32 middle);
    bool castsBackward(int32 i, int32 j) const;
    void castKnown(int32 i);
    static int32 leaveForward(Vector<Shadow>& shadows, int32 k);
    static int32 leaveBackward(Vector<Shadow>& shadows, int32 k);
    int32 startBackward(int32 i) const;
    bool isClearOf(int32 i, int32 a) const;
    void hide(int32 first, int32 count, int32 i);
    void hideRun(int32 first, int32 last);
    int32 next(int32 k) const { return k + 1 < mN ? k + 1 : 0; }
    int32 previous(int32 k) const { return k > 0 ? k - 1 : mN - 1; }
    /// Steps from one corner forward to another.
    int32 stepsForward(int32 a, int32 b) const { return b >= a ? b - a : b - a + mN; }
    const Vec2<float>& point(int32 k) const { return mPolygon[static_cast<size_t>(k)]; }

    const Vector<Vec2<float>>& mPolygon;
    const Vector<uint8>& mReflex;
    int32 mN = 0;
    EdgeBoxes mBoxes;
    Vector<uint64> mSeen;            // a bit for each corner; only those after the one at hand count
    Vector<int32> mCorners;          // the reflex corners
    Vector<int32> mRanks;            // reflex corners before a corner; one more at the end
    Casters mPlaces;                 // of the reflex corners
    Casters mForward;                // their edges to the next corner
    Casters mBackward;               // and to the one before
    Vector<int32> mFirstSeer;        // the first corner that sees a corner, of those asked for so far; -1 for none
    float mClearance = 0.0f;         // of a line of sight, so that a ray which passes it does so whatever the rounding
    bool mCoarse = false;            // edges are long against all tolerances
    Vector<Ear> mEars;               // whether nothing reaches in between a corner and its two neighbours
    bool mRayLost = false;           // a ray from the corner at hand has met nothing
    Vector<int32> mLongCasters;      // of the long shadows of the last backward sweep
    Vector<Shadow> mForwardShadows;  // of the corner at hand, increasing
    Vector<Shadow> mBackwardShadows; // likewise, decreasing
    size_t mWord = 0;                // word of reflex corners that mTurning is about
    uint64 mTurning = 0;             // those that turn away from the corner at hand
};
} // namespace KORV::NavMesh
