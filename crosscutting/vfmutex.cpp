#include "vfmutex.h"

namespace Crosscutting {

VfMutex::VfMutex(unsigned int timeoutMs)
    : VfAbstractMutex()
    , m_mutex(QMutex::NonRecursive)
    , m_timeout(timeoutMs)
    , m_lockState(false)
{
}

bool VfMutex::lock()
{
    // Never an unbounded QMutex::lock(). The wait goes to Qt bit for bit: above INT_MAX it turns
    // negative, which Qt reads as no limit.
    return m_mutex.tryLock(static_cast<int>(m_timeout));
}

void VfMutex::unlock()
{
    m_mutex.unlock();
}

bool VfMutex::tryLock(int const& timeout)
{
    return m_mutex.tryLock(timeout);
}

} // namespace Crosscutting
