#ifndef VFMUTEXTRACKER_H
#define VFMUTEXTRACKER_H

#include "vfcrosscutting_export.h"

#include <QMutex>

#include <deque>
#include <map>
#include <string>

namespace Crosscutting {

/// One entry of a thread's lock order.
struct MutexTrackerInfo
{
    /// Id of the mutex.
    unsigned int mutexId = 0;
    /// Function that took the lock.
    std::string functionName;
    /// Its source file.
    std::string fileName;
    /// Its source line.
    int lineNumber = 0;
    /// Name of the thread.
    std::string threadName;
};

/// Process-wide source of mutex ids, which are reused after release, and holder of per-thread
/// lock orders, which no operation fills. Held as VfAbstractMutex::s_mutexTracker.
///
/// Every operation may be called from any thread; each holds the tracker's lock throughout.
class VFCROSSCUTTING_EXPORT VfMutexTracker
{
public:
    /// No ids handed out yet. Cannot fail; static initialisation.
    VfMutexTracker();
    /// Static destruction, after the last mutex.
    ~VfMutexTracker();
    VfMutexTracker(VfMutexTracker const&) = delete;
    VfMutexTracker& operator=(VfMutexTracker const&) = delete;

    /// The oldest released id, or else a new one; never 0. Cannot fail; any thread.
    unsigned int getMutexId();
    /// Releases id for reuse, without checking it. Cannot fail; any thread.
    void unsetMutexId(unsigned int id);
    /// A copy of the lock orders by thread id; empty. Any thread.
    std::map<unsigned long long, std::deque<MutexTrackerInfo>> getMutexTrackingData();
    /// Prints the lock order of each thread to std::cout, or "No mutex locks for any thread." when
    /// there is none. Any thread; it delays every mutex construction while it prints.
    void printMutexTrackingData();

private:
    // The design has no operation that fills m_trackingData; only tests reach it.
    friend class VfMutexTrackerTestAccess;

    QMutex m_trackerMutex;
    std::deque<unsigned int> m_freeIds;
    unsigned int m_nextId;
    std::map<unsigned long long, std::deque<MutexTrackerInfo>> m_trackingData;
};

} // namespace Crosscutting

#endif // VFMUTEXTRACKER_H
