#ifndef VFMUTEX_H
#define VFMUTEX_H

#include "vfabstractmutex.h"
#include "vfcrosscutting_export.h"

#include <QMutex>

namespace Crosscutting {

/// Non-recursive mutex whose lock() waits at most the time given at construction; the library
/// waits 120000 ms. Lock it through VfMutexLocker. Any thread.
class VFCROSSCUTTING_EXPORT VfMutex final : public VfAbstractMutex
{
public:
    /// A free mutex whose lock() waits at most timeoutMs milliseconds. Cannot fail; any thread.
    VfMutex(unsigned int timeoutMs);

    // Inline, so that a VfMutexLocker costs one call into Qt each way, as a QMutexLocker does.
    /// Waits at most the construction's time. True when taken, false when the wait ran out. Any thread.
    bool lock() override { return m_mutex.tryLock(static_cast<int>(m_timeout)); }
    /// Releases the lock held by the calling thread. Any thread.
    void unlock() override { m_mutex.unlock(); }
    /// Waits at most timeout milliseconds. True when taken, false when the wait ran out. Any thread.
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    bool m_lockState;
};

} // namespace Crosscutting

#endif // VFMUTEX_H
