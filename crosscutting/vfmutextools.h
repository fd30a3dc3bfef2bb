#ifndef VFMUTEXTOOLS_H
#define VFMUTEXTOOLS_H

#include "vfcrosscutting_export.h"
#include "vftimer.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace Crosscutting {

// A thread as the diagnostics name it; ordered and compared by id alone (Part 5.2).
struct ThreadIdentification
{
    unsigned long long threadId = 0;
    std::string threadName;
};

inline bool operator<(ThreadIdentification const& left, ThreadIdentification const& right)
{
    return left.threadId < right.threadId;
}

// One entry of a mutex's caller history (Part 5.2).
struct MutexFunctionInfo
{
    std::string functionName;
    std::string fileName;
    int lineNumber = 0;
    std::string threadName;
};

// Diagnostic record of one mutex: holder, hold time per thread, last callers; dormant by design (Part 5.2).
class VFCROSSCUTTING_EXPORT VfMutexTools
{
public:
    VfMutexTools();
    VfMutexTools(VfMutexTools const&) = delete;
    VfMutexTools& operator=(VfMutexTools const&) = delete;

    void processLock();
    void processUnlock();
    void appendCallerInfo(char const* functionName, char const* fileName, int lineNumber, char const* threadName);

    ThreadIdentification currentLockedThreadId();
    std::map<ThreadIdentification, double> lockTimeRecord();
    std::deque<MutexFunctionInfo> callerInfo();

    void printCurrentLockedThreadId();
    void printLockTimeRecord();
    void printCallerInfo();

private:

    std::mutex m_toolsMutex;
    VfTimer m_lockTimer;
    ThreadIdentification m_currentThread;
    std::map<ThreadIdentification, double> m_lockTimeRecord;
    std::deque<MutexFunctionInfo> m_callerInfo;
};

} // namespace Crosscutting

#endif // VFMUTEXTOOLS_H
