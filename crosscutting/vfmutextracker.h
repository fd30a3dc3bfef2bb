#ifndef VFMUTEXTRACKER_H
#define VFMUTEXTRACKER_H

#include "vfcrosscutting_export.h"

#include <QMutex>

#include <deque>
#include <map>
#include <string>

namespace Crosscutting {

// One entry of a thread's lock order (Part 5.3).
struct MutexTrackerInfo
{
    unsigned int mutexId = 0;
    std::string functionName;
    std::string fileName;
    int lineNumber = 0;
    std::string threadName;
};

// Process-wide source of mutex ids, reused after release, and holder of per-thread lock orders (Part 5.3).
class VFCROSSCUTTING_EXPORT VfMutexTracker
{
public:
    VfMutexTracker();
    ~VfMutexTracker();
    VfMutexTracker(VfMutexTracker const&) = delete;
    VfMutexTracker& operator=(VfMutexTracker const&) = delete;

    unsigned int getMutexId();
    void unsetMutexId(unsigned int id);
    std::map<unsigned long long, std::deque<MutexTrackerInfo>> getMutexTrackingData();
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
