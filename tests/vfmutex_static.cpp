// Mutexes of static storage in a translation unit of their own (Part 5.1, State and lifecycle).
// Linked into tst_vfmutex beside its main file, and into vfmutex_staticorder_helper AHEAD of the
// library's mutex sources, so that these mutexes are constructed before the translation unit that
// defines VfAbstractMutex::s_mutexTracker is initialised.
#include "vfmutex.h"
#include "vfrecursivemutex.h"

#include <cstdio>

#ifdef VF_MUTEX_STATIC_ORDER_HELPER
namespace {
// Constructed before the mutexes below, so destroyed after them: the tracker must still work then.
struct ExitProbe
{
    ~ExitProbe()
    {
        std::printf("after exit: %u\n", Crosscutting::VfAbstractMutex::s_mutexTracker.getMutexId());
        std::fflush(stdout);
    }
} s_exitProbe;
}
#endif

namespace {
Crosscutting::VfMutex s_staticMutex(120000);
Crosscutting::VfRecursiveMutex s_staticRecursiveMutex(120000);
}

unsigned int staticMutexId()
{
    return s_staticMutex.mutexId();
}

unsigned int staticRecursiveMutexId()
{
    return s_staticRecursiveMutex.mutexId();
}

bool staticMutexesLockAndUnlock()
{
    if (!s_staticMutex.tryLock(0))
        return false;
    s_staticMutex.unlock();
    if (!s_staticRecursiveMutex.lock())
        return false;
    s_staticRecursiveMutex.unlock();
    return true;
}

#ifdef VF_MUTEX_STATIC_ORDER_HELPER
int main()
{
    std::printf("static ids: %u %u\n", staticMutexId(), staticRecursiveMutexId());
    std::printf("lock: %s\n", staticMutexesLockAndUnlock() ? "ok" : "failed");
    std::fflush(stdout);
    return 0;
}
#endif
