#ifndef VFABSTRACTMUTEX_H
#define VFABSTRACTMUTEX_H

#include "vfcrosscutting_export.h"
#include "vfmutextools.h"
#include "vfmutextracker.h"

#include <atomic>
#include <deque>
#include <map>

namespace Crosscutting {

/// Base of the library's timed mutexes: an id from the process-wide tracker and a diagnostic
/// record, with the hooks that VfMutexLocker calls around a lock.
///
/// A mutex is shared between threads by nature: every operation may be called from any thread.
/// Never destroyed through a base pointer, hence the non-virtual destructor.
class VFCROSSCUTTING_EXPORT VfAbstractMutex
{
public:
    /// Takes an id from the tracker. Cannot fail; any thread.
    VfAbstractMutex();
    /// Gives the id back to the tracker for reuse. Any thread, once no one holds the mutex.
    ~VfAbstractMutex();
    VfAbstractMutex(VfAbstractMutex const&) = delete;
    VfAbstractMutex& operator=(VfAbstractMutex const&) = delete;

    /// Waits at most the time given at construction for the lock. True when it was taken, false
    /// when the wait ran out. Any thread.
    virtual bool lock() = 0;
    /// Releases the lock, which the calling thread must hold. Any thread.
    virtual void unlock() = 0;
    /// Waits at most timeout milliseconds for the lock (0: not at all, negative: for ever). True when
    /// it was taken, false when the wait ran out. Any thread.
    virtual bool tryLock(int const& timeout) = 0;

    /// The id of this mutex, unique among the living ones; never 0. Any thread.
    unsigned int mutexId();
    /// The holder as the diagnostics recorded it; id 0 when none is recorded. Any thread.
    ThreadIdentification currentLockedThreadId();
    /// Total time each thread held the mutex, in milliseconds, as recorded. Any thread.
    std::map<ThreadIdentification, double> lockTimeRecord();
    /// The last places that locked the mutex, oldest first, as recorded. Any thread.
    std::deque<MutexFunctionInfo> callerInfo();
    /// Prints the holder to std::cout when that record is on; otherwise nothing. Any thread.
    void printCurrentLockedThreadId();
    /// Prints the hold times to std::cout when that record is on; otherwise nothing. Any thread.
    void printLockTimeRecord();
    /// Prints the caller history to std::cout when that record is on; otherwise nothing. Any thread.
    void printCallerInfo();
    /// Prints the tracker's lock orders to std::cout. Any thread.
    void printMutexTrackingData();
    /// Prints every record that VfMutexToolsController's state switches on. Cannot fail. Any thread.
    void printAllAvailableMutexData();

    // Deliberately empty and not connected to m_mutexTools, so that a lock costs no more than a timed QMutex
    // lock; defined here so that the compiler drops them from every lock. A program that wants lock
    // diagnostics calls the tools itself.
    /// Hook called by VfMutexLocker after a lock. Does nothing: lock diagnostics are not connected
    /// to the lock path. Any thread.
    void lockPostProcessing(unsigned long long, char const*, char const*, int, char const*) {}
    /// Hook called by VfMutexLocker before an unlock. Does nothing. Any thread.
    void unlockPostProcessing(unsigned long long) {}

    /// The process-wide id tracker.
    // Lives in storage that VfMutexTrackerInitializer constructs before the first mutex and
    // destroys after the last one, whatever the order of static initialisation.
    static VfMutexTracker& s_mutexTracker;

private:
    // Lets tests fill the diagnostic record, which the lock path never reaches.
    friend class VfAbstractMutexTestAccess;

    VfMutexTools m_mutexTools;
    std::atomic<unsigned int> m_mutexId;
};

/// Keeps VfAbstractMutex::s_mutexTracker alive: every translation unit that includes this header
/// holds one ahead of its own statics, so the tracker outlives every mutex of static storage.
/// Programs never use it directly.
class VFCROSSCUTTING_EXPORT VfMutexTrackerInitializer
{
public:
    /// Constructs the tracker on the first instance. Static initialisation.
    VfMutexTrackerInitializer();
    /// Destroys the tracker with the last instance. Static destruction.
    ~VfMutexTrackerInitializer();
    VfMutexTrackerInitializer(VfMutexTrackerInitializer const&) = delete;
    VfMutexTrackerInitializer& operator=(VfMutexTrackerInitializer const&) = delete;
};

/// One per translation unit, ahead of the unit's own statics; programs never use it.
static VfMutexTrackerInitializer s_mutexTrackerInitializer;

} // namespace Crosscutting

#endif // VFABSTRACTMUTEX_H
