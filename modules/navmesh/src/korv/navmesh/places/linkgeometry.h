#pragma once

#include "korv/navmesh/navmeshcontainer.h"

namespace KORV::NavMesh
{
/// The corner after one, which is the end of the side that starts there; and the one before.
inline size_t nextCorner(const NavMeshContainer::NavNode& node, size_t corner)
{
    return corner + 1 < node.mPolygon.size() ? corner + 1 : 0;
}

inline size_t previousCorner(const NavMeshContainer::NavNode& node, size_t corner)
{
    return corner > 0 ? corner - 1 : node.mPolygon.size() - 1;
}

/// A point of a segment, exact at both ends. @param share  of the way from a to b; moved into [0, 1].
inline Vec3<float> between(const Vec3<float>& a, const Vec3<float>& b, float share)
{
    if (!(share > 0.0f))
        return a;
    return share >= 1.0f ? b : a + (b - a) * share;
}

/// The opening between a node and its neighbour across a side. [world units]
struct LinkGeometry
{
    Vec3<float> mLeaving[2]; ///< the part of the node's side that faces the neighbour, in the direction of the side
    Vec3<float> mLanding[2]; ///< where that part arrives on the neighbour's border, end for end
    float mHeight = 0.0f;    ///< of the landing above the side left
    float mWidth = 0.0f;     ///< length of the opening in the ground plane
    /// How far the landing lies beyond the side left, at both ends, in the ground plane: negative where it lies before
    /// it, as seen by who leaves.
    float mGap[2] = {0.0f, 0.0f};
    uint32 mCorners[2] = {0, 0}; ///< vertex ids of the ends of the node's side
    uint32 mFirstSide = 0;       ///< first of the neighbour's sides that the landing lies on
    uint32 mNumSides = 0;        ///< how many they are, from the first one on; 0 where no side runs along the one left
    bool mIsShared = false;      ///< both nodes have the side: leaving and landing are the same
    bool mIsWhole = false;       ///< all of the node's side faces the neighbour
    /// The neighbour lies on the same side of its border as the node on its own: in the ground plane, who crosses turns
    /// back.
    bool mTurnsBack = false;
};

/// Measures openings of one mesh, which must stay as it is meanwhile.
class LinkMeasure
{
public:
    explicit LinkMeasure(const NavMeshContainer& mesh);

    /// Measures the opening across a side with a neighbour; false when there is none. Reads nothing beyond the two
    /// nodes. Cost: linear in the sides of the neighbour; where one of them leads back, by ids alone.
    bool measure(LinkGeometry& link, uint32 nodeID, uint32 border) const;

private:
    using NavNode = NavMeshContainer::NavNode;

    inline bool fillBackLink(LinkGeometry& link, const NavNode& neighbour, uint32 nodeID) const;
    bool fillSharedSide(LinkGeometry& link, const NavNode& neighbour) const;
    bool fillFacingSide(LinkGeometry& link, const NavNode& neighbour) const;

    const NavMeshContainer& mMesh;
    // at hand, as a lookup of a size is a division
    const NavNode* mNodes;
    const Vec3<float>* mVertices;
    size_t mNumNodes;
    size_t mNumVertices;
};

/// The same for a single link.
inline bool measureLink(LinkGeometry& link, const NavMeshContainer& mesh, uint32 nodeID, uint32 border)
{
    return LinkMeasure(mesh).measure(link, nodeID, border);
}
} // namespace KORV::NavMesh
