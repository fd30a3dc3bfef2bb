#include "vfmutextracker.h"

#include "coutcapture.h"

#include <QtTest>

#include <algorithm>
#include <iostream>
#include <set>
#include <sstream>
#include <vector>

namespace Crosscutting {
// The design has no operation that fills the lock order store; the test reaches it as a friend.
class VfMutexTrackerTestAccess
{
public:
    static void setThread(VfMutexTracker& tracker, unsigned long long threadId, std::deque<MutexTrackerInfo> locks)
    {
        QMutexLocker locker(&tracker.m_trackerMutex);
        tracker.m_trackingData[threadId] = std::move(locks);
    }
    static void setNextId(VfMutexTracker& tracker, unsigned int nextId)
    {
        QMutexLocker locker(&tracker.m_trackerMutex);
        tracker.m_nextId = nextId;
    }
};
}

using namespace Crosscutting;

namespace {
MutexTrackerInfo info(unsigned int id, char const* function, char const* file, int line, char const* thread)
{
    MutexTrackerInfo entry;
    entry.mutexId = id;
    entry.functionName = function;
    entry.fileName = file;
    entry.lineNumber = line;
    entry.threadName = thread;
    return entry;
}
}

class tst_VfMutexTracker : public QObject
{
    Q_OBJECT
private slots:
    void firstThreeIds();
    void idOrder_data();
    void idOrder();
    void idsWrapThroughZero();
    void concurrentIdsAreDistinct();
    void trackingDataIsEmpty();
    void trackingDataIsACopy();
    void printEmptyStore();
    void printSkipsEmptyDeques();
    void printEntries();
};

void tst_VfMutexTracker::firstThreeIds()
{
    VfMutexTracker tracker;
    QCOMPARE(tracker.getMutexId(), 1u);
    QCOMPARE(tracker.getMutexId(), 2u);
    QCOMPARE(tracker.getMutexId(), 3u);
}

void tst_VfMutexTracker::idOrder_data()
{
    // Operations on a fresh tracker: "g" is getMutexId(), "uN" is unsetMutexId(N).
    // The expected column lists the ids the "g" steps return, in order.
    QTest::addColumn<QString>("operations");
    QTest::addColumn<QString>("expected");
    QTest::newRow("fresh tracker: 1, 2, 3") << "g g g" << "1 2 3";
    QTest::newRow("unset 2 then 1: 2, 1, then 4") << "g g g u2 u1 g g g" << "1 2 3 2 1 4";
    QTest::newRow("unset 2 twice: 2 twice") << "g g g u2 u2 g g g" << "1 2 3 2 2 4";
    QTest::newRow("free list drained, then new ids") << "g u1 g g" << "1 1 2";
    // Part 5.3: kept as specified: unsetMutexId does not examine its value.
    QTest::newRow("id never handed out goes out all the same") << "u7 g g" << "7 1";
    QTest::newRow("released 0 goes out all the same") << "u0 g g" << "0 1";
}

void tst_VfMutexTracker::idOrder()
{
    QFETCH(QString, operations);
    QFETCH(QString, expected);
    VfMutexTracker tracker;
    QStringList handedOut;
    for (QString const& operation : operations.split(' ')) {
        if (operation == "g")
            handedOut << QString::number(tracker.getMutexId());
        else
            tracker.unsetMutexId(operation.mid(1).toUInt());
    }
    QCOMPARE(handedOut.join(' '), expected);
}

void tst_VfMutexTracker::idsWrapThroughZero()
{
    // Part 5.3: kept as specified: no overflow handling, m_nextId wraps through 0.
    VfMutexTracker tracker;
    VfMutexTrackerTestAccess::setNextId(tracker, 0xFFFFFFFFu);
    QCOMPARE(tracker.getMutexId(), 0xFFFFFFFFu);
    QCOMPARE(tracker.getMutexId(), 0u);
    QCOMPARE(tracker.getMutexId(), 1u);
}

void tst_VfMutexTracker::concurrentIdsAreDistinct()
{
    VfMutexTracker tracker;
    const int threads = 4;
    const int perThread = 2000;
    std::vector<std::vector<unsigned int>> ids(threads);
    std::vector<QThread*> workers;
    for (int t = 0; t < threads; ++t) {
        workers.push_back(QThread::create([&tracker, &ids, t] {
            for (int i = 0; i < perThread; ++i) {
                const unsigned int id = tracker.getMutexId();
                ids[t].push_back(id);
                if (i % 3 == 0) {
                    tracker.unsetMutexId(id);
                    ids[t].pop_back();
                }
            }
        }));
    }
    for (QThread* worker : workers)
        worker->start();
    for (QThread* worker : workers) {
        QVERIFY(worker->wait(60000));
        delete worker;
    }
    std::set<unsigned int> all;
    size_t kept = 0;
    for (auto const& list : ids) {
        kept += list.size();
        all.insert(list.begin(), list.end());
    }
    QCOMPARE(all.size(), kept);
    QVERIFY(all.count(0) == 0);
}

void tst_VfMutexTracker::trackingDataIsEmpty()
{
    VfMutexTracker tracker;
    tracker.getMutexId();
    tracker.unsetMutexId(1);
    QVERIFY(tracker.getMutexTrackingData().empty());
}

void tst_VfMutexTracker::trackingDataIsACopy()
{
    VfMutexTracker tracker;
    VfMutexTrackerTestAccess::setThread(tracker, 17, {info(3, "f", "a.cpp", 5, "worker")});
    auto data = tracker.getMutexTrackingData();
    QCOMPARE(data.size(), size_t(1));
    QCOMPARE(data.at(17).size(), size_t(1));
    QCOMPARE(QString::fromStdString(data.at(17).front().functionName), QString("f"));
    data.at(17).clear();
    QCOMPARE(tracker.getMutexTrackingData().at(17).size(), size_t(1));
}

void tst_VfMutexTracker::printEmptyStore()
{
    VfMutexTracker tracker;
    CoutCapture capture;
    tracker.printMutexTrackingData();
    QCOMPARE(capture.text(), QByteArray("No mutex locks for any thread.\n"));
}

void tst_VfMutexTracker::printSkipsEmptyDeques()
{
    VfMutexTracker tracker;
    VfMutexTrackerTestAccess::setThread(tracker, 5, {});
    VfMutexTrackerTestAccess::setThread(tracker, 6, {});
    {
        CoutCapture capture;
        tracker.printMutexTrackingData();
        QCOMPARE(capture.text(), QByteArray("No mutex locks for any thread.\n"));
    }
    // With one thread that has entries, the empty ones still print nothing and the line goes.
    VfMutexTrackerTestAccess::setThread(tracker, 9, {info(2, "run", "b.cpp", 7, "nine")});
    CoutCapture capture;
    tracker.printMutexTrackingData();
    QCOMPARE(capture.text(), QByteArray("Current mutex lock order for nine:\n"
                                        "\tFunction: run, file: b.cpp, line: 7, mutex id: 2\n"));
}

void tst_VfMutexTracker::printEntries()
{
    VfMutexTracker tracker;
    // Keys out of order on purpose: the report goes by ascending thread id. The heading takes
    // the first entry's thread name.
    VfMutexTrackerTestAccess::setThread(tracker, 0xFFFFFFFFFFFFFFF0ULL,
                                        {info(1, "high", "h.cpp", 1, "highThread")});
    VfMutexTrackerTestAccess::setThread(tracker, 3,
                                        {info(4, "outer", "a.cpp", 12, "first"),
                                         info(0xFFFFFFFFu, "inner", "c.cpp", -1, "second")});
    VfMutexTrackerTestAccess::setThread(tracker, 4, {});
    CoutCapture capture;
    tracker.printMutexTrackingData();
    QCOMPARE(capture.text(), QByteArray("Current mutex lock order for first:\n"
                                        "\tFunction: outer, file: a.cpp, line: 12, mutex id: 4\n"
                                        "\tFunction: inner, file: c.cpp, line: -1, mutex id: 4294967295\n"
                                        "Current mutex lock order for highThread:\n"
                                        "\tFunction: high, file: h.cpp, line: 1, mutex id: 1\n"));
}

QTEST_GUILESS_MAIN(tst_VfMutexTracker)
#include "tst_vfmutextracker.moc"
