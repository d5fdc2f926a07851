#pragma once

#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/places/boxtree.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// The axes of a mesh, and which positions the bounds of NodeShape hold for.
struct PlaneFrame
{
    /// Beyond this, products of coordinates could overflow. [world units]
    static constexpr float MAX_COORDINATE = 1e18f;

    explicit PlaneFrame(const NavMeshContainer& mesh) : mNormal(mesh.mNormal), mXAxis(mesh.mXAxis), mYAxis(mesh.mYAxis)
    {
    }

    /// Whether the axes are numbers of a sensible size.
    bool isRegular() const;
    /// Whether a position and its place in the plane are numbers of a sensible size.
    bool isRegular(const Vec3<float>& position, const Vec2<float>& place) const;
    /// Height along the normal. [world units]
    double getHeight(const Vec3<float>& position) const { return getProduct(mNormal, position); }
    /// The scalar product, as good as exact.
    static double getProduct(const Vec3<float>& a, const Vec3<float>& b)
    {
        return double(a.mX) * double(b.mX) + double(a.mY) * double(b.mY) + double(a.mZ) * double(b.mZ);
    }
    /// The most by which a position can change the difference of two heights when that is computed in float.
    double getHeightError(const Vec3<float>& position) const;

    Vec3<float> mNormal;
    Vec3<float> mXAxis;
    Vec3<float> mYAxis;
};

/// One node as the inside test sees it, and the box of the points that can pass that test.
struct NodeShape
{
    explicit NodeShape(Common::Memory::Allocator* allocator) : mCorners(allocator) {}

    /// Takes over a node's corners.
    /// @return false when no point can be inside: without corners, or with ids out of range.
    bool assign(const NavMeshContainer& mesh, const PlaneFrame& frame, uint32 nodeID);
    /// Whether the area in the ground plane is positive, which means wound as it should be. For regular nodes.
    bool hasArea() const;
    /// Measures the node taken over last, which must be regular.
    void measure(const NavMeshContainer& mesh, const PlaneFrame& frame);

    Vector<Vec2<float>> mCorners; ///< in the ground plane
    Vec3<float> mFirstCorner;     ///< in space
    float mMaxHeight;             ///< value of the height class
    uint32 mID;
    bool mIsRegular; ///< all corners are, and the frame
    // measured
    bool mIsBounded; ///< whether points beside the box are outside; those above and below it always are
    /// Ground plane and height. Holds the polygon, the places in the ground plane of all points inside (if bounded) and
    /// the height of the first corner up to its getHeightError.
    SearchBox mBox;

private:
    double getWidth() const;
};

/// The nearest floats that are not above and not below.
float roundDown(double value);
float roundUp(double value);
} // namespace KORV::NavMesh
