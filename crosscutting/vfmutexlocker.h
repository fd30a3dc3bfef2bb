#ifndef VFMUTEXLOCKER_H
#define VFMUTEXLOCKER_H

#include <cstdint>
#include <mutex>
#include <pthread.h>

namespace Crosscutting {

/// Scoped lock of a VfMutex or VfRecursiveMutex that brackets the lock with the mutex's two hooks:
/// `VfMutexLocker<VfMutex> locker(mutex);`
///
/// The result of lock() is ignored: after a wait that ran out, the scope runs without the lock.
/// Any thread.
template <typename Mutex, template <typename> class Guard = std::lock_guard>
class VfMutexLocker
{
public:
    /// Locks mutex, waiting at most its own time, and calls its lock hook. Cannot fail; any thread.
    explicit VfMutexLocker(Mutex& mutex)
        : m_guard(mutex)
        , m_lockedMutex(&mutex)
    {
        // Deliberately constants and not the calling thread: the lock-side hook has always been
        // given zeros, and only the unlock side names the thread.
        m_lockedMutex->lockPostProcessing(0, nullptr, nullptr, 0, nullptr);
    }

    /// Calls the unlock hook with the calling thread, then unlocks. The thread that locked.
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
