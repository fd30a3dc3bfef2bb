#ifndef VFABSTRACTMUTEX_H
#define VFABSTRACTMUTEX_H

#include "vfcrosscutting_export.h"
#include "vfmutextools.h"
#include "vfmutextracker.h"

#include <atomic>
#include <deque>
#include <map>

namespace Crosscutting {

// Base of the library's timed mutexes: an id from the process-wide tracker and a diagnostic record (Part 5.1).
// Never destroyed through a base pointer, hence the non-virtual destructor.
class VFCROSSCUTTING_EXPORT VfAbstractMutex
{
public:
    VfAbstractMutex();
    ~VfAbstractMutex();
    VfAbstractMutex(VfAbstractMutex const&) = delete;
    VfAbstractMutex& operator=(VfAbstractMutex const&) = delete;

    virtual bool lock() = 0;
    virtual void unlock() = 0;
    virtual bool tryLock(int const& timeout) = 0;

    unsigned int mutexId();
    ThreadIdentification currentLockedThreadId();
    std::map<ThreadIdentification, double> lockTimeRecord();
    std::deque<MutexFunctionInfo> callerInfo();
    void printCurrentLockedThreadId();
    void printLockTimeRecord();
    void printCallerInfo();
    void printMutexTrackingData();
    void printAllAvailableMutexData();

    // Deliberately empty and not connected to m_mutexTools, so that a lock costs no more than a timed QMutex
    // lock; defined here so that the compiler drops them from every lock. A program that wants lock
    // diagnostics calls the tools itself.
    void lockPostProcessing(unsigned long long, char const*, char const*, int, char const*) {}
    void unlockPostProcessing(unsigned long long) {}

    // Lives in storage that VfMutexTrackerInitializer constructs before the first mutex and
    // destroys after the last one, whatever the order of static initialisation.
    static VfMutexTracker& s_mutexTracker;

private:
    // Lets tests fill the diagnostic record, which the lock path never reaches.
    friend class VfAbstractMutexTestAccess;

    VfMutexTools m_mutexTools;
    std::atomic<unsigned int> m_mutexId;
};

// Nifty counter: every translation unit that can define a mutex holds one of these, ahead of its
// own statics, so the tracker outlives every mutex of static storage across translation units.
class VFCROSSCUTTING_EXPORT VfMutexTrackerInitializer
{
public:
    VfMutexTrackerInitializer();
    ~VfMutexTrackerInitializer();
    VfMutexTrackerInitializer(VfMutexTrackerInitializer const&) = delete;
    VfMutexTrackerInitializer& operator=(VfMutexTrackerInitializer const&) = delete;
};

static VfMutexTrackerInitializer s_mutexTrackerInitializer;

} // namespace Crosscutting

#endif // VFABSTRACTMUTEX_H
