#include "build.h"

#include "heap.h"
#include "stopwatch.h"

#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/logmanager.h"
#include "korv/common/debug/trace.h"
#include "korv/common/exceptions/exception.h"
#include "korv/navmesh/interface.h"

#include <cmath>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace KORV::Benchmarks
{
namespace
{
using namespace NavMesh;

class SlopeClassifier : public TriangleClassifier
{
public:
    void classifyTriangle(TriangleClass& result, const GeometryInfo& geometry, uint32 triangle) override
    {
        const IndexedTriangle ids = geometry.getTriangle(triangle);
        const Vec3<float> a = geometry.getWorldVertex(ids.mVertices[0]);
        const Vec3<float> normal =
            cross(geometry.getWorldVertex(ids.mVertices[1]) - a, geometry.getWorldVertex(ids.mVertices[2]) - a);
        result.mWalkable = normal[1] > mMinUp * normal.getLength();
        result.mSurfaceTypeID = 0;
    }

private:
    const float mMinUp = std::cos(MAX_SLOPE / 180.0f * std::numbers::pi_v<float>);
};

GeometryInfo toGeometry(const Scenes::Scene& scene, TriangleClassifier& classifier)
{
    GeometryInfo geometry;
    geometry.mClassifier = &classifier;
    geometry.mVertexData = scene.mVertices.data();
    geometry.mVertexStride = sizeof(Scenes::Vertex);
    geometry.mNumVertices = static_cast<uint32>(scene.mVertices.size());
    geometry.mIndexData = scene.mTriangles.data();
    geometry.mTriangleStride = sizeof(Scenes::Triangle);
    geometry.mNumTriangles = static_cast<uint32>(scene.mTriangles.size());
    return geometry;
}

void setUp(NavMeshBuilder& builder, const GeometryInfo& geometry, const BuildOptions& options)
{
    builder.clearGeometries();
    builder.clearCharacters();
    builder.clearSurfaceTypes();
    builder.addGeometry(geometry);
    builder.addSurfaceType({"Default", 0});
    builder.addCharacter({"human", 1, BODY_HEIGHT, JUMP_HEIGHT, FALL_HEIGHT});
    if (options.mTwoCharacters)
        builder.addCharacter({"mouse", 2, SMALL_BODY_HEIGHT, JUMP_HEIGHT, FALL_HEIGHT});
    NavMeshBuilder::Parameter parameter;
    parameter.mGravityDir = {0.0f, -1.0f, 0.0f};
    parameter.mCubeSize = options.mCube;
    parameter.mSplitDepth = options.mSplitDepth;
    parameter.mNumThreads = options.mWorkers;
    builder.setParameter(parameter);
    builder.setRefined(options.mRefined);
}

void collect(BuildFigures& figures, const NavMeshBuilder& builder, const NavMeshContainer* mesh)
{
    const NavMeshBuilder::Statistics& statistics = builder.getStatistics();
    figures.mDone = mesh != nullptr;
    figures.mStages.clear();
    for (uint32 i = 0; i + 1 < NavMeshBuilder::Statistics::NUM_STAGES; ++i) // the last is the total
    {
        const NavMeshBuilder::Statistics::Stage& stage = statistics.mStages[i];
        if (stage.mName != nullptr)
            figures.mStages.push_back({stage.mName, stage.mSeconds});
    }
    figures.mNumPolygons = mesh != nullptr ? mesh->mNodes.size() : 0;
    figures.mNumVoxels = statistics.mNumVoxels;
    figures.mNumSurfaces = statistics.mNumSurfaces;
}
} // namespace

Library::Library()
{
    using namespace Common::Callback;
    Common::Debug::Trace::setReceiver(nullptr);
    Interface::initLibrary(SharedPtr<MemoryCallback>(new Heap::Callback),
                           SharedPtr<FileIOCallback>(new StandardFileIOCallback));
    Common::Debug::LogManager::getInstance()->setLogMask(0);
}

Library::~Library()
{
    Interface::closeLibrary();
}

SharedPtr<NavMeshContainer> buildMesh(const Scenes::Scene& scene, const BuildOptions& options, BuildFigures* figures)
{
    SlopeClassifier classifier;
    const SharedPtr<NavMeshBuilder> builder = Interface::getNavMeshBuilder();
    setUp(*builder, toGeometry(scene, classifier), options);
    try
    {
        Heap::resetPeak();
        const std::clock_t cpuStart = std::clock();
        const Stopwatch watch;
        SharedPtr<NavMeshContainer> mesh = builder->generateNavMesh();
        if (figures != nullptr)
        {
            figures->mSeconds = watch.getSeconds();
            figures->mCpuSeconds = cpuSecondsSince(cpuStart);
            figures->mPeak = Heap::getPeak();
            collect(*figures, *builder, mesh.get());
        }
        return mesh;
    }
    catch (Common::Exceptions::Exception* error)
    {
        const std::unique_ptr<Common::Exceptions::Exception> owner(error);
        throw std::runtime_error(error->getDescription().c_str());
    }
}
} // namespace KORV::Benchmarks
