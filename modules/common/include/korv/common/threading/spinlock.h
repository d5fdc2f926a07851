#pragma once

#include <mutex>

namespace KORV::Common::Threading
{
/// A recursive lock that spins briefly before it blocks. Lock and unlock belong to the same thread.
class SpinLock
{
public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    /// Takes the lock; a thread that holds it may take it again and then unlocks as many times.
    void lock()
    {
        for (int attempt = 0; attempt < SPIN_COUNT; ++attempt)
        {
            if (mMutex.try_lock())
                return;
        }
        mMutex.lock();
    }

    /// @return whether the lock was taken.
    bool tryLock() { return mMutex.try_lock(); }

    void unlock() { mMutex.unlock(); }

private:
    /// Longer spinning only steals the processor from the holder when there are few cores.
    static constexpr int SPIN_COUNT = 64;

    std::recursive_mutex mMutex;
};

/// Holds a SpinLock for a scope.
class ScopedLock
{
public:
    explicit ScopedLock(SpinLock& lock) : mLock(lock) { mLock.lock(); }
    ~ScopedLock() { mLock.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    SpinLock& mLock;
};
} // namespace KORV::Common::Threading
