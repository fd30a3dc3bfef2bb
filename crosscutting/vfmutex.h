#ifndef VFMUTEX_H
#define VFMUTEX_H

#include "vfabstractmutex.h"
#include "vfcrosscutting_export.h"

#include <QMutex>

namespace Crosscutting {

// Non-recursive mutex whose lock() waits at most the time given at construction (Part 5.1).
class VFCROSSCUTTING_EXPORT VfMutex final : public VfAbstractMutex
{
public:
    VfMutex(unsigned int timeoutMs);

    // Inline, so that a VfMutexLocker costs one call into Qt each way, as a QMutexLocker does.
    bool lock() override { return m_mutex.tryLock(static_cast<int>(m_timeout)); }
    void unlock() override { m_mutex.unlock(); }
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    bool m_lockState;
};

} // namespace Crosscutting

#endif // VFMUTEX_H
