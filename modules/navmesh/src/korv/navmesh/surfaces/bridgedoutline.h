#pragma once

#include "korv/navmesh/surfaces/borders.h"
#include "korv/navmesh/surfaces/finalpolygon.h"
#include "korv/navmesh/surfaces/sheetwalk.h"
#include "korv/navmesh/surfaces/surfaceparts.h"

namespace KORV::NavMesh
{
/// The outline of one surface with holes. Does what MarkFaceBorder, BridgeSearch and BuildFinalPolygon do on the
/// octree, with the same result, on the sheets of the one surface. Thread use: one object per surface and thread.
class BridgedOutline
{
public:
    BridgedOutline(const SurfaceParts& parts, uint32 surface, const OutlinePoints& outlinePoints,
                   Common::Memory::Allocator* allocator);

    /// Appends the points of the outline; those on straight stretches of a border may be left out. To be called once.
    void trace(Vector<Vec3<float>>& points);

private:
    /// The surface's voxels in a sheet, and their marks: a word for a side, or a word or label for each voxel.
    struct Sheet : SheetLinks
    {
        uint64 mVoxels = 0;
        uint64 mOpen[4] = {};    ///< border sides that have not been walked along
        uint64 mBridges[4] = {}; ///< a bridge leads on there
        uint64 mWaysOut[4] = {}; ///< a bridge meets the border there
        uint64 mJoinsBorders = 0;
        uint32 mSheet = 0;
        uint32 mLabels[PlaneBits::NUM_BITS] = {};

        bool isOpen(uint32 bit, uint32 side) const { return ((mOpen[side] >> bit) & 1u) != 0; }
        bool isOnBorder(uint32 bit) const { return ((getInterior() >> bit) & 1u) == 0; }
        bool joinsBorders(uint32 bit) const { return ((mJoinsBorders >> bit) & 1u) != 0; }
        void openBorders();
    };

    // a label holds the side of the neighbour it came from, whether there is one, and the border's number from 1 on
    static constexpr uint32 LABEL_SHIFT = 3;
    static constexpr uint32 LINKED = 4;

    void copySheets();
    void linkSheets();
    void markBorders();
    void markBorder(SheetState state);
    void searchBridges();
    void visit(uint32 voxel);
    void meet(const SheetState& from, uint32 side, const SheetState& to);
    void buildBridge(SheetState state, uint32 firstSide);
    void addJoin(uint32 a, uint32 b);
    void traceOutline(Vector<Vec3<float>>& points);
    bool meetsBridge(const SheetState& state);
    void crossBridges(Vector<Vec3<float>>& points, SheetState& state);
    void prepareWaysOut(Sheet& sheet, uint32 bit);
    uint32 findLocal(uint32 part) const;
    uint32& labelOf(const SheetState& state) { return mSheets[state.mSheet].mLabels[state.mBit]; }
    Vec3<int32> getPosition(const SheetState& state) const;

    const SurfaceParts& mParts;
    const SurfaceParts::Surface& mSurface;
    std::pair<const uint32*, const uint32*> mOwnParts;
    const OutlinePoints& mPoints;
    Vector<Sheet> mSheets;
    Vector<uint32> mLocalOfParts; // sheet of each own part
    LabelSets mSets;
    uint64 mNumSets = 0;     // of borders not yet connected
    Vector<uint32> mFront;   // voxels whose neighbours get labels next: 64 * sheet + bit, in the order reached
    Vector<uint32> mReached; // from them
};
} // namespace KORV::NavMesh
