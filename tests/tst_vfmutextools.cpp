#include "vfmutextools.h"
#include "vfmutextoolscontroller.h"

#include "coutcapture.h"

#include <QtTest>

#include <cstdint>
#include <iostream>
#include <sstream>

namespace Crosscutting {
// The debug state has no public setter (Part 5.2); the dormant paths are reached through this friend.
class VfMutexToolsControllerTestAccess
{
public:
    static void setState(unsigned char state) { VfMutexToolsController::instance()->m_state.store(state); }
};

// Holds a record's own lock, to show which operations never take it.
class VfMutexToolsTestAccess
{
public:
    static std::mutex& toolsMutex(VfMutexTools& tools) { return tools.m_toolsMutex; }
};
}

using namespace Crosscutting;

namespace {
unsigned long long currentThreadNumber()
{
    return static_cast<unsigned long long>(reinterpret_cast<std::intptr_t>(QThread::currentThreadId()));
}

// The double as std::cout writes it by default.
QByteArray streamed(double value)
{
    std::ostringstream stream;
    stream << value;
    return QByteArray::fromStdString(stream.str());
}

QString qs(std::string const& text)
{
    return QString::fromStdString(text);
}

// Runs `work` on a new thread, already started.
template <typename Work>
QThread* startThread(Work work, QString const& name = QString())
{
    QThread* thread = QThread::create(work);
    thread->setObjectName(name);
    thread->start();
    return thread;
}

void appendNumbered(VfMutexTools& tools, int count)
{
    for (int i = 1; i <= count; ++i)
        tools.appendCallerInfo("function", "file.cpp", i, "tester");
}
}

class tst_VfMutexTools : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    // The switch
    void controllerIsOneInstance();
    void settersDoNothing_data();
    void settersDoNothing();
    void settersLeaveAnInternalStateAlone();
    void dropGivesAFreshController();

    // Debug state 0, the only state that exists
    void stateZeroRecordsNoHolderAndNoTime();
    void stateZeroRecordsNoCaller();
    void stateZeroPrintsNothing();
    void stateZeroPrintsTakeNoLock();

    // Were the state 7
    void callerHistoryLimit_data();
    void callerHistoryLimit();
    void callerHistoryAcceptsLineZero();
    void callerHistoryNullArguments_data();
    void callerHistoryNullArguments();
    void nullFileTakesNoLock();
    void twoLockPairsSumInOneEntry();
    void unlockClearsTheHolder();
    void renamedThreadKeepsItsFirstName();
    void unlockCountsForTheCallingThread();
    void bitsGovernTheirOwnRecord_data();
    void bitsGovernTheirOwnRecord();
    void gettersDoNotConsultTheState();
    void printCurrentHolder();
    void printCallerHistory();
    void printLockTimesInThreadIdOrder();

    void threadIdentificationOrdersByIdAlone();
};

void tst_VfMutexTools::initTestCase()
{
    QThread::currentThread()->setObjectName("tester");
}

void tst_VfMutexTools::init()
{
    VfMutexToolsControllerTestAccess::setState(0);
}

void tst_VfMutexTools::cleanup()
{
    VfMutexToolsControllerTestAccess::setState(0);
    QThread::currentThread()->setObjectName("tester");
}

void tst_VfMutexTools::controllerIsOneInstance()
{
    VfMutexToolsController* controller = VfMutexToolsController::instance();
    QVERIFY(controller);
    QCOMPARE(VfMutexToolsController::instance(), controller);
    QCOMPARE(int(controller->mutexToolsDebugState()), 0);
}

void tst_VfMutexTools::settersDoNothing_data()
{
    QTest::addColumn<int>("value");
    QTest::newRow("7") << 7;
    QTest::newRow("1") << 1;
    QTest::newRow("8") << 8;
    QTest::newRow("255") << 255;
}

void tst_VfMutexTools::settersDoNothing()
{
    QFETCH(int, value);
    VfMutexToolsController* controller = VfMutexToolsController::instance();
    // Part 5.2: kept as specified: the setters are empty, the state stays 0.
    controller->setMutexToolsDebugStateOn(static_cast<unsigned char>(value));
    QCOMPARE(int(controller->mutexToolsDebugState()), 0);
    controller->setMutexToolsDebugStateOff(static_cast<unsigned char>(value));
    QCOMPARE(int(controller->mutexToolsDebugState()), 0);
}

void tst_VfMutexTools::settersLeaveAnInternalStateAlone()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexToolsController* controller = VfMutexToolsController::instance();
    controller->setMutexToolsDebugStateOff(7);
    QCOMPARE(int(controller->mutexToolsDebugState()), 7);
    controller->setMutexToolsDebugStateOn(8);
    QCOMPARE(int(controller->mutexToolsDebugState()), 7);
}

void tst_VfMutexTools::dropGivesAFreshController()
{
    VfMutexToolsControllerTestAccess::setState(5);
    QCOMPARE(int(VfMutexToolsController::instance()->mutexToolsDebugState()), 5);
    VfMutexToolsController::drop();
    QCOMPARE(int(VfMutexToolsController::instance()->mutexToolsDebugState()), 0);
    VfMutexToolsController::drop();
    VfMutexToolsController::drop(); // with no instance: nothing to delete
    QVERIFY(VfMutexToolsController::instance());
}

void tst_VfMutexTools::stateZeroRecordsNoHolderAndNoTime()
{
    VfMutexTools tools;
    tools.processLock();
    QTest::qSleep(2);
    tools.processUnlock();
    tools.processLock();
    const ThreadIdentification holder = tools.currentLockedThreadId();
    QCOMPARE(holder.threadId, 0ULL);
    QVERIFY(holder.threadName.empty());
    tools.processUnlock();
    QVERIFY(tools.lockTimeRecord().empty());
}

void tst_VfMutexTools::stateZeroRecordsNoCaller()
{
    VfMutexTools tools;
    appendNumbered(tools, 3);
    QVERIFY(tools.callerInfo().empty());
}

void tst_VfMutexTools::stateZeroPrintsNothing()
{
    VfMutexTools tools;
    tools.processLock();
    tools.processUnlock();
    appendNumbered(tools, 2);
    CoutCapture capture;
    tools.printCurrentLockedThreadId();
    tools.printLockTimeRecord();
    tools.printCallerInfo();
    QCOMPARE(capture.text(), QByteArray());
}

void tst_VfMutexTools::stateZeroPrintsTakeNoLock()
{
    VfMutexTools tools;
    std::mutex& toolsMutex = VfMutexToolsTestAccess::toolsMutex(tools);
    toolsMutex.lock();
    QScopedPointer<QThread> printer(startThread([&tools] {
        tools.printCurrentLockedThreadId();
        tools.printLockTimeRecord();
        tools.printCallerInfo();
        tools.appendCallerInfo("function", "file.cpp", 1, "tester");
    }));
    const bool finished = printer->wait(10000);
    toolsMutex.unlock();
    QVERIFY2(finished, "an operation with its bit off waited for the record's lock");
}

void tst_VfMutexTools::callerHistoryLimit_data()
{
    QTest::addColumn<int>("appends");
    QTest::addColumn<int>("expectedSize");
    QTest::addColumn<int>("expectedFirstLine");
    QTest::newRow("9: nothing removed") << 9 << 9 << 1;
    QTest::newRow("10: nothing removed") << 10 << 10 << 1;
    QTest::newRow("11: the first one gone") << 11 << 10 << 2;
    QTest::newRow("25: the last ten") << 25 << 10 << 16;
}

void tst_VfMutexTools::callerHistoryLimit()
{
    QFETCH(int, appends);
    QFETCH(int, expectedSize);
    QFETCH(int, expectedFirstLine);
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    appendNumbered(tools, appends);
    const std::deque<MutexFunctionInfo> history = tools.callerInfo();
    QCOMPARE(int(history.size()), expectedSize);
    QCOMPARE(history.front().lineNumber, expectedFirstLine);
    QCOMPARE(history.back().lineNumber, appends);
    for (size_t i = 1; i < history.size(); ++i)
        QCOMPARE(history[i].lineNumber, history[i - 1].lineNumber + 1);
}

void tst_VfMutexTools::callerHistoryAcceptsLineZero()
{
    VfMutexToolsControllerTestAccess::setState(4);
    VfMutexTools tools;
    std::string function = "caller";
    tools.appendCallerInfo(function.c_str(), "z.cpp", 0, "tester");
    function = "changed"; // the record keeps copies of the strings
    const std::deque<MutexFunctionInfo> history = tools.callerInfo();
    QCOMPARE(int(history.size()), 1);
    QCOMPARE(qs(history[0].functionName), QString("caller"));
    QCOMPARE(qs(history[0].fileName), QString("z.cpp"));
    QCOMPARE(history[0].lineNumber, 0);
    QCOMPARE(qs(history[0].threadName), QString("tester"));
}

void tst_VfMutexTools::callerHistoryNullArguments_data()
{
    QTest::addColumn<bool>("nullFunction");
    QTest::addColumn<bool>("nullFile");
    QTest::addColumn<bool>("nullThread");
    QTest::newRow("null function") << true << false << false;
    QTest::newRow("null file") << false << true << false;
    QTest::newRow("null thread") << false << false << true;
    QTest::newRow("all null") << true << true << true;
}

void tst_VfMutexTools::callerHistoryNullArguments()
{
    QFETCH(bool, nullFunction);
    QFETCH(bool, nullFile);
    QFETCH(bool, nullThread);
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    tools.appendCallerInfo(nullFunction ? nullptr : "f", nullFile ? nullptr : "a.cpp", 3,
                           nullThread ? nullptr : "t");
    QVERIFY(tools.callerInfo().empty());
    tools.appendCallerInfo("f", "a.cpp", 3, "t");
    QCOMPARE(int(tools.callerInfo().size()), 1);
}

void tst_VfMutexTools::nullFileTakesNoLock()
{
    VfMutexToolsControllerTestAccess::setState(4);
    VfMutexTools tools;
    std::mutex& toolsMutex = VfMutexToolsTestAccess::toolsMutex(tools);

    toolsMutex.lock();
    QScopedPointer<QThread> nullFile(startThread([&tools] { tools.appendCallerInfo("f", nullptr, 1, "t"); }));
    const bool finished = nullFile->wait(10000);
    // The control: with all arguments given, the append waits for the lock.
    QScopedPointer<QThread> complete(startThread([&tools] { tools.appendCallerInfo("f", "a.cpp", 1, "t"); }));
    const bool completeWaited = !complete->wait(200);
    toolsMutex.unlock();
    QVERIFY(complete->wait(10000));
    QVERIFY(nullFile->wait(10000));

    QVERIFY2(finished, "a null file name took the record's lock");
    QVERIFY(completeWaited);
    QCOMPARE(int(tools.callerInfo().size()), 1);
    QCOMPARE(qs(tools.callerInfo().front().fileName), QString("a.cpp"));
}

void tst_VfMutexTools::twoLockPairsSumInOneEntry()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    tools.processLock();
    QTest::qSleep(20);
    tools.processUnlock();
    const std::map<ThreadIdentification, double> first = tools.lockTimeRecord();
    QCOMPARE(int(first.size()), 1);
    const double firstTime = first.begin()->second;
    QVERIFY2(firstTime >= 15.0, qPrintable(QString::number(firstTime)));

    tools.processLock();
    QTest::qSleep(20);
    tools.processUnlock();
    const std::map<ThreadIdentification, double> both = tools.lockTimeRecord();
    QCOMPARE(int(both.size()), 1);
    QCOMPARE(both.begin()->first.threadId, currentThreadNumber());
    QCOMPARE(qs(both.begin()->first.threadName), QString("tester"));
    // The second hold time is added to the first, not stored in its place.
    const double sum = both.begin()->second;
    QVERIFY2(sum - firstTime >= 15.0, qPrintable(QString("%1 then %2").arg(firstTime).arg(sum)));
}

void tst_VfMutexTools::unlockClearsTheHolder()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    tools.processLock();
    ThreadIdentification holder = tools.currentLockedThreadId();
    QCOMPARE(holder.threadId, currentThreadNumber());
    QVERIFY(holder.threadId != 0);
    QCOMPARE(qs(holder.threadName), QString("tester"));
    tools.processUnlock();
    holder = tools.currentLockedThreadId();
    QCOMPARE(holder.threadId, 0ULL);
    QVERIFY(holder.threadName.empty());
}

void tst_VfMutexTools::renamedThreadKeepsItsFirstName()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    QThread::currentThread()->setObjectName("first");
    tools.processLock();
    tools.processUnlock();
    QThread::currentThread()->setObjectName("second");
    tools.processLock();
    QCOMPARE(qs(tools.currentLockedThreadId().threadName), QString("second"));
    tools.processUnlock();

    const std::map<ThreadIdentification, double> record = tools.lockTimeRecord();
    QCOMPARE(int(record.size()), 1);
    // Part 5.2: kept as specified: a key keeps the name of its first insertion.
    QCOMPARE(qs(record.begin()->first.threadName), QString("first"));
    CoutCapture capture;
    tools.printLockTimeRecord();
    QCOMPARE(capture.text(), "first has retained locked for: " + streamed(record.begin()->second) + " ms\n");
}

void tst_VfMutexTools::unlockCountsForTheCallingThread()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    tools.processLock();
    unsigned long long workerId = 0;
    QScopedPointer<QThread> worker(startThread(
        [&tools, &workerId] {
            workerId = currentThreadNumber();
            tools.processUnlock();
        },
        "worker"));
    QVERIFY(worker->wait(10000));
    const std::map<ThreadIdentification, double> record = tools.lockTimeRecord();
    QCOMPARE(int(record.size()), 1);
    QCOMPARE(record.begin()->first.threadId, workerId);
    QVERIFY(workerId != currentThreadNumber());
    QCOMPARE(qs(record.begin()->first.threadName), QString("worker"));
    QCOMPARE(tools.currentLockedThreadId().threadId, 0ULL);
}

void tst_VfMutexTools::bitsGovernTheirOwnRecord_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("holder");
    QTest::addColumn<bool>("holdTime");
    QTest::addColumn<bool>("callers");
    QTest::newRow("1: holder only") << 1 << true << false << false;
    QTest::newRow("2: hold time only") << 2 << false << true << false;
    QTest::newRow("4: callers only") << 4 << false << false << true;
    QTest::newRow("8: none of the records") << 8 << false << false << false;
    QTest::newRow("6") << 6 << false << true << true;
    QTest::newRow("7: all three") << 7 << true << true << true;
}

void tst_VfMutexTools::bitsGovernTheirOwnRecord()
{
    QFETCH(int, state);
    QFETCH(bool, holder);
    QFETCH(bool, holdTime);
    QFETCH(bool, callers);
    VfMutexToolsControllerTestAccess::setState(static_cast<unsigned char>(state));
    VfMutexTools tools;
    tools.processLock();
    tools.appendCallerInfo("f", "a.cpp", 1, "tester");
    QCOMPARE(tools.currentLockedThreadId().threadId != 0, holder);
    {
        CoutCapture capture;
        tools.printCurrentLockedThreadId();
        QCOMPARE(capture.text(), holder ? QByteArray("Current thread that has lock acquired:tester\n") : QByteArray());
    }
    tools.processUnlock();
    QCOMPARE(!tools.lockTimeRecord().empty(), holdTime);
    QCOMPARE(!tools.callerInfo().empty(), callers);
    {
        CoutCapture capture;
        tools.printLockTimeRecord();
        QCOMPARE(!capture.text().isEmpty(), holdTime);
    }
    {
        CoutCapture capture;
        tools.printCallerInfo();
        QCOMPARE(capture.text().startsWith("Previous successful locks: \n"), callers);
        QCOMPARE(capture.text().isEmpty(), !callers);
    }
}

void tst_VfMutexTools::gettersDoNotConsultTheState()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    tools.processLock();
    tools.appendCallerInfo("f", "a.cpp", 1, "tester");
    VfMutexToolsControllerTestAccess::setState(0);
    QCOMPARE(tools.currentLockedThreadId().threadId, currentThreadNumber());
    QCOMPARE(int(tools.callerInfo().size()), 1);
    VfMutexToolsControllerTestAccess::setState(7);
    tools.processUnlock();
    VfMutexToolsControllerTestAccess::setState(0);
    QCOMPARE(int(tools.lockTimeRecord().size()), 1);
}

void tst_VfMutexTools::printCurrentHolder()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    {
        CoutCapture capture;
        tools.printCurrentLockedThreadId();
        QCOMPARE(capture.text(), QByteArray("Current thread that has lock acquired:\n"));
    }
    tools.processLock();
    {
        CoutCapture capture;
        tools.printCurrentLockedThreadId();
        // No blank after the colon, and no id.
        QCOMPARE(capture.text(), QByteArray("Current thread that has lock acquired:tester\n"));
    }
    tools.processUnlock();
    CoutCapture capture;
    tools.printCurrentLockedThreadId();
    QCOMPARE(capture.text(), QByteArray("Current thread that has lock acquired:\n"));
}

void tst_VfMutexTools::printCallerHistory()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    {
        CoutCapture capture;
        tools.printCallerInfo();
        QCOMPARE(capture.text(), QByteArray("Previous successful locks: \n"));
    }
    tools.appendCallerInfo("openLog", "vflog.cpp", 42, "tester");
    tools.appendCallerInfo("flush", "vffilewriter.cpp", -3, "");
    CoutCapture capture;
    tools.printCallerInfo();
    QCOMPARE(capture.text(), QByteArray("Previous successful locks: \n"
                                        "\tLock called from function: openLog, in file: vflog.cpp, on line: 42, "
                                        "from thread: tester\n"
                                        "\tLock called from function: flush, in file: vffilewriter.cpp, on line: -3, "
                                        "from thread: \n"));
}

void tst_VfMutexTools::printLockTimesInThreadIdOrder()
{
    VfMutexToolsControllerTestAccess::setState(7);
    VfMutexTools tools;
    {
        CoutCapture capture;
        tools.printLockTimeRecord();
        QCOMPARE(capture.text(), QByteArray());
    }
    tools.processLock();
    tools.processUnlock();
    QScopedPointer<QThread> worker(startThread(
        [&tools] {
            tools.processLock();
            tools.processUnlock();
        },
        "worker"));
    QVERIFY(worker->wait(10000));
    const std::map<ThreadIdentification, double> record = tools.lockTimeRecord();
    QCOMPARE(int(record.size()), 2);
    QByteArray expected;
    unsigned long long previousId = 0;
    for (auto const& entry : record) {
        QVERIFY(entry.first.threadId > previousId);
        previousId = entry.first.threadId;
        expected += QByteArray::fromStdString(entry.first.threadName) + " has retained locked for: "
                    + streamed(entry.second) + " ms\n";
    }
    QVERIFY(expected.contains("tester has") && expected.contains("worker has"));
    CoutCapture capture;
    tools.printLockTimeRecord();
    QCOMPARE(capture.text(), expected);
}

void tst_VfMutexTools::threadIdentificationOrdersByIdAlone()
{
    const ThreadIdentification a{7, "a"};
    const ThreadIdentification b{7, "b"};
    QVERIFY(!(a < b));
    QVERIFY(!(b < a));
    const ThreadIdentification low{1, "z"};
    const ThreadIdentification high{0xFFFFFFFFFFFFFFF0ULL, "a"};
    QVERIFY(low < high); // unsigned: the top bit does not make it negative
    QVERIFY(!(high < low));

    std::map<ThreadIdentification, double> record;
    record.emplace(a, 1.0);
    record.emplace(b, 2.0);
    QCOMPARE(int(record.size()), 1);
    QCOMPARE(qs(record.begin()->first.threadName), QString("a"));
}

QTEST_GUILESS_MAIN(tst_VfMutexTools)
#include "tst_vfmutextools.moc"
