#include "vfrecursivemutex.h"

namespace Crosscutting {

VfRecursiveMutex::VfRecursiveMutex(unsigned int timeoutMs)
    : VfAbstractMutex()
    , m_mutex(QMutex::Recursive)
    , m_timeout(timeoutMs)
    , m_lockState(0)
{
}

bool VfRecursiveMutex::lock()
{
    // Never an unbounded QMutex::lock(). The wait goes to Qt bit for bit: above INT_MAX it turns
    // negative, which Qt reads as no limit.
    return m_mutex.tryLock(static_cast<int>(m_timeout));
}

void VfRecursiveMutex::unlock()
{
    m_mutex.unlock();
}

bool VfRecursiveMutex::tryLock(int const& timeout)
{
    return m_mutex.tryLock(timeout);
}

} // namespace Crosscutting
