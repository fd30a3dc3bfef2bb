#include "vfmutextracker.h"

#include <QMutexLocker>

#include <iostream>

namespace Crosscutting {

VfMutexTracker::VfMutexTracker()
    : m_trackerMutex(QMutex::NonRecursive)
    , m_freeIds()
    , m_nextId(1)
    , m_trackingData()
{
}

VfMutexTracker::~VfMutexTracker() = default;

unsigned int VfMutexTracker::getMutexId()
{
    QMutexLocker locker(&m_trackerMutex);
    // Released ids first, oldest release first, so that ids stay small and dense.
    if (!m_freeIds.empty()) {
        const unsigned int id = m_freeIds.front();
        m_freeIds.pop_front();
        return id;
    }
    return m_nextId++;
}

void VfMutexTracker::unsetMutexId(unsigned int id)
{
    QMutexLocker locker(&m_trackerMutex);
    // The value is not examined: a double release hands the id out twice.
    m_freeIds.push_back(id);
}

std::map<unsigned long long, std::deque<MutexTrackerInfo>> VfMutexTracker::getMutexTrackingData()
{
    QMutexLocker locker(&m_trackerMutex);
    return m_trackingData;
}

void VfMutexTracker::printMutexTrackingData()
{
    QMutexLocker locker(&m_trackerMutex);
    bool anyEntry = false;
    for (auto const& thread : m_trackingData) {
        std::deque<MutexTrackerInfo> const& locks = thread.second;
        if (locks.empty())
            continue;
        anyEntry = true;
        std::cout << "Current mutex lock order for " << locks.front().threadName << ":" << std::endl;
        for (MutexTrackerInfo const& info : locks) {
            std::cout << "\tFunction: " << info.functionName << ", file: " << info.fileName
                      << ", line: " << info.lineNumber << ", mutex id: " << info.mutexId << std::endl;
        }
    }
    if (!anyEntry)
        std::cout << "No mutex locks for any thread." << std::endl;
}

} // namespace Crosscutting
