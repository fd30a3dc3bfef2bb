#include "vfmutex.h"

namespace Crosscutting {

VfMutex::VfMutex(unsigned int timeoutMs)
    : VfAbstractMutex()
    , m_mutex(QMutex::NonRecursive)
    , m_timeout(timeoutMs)
    , m_lockState(false)
{
}

bool VfMutex::tryLock(int const& timeout)
{
    return m_mutex.tryLock(timeout);
}

} // namespace Crosscutting
