#pragma once

#include "korv/common/threading/threadpool.h"
#include "korv/navmesh/taskerrors.h"
#include "korv/navmesh/voxels/blockbricks.h"
#include "korv/navmesh/voxels/inputtriangles.h"

#include <atomic>

namespace KORV::NavMesh
{
/// Adds triangles to blocks of bricks together with the workers of a pool. The blocks are divided into shares, and
/// whoever is free takes the next triangles of a share that nobody works on: each block gets its own in their order.
/// Thread use: everything but work belongs to the thread of the run. The pool is idle when the object has gone.
class BrickFeed
{
public:
    /// @param input  what the triangles are; must outlive the object.
    /// @param allocator  thread-safe when the pool has several workers.
    BrickFeed(const InputTriangles& input, Common::Threading::ThreadPool* pool, Common::Memory::Allocator* allocator);
    ~BrickFeed();
    BrickFeed(const BrickFeed&) = delete;
    BrickFeed& operator=(const BrickFeed&) = delete;

    /// Starts the pool's workers, if there are several of them. This thread works as one of them.
    void startWorkers();
    bool hasWorkers() const { return mNumWorkers > 0; }
    /// Adds a triangle to a block, sooner or later. Until finish the block belongs to the workers, if there are any.
    /// @param share  a number of the block, always the same. Throws what a worker's work threw.
    void add(uint32 triangle, const TriangleClass& triangleClass, BlockBricks& block, uint32 share);
    /// Adds what is left. Throws as add does.
    void finish();

    /// What a worker does until it is told to stop.
    void work();

private:
    /// Triangles are handed over so many at a time. Fewer would wake the workers too often.
    static constexpr size_t BATCH = 2048;
    /// One is filled while the others are worked on.
    static constexpr uint32 NUM_BATCHES = 2;
    static constexpr uint32 SHARES_PER_THREAD = 3;

    struct Entry
    {
        BlockBricks* mBlock;
        uint32 mShare;
        uint32 mTriangle;
        TriangleClass mClass;
    };

    /// How many batches somebody has gone through for the blocks of a share.
    struct Share
    {
        uint32 mNumDone = 0;
        bool mIsTaken = false;
    };

    Vector<Entry>& getBatch(uint32 number) { return mBatches[number % NUM_BATCHES]; }
    void queueBatch();
    void waitFor(uint32 numBatches);
    bool areDone(uint32 numBatches);
    bool workOnShare();
    Share* takeShare();
    void addEntries(const Vector<Entry>& batch, uint32 share) const;
    void stopWorkers();

    const InputTriangles& mInput;
    Common::Threading::ThreadPool* mPool;
    Vector<Entry> mBatches[NUM_BATCHES]; // taken in turn
    uint32 mNumWorkers = 0;              // beside this thread

    Common::Threading::SpinLock mLock; // guards the next two
    Vector<Share> mShares;
    uint32 mNumQueued = 0; // batches; this thread alone writes it

    Common::Threading::Semaphore mQueued{
        0, Common::Threading::ThreadPool::MAX_UNITS}; // for workers that have nothing to do
    Common::Threading::Semaphore mDone{0, Common::Threading::ThreadPool::MAX_UNITS}; // a unit for each batch of a share
    std::atomic<bool> mStopped{false};
    TaskErrors mErrors;
};
} // namespace KORV::NavMesh
