#include "vfabstractmutex.h"

#include "vfmutextoolscontroller.h"

#include <new>

namespace Crosscutting {

namespace {

// Constant-initialised, so the storage and the reference to it exist before any dynamic
// initialiser runs; the tracker inside is built and destroyed by VfMutexTrackerInitializer.
union TrackerStorage {
    constexpr TrackerStorage()
        : placeholder()
    {
    }
    ~TrackerStorage() {}

    char placeholder;
    VfMutexTracker tracker;
};

TrackerStorage s_trackerStorage;

// Changed only by static initialisers and finalisers, which the dynamic loader runs one at a time.
unsigned int s_trackerUsers = 0;

enum DebugBit : unsigned char {
    CurrentHolderBit = 1,
    HoldTimeBit = 2,
    CallerHistoryBit = 4,
    TrackerLockOrderBit = 8
};

} // namespace

VfMutexTracker& VfAbstractMutex::s_mutexTracker = s_trackerStorage.tracker;

VfMutexTrackerInitializer::VfMutexTrackerInitializer()
{
    if (s_trackerUsers++ == 0)
        new (&s_trackerStorage.tracker) VfMutexTracker();
}

VfMutexTrackerInitializer::~VfMutexTrackerInitializer()
{
    if (--s_trackerUsers == 0)
        s_trackerStorage.tracker.~VfMutexTracker();
}

VfAbstractMutex::VfAbstractMutex()
    : m_mutexTools()
    , m_mutexId(s_mutexTracker.getMutexId())
{
}

VfAbstractMutex::~VfAbstractMutex()
{
    s_mutexTracker.unsetMutexId(m_mutexId.load(std::memory_order_seq_cst));
}

unsigned int VfAbstractMutex::mutexId()
{
    return m_mutexId.load(std::memory_order_seq_cst);
}

ThreadIdentification VfAbstractMutex::currentLockedThreadId()
{
    return m_mutexTools.currentLockedThreadId();
}

std::map<ThreadIdentification, double> VfAbstractMutex::lockTimeRecord()
{
    return m_mutexTools.lockTimeRecord();
}

std::deque<MutexFunctionInfo> VfAbstractMutex::callerInfo()
{
    return m_mutexTools.callerInfo();
}

void VfAbstractMutex::printCurrentLockedThreadId()
{
    m_mutexTools.printCurrentLockedThreadId();
}

void VfAbstractMutex::printLockTimeRecord()
{
    m_mutexTools.printLockTimeRecord();
}

void VfAbstractMutex::printCallerInfo()
{
    m_mutexTools.printCallerInfo();
}

void VfAbstractMutex::printMutexTrackingData()
{
    s_mutexTracker.printMutexTrackingData();
}

void VfAbstractMutex::printAllAvailableMutexData()
{
    const unsigned char state = VfMutexToolsController::instance()->mutexToolsDebugState();
    // Deliberately the caller history (4) before the hold times (2): existing instruments rely on
    // the report's order.
    if (state & CurrentHolderBit)
        printCurrentLockedThreadId();
    if (state & CallerHistoryBit)
        printCallerInfo();
    if (state & HoldTimeBit)
        printLockTimeRecord();
    if (state & TrackerLockOrderBit)
        printMutexTrackingData();
}

} // namespace Crosscutting
