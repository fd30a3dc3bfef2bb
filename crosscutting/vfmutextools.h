#ifndef VFMUTEXTOOLS_H
#define VFMUTEXTOOLS_H

/// \file
/// The diagnostic record of a mutex.

#include "vfcrosscutting_export.h"
#include "vftimer.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace Crosscutting {

/// A thread as the mutex diagnostics name it; ordered and compared by id alone.
struct ThreadIdentification
{
    /// QThread::currentThreadId() as a number; 0 means no thread.
    unsigned long long threadId = 0;
    /// objectName() of the thread, in UTF-8; may be empty.
    std::string threadName;
};

/// Orders by threadId alone. Any thread.
inline bool operator<(ThreadIdentification const& left, ThreadIdentification const& right)
{
    return left.threadId < right.threadId;
}

/// One entry of a mutex's caller history.
struct MutexFunctionInfo
{
    /// Function that took the lock.
    std::string functionName;
    /// Its source file.
    std::string fileName;
    /// Its source line.
    int lineNumber = 0;
    /// Name of the thread.
    std::string threadName;
};

/// Diagnostic record of one mutex: who holds it, how long each thread held it in total, and the
/// last ten places that locked it. Which records are kept is switched by VfMutexToolsController,
/// whose state stays 0 in this library, so the records stay empty unless a program calls
/// processLock(), processUnlock() and appendCallerInfo() itself.
///
/// Every operation may be called from any thread; each takes the record's own lock briefly.
class VFCROSSCUTTING_EXPORT VfMutexTools
{
public:
    /// Empty records. Cannot fail; any thread.
    VfMutexTools();
    VfMutexTools(VfMutexTools const&) = delete;
    VfMutexTools& operator=(VfMutexTools const&) = delete;

    /// Records the holder and starts the hold timer, as far as the state asks. Call it under the
    /// owning mutex, right after locking (at the outermost level of a recursive one). Cannot fail.
    void processLock();
    /// Adds the hold time to the calling thread's total and clears the holder, as far as the state
    /// asks. Call it under the owning mutex, right before unlocking. Cannot fail.
    void processUnlock();
    /// Appends one caller to the history, keeping the last ten, when that record is on; null texts
    /// are ignored. Cannot fail; any thread.
    void appendCallerInfo(char const* functionName, char const* fileName, int lineNumber, char const* threadName);

    /// The recorded holder; id 0 when none is recorded. Any thread.
    ThreadIdentification currentLockedThreadId();
    /// Total hold time per thread, in milliseconds. Any thread.
    std::map<ThreadIdentification, double> lockTimeRecord();
    /// The caller history, oldest first. Any thread.
    std::deque<MutexFunctionInfo> callerInfo();

    /// Prints "Current thread that has lock acquired:" and the holder's name to std::cout when that record is on. Any thread.
    void printCurrentLockedThreadId();
    /// Prints one line per thread with its total hold time to std::cout when that record is on. Any thread.
    void printLockTimeRecord();
    /// Prints "Previous successful locks: " and the history to std::cout when that record is on. Any thread.
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
