#ifndef VFRECURSIVEMUTEX_H
#define VFRECURSIVEMUTEX_H

#include "vfabstractmutex.h"
#include "vfcrosscutting_export.h"

#include <QMutex>

namespace Crosscutting {

// Recursive mutex whose lock() waits at most the time given at construction (Part 5.1).
class VFCROSSCUTTING_EXPORT VfRecursiveMutex final : public VfAbstractMutex
{
public:
    VfRecursiveMutex(unsigned int timeoutMs);

    // Inline, so that a VfMutexLocker costs one call into Qt each way, as a QMutexLocker does.
    // Never an unbounded QMutex::lock(). The wait goes to Qt bit for bit: above INT_MAX it turns
    // negative, which Qt reads as no limit.
    bool lock() override { return m_mutex.tryLock(static_cast<int>(m_timeout)); }
    void unlock() override { m_mutex.unlock(); }
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    int m_lockState;
};

} // namespace Crosscutting

#endif // VFRECURSIVEMUTEX_H
