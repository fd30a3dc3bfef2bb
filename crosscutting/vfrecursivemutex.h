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

    /// Waits at most the construction's time. True when taken, false when the wait ran out. Any thread.
    bool lock() override;
    /// Releases one level of the lock held by the calling thread. Any thread.
    void unlock() override;
    /// Waits at most timeout milliseconds. True when taken, false when the wait ran out. Any thread.
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    int m_lockState;
};

} // namespace Crosscutting

#endif // VFRECURSIVEMUTEX_H
