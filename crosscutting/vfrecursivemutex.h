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

    bool lock() override;
    void unlock() override;
    bool tryLock(int const& timeout) override;

private:
    QMutex m_mutex;
    unsigned int m_timeout;
    int m_lockState;
};

} // namespace Crosscutting

#endif // VFRECURSIVEMUTEX_H
