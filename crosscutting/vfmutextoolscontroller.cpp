#include "vfmutextoolscontroller.h"

namespace Crosscutting {

VfMutexToolsController* VfMutexToolsController::s_instance = nullptr;
std::mutex VfMutexToolsController::s_mutexToolsControllerMutex;

VfMutexToolsController::VfMutexToolsController()
    : m_state(0)
{
}

VfMutexToolsController::~VfMutexToolsController() = default;

VfMutexToolsController* VfMutexToolsController::instance()
{
    std::lock_guard<std::mutex> guard(s_mutexToolsControllerMutex);
    if (!s_instance)
        s_instance = new VfMutexToolsController();
    return s_instance;
}

void VfMutexToolsController::drop()
{
    std::lock_guard<std::mutex> guard(s_mutexToolsControllerMutex);
    delete s_instance;
    s_instance = nullptr;
}

unsigned char VfMutexToolsController::mutexToolsDebugState() const
{
    return m_state.load(std::memory_order_seq_cst);
}

// Deliberately empty, so the diagnostics stay dormant: the state is 0 for the life of the process,
// and every recording and printing operation of the tools returns at once.
void VfMutexToolsController::setMutexToolsDebugStateOn(unsigned char const&)
{
}

void VfMutexToolsController::setMutexToolsDebugStateOff(unsigned char const&)
{
}

} // namespace Crosscutting
