#include "faulttestsupport.h"
#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfunixsignalhandler.h"
#include "vfutilities.h"
#include "vftestsupport.h"

#include <QSocketNotifier>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Crosscutting;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_UNDEFINED__)
#define SKIP_UNDER_SANITIZER(reason) QSKIP(reason)
#else
#define SKIP_UNDER_SANITIZER(reason)
#endif

// Named frames: the program is linked with -rdynamic and built without optimisation (tst_faults.cmake).
namespace Probe {
__attribute__((noinline)) void captureRaw(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path);
}
__attribute__((noinline)) int recurse(int depth, const char* path)
{
    return depth == 0 ? (captureRaw(path), 0) : recurse(depth - 1, path) + 1;
}
__attribute__((noinline)) void report(const QString& path)
{
    VfUtilities::logBackTrace(path);
}
struct ATypeWithALongNameThatIsRepeatedForEveryParameter
{
};
using P = ATypeWithALongNameThatIsRepeatedForEveryParameter;
__attribute__((noinline)) void longName(const QString& path, P, P, P, P, P)
{
    VfUtilities::logBackTrace(path);
}
} // namespace Probe

// Not a mangled name: the demangler refuses it.
extern "C" __attribute__((noinline)) void vf_plain_caller(const QString* path)
{
    VfUtilities::logBackTrace(*path);
}

namespace {

const QString logs = QStringLiteral("/etc/tarvion/logs");
const QByteArray noDemangle = "_ZN12Crosscutting11VfUtilities22logBackTraceNoDemangleEPKc";

QByteArray raw(const QString& path)
{
    return FaultTest::readAll(path);
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

int mode(const QString& path)
{
    struct stat info;
    return stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

bool matches(const QString& pattern, const QByteArray& line)
{
    return QRegularExpression(pattern).match(QString::fromLatin1(line)).hasMatch();
}

// The REPORT_STATUS and Qt message roads on two threads while a third raises SIGFPE.
[[noreturn]] void logForever()
{
    for (int i = 0;; ++i) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, QString::number(i));
        qDebug("routed %d", i);
    }
}

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT
private slots:
    void signalsReachTheEventLoop_data();
    void signalsReachTheEventLoop();
    void emptyMapInstallsNothing();
    void destroyedHandlerStillCatches();
    void crashHandler_data();
    void crashHandler();
    void crashWhileLogging();
    void rawBacktrace();
    void rawBacktraceWithStandardInputClosed();
    void backtraceFile();
};

void tst_Faults::signalsReachTheEventLoop_data()
{
    QTest::addColumn<int>("sig");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGUSR1") << int(SIGUSR1);
}

void tst_Faults::signalsReachTheEventLoop()
{
    QFETCH(int, sig);
    QList<int> calls;
    const auto record = [&](int number) {
        QCOMPARE(QThread::currentThread(), thread());
        calls.append(number);
    };
    // SIGKILL cannot be caught; the others of the map are installed all the same.
    VfUnixSignalHandler handler({{SIGKILL, record}, {SIGTERM, record}, {SIGUSR1, record}}, nullptr);
    QCOMPARE(raise(sig), 0);
    QCOMPARE(kill(getpid(), sig), 0);
    QVERIFY(calls.isEmpty()); // the callback waits for the event loop
    QTRY_COMPARE(calls, (QList<int>{sig, sig}));
    QTest::qWait(100);
    QCOMPARE(calls.size(), 2);
}

void tst_Faults::emptyMapInstallsNothing()
{
    struct sigaction before, after;
    sigaction(SIGUSR2, nullptr, &before);
    VfUnixSignalHandler handler({}, nullptr);
    sigaction(SIGUSR2, nullptr, &after);
    QVERIFY(after.sa_handler == before.sa_handler);
    QCOMPARE(handler.findChildren<QSocketNotifier*>().size(), 1);
}

void tst_Faults::destroyedHandlerStillCatches()
{
    bool called = false;
    delete new VfUnixSignalHandler({{SIGUSR2, [&called](int) { called = true; }}}, nullptr);
    // Nothing is restored: the signal still only writes to the socket, and the process lives on.
    QCOMPARE(raise(SIGUSR2), 0);
    QTest::qWait(100);
    QVERIFY(!called);
    struct sigaction current;
    sigaction(SIGUSR2, nullptr, &current);
    QVERIFY(current.sa_handler == &VfUnixSignalHandler::signalHandler);
}

void tst_Faults::crashHandler_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("tool"); // demangle_backtrace on PATH: real, fake or none
    QTest::addColumn<bool>("logsDirectory");
    QTest::addColumn<QByteArray>("frame"); // in the raw file; empty: no backtrace
    QTest::addColumn<bool>("demangled");
    const QByteArray raiser = "_ZN11FaultHelper7Crasher11raiseSignalEi";
    QTest::newRow("SIGHUP") << "HUP" << "real" << true << raiser << true;
    QTest::newRow("SIGFPE") << "FPE" << "real" << true << raiser << true;
    QTest::newRow("SIGILL") << "ILL" << "real" << true << raiser << true;
    QTest::newRow("SIGFPE by division") << "FPE-divide" << "real" << true << QByteArray("_ZN11FaultHelper6divideEii") << true;
    QTest::newRow("SIGSEGV keeps its default action") << "SEGV" << "real" << true << QByteArray() << false;
    QTest::newRow("no demangle_backtrace") << "HUP" << "none" << true << raiser << false;
    QTest::newRow("demangle_backtrace gets both paths") << "HUP" << "fake" << true << raiser << false;
    QTest::newRow("no logs directory") << "HUP" << "real" << false << QByteArray() << false;
}

void tst_Faults::crashHandler()
{
    QFETCH(QString, what);
    QFETCH(QString, tool);
    QFETCH(bool, logsDirectory);
    QFETCH(QByteArray, frame);
    QFETCH(bool, demangled);
    SKIP_UNDER_SANITIZER("the sanitizers take over the crash signals and change the frames");
    QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
    QDir(logs).removeRecursively();
    QVERIFY(!logsDirectory || QDir().mkpath(logs));
    QTemporaryDir fakes;
    VfTest::writeFakeProgram(fakes.path(), QStringLiteral("demangle_backtrace"),
                             QStringLiteral("printf '%s\\n' \"$@\" > /etc/tarvion/logs/arguments\n"));
    const QString path = tool == "real" ? FaultTest::toolDirectory() : tool == "fake" ? fakes.path() : QString("/none");
    const FaultTest::Run run = FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("crash"), what}, path, true);
    QVERIFY(run.finished);
    QVERIFY(!run.out.contains("still running"));
    if (what == "SEGV") {
        QCOMPARE(run.exitStatus, QProcess::CrashExit);
        QCOMPARE(run.exitCode, int(SIGSEGV));
    } else {
        // A crash ends with exit(0), through exit and its atexit handlers: instruments restart on any
        // other status, and their supervisors rely on that.
        QCOMPARE(run.exitStatus, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.contains("atexit handler ran"));
    }
    const QList<QByteArray> lines = FaultTest::lines(raw(logs + "/backTrace"));
    QCOMPARE(!lines.isEmpty(), !frame.isEmpty());
    if (!frame.isEmpty()) {
        QVERIFY(lines.at(0).contains(noDemangle));
        QVERIFY(lines.at(1).contains("_ZN12Crosscutting25linuxGeneralSignalHandlerEj10sigcontext"));
        QVERIFY(!FaultTest::lineWith(lines, {frame}).isEmpty());
    }
    QCOMPARE(raw(logs + "/backTraceDemangled").contains("Crosscutting::linuxGeneralSignalHandler(unsigned int, sigcontext)"),
             demangled);
    if (tool == "fake")
        QCOMPARE(raw(logs + "/arguments"), QByteArray("/etc/tarvion/logs/backTrace\n/etc/tarvion/logs/backTraceDemangled\n"));
    QCOMPARE(QFileInfo::exists(logs), logsDirectory);
}

void tst_Faults::crashWhileLogging()
{
    SKIP_UNDER_SANITIZER("the sanitizers take over the crash signals");
    QVERIFY(QDir().mkpath(logs));
    QStringList failures;
    for (int run = 0; run < 20; ++run) {
        QFile::remove(logs + "/backTrace");
        QProcess child;
        child.setStandardOutputFile(QProcess::nullDevice());
        child.setStandardErrorFile(QProcess::nullDevice());
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--crash-while-logging")});
        if (!child.waitForFinished(60000)) {
            child.kill();
            child.waitForFinished();
            failures << QStringLiteral("hung");
        } else if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0) {
            failures << QStringLiteral("status %1").arg(child.exitCode());
        } else if (QFileInfo(logs + "/backTrace").size() == 0) {
            failures << QStringLiteral("no backtrace");
        }
    }
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(", ")));
}

void tst_Faults::rawBacktrace()
{
    SKIP_UNDER_SANITIZER("checks exact stack frames");
    QTemporaryDir directory;
    const QByteArray shallow = QFile::encodeName(directory.filePath("shallow"));
    Probe::captureRaw(shallow);
    QList<QByteArray> lines = FaultTest::lines(raw(shallow));
    QVERIFY(lines.size() > 3 && lines.size() < 100);
    for (const QByteArray& line : lines) // innermost first, frame 0 included, no heading
        QVERIFY2(matches("^\\S.*\\[0x[0-9a-f]+\\]$", line), line.constData());
    QVERIFY(lines.at(0).contains(noDemangle));
    QVERIFY(lines.at(1).contains("_ZN5Probe10captureRawEPKc"));

    // 100 frames at most: the innermost stay, main is lost. The file was longer before and keeps its tail.
    const QByteArray old(200000, '~');
    QVERIFY(writeFile(directory.filePath("deep"), old));
    Probe::recurse(150, QFile::encodeName(directory.filePath("deep")));
    const QByteArray deep = raw(directory.filePath("deep"));
    const int end = deep.indexOf('~');
    lines = FaultTest::lines(deep.left(end));
    QCOMPARE(lines.size(), 100);
    QVERIFY(lines.at(99).contains("_ZN5Probe7recurseEiPKc"));
    QCOMPARE(deep.mid(end), old.mid(end));

    // A new file is for its owner alone, less the umask; an existing file keeps its mode.
    for (const auto& mode : QList<QPair<int, int>>{{0022, 0600}, {0277, 0400}}) {
        const QString file = directory.filePath(QString::number(mode.first));
        const mode_t previous = umask(mode_t(mode.first));
        Probe::captureRaw(QFile::encodeName(file));
        umask(previous);
        QCOMPARE(::mode(file), mode.second);
    }
    QVERIFY(writeFile(directory.filePath("kept"), ""));
    QCOMPARE(chmod(QFile::encodeName(directory.filePath("kept")).constData(), 0640), 0);
    Probe::captureRaw(QFile::encodeName(directory.filePath("kept")));
    QCOMPARE(::mode(directory.filePath("kept")), 0640);

    Probe::captureRaw(QFile::encodeName(directory.filePath("missing/backTrace")));
    QVERIFY(!QFileInfo::exists(directory.filePath("missing")));
}

void tst_Faults::rawBacktraceWithStandardInputClosed()
{
    // The open is tested against 0, not -1, and instruments rely on that: with standard input closed
    // the file gets descriptor 0, and the capture returns at once, leaving the file empty and open.
    QTemporaryDir directory;
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {"--stdin-closed", directory.filePath("raw")});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.readAllStandardOutput(), QByteArray("descriptor 0 open"));
    QVERIFY(QFileInfo::exists(directory.filePath("raw")));
    QCOMPARE(QFileInfo(directory.filePath("raw")).size(), 0);
}

void tst_Faults::backtraceFile()
{
    SKIP_UNDER_SANITIZER("checks exact stack frames");
    QTemporaryDir directory;
    const QString file = directory.filePath("trace");
    QVERIFY(writeFile(file, QByteArray(200000, 'o')));
    const QDateTime before = QDateTime::currentDateTime();
    Probe::report(file);
    const QDateTime after = QDateTime::currentDateTime();
    QList<QByteArray> lines = FaultTest::lines(raw(file));
    const QString heading = QString::fromLatin1(lines.takeFirst());
    QVERIFY2(matches("^\\[\\d\\d-\\d\\d-\\d\\d (0[1-9]|1[0-2]):[0-5]\\d:[0-5]\\d\\.\\d{3} [AP]M\\] Backtrace: $",
                     heading.toLatin1()),
             qPrintable(heading));
    QStringList stamps; // the local time of the call, to the millisecond
    for (QDateTime t = before; t <= after; t = t.addMSecs(1))
        stamps << '[' + t.toString("MM-dd-yy hh:mm:ss.zzz AP") + "] Backtrace: ";
    QVERIFY2(stamps.contains(heading), qPrintable(heading));
    QVERIFY(!raw(file).contains("ooo")); // the old file is truncated
    // Frame 0, logBackTrace itself, is left out.
    const QString module = QRegularExpression::escape(QCoreApplication::applicationFilePath());
    QVERIFY2(matches(QString("^ %1 : Probe::report\\(QString const&\\)\\+0x[0-9a-f]+$").arg(module), lines.at(0)),
             lines.at(0).constData());
    QVERIFY2(lines.at(1).contains(" : tst_Faults::backtraceFile()+0x"), lines.at(1).constData());

    vf_plain_caller(&file);
    QVERIFY(matches(QString("^ %1 : vf_plain_caller\\(\\)\\+0x").arg(module), FaultTest::lines(raw(file)).at(1)));

    // A name longer than the demangler's first buffer is written whole.
    Probe::longName(file, {}, {}, {}, {}, {});
    const QString type = QStringLiteral("Probe::ATypeWithALongNameThatIsRepeatedForEveryParameter");
    const QString name = QString("Probe::longName(QString const&, %1, %1, %1, %1, %1)+0x").arg(type);
    QVERIFY(name.size() > 255);
    QVERIFY(FaultTest::lines(raw(file)).at(1).contains(name.toLatin1()));

    VfUtilities::logBackTrace(directory.filePath("missing/trace"));
    QVERIFY(!QFileInfo::exists(directory.filePath("missing")));
}

int main(int argc, char** argv)
{
    if (argc > 2 && qstrcmp(argv[1], "--stdin-closed") == 0) {
        close(STDIN_FILENO);
        VfUtilities::logBackTraceNoDemangle(argv[2]);
        std::printf(fcntl(STDIN_FILENO, F_GETFD) != -1 ? "descriptor 0 open" : "descriptor 0 closed");
        return 0;
    }
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--crash-while-logging") == 0) {
        qInstallMessageHandler(&logMessageHandler);
        VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
        std::thread second(&logForever);
        std::thread worker([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            raise(SIGFPE);
        });
        logForever();
    }
    tst_Faults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
