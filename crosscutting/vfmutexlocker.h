#ifndef VFMUTEXLOCKER_H
#define VFMUTEXLOCKER_H

#include <cstdint>
#include <mutex>
#include <pthread.h>

namespace Crosscutting {

// Scoped lock of a VfMutex or VfRecursiveMutex that brackets the lock with the mutex's two hooks (Part 5.1).
// The result of lock() is ignored: after a timed-out wait the scope runs without the lock.
template <typename Mutex, template <typename> class Guard = std::lock_guard>
class VfMutexLocker
{
public:
    explicit VfMutexLocker(Mutex& mutex)
        : m_guard(mutex)
        , m_lockedMutex(&mutex)
    {
        // Part 5.1: kept as specified: the lock-side hook gets constants, not the calling thread.
        m_lockedMutex->lockPostProcessing(0, nullptr, nullptr, 0, nullptr);
    }

    ~VfMutexLocker()
    {
        if (m_lockedMutex) {
            // The same value as QThread::currentThreadId() on Linux, but declared const by the C library, so
            // that it costs nothing while the hook that takes it is empty.
            m_lockedMutex->unlockPostProcessing(static_cast<unsigned long long>(pthread_self()));
        }
    }

    VfMutexLocker(VfMutexLocker const&) = delete;
    VfMutexLocker& operator=(VfMutexLocker const&) = delete;

private:
    Guard<Mutex> m_guard;
    Mutex* m_lockedMutex;
};

} // namespace Crosscutting

#endif // VFMUTEXLOCKER_H
