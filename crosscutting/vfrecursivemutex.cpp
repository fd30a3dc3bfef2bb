#include "vfrecursivemutex.h"

namespace Crosscutting {

VfRecursiveMutex::VfRecursiveMutex(unsigned int timeoutMs)
    : VfAbstractMutex()
    , m_mutex(QMutex::Recursive)
    , m_timeout(timeoutMs)
    , m_lockState(0)
{
}

bool VfRecursiveMutex::tryLock(int const& timeout)
{
    return m_mutex.tryLock(timeout);
}

} // namespace Crosscutting
