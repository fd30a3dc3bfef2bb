#include "coutcapture.h"
#include "vfmutex.h"
#include "vfmutextoolscontroller.h"
#include "vfrecursivemutex.h"

#include <QtTest>
#include <future>

namespace Crosscutting {
// The diagnostics are dormant: no public operation moves the state, fills a mutex's record or
// the tracker's lock order, so only these friends reach that code.
struct VfMutexToolsControllerTestAccess {
    static void setState(int state) { VfMutexToolsController::instance()->m_state = static_cast<unsigned char>(state); }
};
struct VfAbstractMutexTestAccess {
    static VfMutexTools& tools(VfAbstractMutex& mutex) { return mutex.m_mutexTools; }
};
struct VfMutexTrackerTestAccess {
    static void setThread(VfMutexTracker& t, unsigned long long id, std::deque<MutexTrackerInfo> locks)
    {
        t.m_trackingData[id] = std::move(locks);
    }
};
} // namespace Crosscutting

using namespace Crosscutting;
using Access = VfMutexToolsControllerTestAccess;

namespace {
Crosscutting::VfMutex s_staticMutex(120000);

template <typename Mutex>
bool freeForOtherThreads(Mutex& mutex)
{
    return std::async(std::launch::async, [&] { return mutex.tryLock(0) && (mutex.unlock(), true); }).get();
}

} // namespace

class tst_Mutexes : public QObject
{
    Q_OBJECT
private slots:
    void init() { QThread::currentThread()->setObjectName("tester"); }
    void cleanup() { Access::setState(0); }

    void trackerIds_data()
    {
        QTest::addColumn<QString>("operations"); // g: getMutexId, uN: unsetMutexId(N)
        QTest::addColumn<QString>("expected");
        QTest::newRow("fresh") << "g g g" << "1 2 3";
        QTest::newRow("released ids first, oldest first") << "g g g u2 u1 g g g" << "1 2 3 2 1 4";
        QTest::newRow("released twice, handed out twice") << "g g g u2 u2 g g g" << "1 2 3 2 2 4";
        QTest::newRow("never handed out, goes out all the same") << "u7 u0 g g g" << "7 0 1";
    }
    void trackerIds()
    {
        QFETCH(QString, operations);
        QFETCH(QString, expected);
        VfMutexTracker tracker;
        QStringList ids;
        for (const QString& operation : operations.split(' ')) {
            if (operation == "g")
                ids << QString::number(tracker.getMutexId());
            else
                tracker.unsetMutexId(operation.mid(1).toUInt());
        }
        QCOMPARE(ids.join(' '), expected);
    }

    void mutexIds()
    {
        auto* first = new VfRecursiveMutex(1000);
        const unsigned int id = first->mutexId();
        QVERIFY(id != 0 && id != s_staticMutex.mutexId() && s_staticMutex.mutexId() != 0);
        delete first; // gives its id back to the process-wide tracker, for the next mutex
        QCOMPARE(VfMutex(1000).mutexId(), id);
    }

    void timedLock_data()
    {
        QTest::addColumn<bool>("recursive");
        QTest::addColumn<uint>("timeout");
        QTest::addColumn<int>("tryWait"); // -2: lock()
        QTest::addColumn<int>("gaveUpAfter"); // -1: still waiting after 300 ms, takes the lock once free
        QTest::newRow("lock times out") << false << 300u << -2 << 300;
        QTest::newRow("recursive lock times out") << true << 300u << -2 << 300;
        QTest::newRow("tryLock overrides the wait") << false << 120000u << 100 << 100;
        QTest::newRow("tryLock(-1) waits for ever") << false << 10u << -1 << -1;
        // Above INT_MAX the wait reaches Qt as a negative number: no limit.
        QTest::newRow("0x80000000") << false << 0x80000000u << -2 << -1;
    }
    void timedLock()
    {
        QFETCH(bool, recursive);
        QFETCH(uint, timeout);
        QFETCH(int, tryWait);
        QFETCH(int, gaveUpAfter);
        VfMutex plain(timeout);
        VfRecursiveMutex nested(timeout);
        VfAbstractMutex& mutex = recursive ? static_cast<VfAbstractMutex&>(nested) : plain;
        QVERIFY(mutex.lock() && (!recursive || mutex.tryLock(1000)));
        if (recursive) // taken twice, given back once: still held
            mutex.unlock();
        bool taken = false;
        qint64 elapsed = -1;
        QScopedPointer<QThread> contender(QThread::create([&] {
            QElapsedTimer timer;
            timer.start();
            if ((taken = tryWait == -2 ? mutex.lock() : mutex.tryLock(tryWait)))
                mutex.unlock();
            elapsed = timer.elapsed();
        }));
        contender->start();
        const bool returned = contender->wait(gaveUpAfter < 0 ? 300 : 30000);
        mutex.unlock();
        QVERIFY(contender->wait(30000));
        QCOMPARE(returned, gaveUpAfter >= 0);
        QCOMPARE(taken, gaveUpAfter < 0);
        if (gaveUpAfter >= 0)
            QVERIFY2(elapsed >= gaveUpAfter - 1 && elapsed < gaveUpAfter + 5000, qPrintable(QString::number(elapsed)));
        QVERIFY(freeForOtherThreads(mutex));
    }

    void dormantByDefault()
    {
        VfMutexToolsController::drop();
        VfMutexToolsController::instance()->setMutexToolsDebugStateOn(7); // has no effect
        QCOMPARE(int(VfMutexToolsController::instance()->mutexToolsDebugState()), 0);
    }

    void records_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<QByteArray>("expected"); // printAllAvailableMutexData; TIMES: the hold-time line
        const QByteArray holder = "Current thread that has lock acquired:tester\n";
        QByteArray callers = "Previous successful locks: \n";
        for (int line = 3; line <= 12; ++line) // the last ten of twelve
            callers += "\tLock called from function: f, in file: a.cpp, on line: " + QByteArray::number(line) + ", from thread: tester\n";
        QTest::newRow("1: holder") << 1 << holder;
        QTest::newRow("2: hold times") << 2 << QByteArray("TIMES");
        QTest::newRow("4: callers") << 4 << callers;
        QTest::newRow("15: callers before hold times") << 15 << holder + callers + "TIMES" + "No mutex locks for any thread.\n";
    }
    void records()
    {
        QFETCH(int, state);
        QFETCH(QByteArray, expected);
        Access::setState(state);
        VfMutex mutex(1000);
        VfMutexTools& tools = VfAbstractMutexTestAccess::tools(mutex);
        for (int hold = 0; hold < 2; ++hold) {
            tools.processLock();
            QTest::qSleep(20);
            tools.processUnlock();
        }
        QCOMPARE(mutex.currentLockedThreadId().threadId, 0ULL); // the unlock cleared the holder
        tools.processLock();
        for (int line = 1; line <= 12; ++line)
            tools.appendCallerInfo("f", "a.cpp", line, "tester");
        const auto times = mutex.lockTimeRecord();
        QCOMPARE(times.size(), size_t(state & 2 ? 1 : 0));
        if (state & 2) // two holds of 20 ms, summed in one entry
            QVERIFY2(times.begin()->second >= 38, qPrintable(QString::number(times.begin()->second)));
        CoutCapture capture;
        mutex.printAllAvailableMutexData();
        if (state & 2)
            expected.replace("TIMES", "tester has retained locked for: " + QByteArray::number(times.begin()->second) + " ms\n");
        QCOMPARE(capture.text(), expected);
    }

    void trackerLockOrder()
    {
        VfMutexTracker tracker;
        VfMutexTrackerTestAccess::setThread(tracker, 5, {}); // no locks: no line
        VfMutexTrackerTestAccess::setThread(tracker, 0xFFFFFFFFFFFFFFF0ULL, {{1, "high", "h.cpp", 1, "highThread"}});
        VfMutexTrackerTestAccess::setThread(tracker, 3, {{4, "outer", "a.cpp", 12, "first"}, {4294967295u, "inner", "c.cpp", -1, "second"}});
        CoutCapture capture;
        tracker.printMutexTrackingData();
        QCOMPARE(capture.text(), QByteArray("Current mutex lock order for first:\n"
                                            "\tFunction: outer, file: a.cpp, line: 12, mutex id: 4\n"
                                            "\tFunction: inner, file: c.cpp, line: -1, mutex id: 4294967295\n"
                                            "Current mutex lock order for highThread:\n"
                                            "\tFunction: high, file: h.cpp, line: 1, mutex id: 1\n"));
        // Threads order by id alone: the names play no part.
        QVERIFY(!(ThreadIdentification{7, "a"} < ThreadIdentification{7, "b"}));
    }
};

QTEST_GUILESS_MAIN(tst_Mutexes)
#include "tst_mutexes.moc"
