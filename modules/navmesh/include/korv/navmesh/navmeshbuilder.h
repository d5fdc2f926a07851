#pragma once

#include "korv/common/memory/memorymanaged.h"
#include "korv/navmesh/api.h"
#include "korv/navmesh/characterinfo.h"
#include "korv/navmesh/geometryinfo.h"
#include "korv/navmesh/navmeshcontainer.h"
#include "korv/navmesh/surfacetype.h"
#include "korv/navmesh/types.h"

namespace KORV::Common::Threading
{
class ThreadPool;
}

namespace KORV::NavMesh
{
/// Watches a generation; the host implements it. Called on the thread that called generateNavMesh.
class KORV_NAVMESH_API ProgressReceiver
{
public:
    virtual ~ProgressReceiver();
    /// Called between stages and every few thousand steps.
    /// @param stage  name of the stage, valid during the call.
    /// @param fraction  how much of the stage is done, in [0, 1].
    /// @return false to stop: generateNavMesh then cleans up and returns an empty pointer.
    virtual bool onProgress(const char* stage, float fraction) = 0;
};

/// Collects what a mesh is to be built from, and builds it. The host gets the one builder from Interface. Inputs stay
/// between runs. One thread at a time.
class KORV_NAVMESH_API NavMeshBuilder : public Common::Memory::MemoryManaged, public Common::ReferenceCounted
{
public:
    /// What a run is asked to do. Lengths are in world units, the unit of the input vertices.
    struct Parameter
    {
        /// Direction of gravity, any length but zero. A run normalises it in place.
        Vec3<float> mGravityDir{0.0f, 0.0f, -1.0f};
        /// Edge of a voxel. [world units, > 0] Half of it gives about four times the voxels on flat ground.
        float mCubeSize = 2.0f;
        /// Leading octree levels that neighbouring voxels must share to belong to one surface. -1 and 0: none. Below
        /// -1: chosen by a run, which writes its choice back; set it again before the next scene.
        int32 mSplitDepth = -2;
        /// Worker threads of a run. [0: one per processor] The mesh is the same for any number.
        uint32 mNumThreads = 0;
    };

    /// Figures of the last run.
    struct Statistics
    {
        static constexpr uint32 NUM_STAGES = 5;
        /// Seconds a stage took, by its log name.
        struct Stage
        {
            const char* mName = nullptr;
            double mSeconds = 0.0;
        };

        uint64 mNumVoxels = 0;          ///< occupied voxels
        uint64 mNumWalkableVoxels = 0;  ///< those that end up in a surface
        uint32 mNumSurfaces = 0;        ///< outlines
        uint32 mNumInsetRescues = 0;    ///< outlines decomposed only with the inset from unmoved points
        uint32 mNumTriangleRescues = 0; ///< outlines cut into triangles and merged
        uint32 mOctreeDepth = 0;
        Stage mStages[NUM_STAGES]; ///< in the order they ran; the last is the total
        bool mCancelled = false;   ///< a progress receiver stopped the run
    };

    NavMeshBuilder();
    ~NavMeshBuilder() override;

    const Parameter& getParameter() const;
    /// Copies the fields; generateNavMesh validates them.
    void setParameter(const Parameter& parameter);

    /// Chooses between the specified rules (the default) and the refined ones, for the runs to come.
    void setRefined(bool refined) { mRefined = refined; }
    bool isRefined() const { return mRefined; }

    /// Adds a character. An equal name is reported, and the character added all the same.
    void addCharacter(const CharacterInfo& character);
    void clearCharacters();

    /// Adds a surface type. An equal name or id is reported, and the type added all the same.
    void addSurfaceType(const SurfaceType& surfaceType);
    /// The first match in the order added, or null.
    const SurfaceType* findSurfaceType(const BasicString& name) const;
    const SurfaceType* findSurfaceType(uint16 id) const;
    void clearSurfaceTypes();

    /// Adds a copy of the record; what it points to must stay valid until generateNavMesh has returned.
    void addGeometry(const GeometryInfo& geometry);
    void clearGeometries();

    /// Builds a mesh from the inputs.
    /// @return the mesh, or an empty pointer when nothing is walkable or the progress receiver stopped the run.
    /// Throws ArgumentException (or a subclass, naming the argument) for input that can't be used, before any work, and
    /// passes on what stages and callbacks throw. The builder stays usable.
    SharedPtr<NavMeshContainer> generateNavMesh();

    /// Installs a watcher of the runs to come (not owned), null for none.
    void setProgressReceiver(ProgressReceiver* receiver);
    /// Figures of the last run, also of one that failed.
    const Statistics& getStatistics() const;

    /// Depth of the octree that the inputs would get with the current cube size: log2 of the voxels across, rounded
    /// up; 0 without vertices. Throws ArgumentException above 30.
    uint32 computeOctreeDepth() const;

private:
    class Run;

    uint32 mainSurfaceAxis() const;
    int32 computeSplitDepth() const;
    void checkInputs() const;

    Parameter mParameter;
    bool mRefined = false;
    Vector<GeometryInfo> mGeometries;
    Vector<CharacterInfo> mCharacters;
    Vector<SurfaceType> mSurfaceTypes;
    Common::Threading::ThreadPool* mThreadPool = nullptr;
    ProgressReceiver* mProgressReceiver = nullptr;
    Statistics mStatistics;
};
} // namespace KORV::NavMesh
