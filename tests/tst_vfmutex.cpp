#include "vfabstractmutex.h"
#include "vfmutex.h"
#include "vfmutexlocker.h"
#include "vfmutextoolscontroller.h"
#include "vfrecursivemutex.h"

#include "coutcapture.h"

#include <QtTest>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include <unistd.h>

namespace Crosscutting {
// The debug state has no public setter (Part 5.2); the dormant paths are reached through this friend.
class VfMutexToolsControllerTestAccess
{
public:
    static void setState(unsigned char state) { VfMutexToolsController::instance()->m_state.store(state); }
};

// The lock path never reaches a mutex's record; tests fill it directly.
class VfAbstractMutexTestAccess
{
public:
    static VfMutexTools& tools(VfAbstractMutex& mutex) { return mutex.m_mutexTools; }
};

// Lets a test see whether released ids wait in the process-wide tracker.
class VfMutexTrackerTestAccess
{
public:
    static size_t freeIdCount(VfMutexTracker& tracker)
    {
        QMutexLocker locker(&tracker.m_trackerMutex);
        return tracker.m_freeIds.size();
    }
};
}

using namespace Crosscutting;

// Defined in vfmutex_static.cpp, a translation unit of its own.
unsigned int staticMutexId();
unsigned int staticRecursiveMutexId();
bool staticMutexesLockAndUnlock();

namespace {
VfMutex s_mainFileStaticMutex(120000);

// Everything that reaches file descriptor 1 (std::cout and printf included) and every Qt message,
// while it lives.
class OutputCapture
{
public:
    OutputCapture()
    {
        s_messages.clear();
        m_previousHandler = qInstallMessageHandler(&OutputCapture::handler);
        std::cout.flush();
        std::fflush(stdout);
        m_file.open();
        m_savedStdout = ::dup(STDOUT_FILENO);
        ::dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~OutputCapture() { restore(); }

    void restore()
    {
        if (m_savedStdout < 0)
            return;
        std::cout.flush();
        std::fflush(stdout);
        ::dup2(m_savedStdout, STDOUT_FILENO);
        ::close(m_savedStdout);
        m_savedStdout = -1;
        qInstallMessageHandler(m_previousHandler);
    }
    QByteArray standardOutput()
    {
        restore();
        QFile file(m_file.fileName());
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }
    QStringList messages() { return s_messages; }

private:
    static void handler(QtMsgType, QMessageLogContext const&, QString const& message) { s_messages << message; }

    static QStringList s_messages;
    QTemporaryFile m_file;
    int m_savedStdout = -1;
    QtMessageHandler m_previousHandler = nullptr;
};
QStringList OutputCapture::s_messages;

unsigned long long currentThreadNumber()
{
    return static_cast<unsigned long long>(reinterpret_cast<std::intptr_t>(QThread::currentThreadId()));
}

QByteArray streamed(double value)
{
    std::ostringstream stream;
    stream << value;
    return QByteArray::fromStdString(stream.str());
}

template <typename Work>
QThread* startThread(Work work)
{
    QThread* thread = QThread::create(work);
    thread->start();
    return thread;
}

// The result and duration of one call made on another thread.
struct TimedResult
{
    bool result = false;
    qint64 elapsedMs = -1;
};

template <typename Call>
QThread* startTimedCall(Call call, TimedResult& outcome)
{
    return startThread([call, &outcome] {
        QElapsedTimer timer;
        timer.start();
        outcome.result = call();
        outcome.elapsedMs = timer.elapsed();
    });
}

// Whether another thread could take the mutex at once; it gives it back if so.
template <typename Mutex>
bool freeForOtherThreads(Mutex& mutex)
{
    bool taken = false;
    QScopedPointer<QThread> other(startThread([&mutex, &taken] {
        taken = mutex.tryLock(0);
        if (taken)
            mutex.unlock();
    }));
    other->wait();
    return taken;
}

// Stands in for a mutex type to record what VfMutexLocker calls, in order.
struct RecordingMutex
{
    QStringList calls;
    bool lockResult = false;

    bool lock()
    {
        calls << "lock";
        return lockResult;
    }
    void unlock() { calls << "unlock"; }
    void lockPostProcessing(unsigned long long threadId, char const* functionName, char const* fileName,
                            int lineNumber, char const* threadName)
    {
        calls << QString("lockPostProcessing %1 %2 %3 %4 %5")
                     .arg(threadId)
                     .arg(functionName ? "set" : "null", fileName ? "set" : "null")
                     .arg(lineNumber)
                     .arg(threadName ? "set" : "null");
    }
    void unlockPostProcessing(unsigned long long threadId) { calls << QString("unlockPostProcessing %1").arg(threadId); }
};

// Takes every id that waits in the process-wide free list, so that the next id is a fresh one
// or one released by the test itself.
std::vector<std::unique_ptr<VfMutex>> drainFreeIds()
{
    std::vector<std::unique_ptr<VfMutex>> holders;
    while (VfMutexTrackerTestAccess::freeIdCount(VfAbstractMutex::s_mutexTracker) > 0)
        holders.push_back(std::make_unique<VfMutex>(1));
    return holders;
}
}

class tst_VfMutex : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();

    // Ids and static construction order
    void staticMutexesHaveValidDistinctIds();
    void staticOrderAcrossTranslationUnits();
    void idComesFromTheTrackerAndGoesBack();
    void livingMutexesDifferAndIdsAreReused();

    // Timed locking
    void lockTimesOutOnAHeldMutex_data();
    void lockTimesOutOnAHeldMutex();
    void recursiveMutexLocksTwice();
    void nonRecursiveMutexTimesOutOnItself();
    void tryLockZeroFailsAtOnce_data();
    void tryLockZeroFailsAtOnce();
    void tryLockOverridesTheTimeout();
    void tryLockNegativeWaitsForRelease();
    void timeoutAboveIntMaxWaitsWithoutLimit_data();
    void timeoutAboveIntMaxWaitsWithoutLimit();

    // The locker
    void lockerCallOrderAndHookArguments();
    void lockerIgnoresAFailedLock();
    void lockerHoldsForItsScope();
    void lockerNestsOnARecursiveMutex();
    void lockerTakesAnotherGuard();
    void timedOutLockerStillRunsTheScopeSilently();
    void hooksDoNotReachTheTools();

    // Diagnostics of a mutex
    void printAllAvailableMutexData_data();
    void printAllAvailableMutexData();
    void printAllWithStateZeroPrintsNothing();
    void printMutexTrackingDataIgnoresTheState();
    void operationsForwardToTheTools();
};

void tst_VfMutex::initTestCase()
{
    QThread::currentThread()->setObjectName("tester");
}

void tst_VfMutex::cleanup()
{
    VfMutexToolsControllerTestAccess::setState(0);
}

void tst_VfMutex::staticMutexesHaveValidDistinctIds()
{
    const std::set<unsigned int> ids{staticMutexId(), staticRecursiveMutexId(), s_mainFileStaticMutex.mutexId()};
    QCOMPARE(ids.size(), size_t(3));
    QVERIFY(ids.count(0) == 0);
    QVERIFY(staticMutexesLockAndUnlock());
    QVERIFY(s_mainFileStaticMutex.tryLock(0));
    s_mainFileStaticMutex.unlock();
    VfMutex living(1);
    QVERIFY(ids.count(living.mutexId()) == 0);
}

void tst_VfMutex::staticOrderAcrossTranslationUnits()
{
    // vfmutex_staticorder_helper links vfmutex_static.cpp ahead of vfabstractmutex.cpp: its static
    // mutexes are built before that file's own initialisers run, and destroyed after them.
    QProcess helper;
    helper.start(QStringLiteral(VF_MUTEX_ORDER_HELPER), QStringList());
    QVERIFY2(helper.waitForFinished(60000), qPrintable(helper.errorString()));
    const QString output = QString::fromLocal8Bit(helper.readAllStandardOutput());
    QCOMPARE(helper.exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper.exitCode(), 0);
    // Ids 1 and 2 from a tracker that exists; at exit, after both mutexes gave their ids back
    // (the recursive one first), the tracker still hands out the first released id.
    QCOMPARE(output, QString("static ids: 1 2\nlock: ok\nafter exit: 2\n"));
}

void tst_VfMutex::idComesFromTheTrackerAndGoesBack()
{
    auto holders = drainFreeIds();
    VfMutexTracker& tracker = VfAbstractMutex::s_mutexTracker;
    const unsigned int released = tracker.getMutexId();
    tracker.unsetMutexId(released);
    unsigned int id = 0;
    {
        VfRecursiveMutex mutex(1000);
        id = mutex.mutexId();
        QCOMPARE(id, released);
    }
    // The destructor gave it back.
    QCOMPARE(VfMutexTrackerTestAccess::freeIdCount(tracker), size_t(1));
    QCOMPARE(tracker.getMutexId(), id);
    tracker.unsetMutexId(id);
}

void tst_VfMutex::livingMutexesDifferAndIdsAreReused()
{
    auto holders = drainFreeIds();
    auto first = std::make_unique<VfMutex>(1000);
    VfMutex second(1000);
    QVERIFY(first->mutexId() != 0);
    QVERIFY(second.mutexId() != 0);
    QVERIFY(first->mutexId() != second.mutexId());
    const unsigned int firstId = first->mutexId();
    first.reset();
    VfRecursiveMutex third(1000);
    QCOMPARE(third.mutexId(), firstId);
    VfMutex fourth(1000);
    QVERIFY(fourth.mutexId() != firstId && fourth.mutexId() != second.mutexId());
}

void tst_VfMutex::lockTimesOutOnAHeldMutex_data()
{
    QTest::addColumn<bool>("recursive");
    QTest::newRow("VfMutex") << false;
    QTest::newRow("VfRecursiveMutex") << true;
}

void tst_VfMutex::lockTimesOutOnAHeldMutex()
{
    QFETCH(bool, recursive);
    const unsigned int timeout = 300;
    VfMutex plain(timeout);
    VfRecursiveMutex nested(timeout);
    VfAbstractMutex& mutex = recursive ? static_cast<VfAbstractMutex&>(nested) : plain;
    QVERIFY(mutex.lock());
    TimedResult outcome;
    QScopedPointer<QThread> contender(startTimedCall([&mutex] { return mutex.lock(); }, outcome));
    const bool returned = contender->wait(60000);
    mutex.unlock();
    QVERIFY2(returned, "lock() on a held mutex never returned");
    QCOMPARE(outcome.result, false);
    // Not sooner than the wait (a millisecond of rounding allowed); the upper bound is generous.
    QVERIFY2(outcome.elapsedMs >= timeout - 1, qPrintable(QString::number(outcome.elapsedMs)));
    QVERIFY2(outcome.elapsedMs < 30000, qPrintable(QString::number(outcome.elapsedMs)));
    // A timed-out wait changed nothing: the mutex is free again once its holder let go.
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::recursiveMutexLocksTwice()
{
    VfRecursiveMutex mutex(200);
    QVERIFY(mutex.lock());
    QVERIFY(mutex.lock());
    QVERIFY(!freeForOtherThreads(mutex));
    mutex.unlock();
    QVERIFY2(!freeForOtherThreads(mutex), "one unlock() released a lock taken twice");
    mutex.unlock();
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::nonRecursiveMutexTimesOutOnItself()
{
    // The re-entry case of Part 4.7: the same thread waits out the full time and gets false.
    VfMutex mutex(150);
    QVERIFY(mutex.lock());
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(mutex.lock(), false);
    QVERIFY(timer.elapsed() >= 149);
    mutex.unlock();
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::tryLockZeroFailsAtOnce_data()
{
    QTest::addColumn<bool>("recursive");
    QTest::addColumn<uint>("timeout");
    QTest::newRow("VfMutex, 120000 ms") << false << 120000u;
    QTest::newRow("VfRecursiveMutex, 120000 ms") << true << 120000u;
    QTest::newRow("VfMutex, no limit") << false << 0xFFFFFFFFu;
}

void tst_VfMutex::tryLockZeroFailsAtOnce()
{
    QFETCH(bool, recursive);
    QFETCH(uint, timeout);
    VfMutex plain(timeout);
    VfRecursiveMutex nested(timeout);
    VfAbstractMutex& mutex = recursive ? static_cast<VfAbstractMutex&>(nested) : plain;
    QVERIFY(mutex.tryLock(0));
    TimedResult outcome;
    QScopedPointer<QThread> contender(startTimedCall([&mutex] { return mutex.tryLock(0); }, outcome));
    const bool returned = contender->wait(60000);
    mutex.unlock();
    QVERIFY(returned);
    QCOMPARE(outcome.result, false);
    QVERIFY2(outcome.elapsedMs < 30000, qPrintable(QString::number(outcome.elapsedMs)));
}

void tst_VfMutex::tryLockOverridesTheTimeout()
{
    VfMutex mutex(120000);
    QVERIFY(mutex.lock());
    TimedResult outcome;
    QScopedPointer<QThread> contender(startTimedCall([&mutex] { return mutex.tryLock(100); }, outcome));
    const bool returned = contender->wait(60000);
    mutex.unlock();
    QVERIFY(returned);
    QCOMPARE(outcome.result, false);
    QVERIFY2(outcome.elapsedMs >= 99 && outcome.elapsedMs < 30000, qPrintable(QString::number(outcome.elapsedMs)));
}

void tst_VfMutex::tryLockNegativeWaitsForRelease()
{
    VfMutex mutex(10);
    QVERIFY(mutex.lock());
    TimedResult outcome;
    QScopedPointer<QThread> contender(startTimedCall(
        [&mutex] {
            const bool taken = mutex.tryLock(-1);
            if (taken)
                mutex.unlock();
            return taken;
        },
        outcome));
    QVERIFY2(!contender->wait(300), "tryLock(-1) gave up on a held mutex");
    mutex.unlock();
    QVERIFY(contender->wait(60000));
    QCOMPARE(outcome.result, true);
}

void tst_VfMutex::timeoutAboveIntMaxWaitsWithoutLimit_data()
{
    QTest::addColumn<bool>("recursive");
    QTest::addColumn<uint>("timeout");
    QTest::newRow("VfMutex, 0x80000000") << false << 0x80000000u;
    QTest::newRow("VfMutex, 0xFFFFFFFF") << false << 0xFFFFFFFFu;
    QTest::newRow("VfRecursiveMutex, 0xFFFFFFFF") << true << 0xFFFFFFFFu;
}

void tst_VfMutex::timeoutAboveIntMaxWaitsWithoutLimit()
{
    QFETCH(bool, recursive);
    QFETCH(uint, timeout);
    VfMutex plain(timeout);
    VfRecursiveMutex nested(timeout);
    VfAbstractMutex& mutex = recursive ? static_cast<VfAbstractMutex&>(nested) : plain;
    QVERIFY(mutex.lock());
    TimedResult outcome;
    QScopedPointer<QThread> contender(startTimedCall(
        [&mutex] {
            const bool taken = mutex.lock();
            if (taken)
                mutex.unlock();
            return taken;
        },
        outcome));
    // The wait arrives at Qt as a negative number: no limit, so lock() is still waiting...
    QVERIFY2(!contender->wait(300), "lock() gave up although its wait is unlimited");
    mutex.unlock();
    // ...and takes the lock once it is given back.
    QVERIFY(contender->wait(60000));
    QCOMPARE(outcome.result, true);
}

void tst_VfMutex::lockerCallOrderAndHookArguments()
{
    RecordingMutex mutex;
    mutex.lockResult = true;
    {
        VfMutexLocker<RecordingMutex> locker(mutex);
        mutex.calls << "scope";
    }
    // Part 5.1: kept as specified: constants on the lock side, the real thread on the unlock side.
    QCOMPARE(mutex.calls, (QStringList{"lock", "lockPostProcessing 0 null null 0 null", "scope",
                                       QString("unlockPostProcessing %1").arg(currentThreadNumber()),
                                       "unlock"}));
}

void tst_VfMutex::lockerIgnoresAFailedLock()
{
    RecordingMutex mutex;
    mutex.lockResult = false;
    {
        VfMutexLocker<RecordingMutex> locker(mutex);
        mutex.calls << "scope";
    }
    QCOMPARE(mutex.calls.size(), 5);
    QCOMPARE(mutex.calls[2], QString("scope"));
    QCOMPARE(mutex.calls.last(), QString("unlock"));
}

void tst_VfMutex::lockerHoldsForItsScope()
{
    VfMutex mutex(1000);
    {
        VfMutexLocker<VfMutex> locker(mutex);
        QVERIFY(!freeForOtherThreads(mutex));
    }
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::lockerNestsOnARecursiveMutex()
{
    VfRecursiveMutex mutex(1000);
    {
        VfMutexLocker<VfRecursiveMutex> outer(mutex);
        {
            QElapsedTimer timer;
            timer.start();
            VfMutexLocker<VfRecursiveMutex> inner(mutex);
            QVERIFY(timer.elapsed() < 900); // taken at once, not after a timed-out wait
        }
        QVERIFY(!freeForOtherThreads(mutex));
    }
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::lockerTakesAnotherGuard()
{
    VfMutex mutex(1000);
    {
        VfMutexLocker<VfMutex, std::unique_lock> locker(mutex);
        QVERIFY(!freeForOtherThreads(mutex));
    }
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::timedOutLockerStillRunsTheScopeSilently()
{
    const unsigned int timeout = 150;
    VfMutex mutex(timeout);
    QVERIFY(mutex.lock());
    bool scopeRan = false;
    qint64 waited = -1;
    OutputCapture capture;
    {
        QElapsedTimer timer;
        timer.start();
        VfMutexLocker<VfMutex> locker(mutex); // held by this very thread: the wait runs out
        waited = timer.elapsed();
        scopeRan = true;
    }
    const QByteArray output = capture.standardOutput();
    QVERIFY(scopeRan);
    QVERIFY2(waited >= timeout - 1, qPrintable(QString::number(waited)));
    QCOMPARE(output, QByteArray());
    QCOMPARE(capture.messages(), QStringList());
    // Part 5.1: kept as specified: the guard unlocks at the end of the scope all the same, which
    // here gives back the lock that the thread held before.
    QVERIFY(freeForOtherThreads(mutex));
}

void tst_VfMutex::hooksDoNotReachTheTools()
{
    VfMutexToolsControllerTestAccess::setState(15);
    VfMutex plain(1000);
    VfRecursiveMutex nested(1000);
    {
        VfMutexLocker<VfMutex> plainLocker(plain);
        VfMutexLocker<VfRecursiveMutex> nestedLocker(nested);
        QCOMPARE(plain.currentLockedThreadId().threadId, 0ULL);
        QCOMPARE(nested.currentLockedThreadId().threadId, 0ULL);
    }
    plain.lockPostProcessing(currentThreadNumber(), "function", "file.cpp", 10, "tester");
    plain.unlockPostProcessing(currentThreadNumber());
    for (VfAbstractMutex* mutex : {static_cast<VfAbstractMutex*>(&plain), static_cast<VfAbstractMutex*>(&nested)}) {
        QCOMPARE(mutex->currentLockedThreadId().threadId, 0ULL);
        QVERIFY(mutex->lockTimeRecord().empty());
        QVERIFY(mutex->callerInfo().empty());
    }
}

void tst_VfMutex::printAllAvailableMutexData_data()
{
    const QByteArray holder = "Current thread that has lock acquired:tester\n";
    const QByteArray callers = "Previous successful locks: \n"
                               "\tLock called from function: write, in file: w.cpp, on line: 9, from thread: tester\n";
    const QByteArray times = "TIMES"; // stands for the hold-time line, whose number is measured
    const QByteArray tracker = "No mutex locks for any thread.\n";
    QTest::addColumn<int>("state");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("0") << 0 << QByteArray();
    QTest::newRow("1: holder") << 1 << holder;
    QTest::newRow("2: hold times") << 2 << times;
    QTest::newRow("4: callers") << 4 << callers;
    QTest::newRow("8: tracker") << 8 << tracker;
    // Part 5.1: kept as specified: value 4 is printed before value 2.
    QTest::newRow("6: callers before hold times") << 6 << callers + times;
    QTest::newRow("15: 1, 4, 2, 8") << 15 << holder + callers + times + tracker;
}

void tst_VfMutex::printAllAvailableMutexData()
{
    QFETCH(int, state);
    QFETCH(QByteArray, expected);
    VfRecursiveMutex mutex(1000);
    VfMutexTools& tools = VfAbstractMutexTestAccess::tools(mutex);
    VfMutexToolsControllerTestAccess::setState(7);
    tools.processLock();
    tools.processUnlock();
    tools.processLock();
    tools.appendCallerInfo("write", "w.cpp", 9, "tester");
    QCOMPARE(int(mutex.lockTimeRecord().size()), 1);
    expected.replace("TIMES", "tester has retained locked for: " + streamed(mutex.lockTimeRecord().begin()->second)
                                  + " ms\n");

    VfMutexToolsControllerTestAccess::setState(static_cast<unsigned char>(state));
    CoutCapture capture;
    mutex.printAllAvailableMutexData();
    QCOMPARE(capture.text(), expected);
}

void tst_VfMutex::printAllWithStateZeroPrintsNothing()
{
    VfMutex mutex(1000);
    {
        VfMutexLocker<VfMutex> locker(mutex);
    }
    QCOMPARE(int(VfMutexToolsController::instance()->mutexToolsDebugState()), 0);
    OutputCapture capture;
    mutex.printAllAvailableMutexData();
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.messages(), QStringList());
}

void tst_VfMutex::printMutexTrackingDataIgnoresTheState()
{
    VfMutex mutex(1000);
    CoutCapture capture;
    mutex.printMutexTrackingData();
    QCOMPARE(capture.text(), QByteArray("No mutex locks for any thread.\n"));
}

void tst_VfMutex::operationsForwardToTheTools()
{
    VfMutex mutex(1000);
    VfMutexTools& tools = VfAbstractMutexTestAccess::tools(mutex);
    VfMutexToolsControllerTestAccess::setState(7);
    tools.processLock();
    tools.processUnlock();
    tools.processLock();
    tools.appendCallerInfo("f", "a.cpp", 3, "tester");

    QCOMPARE(mutex.currentLockedThreadId().threadId, currentThreadNumber());
    QCOMPARE(QString::fromStdString(mutex.currentLockedThreadId().threadName), QString("tester"));
    QCOMPARE(int(mutex.callerInfo().size()), 1);
    QCOMPARE(mutex.callerInfo().front().lineNumber, 3);
    QCOMPARE(int(mutex.lockTimeRecord().size()), 1);
    QCOMPARE(mutex.lockTimeRecord().begin()->first.threadId, currentThreadNumber());
    {
        CoutCapture capture;
        mutex.printCurrentLockedThreadId();
        QCOMPARE(capture.text(), QByteArray("Current thread that has lock acquired:tester\n"));
    }
    {
        CoutCapture capture;
        mutex.printCallerInfo();
        QCOMPARE(capture.text(), QByteArray("Previous successful locks: \n\tLock called from function: f, in file: "
                                            "a.cpp, on line: 3, from thread: tester\n"));
    }
    {
        CoutCapture capture;
        mutex.printLockTimeRecord();
        QCOMPARE(capture.text(), "tester has retained locked for: "
                                     + streamed(mutex.lockTimeRecord().begin()->second) + " ms\n");
    }
    // The forwarders consult the state through the tools: with 0 they print nothing.
    VfMutexToolsControllerTestAccess::setState(0);
    CoutCapture capture;
    mutex.printCurrentLockedThreadId();
    mutex.printCallerInfo();
    mutex.printLockTimeRecord();
    QCOMPARE(capture.text(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_VfMutex)
#include "tst_vfmutex.moc"
