#include "vfmutextools.h"

#include "vfmutextoolscontroller.h"

#include <QThread>

#include <cstdint>
#include <iostream>

namespace Crosscutting {

namespace {

enum DebugBit : unsigned char {
    CurrentHolderBit = 1,
    HoldTimeBit = 2,
    CallerHistoryBit = 4
};

constexpr std::size_t callerHistoryLimit = 10;

unsigned char debugState()
{
    return VfMutexToolsController::instance()->mutexToolsDebugState();
}

ThreadIdentification callingThread()
{
    ThreadIdentification thread;
    // Widened through a signed integer, so that a 32-bit handle is sign-extended.
    thread.threadId = static_cast<unsigned long long>(reinterpret_cast<std::intptr_t>(QThread::currentThreadId()));
    thread.threadName = QThread::currentThread()->objectName().toStdString();
    return thread;
}

} // namespace

VfMutexTools::VfMutexTools()
    : m_toolsMutex()
    , m_lockTimer()
    , m_currentThread()
    , m_lockTimeRecord()
    , m_callerInfo()
{
}

void VfMutexTools::processLock()
{
    const unsigned char state = debugState();
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    if (state & HoldTimeBit)
        m_lockTimer.start();
    if (state & CurrentHolderBit)
        m_currentThread = callingThread();
}

void VfMutexTools::processUnlock()
{
    const unsigned char state = debugState();
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    if (state & HoldTimeBit) {
        m_lockTimer.stop();
        // The key is the caller of processUnlock, never m_currentThread.
        ThreadIdentification thread = callingThread();
        const double elapsed = m_lockTimer.elapsedTime();
        auto entry = m_lockTimeRecord.find(thread);
        if (entry == m_lockTimeRecord.end())
            m_lockTimeRecord.emplace(std::move(thread), elapsed);
        else
            entry->second += elapsed; // The key keeps the thread name of its first insertion.
    }
    if (state & CurrentHolderBit)
        m_currentThread = ThreadIdentification();
}

void VfMutexTools::appendCallerInfo(char const* functionName, char const* fileName, int lineNumber,
                                    char const* threadName)
{
    const unsigned char state = debugState();
    if (!(state & CallerHistoryBit) || !functionName || !fileName || !threadName)
        return;
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    if (m_callerInfo.size() + 1 > callerHistoryLimit)
        m_callerInfo.pop_front();
    m_callerInfo.push_back(MutexFunctionInfo{functionName, fileName, lineNumber, threadName});
}

ThreadIdentification VfMutexTools::currentLockedThreadId()
{
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    return m_currentThread;
}

std::map<ThreadIdentification, double> VfMutexTools::lockTimeRecord()
{
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    return m_lockTimeRecord;
}

std::deque<MutexFunctionInfo> VfMutexTools::callerInfo()
{
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    return m_callerInfo;
}

void VfMutexTools::printCurrentLockedThreadId()
{
    if (!(debugState() & CurrentHolderBit))
        return;
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    std::cout << "Current thread that has lock acquired:" << m_currentThread.threadName << std::endl;
}

void VfMutexTools::printLockTimeRecord()
{
    if (!(debugState() & HoldTimeBit))
        return;
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    for (auto const& entry : m_lockTimeRecord)
        std::cout << entry.first.threadName << " has retained locked for: " << entry.second << " ms" << std::endl;
}

void VfMutexTools::printCallerInfo()
{
    if (!(debugState() & CallerHistoryBit))
        return;
    std::lock_guard<std::mutex> guard(m_toolsMutex);
    std::cout << "Previous successful locks: " << std::endl;
    for (MutexFunctionInfo const& info : m_callerInfo) {
        std::cout << "\tLock called from function: " << info.functionName << ", in file: " << info.fileName
                  << ", on line: " << info.lineNumber << ", from thread: " << info.threadName << std::endl;
    }
}

} // namespace Crosscutting
