// The order of a generation: height classes, outlines, convex nodes, connections.
//
// Everything that a run needs lives in one Run object, so that every way out (nothing walkable, an exception of a stage
// or of the host, a stop by the host) takes the same road: the pool runs dry and ends, the builder is usable again.

#include "korv/common/debug/assert.h"
#include "korv/common/debug/trace.h"
#include "korv/common/geom/geomutility.h"
#include "korv/common/memory/freelistallocator.h"
#include "korv/common/memory/threadsafeallocator.h"
#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/heightclassifier.h"
#include "korv/navmesh/mainaxes.h"
#include "korv/navmesh/meshdraft.h"
#include "korv/navmesh/navmeshbuilder.h"
#include "korv/navmesh/navmeshconnector.h"
#include "korv/navmesh/navmeshoctree.h"
#include "korv/navmesh/pieces/piecesequencer.h"
#include "korv/navmesh/pieces/polygoncreatetask.h"
#include "korv/navmesh/runcontrol.h"
#include "korv/navmesh/stageclock.h"
#include "korv/navmesh/surfacepolygon.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace KORV::NavMesh
{
namespace
{
using Common::Debug::MessageText;
using Common::Debug::Trace;
using Common::Memory::AllocatorPtr;
using Common::Memory::FreeListAllocator;
using Common::Memory::ThreadSafeAllocator;
using Common::Threading::ThreadPool;

constexpr const char* FUNCTION = "KORV::NavMesh::NavMeshBuilder::generateNavMesh";

// Names of the stages, in the log and for the host.
constexpr const char* OUTLINE_STAGE = "Build maximal connected polygons";
constexpr const char* CONVEX_STAGE = "Build Convex Polygon";
constexpr const char* CONNECTION_STAGE = "Build Vertical Connections";
constexpr const char* HEIGHT_STAGE = "Add Height Classifier";
constexpr const char* TOTAL_STAGE = "Building Navigation Mesh";

/// A progress report at least this often while outlines are cut. [milliseconds]
constexpr uint32 PROGRESS_PAUSE = 50;

/// Outlines of so many corners are tasks of their own, and the first.
constexpr size_t LARGE_OUTLINE = 2000;
/// Smaller ones share a task up to so many corners: half a millisecond of work to eight, as long as there is enough of
/// it for all workers to end together.
constexpr size_t MIN_BATCH_CORNERS = 512;
constexpr size_t MAX_BATCH_CORNERS = 8192;
constexpr size_t BATCHES_PER_WORKER = 24;
/// So many tasks may wait for workers; half of them leave before more are queued, as waking a thread takes long.
constexpr uint32 MAX_TASKS = 64;

// Tolerances of the connections, as shares of a cube.
constexpr float OVERLAP_SHARE = 0.5f;
constexpr float DISTANCE_SHARE = 0.25f;

/// Makes a direction of any finite length one of length 1; the zero vector stays.
void normaliseDirection(Vec3<float>& direction)
{
    constexpr float SMALLER = 1e-20f;
    if (!std::isfinite(direction.getLength())) // the squares of large components overflow
        direction = direction * SMALLER;
    direction.normalise();
}

/// An allocator for one thread of a run: all that it keeps goes back at once with it.
AllocatorPtr createOwnAllocator(const AllocatorPtr& source)
{
    return AllocatorPtr(new (source) FreeListAllocator(source, FreeListAllocator::SMALL_PAGE_BYTES));
}

/// The same for all threads.
AllocatorPtr createRunAllocator(const AllocatorPtr& source)
{
    return AllocatorPtr(new (source) ThreadSafeAllocator(createOwnAllocator(source)));
}
} // namespace

class NavMeshBuilder::Run
{
public:
    explicit Run(NavMeshBuilder& builder);
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    SharedPtr<NavMeshContainer> execute();

private:
    /// The outlines on their way through the pool.
    struct OutlineQueue
    {
        PieceSequencer& mSequencer;
        size_t mBatchCorners;
        bool mIsSmall; ///< one task is all there is, not worth waking a worker
        size_t mNumTasks = 0;
        bool mReported = false;
        StageClock mSinceReport{};
    };

    void startPool();
    void classifyHeights();
    void buildOutlines();
    void createContainer();
    void buildConvexNodes();
    size_t countCorners() const;
    void queueOutlines(OutlineQueue& queue, bool large);
    void queueTask(OutlineQueue& queue, PolygonCreateTask* task);
    void waitForOutlines(OutlineQueue& queue, size_t limit) const;
    void reportOutlines(OutlineQueue& queue) const;
    void countRescues(const PieceSequencer& sequencer);
    void buildConnections();
    void writeHeights();
    void endStage(const char* name);
    void endPool();
    Rules getRules() const { return mBuilder.mRefined ? Rules::REFINED : Rules::SPECIFIED; }

    NavMeshBuilder& mBuilder;
    RunControl mControl;
    AllocatorPtr mAllocator;        // for all threads, and all but the mesh
    AllocatorPtr mOutlineAllocator; // this thread's own
    SurfacePolygonList mPolygons;
    HeightClassifier mClassifier;
    uint32 mAxis = 0;
    SharedPtr<NavMeshContainer> mContainer;
    std::optional<MeshDraft> mDraft;
    uint32 mNumStages = 0;
    StageClock mTotalClock;
    StageClock mStageClock;
};

SharedPtr<NavMeshContainer> NavMeshBuilder::generateNavMesh()
{
    mStatistics = Statistics();
    checkInputs();
    KORV_ASSERT(mParameter.mGravityDir.getLength() > 0, "mParameter.mGravityDir.getLength() > 0",
                "Gravity direction is zero length");
    normaliseDirection(mParameter.mGravityDir);
    try
    {
        return Run(*this).execute();
    }
    catch (RunCancelled*)
    {
        mStatistics.mCancelled = true;
        return nullptr;
    }
}

NavMeshBuilder::Run::Run(NavMeshBuilder& builder)
    : mBuilder(builder), mControl(builder.mProgressReceiver, builder.mStatistics),
      mAllocator(createRunAllocator(builder.getAllocator())), mOutlineAllocator(createOwnAllocator(mAllocator)),
      mPolygons(mOutlineAllocator.get()), mClassifier(builder.getMemory())
{
}

NavMeshBuilder::Run::~Run()
{
    endPool();
}

SharedPtr<NavMeshContainer> NavMeshBuilder::Run::execute()
{
    startPool();
    mControl.report(OUTLINE_STAGE, 0.0f);
    classifyHeights();
    buildOutlines();
    if (mPolygons.empty())
        return nullptr;
    createContainer();
    buildConvexNodes();
    buildConnections();
    writeHeights();
    mControl.report(TOTAL_STAGE, 1.0f);
    mStageClock = mTotalClock;
    endStage(TOTAL_STAGE);
    return mContainer;
}

void NavMeshBuilder::Run::startPool()
{
    mBuilder.mThreadPool = ThreadPool::createOnDemand(mAllocator, mBuilder.mParameter.mNumThreads, MAX_TASKS);
    Trace::message(MessageText() << FUNCTION << " : Using Allocator:" << mBuilder.getMemory()->getName());
    mTotalClock.restart();
    mStageClock.restart();
}

void NavMeshBuilder::Run::classifyHeights()
{
    for (const CharacterInfo& character : mBuilder.mCharacters)
        mClassifier.insert(character);
    mClassifier.finalizeIDs();
    for (CharacterInfo& character : mBuilder.mCharacters)
    {
        float lo = 0.0f;
        float hi = 0.0f;
        character.mMaxHeightClassID = mClassifier.classify(character.mPhysicalHeight, lo, hi);
    }
}

void NavMeshBuilder::Run::buildOutlines()
{
    Parameter& parameter = mBuilder.mParameter;
    const bool isSplitDepthAutomatic = parameter.mSplitDepth < -1;
    if (isSplitDepthAutomatic)
        parameter.mSplitDepth = mBuilder.computeSplitDepth();
    mAxis = mBuilder.mainSurfaceAxis();
    {
        const std::unique_ptr<NavMeshOctree> octree(
            new (mAllocator) NavMeshOctree(parameter, &mBuilder.mGeometries, mClassifier, mBuilder.mThreadPool,
                                           mControl, getRules(), isSplitDepthAutomatic));
        octree->buildMaxConnectedPolygons(mPolygons, mAxis);
    }
    mAllocator->releaseUnusedMemory(); // the pool is idle
    endStage(OUTLINE_STAGE);
    // Outlines that were a straight line have no corners left.
    mPolygons.remove_if([](const SurfacePolygon& polygon) { return polygon.mPoints.size() < 3; });
}

void NavMeshBuilder::Run::createContainer()
{
    // not on the allocator of the pool: its nodes are many blocks, and only this thread makes them
    mContainer = new (mBuilder.getAllocator()) NavMeshContainer(mBuilder.mCharacters, mBuilder.mSurfaceTypes);
    mContainer->mNormal = MAIN_AXES[mAxis];
    Common::Geom::computePlaneBasis(mContainer->mXAxis, mContainer->mYAxis, mContainer->mNormal);
    mContainer->mCubeSize = mBuilder.mParameter.mCubeSize;
}

void NavMeshBuilder::Run::buildConvexNodes()
{
    ThreadPool& pool = *mBuilder.mThreadPool;
    PieceSequencer sequencer(mPolygons.size(), mAllocator);
    try
    {
        const size_t numCorners = countCorners();
        const size_t share = numCorners / (BATCHES_PER_WORKER * std::max<size_t>(pool.getNumThreads(), 1));
        OutlineQueue queue{sequencer, std::clamp(share, MIN_BATCH_CORNERS, MAX_BATCH_CORNERS),
                           numCorners <= MIN_BATCH_CORNERS};
        queueOutlines(queue, true); // one that takes long would else keep a single worker busy in the end
        queueOutlines(queue, false);
        waitForOutlines(queue, 0);
    }
    catch (...)
    {
        sequencer.stop();
        pool.waitForTasks(); // they refer to what this function owns
        throw;
    }
    pool.waitForTasks();
    pool.releaseUnusedMemory();
    sequencer.getErrors().rethrow();
    sequencer.moveTo(mDraft.emplace(*mContainer, mAllocator.get()));
    mPolygons.clear(); // the draft has all that is needed of them
    mOutlineAllocator->releaseUnusedMemory();
    mAllocator->releaseUnusedMemory();
    countRescues(sequencer);
    endStage(CONVEX_STAGE);
}

size_t NavMeshBuilder::Run::countCorners() const
{
    size_t numCorners = 0;
    for (const SurfacePolygon& polygon : mPolygons)
        numCorners += polygon.mPoints.size();
    return numCorners;
}

/// Queues the outlines of one kind: each large one as a task, small ones in batches.
void NavMeshBuilder::Run::queueOutlines(OutlineQueue& queue, bool large)
{
    std::unique_ptr<PolygonCreateTask> batch;
    size_t numCorners = 0;
    size_t outline = 0;
    for (const SurfacePolygon& polygon : mPolygons)
    {
        const size_t place = outline++;
        const bool fits = (polygon.mPoints.size() >= LARGE_OUTLINE) == large;
        if (batch != nullptr && (!fits || numCorners + polygon.mPoints.size() > queue.mBatchCorners))
            queueTask(queue, batch.release());
        if (!fits)
            continue;
        numCorners = (batch != nullptr ? numCorners : 0) + polygon.mPoints.size();
        if (batch != nullptr)
            batch->append(polygon);
        else
            batch.reset(new (mAllocator) PolygonCreateTask(mBuilder.mParameter.mCubeSize, getRules(), queue.mSequencer,
                                                           place, polygon, mContainer->mNormal));
    }
    if (batch != nullptr)
        queueTask(queue, batch.release());
}

void NavMeshBuilder::Run::queueTask(OutlineQueue& queue, PolygonCreateTask* task)
{
    std::unique_ptr<PolygonCreateTask> owner(task); // a stop by the host throws
    const size_t numLeft = queue.mNumTasks - queue.mSequencer.getNumEndedTasks();
    waitForOutlines(queue, numLeft < MAX_TASKS ? numLeft : MAX_TASKS / 2);
    ++queue.mNumTasks;
    if (queue.mIsSmall)
        owner->execute();
    else
        mBuilder.mThreadPool->appendTask(owner.release());
}

/// Waits until @p limit of the tasks queued are left at most, and keeps the host informed: a full queue would block
/// this thread for as long as a large outline takes, deaf to a stop.
void NavMeshBuilder::Run::waitForOutlines(OutlineQueue& queue, size_t limit) const
{
    reportOutlines(queue);
    while (queue.mNumTasks - queue.mSequencer.getNumEndedTasks() > limit)
    {
        queue.mSequencer.waitForEnded(queue.mNumTasks - limit, PROGRESS_PAUSE);
        reportOutlines(queue);
    }
}

/// Tells the host how many outlines are done, unless it has been told just now.
void NavMeshBuilder::Run::reportOutlines(OutlineQueue& queue) const
{
    if (queue.mReported && queue.mSinceReport.getSeconds() * 1000.0 < PROGRESS_PAUSE)
        return;
    queue.mReported = true;
    queue.mSinceReport.restart();
    mControl.report(CONVEX_STAGE,
                    static_cast<float>(queue.mSequencer.getNumEnded()) / static_cast<float>(mPolygons.size()));
}

void NavMeshBuilder::Run::countRescues(const PieceSequencer& sequencer)
{
    using Rescue = ConvexPolygonCreator::Rescue;
    Statistics& statistics = mBuilder.mStatistics;
    statistics.mNumInsetRescues = sequencer.getNumRescues(Rescue::INSET);
    statistics.mNumTriangleRescues = sequencer.getNumRescues(Rescue::TRIANGLES);
    if (statistics.mNumInsetRescues > 0)
        Trace::message(MessageText() << FUNCTION << " : Outlines cut after an inset from unmoved points: "
                                     << statistics.mNumInsetRescues);
    if (statistics.mNumTriangleRescues > 0)
        Trace::message(MessageText() << FUNCTION
                                     << " : Outlines cut into triangles: " << statistics.mNumTriangleRescues);
}

void NavMeshBuilder::Run::buildConnections()
{
    const float cubeSize = mBuilder.mParameter.mCubeSize;
    const int32 component = MAIN_AXIS_COMPONENTS[mAxis];
    mControl.report(CONNECTION_STAGE, 0.0f);
    std::unique_ptr<NavMeshConnector> connector(
        new (mAllocator) NavMeshConnector(cubeSize * OVERLAP_SHARE, cubeSize * DISTANCE_SHARE, getRules()));
    connector->buildConnections(*mDraft, mClassifier.getMaxJumpHeight(), mClassifier.getMaxFallHeight(),
                                MAIN_AXES[mAxis][component], component, *mBuilder.mThreadPool, mControl);
    connector.reset();
    endPool();
    mAllocator->releaseUnusedMemory();
    mDraft->moveNodes(mControl, CONNECTION_STAGE, NavMeshConnector::SHARE_OF_STAGE);
    endStage(CONNECTION_STAGE);
}

void NavMeshBuilder::Run::writeHeights()
{
    mClassifier.writeHeights(mContainer->mHeight);
    endStage(HEIGHT_STAGE);
}

/// Logs a stage's time and starts the clock of the next one.
void NavMeshBuilder::Run::endStage(const char* name)
{
    Trace::message(MessageText() << FUNCTION << " : " << name << " Time used: " << mStageClock.getLogSeconds());
    mBuilder.mStatistics.mStages[mNumStages++] = {name, mStageClock.getSeconds()};
    mStageClock.restart();
}

void NavMeshBuilder::Run::endPool()
{
    delete mBuilder.mThreadPool;
    mBuilder.mThreadPool = nullptr;
}
} // namespace KORV::NavMesh
