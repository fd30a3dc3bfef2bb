#ifndef VFRECURSIVEMUTEX_H
#define VFRECURSIVEMUTEX_H

#include "vfabstractmutex.h"
#include "vfcrosscutting_export.h"

#include <QMutex>

namespace Crosscutting {

/// Recursive mutex whose lock() waits at most the time given at construction: the thread that
/// holds it may lock it again. Lock it through VfMutexLocker. Any thread.
class VFCROSSCUTTING_EXPORT VfRecursiveMutex final : public VfAbstractMutex
{
public:
    /// A free mutex whose lock() waits at most timeoutMs milliseconds. Cannot fail; any thread.
    VfRecursiveMutex(unsigned int timeoutMs);

    // Inline, so that a VfMutexLocker costs one call into Qt each way, as a QMutexLocker does.
    // Never an unbounded QMutex::lock(). The wait goes to Qt bit for bit: above INT_MAX it turns
    // negative, which Qt reads as no limit.
    /// Waits at most the construction's time. True when taken, false when the wait ran out. Any thread.
    bool lock() override { return m_mutex.tryLock(static_cast<int>(m_timeout)); }
    /// Releases one level of the lock held by the calling thread. Any thread.
    void unlock() override { m_mutex.unlock(); }
    /// Waits at most timeout milliseconds. True when taken, false when the wait ran out. Any thread.
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    int m_lockState;
};

} // namespace Crosscutting

#endif // VFRECURSIVEMUTEX_H
