#pragma once

#include "korv/navmesh/navmeshcontainer.h"

#include <algorithm>
#include <cmath>

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

/// The square of a length in the ground plane.
inline float getPlaneSquare(const NavMeshContainer& mesh, const Vec3<float>& offset)
{
    const Vec2<float> p(dot(mesh.mXAxis, offset), dot(mesh.mYAxis, offset));
    return dot(p, p);
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
    uint32 mFirstSide = 0;  ///< first of the neighbour's sides that the landing lies on
    uint32 mNumSides = 0;   ///< how many they are, from the first one on; 0 where no side runs along the one left
    bool mIsShared = false; ///< both nodes have the side: leaving and landing are the same
    /// The neighbour lies on the same side of its border as the node on its own: in the ground plane, who crosses turns
    /// back.
    bool mTurnsBack = false;
};

/// Corners and neighbours of a node, at hand.
struct NodeSides
{
    const uint32* mCorners = nullptr;
    const int32* mNeighbours = nullptr;
    uint32 mNumCorners = 0;
    uint32 mNumSides = 0; ///< that have a neighbour entry

    /// The corner at the end of a side.
    uint32 getEnd(uint32 side) const { return mCorners[side + 1 < mNumCorners ? side + 1 : 0]; }
};

/// A link as far as the side tells that leads back. For nearly all links that is everything.
struct LinkEnds
{
    enum Kind : uint8
    {
        SHARED,   ///< both nodes have the side
        OPPOSITE, ///< the side back lies on the side left, as seen from above
        OTHER     ///< anything else: the opening has to be measured
    };

    uint32 mNeighbourID = 0;
    uint32 mNumCorners = 0;         ///< of the neighbour
    uint32 mBackSide = 0;           ///< first of the neighbour's sides that lead back; beyond them where none does
    uint32 mCorners[2] = {0, 0};    ///< vertex ids of the ends of the node's side
    uint32 mFarCorners[2] = {0, 0}; ///< and of those of the side back, end for end, unless it is an OTHER
    float mSquare = 0.0f;           ///< of the side's length in the ground plane; finite
    float mHeight = 0.0f;           ///< of the side back above the side left, unless it is an OTHER
    Kind mKind = OTHER;
};

/// Measures openings of one mesh, which must stay as it is meanwhile.
class LinkMeasure
{
public:
    explicit LinkMeasure(const NavMeshContainer& mesh);

    /// Measures the opening across a side with a neighbour; false when there is none. Reads nothing beyond the two
    /// nodes. Cost: linear in the sides of the neighbour; where one of them leads back, by ids alone.
    bool measure(LinkGeometry& link, uint32 nodeID, uint32 border) const;

    // The steps of it, for those who go from node to node.

    /// Those of a node; none for an id that is none.
    NodeSides getSides(uint32 nodeID) const;
    /// Looks up the ends of a link, by ids alone. @param node  its sides; receives those of the neighbour.
    /// @return false where the side has no neighbour.
    bool findEnds(LinkEnds& ends, NodeSides& node, uint32 nodeID, uint32 border) const;
    /// Finds the kind of a link looked up, and the numbers. @return false where the side can't be measured.
    bool compareEnds(LinkEnds& ends) const;
    /// Measures the opening of a link of the kind OTHER. @return false where that can't be done.
    bool measureOther(LinkGeometry& link, const LinkEnds& ends, uint32 nodeID) const;

private:
    using NavNode = NavMeshContainer::NavNode;

    static uint32 findSideBack(const NodeSides& neighbour, uint32 nodeID, uint32 first);
    static void setSideBack(LinkEnds& ends, const NodeSides& neighbour, uint32 side);
    LinkEnds::Kind getKind(LinkEnds& ends) const;
    void fillWhole(LinkGeometry& link, const LinkEnds& ends) const;
    bool fillBackLink(LinkGeometry& link, LinkEnds ends, uint32 nodeID) const;
    bool fillSharedSide(LinkGeometry& link, LinkEnds ends) const;
    bool fillFacingSide(LinkGeometry& link, LinkEnds ends) const;

    const NavMeshContainer& mMesh;
    // at hand, as a lookup of a size is a division
    const NavNode* mNodes;
    const Vec3<float>* mVertices;
    size_t mNumNodes;
    size_t mNumVertices;
    float mSameSquare; ///< of a distance in the ground plane that is none
};

// inline: for nearly all links of a way it is all there is to do

inline NodeSides LinkMeasure::getSides(uint32 nodeID) const
{
    if (nodeID >= mNumNodes)
        return {};
    const NavNode& node = mNodes[nodeID];
    const auto numCorners = static_cast<uint32>(node.mPolygon.size());
    return {node.mPolygon.data(), node.mNeighbours.data(), numCorners,
            std::min(numCorners, static_cast<uint32>(node.mNeighbours.size()))};
}

inline bool LinkMeasure::findEnds(LinkEnds& ends, NodeSides& node, uint32 nodeID, uint32 border) const
{
    if (border >= node.mNumSides)
        return false;
    const auto neighbourID = static_cast<uint32>(node.mNeighbours[border]); // a negative one is beyond all nodes
    const uint32 start = node.mCorners[border];
    const uint32 end = node.getEnd(border);
    if (neighbourID >= mNumNodes || start >= mNumVertices || end >= mNumVertices)
        return false;
    node = getSides(neighbourID);
    ends.mNeighbourID = neighbourID;
    ends.mNumCorners = node.mNumCorners;
    ends.mCorners[0] = start;
    ends.mCorners[1] = end;
    setSideBack(ends, node, findSideBack(node, nodeID, 0));
    return true;
}

/// The next side that leads back; beyond them all where there is none. @param first  where to begin
inline uint32 LinkMeasure::findSideBack(const NodeSides& neighbour, uint32 nodeID, uint32 first)
{
    uint32 side = first;
    while (side < neighbour.mNumSides && neighbour.mNeighbours[side] != static_cast<int32>(nodeID))
        ++side;
    return side;
}

inline void LinkMeasure::setSideBack(LinkEnds& ends, const NodeSides& neighbour, uint32 side)
{
    ends.mBackSide = side < neighbour.mNumSides ? side : neighbour.mNumCorners;
    if (side >= neighbour.mNumSides)
        return;
    ends.mFarCorners[0] = neighbour.getEnd(side);
    ends.mFarCorners[1] = neighbour.mCorners[side];
}

inline bool LinkMeasure::compareEnds(LinkEnds& ends) const
{
    ends.mSquare = getPlaneSquare(mMesh, mVertices[ends.mCorners[1]] - mVertices[ends.mCorners[0]]);
    if (!std::isfinite(ends.mSquare)) // nor are the corners
        return false;
    ends.mKind = ends.mBackSide < ends.mNumCorners ? getKind(ends) : LinkEnds::OTHER;
    return true;
}

/// What the side back is to the side left.
inline LinkEnds::Kind LinkMeasure::getKind(LinkEnds& ends) const
{
    ends.mHeight = 0.0f;
    if (ends.mFarCorners[0] == ends.mCorners[0] && ends.mFarCorners[1] == ends.mCorners[1])
        return LinkEnds::SHARED;
    if (!(ends.mSquare > 0.0f) || ends.mFarCorners[0] >= mNumVertices || ends.mFarCorners[1] >= mNumVertices)
        return LinkEnds::OTHER;
    const Vec3<float> rise = mVertices[ends.mFarCorners[0]] - mVertices[ends.mCorners[0]];
    const Vec3<float>& farEnd = mVertices[ends.mFarCorners[1]];
    const Vec3<float>& end = mVertices[ends.mCorners[1]];
    if (!(getPlaneSquare(mMesh, rise) <= mSameSquare && getPlaneSquare(mMesh, farEnd - end) <= mSameSquare))
        return LinkEnds::OTHER;
    ends.mHeight = dot(mMesh.mNormal, (rise + farEnd - end) * 0.5f);
    return std::isfinite(ends.mHeight) ? LinkEnds::OPPOSITE : LinkEnds::OTHER;
}

/// The same for a single link.
inline bool measureLink(LinkGeometry& link, const NavMeshContainer& mesh, uint32 nodeID, uint32 border)
{
    return LinkMeasure(mesh).measure(link, nodeID, border);
}
} // namespace KORV::NavMesh
