#pragma once

#include "korv/common/io/stream.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/characterinfo.h"
#include "korv/navmesh/surfacetype.h"
#include "korv/navmesh/types.h"

namespace KORV::Common::Parser::XML
{
class XMLNodeElements;
class XMLTreeBuilder;
} // namespace KORV::Common::Parser::XML

namespace KORV::NavMesh
{
/// A finished navigation mesh: convex nodes over shared vertices, linked across their sides.
/// Thread use: const operations may run at once on any threads while nobody modifies the mesh; the reference count of
/// SharedPtr is not atomic.
class KORV_NAVMESH_API NavMeshContainer : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    /// One convex polygon of walkable ground.
    struct NavNode
    {
        Vector<uint32> mPolygon;   ///< vertex ids of the corners, in order
        Vector<int32> mNeighbours; ///< node across the side from corner i to corner i + 1; negative for none
        int32 mHeightClass = -1;   ///< index into mHeight
        uint16 mSurfaceTypeID = 65535;

        NavNode() = default;
        /// A node whose lists live on the allocator of the mesh that will hold it.
        explicit NavNode(Common::Memory::Allocator* allocator) : mPolygon(allocator), mNeighbours(allocator) {}
        /// A copy with its lists on another allocator.
        NavNode(const NavNode& other, Common::Memory::Allocator* allocator)
            : mPolygon(other.mPolygon, allocator), mNeighbours(other.mNeighbours, allocator),
              mHeightClass(other.mHeightClass), mSurfaceTypeID(other.mSurfaceTypeID)
        {
        }
    };

    /// What checkInvariants finds: one broken promise of the mesh.
    struct Violation
    {
        int32 mNode = -1;  ///< node id, -1 where it concerns the mesh
        int32 mSide = -1;  ///< side or corner of that node, -1 where it concerns the node
        BasicString mText; ///< what is wrong, for a person
    };

    /// An empty mesh. Orientation and cube size are zero until somebody sets them.
    NavMeshContainer();
    NavMeshContainer(const Vector<CharacterInfo>& characters, const Vector<SurfaceType>& surfaceTypes);
    NavMeshContainer(const NavMeshContainer& other);
    NavMeshContainer& operator=(const NavMeshContainer& other);
    ~NavMeshContainer() override;

    /// True when there are no nodes.
    bool empty() const;
    /// Empties nodes, vertices and heights; orientation, cube size, characters and surface types stay.
    void clear();

    /// Height value of a class. [world units] An id out of range gives 0; one beyond the table is reported.
    float getHeightValue(int heightClassID) const;
    /// The first character of that name (byte for byte) or user id, null if there is none. Valid until the list
    /// changes.
    const CharacterInfo* getCharacter(const BasicString& name) const;
    const CharacterInfo* getCharacter(int64 userID) const;
    /// The first surface type of that name (byte for byte) or id, null if there is none. Valid until the list changes.
    const SurfaceType* getSurfaceType(const BasicString& name) const;
    const SurfaceType* getSurfaceType(uint16 id) const;
    /// Every character that fits a node of that height class, in list order.
    Vector<const CharacterInfo*> getCharactersByHeightClassID(uint32 heightClassID) const;

    /// Estimated size of the whole mesh. [bytes]
    uint32 getMemoryUsage() const;
    /// Estimated size of one node; 0 for an id that is not valid. [bytes]
    uint32 getMemoryUsage(int nodeIndex) const;

    /// Prepares nothing: the queries need no index.
    void initNodeSearch();
    bool isNodeSearchInitialized() const;

    /// Finds the node that a point stands on, see isPointInsideNode.
    /// @param point  any position; one with a component that is not finite is on no node. [world units]
    /// @return the lowest matching node id, or -1 where there is none.
    /// Cost: linear in the nodes; one on another floor costs one dot product.
    int searchNode(const Vec3<float>& point) const;
    /// Whether a point lies over the node's polygon in the ground plane (border included), at most two cube sizes below
    /// the plane through its first corner and no higher above it than the value of its height class.
    /// @return false also for a node id out of range (a negative one is reported) and a node with invalid ids.
    bool isPointInsideNode(const Vec3<float>& point, int nodeID) const;
    /// The mean of the node's corners, which is not the centre of its area. [world units]
    /// An id out of range is reported and gives the zero vector; corners with invalid vertex ids are left out.
    Vec3<float> getNodeMiddlePoint(int nodeIndex) const;
    /// Distance in the ground plane, heights ignored, from a point inside or outside to the nearest side. [world units]
    /// @return the largest float for a node id out of range (a negative one is reported) or a node without valid sides.
    float getDistanceToNearestEdgeOfNode(const Vec3<float>& point, int nodeID) const;

    /// Appends the element "navmesh" to the builder's current element.
    void writeToXML(Common::Parser::XML::XMLTreeBuilder* builder) const;
    /// Fills the mesh from the children of an element "navmesh".
    /// @return false, after a report, when something required is missing; the mesh is then partly filled.
    bool initFromXML(Common::Parser::XML::XMLNodeElements* list);

    /// Writes the mesh in binary form to a stream that stands at its start and stays open.
    /// Throws, before anything is written, an ArgumentException for a mesh that the form cannot hold (a name of 65,536
    /// bytes or more, a node whose neighbour entries are not one a corner) or a stream that is not writable and
    /// seekable. The stream's own exceptions pass through, and leave a stream that no reader accepts.
    void writeToBinary(const SharedPtr<Common::Stream>& stream, Endiness endiness) const;
    /// Fills an empty mesh from a stream that stands at its start; it is left behind the mesh, open. Values are not
    /// checked, see checkInvariants.
    /// Throws a SerializeException when the stream does not hold a whole mesh (a VersionMismatchException or
    /// TypeMismatchException where that is the reason), an ArgumentException for one that is not readable and seekable;
    /// the mesh is then partly filled.
    /// @return true; every failure is an exception.
    bool initFromBinary(const SharedPtr<Common::Stream>& stream);

    /// Checks what a finished mesh promises: ids in range, at least three corners, one neighbour entry a side, corners
    /// that run counter-clockwise and convex in the ground plane (up to the dents that an inset of a quarter cube
    /// leaves; a node without area passes), finite numbers, a class and orientation that make sense, no more nodes than
    /// the search can take.
    /// @param maxViolations  the search ends when so many have been found.
    /// Cost: n log n for a node of n corners.
    Vector<Violation> checkInvariants(uint32 maxViolations = 1000) const;

    Vector<Vec3<float>> mVertices; ///< corner positions; a vertex id is an index
    Vector<NavNode> mNodes;        ///< a node id is an index
    Vector<float> mHeight;         ///< height value of each height class [world units]
    Vec3<float> mNormal;           ///< up direction
    Vec3<float> mXAxis;            ///< first axis of the ground plane
    Vec3<float> mYAxis;            ///< second axis of the ground plane
    float mCubeSize = 0.0f;        ///< voxel edge the mesh was built from [world units]
    Vector<CharacterInfo> mCharacters;
    Vector<SurfaceType> mSurfaceTypes;
};
} // namespace KORV::NavMesh
