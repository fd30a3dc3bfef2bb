#include "vfunixsignalhandler.h"

#include "faulttestsupport.h"
#include "vftestsupport.h"

#include <QDir>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <csignal>
#include <cstring>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Crosscutting;

#ifndef SA_RESTORER
#define SA_RESTORER 0x04000000
#endif

namespace {

const QString logsDirectory = QStringLiteral("/etc/tarvion/logs");
const QString backTracePath = QStringLiteral("/etc/tarvion/logs/backTrace");
const QString demangledPath = QStringLiteral("/etc/tarvion/logs/backTraceDemangled");

struct Disposition
{
    void (*handler)(int);
    int flags;
    bool operator==(const Disposition& other) const { return handler == other.handler && flags == other.flags; }
};

QVector<Disposition> dispositions()
{
    QVector<Disposition> result;
    for (int sig = 1; sig < NSIG; ++sig) {
        struct sigaction current;
        std::memset(&current, 0, sizeof(current));
        sigaction(sig, nullptr, &current);
        result.append({current.sa_handler, current.sa_flags});
    }
    return result;
}

QSet<int> openSockets()
{
    QSet<int> result;
    const QDir fds(QStringLiteral("/proc/self/fd"));
    for (const QString& name : fds.entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)) {
        if (QFileInfo(fds.filePath(name)).symLinkTarget().contains(QLatin1String("socket:")))
            result.insert(name.toInt());
    }
    return result;
}

// The helper's name of the function that raises each signal, and the mark of the statement.
const char raiserMangled[] = "_ZN11FaultHelper7Crasher11raiseSignalEi";
const char raiserDemangled[] = "FaultHelper::Crasher::raiseSignal(int)";

} // namespace

class tst_VfUnixSignalHandler : public QObject
{
    Q_OBJECT
private slots:
    void init();

    // VfUnixSignalHandler
    void killRunsCallbackOnEventLoop_data();
    void killRunsCallbackOnEventLoop();
    void twoDeliveriesBeforeLoopTurnsRunCallbackTwice();
    void unlistedSignalRunsNothing();
    void installsWithZeroFlagsAndEmptyMask();
    void uncatchableSignalDoesNotStopTheOthers();
    void emptyMapCreatesSocketPairAndNotifierAndInstallsNothing();
    void destroyedHandlerNeitherEndsProcessNorRunsCallback();

    // linuxGeneralSignalHandler
    void crashHandlerWritesBacktraceAndExitsWithZero_data();
    void crashHandlerWritesBacktraceAndExitsWithZero();
    void crashHandlerRunsDemangleCommandWithBothPaths();
    void crashHandlerWithoutDemangleCommandStillExitsWithZero();
    void crashHandlerWithoutLogsDirectoryLeavesNothing();
    void crashBySegmentationFaultKeepsDefaultAction();

private:
    bool prepareLogs();
};

void tst_VfUnixSignalHandler::init()
{
    if (QTest::currentTestFunction() && QByteArray(QTest::currentTestFunction()).startsWith("crash")
        && !VfTest::isSandboxed())
        QSKIP("writes /etc/tarvion/logs: run through tests/sandbox-run");
}

bool tst_VfUnixSignalHandler::prepareLogs()
{
    if (!VfTest::isSandboxed())
        return false;
    QDir(logsDirectory).removeRecursively();
    return QDir().mkpath(logsDirectory);
}

void tst_VfUnixSignalHandler::killRunsCallbackOnEventLoop_data()
{
    QTest::addColumn<int>("sig");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGUSR1") << int(SIGUSR1);
}

void tst_VfUnixSignalHandler::killRunsCallbackOnEventLoop()
{
    QFETCH(int, sig);
    QList<int> calls;
    QList<QThread*> threads;
    auto record = [&](int number) {
        calls.append(number);
        threads.append(QThread::currentThread());
    };
    VfUnixSignalHandler handler({{SIGTERM, record}, {SIGUSR1, record}}, nullptr);

    QCOMPARE(kill(getpid(), sig), 0);
    // The handler only writes to the socket: the callback waits for the event loop.
    QVERIFY(calls.isEmpty());
    QTRY_COMPARE(calls, QList<int>{sig});
    QCOMPARE(threads.first(), QThread::currentThread());

    // Once per delivery: nothing more comes without another signal.
    QTest::qWait(200);
    QCOMPARE(calls, QList<int>{sig});

    QCOMPARE(kill(getpid(), sig), 0);
    QTRY_COMPARE(calls, (QList<int>{sig, sig}));
}

void tst_VfUnixSignalHandler::twoDeliveriesBeforeLoopTurnsRunCallbackTwice()
{
    QList<int> calls;
    VfUnixSignalHandler handler({{SIGUSR1, [&](int number) { calls.append(number); }}}, nullptr);

    // raise() delivers before it returns, so these are two deliveries, not one pending signal.
    QCOMPARE(raise(SIGUSR1), 0);
    QCOMPARE(raise(SIGUSR1), 0);
    QVERIFY(calls.isEmpty());
    QTRY_COMPARE(calls.size(), 2);
    QTest::qWait(200);
    QCOMPARE(calls, (QList<int>{SIGUSR1, SIGUSR1}));
}

void tst_VfUnixSignalHandler::unlistedSignalRunsNothing()
{
    QList<int> calls;
    VfUnixSignalHandler handler({{SIGUSR1, [&](int number) { calls.append(number); }}}, nullptr);

    // A number without an entry is read and dropped, and the next one still gets through.
    VfUnixSignalHandler::signalHandler(SIGUSR2);
    QTest::qWait(200);
    QVERIFY(calls.isEmpty());
    QCOMPARE(raise(SIGUSR1), 0);
    QTRY_COMPARE(calls, QList<int>{SIGUSR1});
}

void tst_VfUnixSignalHandler::installsWithZeroFlagsAndEmptyMask()
{
    VfUnixSignalHandler handler({{SIGUSR2, [](int) {}}}, nullptr);
    struct sigaction current;
    std::memset(&current, 0, sizeof(current));
    QCOMPARE(sigaction(SIGUSR2, nullptr, &current), 0);
    QVERIFY(current.sa_handler == &VfUnixSignalHandler::signalHandler);
    // No SA_RESTART and no SA_SIGINFO (SA_RESTORER is the C library's own addition).
    QCOMPARE(current.sa_flags & ~SA_RESTORER, 0);
    for (int sig = 1; sig < NSIG; ++sig)
        QVERIFY2(!sigismember(&current.sa_mask, sig), qPrintable(QString::number(sig)));
}

void tst_VfUnixSignalHandler::uncatchableSignalDoesNotStopTheOthers()
{
    QList<int> calls;
    auto record = [&](int number) { calls.append(number); };
    // SIGKILL sorts first and cannot be caught; its failure is ignored.
    VfUnixSignalHandler handler({{SIGKILL, record}, {SIGUSR2, record}}, nullptr);
    QCOMPARE(raise(SIGUSR2), 0);
    QTRY_COMPARE(calls, QList<int>{SIGUSR2});
}

void tst_VfUnixSignalHandler::emptyMapCreatesSocketPairAndNotifierAndInstallsNothing()
{
    const QVector<Disposition> before = dispositions();
    const QSet<int> socketsBefore = openSockets();

    VfUnixSignalHandler handler({}, nullptr);

    QVERIFY(dispositions() == before);
    const QSet<int> created = openSockets() - socketsBefore;
    QCOMPARE(created.size(), 2);

    const QList<QSocketNotifier*> notifiers = handler.findChildren<QSocketNotifier*>();
    QCOMPARE(notifiers.size(), 1);
    QSocketNotifier* notifier = notifiers.first();
    QCOMPARE(notifier->type(), QSocketNotifier::Read);
    QVERIFY(notifier->isEnabled());
    QVERIFY(created.contains(int(notifier->socket())));
    int type = 0;
    socklen_t length = sizeof(type);
    QCOMPARE(getsockopt(int(notifier->socket()), SOL_SOCKET, SO_TYPE, &type, &length), 0);
    QCOMPARE(type, int(SOCK_STREAM));
    sockaddr address;
    length = sizeof(address);
    QCOMPARE(getsockname(int(notifier->socket()), &address, &length), 0);
    QCOMPARE(int(address.sa_family), int(AF_UNIX));
}

void tst_VfUnixSignalHandler::destroyedHandlerNeitherEndsProcessNorRunsCallback()
{
    // Part 7.1: kept as specified: the destructor restores no disposition.
    const FaultTest::Run run = FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("unix-destroyed")});
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(!run.out.contains("callback"), run.out.constData());
    QVERIFY2(run.out.contains("SIGUSR1 still caught"), run.out.constData());
    QVERIFY2(run.out.contains("survived"), run.out.constData());
}

void tst_VfUnixSignalHandler::crashHandlerWritesBacktraceAndExitsWithZero_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QByteArray>("rawName");
    QTest::addColumn<QByteArray>("demangledName");
    QTest::addColumn<QByteArray>("place");
    QTest::newRow("SIGHUP") << "HUP" << QByteArray(raiserMangled) << QByteArray(raiserDemangled)
                            << FaultTest::markPlace("raise");
    QTest::newRow("SIGFPE") << "FPE" << QByteArray(raiserMangled) << QByteArray(raiserDemangled)
                            << FaultTest::markPlace("raise");
    QTest::newRow("SIGILL") << "ILL" << QByteArray(raiserMangled) << QByteArray(raiserDemangled)
                            << FaultTest::markPlace("raise");
    QTest::newRow("SIGFPE by division") << "FPE-divide" << QByteArray("_ZN11FaultHelper6divideEii")
                                        << QByteArray("FaultHelper::divide(int, int)")
                                        << FaultTest::markPlace("divide");
    QTest::newRow("SIGILL by trap") << "ILL-trap" << QByteArray("_ZN11FaultHelper7Crasher4trapEv")
                                    << QByteArray("FaultHelper::Crasher::trap()") << FaultTest::markPlace("trap");
}

void tst_VfUnixSignalHandler::crashHandlerWritesBacktraceAndExitsWithZero()
{
    QFETCH(QString, what);
    QFETCH(QByteArray, rawName);
    QFETCH(QByteArray, demangledName);
    QFETCH(QByteArray, place);
    QVERIFY(prepareLogs());

    const FaultTest::Run run =
        FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), what}, FaultTest::toolDirectory());
    QVERIFY(run.finished);
    // Part 7.1: kept as specified: a crash ends with exit(0), through exit and its atexit handlers.
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains("atexit handler ran"), run.out.constData());
    QVERIFY(!run.out.contains("still running"));

    const QList<QByteArray> raw = FaultTest::lines(FaultTest::readAll(backTracePath));
    QVERIFY2(raw.size() >= 4, FaultTest::readAll(backTracePath).constData());
    QVERIFY2(raw.first().contains("_ZN12Crosscutting11VfUtilities22logBackTraceNoDemangleEPKc"), raw.first().constData());
    QVERIFY(raw.at(1).contains("_ZN12Crosscutting25linuxGeneralSignalHandlerEj10sigcontext"));
    QVERIFY(!FaultTest::lineWith(raw, {rawName}).isEmpty());

    const QByteArray demangled = FaultTest::readAll(demangledPath);
    QVERIFY2(!FaultTest::lineWith(FaultTest::lines(demangled), {demangledName, place}).isEmpty(),
             demangled.constData());
    QVERIFY2(demangled.contains("Crosscutting::linuxGeneralSignalHandler(unsigned int, sigcontext)"),
             demangled.constData());
}

void tst_VfUnixSignalHandler::crashHandlerRunsDemangleCommandWithBothPaths()
{
    QVERIFY(prepareLogs());
    QTemporaryDir fakes;
    QVERIFY(fakes.isValid());
    // The fake records its arguments and what the raw file held when it ran.
    VfTest::writeFakeProgram(fakes.path(), QStringLiteral("demangle_backtrace"),
                             QStringLiteral("printf '%s\\n' \"$@\" > /etc/tarvion/logs/arguments\n"
                                            "cp \"$1\" /etc/tarvion/logs/rawAtCall\n"));
    const FaultTest::Run run =
        FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), QStringLiteral("HUP")}, fakes.path());
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(FaultTest::readAll(logsDirectory + QStringLiteral("/arguments")),
             QByteArray("/etc/tarvion/logs/backTrace\n/etc/tarvion/logs/backTraceDemangled\n"));
    const QByteArray rawAtCall = FaultTest::readAll(logsDirectory + QStringLiteral("/rawAtCall"));
    QVERIFY(rawAtCall.contains(raiserMangled));
    QCOMPARE(rawAtCall, FaultTest::readAll(backTracePath));
}

void tst_VfUnixSignalHandler::crashHandlerWithoutDemangleCommandStillExitsWithZero()
{
    QVERIFY(prepareLogs());
    QTemporaryDir emptyPath;
    QVERIFY(emptyPath.isValid());
    const FaultTest::Run run = FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), QStringLiteral("FPE")},
                                              emptyPath.path(), true);
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QVERIFY(FaultTest::readAll(backTracePath).contains(raiserMangled));
    QVERIFY(!QFile::exists(demangledPath));
}

void tst_VfUnixSignalHandler::crashHandlerWithoutLogsDirectoryLeavesNothing()
{
    QVERIFY(prepareLogs());
    QVERIFY(QDir(logsDirectory).removeRecursively());
    const FaultTest::Run run = FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), QStringLiteral("HUP")},
                                              FaultTest::toolDirectory());
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QVERIFY(!QFileInfo::exists(logsDirectory));
}

void tst_VfUnixSignalHandler::crashBySegmentationFaultKeepsDefaultAction()
{
    QVERIFY(prepareLogs());
    const FaultTest::Run run = FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), QStringLiteral("SEGV")},
                                              FaultTest::toolDirectory());
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::CrashExit);
    QCOMPARE(run.exitCode, int(SIGSEGV));
    QVERIFY(!run.out.contains("atexit handler ran"));
    QVERIFY(!QFile::exists(backTracePath));
    QVERIFY(!QFile::exists(demangledPath));
}

QTEST_GUILESS_MAIN(tst_VfUnixSignalHandler)
#include "tst_vfunixsignalhandler.moc"
