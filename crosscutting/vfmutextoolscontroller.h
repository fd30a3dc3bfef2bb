#ifndef VFMUTEXTOOLSCONTROLLER_H
#define VFMUTEXTOOLSCONTROLLER_H

#include "vfcrosscutting_export.h"

#include <atomic>
#include <mutex>

namespace Crosscutting {

/// Process-wide switch of the mutex diagnostics: bit 1 the holder, 2 the hold times, 4 the
/// caller history, 8 the tracker's lock orders. Its state is 0 for the life of the process, and
/// its setters change nothing, so the diagnostics stay dormant.
class VFCROSSCUTTING_EXPORT VfMutexToolsController
{
public:
    /// The one controller, made on first use; never null. Any thread.
    static VfMutexToolsController* instance();
    /// Destroys the controller; a later instance() makes a new one. Any thread, when no other uses it.
    static void drop();

    /// The state bits; 0. Any thread.
    unsigned char mutexToolsDebugState() const;
    /// Does nothing: the state cannot be switched on. Any thread.
    void setMutexToolsDebugStateOn(unsigned char const&);
    /// Does nothing. Any thread.
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
