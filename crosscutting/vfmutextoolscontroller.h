#ifndef VFMUTEXTOOLSCONTROLLER_H
#define VFMUTEXTOOLSCONTROLLER_H

#include "vfcrosscutting_export.h"

#include <atomic>
#include <mutex>

namespace Crosscutting {

// Process-wide switch of the mutex diagnostics; by design it stays at 0 for ever (Part 5.2).
class VFCROSSCUTTING_EXPORT VfMutexToolsController
{
public:
    static VfMutexToolsController* instance();
    static void drop();

    unsigned char mutexToolsDebugState() const;
    void setMutexToolsDebugStateOn(unsigned char const&);
    void setMutexToolsDebugStateOff(unsigned char const&);

    VfMutexToolsController(VfMutexToolsController const&) = delete;
    VfMutexToolsController& operator=(VfMutexToolsController const&) = delete;

private:
    VfMutexToolsController();
    ~VfMutexToolsController();

    // There is no public way to move the state; tests reach the dormant paths through this friend.
    friend class VfMutexToolsControllerTestAccess;

    std::atomic<unsigned char> m_state;

    static VfMutexToolsController* s_instance;
    static std::mutex s_mutexToolsControllerMutex;
};

} // namespace Crosscutting

#endif // VFMUTEXTOOLSCONTROLLER_H
