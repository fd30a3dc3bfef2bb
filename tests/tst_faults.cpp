#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfunixsignalhandler.h"
#include "vfutilities.h"
#include "vftestsupport.h"

#include <QSocketNotifier>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Crosscutting;

#if defined(__SANITIZE_ADDRESS__)
const bool sanitized = true; // the address sanitizer adds frames of its own and takes over SIGSEGV
#else
const bool sanitized = false;
#endif

// Named frames: the program is linked with -rdynamic and built without optimisation (tst_faults.cmake).
namespace Probe {
__attribute__((noinline)) void raiseSignal(int sig)
{
    raise(sig);
}
__attribute__((noinline)) void captureRaw(const QString& path)
{
    VfUtilities::logBackTraceNoDemangle(QFile::encodeName(path).constData());
}
__attribute__((noinline)) int recurse(int depth, const QString& path)
{
    return depth == 0 ? (captureRaw(path), 0) : recurse(depth - 1, path) + 1;
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

QList<QByteArray> lines(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QList<QByteArray>();
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

// This program again, as a child: "--crash SIG", "--crash-while-logging" or "--stdin-closed PATH".
QProcess* child(const QStringList& arguments, const QString& path = QString())
{
    auto* process = new QProcess;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!path.isEmpty())
        environment.insert(QStringLiteral("PATH"), path);
    process->setProcessEnvironment(environment);
    process->start(QCoreApplication::applicationFilePath(), arguments);
    process->waitForFinished(60000);
    return process;
}

// The REPORT_STATUS and Qt message roads on two threads while a third raises SIGFPE.
[[noreturn]] void logForever()
{
    for (int i = 0;; ++i) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, QString::number(i));
        qDebug("routed %d", i);
    }
}

int childMain(int argc, char** argv)
{
    if (qstrcmp(argv[1], "--stdin-closed") == 0) {
        close(STDIN_FILENO);
        VfUtilities::logBackTraceNoDemangle(argv[2]);
        std::printf(fcntl(STDIN_FILENO, F_GETFD) != -1 ? "descriptor 0 open" : "closed");
        return 0;
    }
    QCoreApplication app(argc, argv);
    struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::atexit([] { std::printf("atexit handler ran"); });
    qInstallMessageHandler(&logMessageHandler);
    VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
    if (qstrcmp(argv[1], "--crash") == 0)
        Probe::raiseSignal(atoi(argv[2]));
    std::thread second(&logForever);
    std::thread worker([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        raise(SIGFPE);
    });
    logForever();
}

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT
private slots:
    void signalsReachTheEventLoop()
    {
        QList<int> calls;
        const auto record = [&](int number) {
            QCOMPARE(QThread::currentThread(), thread());
            calls.append(number);
        };
        struct sigaction before, after;
        sigaction(SIGUSR2, nullptr, &before);
        // SIGKILL cannot be caught; the others of the map are installed all the same.
        auto* handler = new VfUnixSignalHandler({{SIGKILL, record}, {SIGTERM, record}, {SIGUSR1, record}}, nullptr);
        QCOMPARE(raise(SIGTERM), 0);
        QCOMPARE(kill(getpid(), SIGUSR1), 0);
        QCOMPARE(raise(SIGUSR1), 0);
        QVERIFY(calls.isEmpty()); // the callbacks wait for the event loop
        QTRY_COMPARE(calls, (QList<int>{SIGTERM, SIGUSR1, SIGUSR1}));
        sigaction(SIGUSR2, nullptr, &after);
        QVERIFY(after.sa_handler == before.sa_handler);
        delete handler;
        // Nothing is restored: the signal still only writes to the socket, and the process lives on.
        QCOMPARE(raise(SIGTERM), 0);
        QTest::qWait(100);
        QCOMPARE(calls.size(), 3);
    }

    void crashHandler_data()
    {
        QTest::addColumn<int>("sig");
        QTest::addColumn<QString>("tool"); // demangle_backtrace on PATH: real, fake or none
        QTest::addColumn<bool>("logsDirectory");
        QTest::addColumn<bool>("demangled");
        QTest::newRow("SIGHUP") << int(SIGHUP) << "real" << true << true;
        QTest::newRow("SIGFPE") << int(SIGFPE) << "real" << true << true;
        QTest::newRow("SIGILL") << int(SIGILL) << "real" << true << true;
        QTest::newRow("SIGSEGV keeps its default action") << int(SIGSEGV) << "real" << true << false;
        QTest::newRow("no demangle_backtrace") << int(SIGHUP) << "none" << true << false;
        QTest::newRow("demangle_backtrace gets both paths") << int(SIGHUP) << "fake" << true << false;
        QTest::newRow("no logs directory") << int(SIGHUP) << "real" << false << false;
    }

    void crashHandler()
    {
        QFETCH(int, sig);
        QFETCH(QString, tool);
        QFETCH(bool, logsDirectory);
        QFETCH(bool, demangled);
        if (sanitized && sig == SIGSEGV)
            QSKIP("the address sanitizer takes over SIGSEGV");
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        QDir(logs).removeRecursively();
        QVERIFY(!logsDirectory || QDir().mkpath(logs));
        QTemporaryDir fakes;
        VfTest::writeFakeProgram(fakes.path(), QStringLiteral("demangle_backtrace"),
                                 QStringLiteral("printf '%s\\n' \"$@\" > /etc/tarvion/logs/arguments\n"));
        const QString tools = QFileInfo(QStringLiteral(DEMANGLE_BACKTRACE)).absolutePath();
        QScopedPointer<QProcess> run(child({"--crash", QString::number(sig)},
                                           tool == "real" ? tools : tool == "fake" ? fakes.path() : "/none"));
        const QList<QByteArray> frames = lines(logs + "/backTrace");
        if (sig == SIGSEGV) {
            QCOMPARE(run->exitStatus(), QProcess::CrashExit);
            QCOMPARE(run->exitCode(), SIGSEGV);
            QVERIFY(frames.isEmpty());
            return;
        }
        // A crash ends with exit(0), atexit handlers and all: the supervisors of the instruments
        // restart a program on any other status, and they rely on that.
        QCOMPARE(run->exitStatus(), QProcess::NormalExit);
        QCOMPARE(run->exitCode(), 0);
        QCOMPARE(run->readAllStandardOutput(), QByteArray("atexit handler ran"));
        QCOMPARE(frames.size() > 4, logsDirectory);
        if (logsDirectory && !sanitized) {
            QVERIFY(frames.at(0).contains("_ZN12Crosscutting11VfUtilities22logBackTraceNoDemangleEPKc"));
            QVERIFY(frames.at(1).contains("_ZN12Crosscutting25linuxGeneralSignalHandlerEj10sigcontext"));
            QVERIFY(frames.join().contains("(_ZN5Probe11raiseSignalEi+0x"));
        }
        QCOMPARE(lines(logs + "/backTraceDemangled").join().contains("Crosscutting::linuxGeneralSignalHandler(unsigned"),
                 demangled);
        if (tool == "fake")
            QCOMPARE(lines(logs + "/arguments"),
                     (QList<QByteArray>{"/etc/tarvion/logs/backTrace", "/etc/tarvion/logs/backTraceDemangled", ""}));
        QCOMPARE(QFileInfo::exists(logs), logsDirectory);
    }

    void crashWhileLogging()
    {
        QVERIFY(QDir().mkpath(logs));
        for (int run = 0; run < 20; ++run) {
            QFile::remove(logs + "/backTrace");
            QScopedPointer<QProcess> process(child({"--crash-while-logging"}));
            process->kill(); // a hung child fails below
            QCOMPARE(process->exitStatus(), QProcess::NormalExit);
            QCOMPARE(process->exitCode(), 0);
            QVERIFY(QFileInfo(logs + "/backTrace").size() > 0);
        }
    }

    void rawBacktrace()
    {
        if (sanitized)
            QSKIP("checks exact stack frames");
        QTemporaryDir directory;
        const QString path = directory.filePath("raw");
        // 100 frames at most: the innermost stay. A longer file keeps its tail: no O_TRUNC.
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray(200000, '~')) == 200000);
        file.close();
        Probe::recurse(150, path);
        QList<QByteArray> frames = lines(path);
        QCOMPARE(frames.size(), 101);
        QCOMPARE(frames.at(100), QByteArray(200000 - frames.mid(0, 100).join('\n').size() - 1, '~'));
        QVERIFY(frames.at(0).contains("_ZN12Crosscutting11VfUtilities22logBackTraceNoDemangleEPKc"));
        QVERIFY(frames.at(1).contains("(_ZN5Probe10captureRawERK7QString+0x"));
        QVERIFY(frames.at(99).contains("_ZN5Probe7recurseEiRK7QString"));
        QVERIFY(matches("^\\S.*\\[0x[0-9a-f]+\\]$", frames.at(99)));
        QCOMPARE(mode(path), 0644); // an existing file keeps its mode

        // A new file is for its owner alone, less the umask.
        const mode_t previous = umask(0277);
        Probe::captureRaw(directory.filePath("new"));
        umask(previous);
        QCOMPARE(mode(directory.filePath("new")), 0400);
        Probe::captureRaw(directory.filePath("missing/raw"));
        QVERIFY(!QFileInfo::exists(directory.filePath("missing")));

        // The open is tested against 0, not -1, and instruments rely on that: with standard input
        // closed the file gets descriptor 0, and the capture returns at once, leaving it empty and open.
        QScopedPointer<QProcess> process(child({"--stdin-closed", directory.filePath("stdin")}));
        QCOMPARE(process->readAllStandardOutput(), QByteArray("descriptor 0 open"));
        QCOMPARE(lines(directory.filePath("stdin")), QList<QByteArray>{""});
    }

    void backtraceFile()
    {
        if (sanitized)
            QSKIP("checks exact stack frames");
        QTemporaryDir directory;
        const QString path = directory.filePath("trace");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray(200000, '~')) == 200000);
        file.close();
        const QDateTime before = QDateTime::currentDateTime();
        vf_plain_caller(&path);
        const QDateTime after = QDateTime::currentDateTime();
        QList<QByteArray> frames = lines(path);
        QStringList stamps; // the local time of the call, to the millisecond
        for (QDateTime t = before; t <= after; t = t.addMSecs(1))
            stamps << '[' + t.toString("MM-dd-yy hh:mm:ss.zzz AP") + "] Backtrace: ";
        QVERIFY2(stamps.contains(frames.at(0)), frames.at(0).constData());
        QCOMPARE(frames.last(), QByteArray()); // the old file is truncated
        // Frame 0, logBackTrace itself, is left out; a name that is not mangled gets empty parentheses.
        const QString module = QRegularExpression::escape(QCoreApplication::applicationFilePath());
        QVERIFY2(matches(QString("^ %1 : vf_plain_caller\\(\\)\\+0x[0-9a-f]+$").arg(module), frames.at(1)),
                 frames.at(1).constData());
        QVERIFY(frames.at(2).contains(" : tst_Faults::backtraceFile()+0x"));

        // A name longer than the demangler's first buffer is written whole.
        Probe::longName(path, {}, {}, {}, {}, {});
        const QString name = QString("Probe::longName(QString const&, %1, %1, %1, %1, %1)+0x")
                                 .arg("Probe::ATypeWithALongNameThatIsRepeatedForEveryParameter");
        QVERIFY(name.size() > 255 && lines(path).at(1).contains(name.toLatin1()));
        VfUtilities::logBackTrace(directory.filePath("missing/trace"));
        QVERIFY(!QFileInfo::exists(directory.filePath("missing")));
    }
};

int main(int argc, char** argv)
{
    const QByteArray mode = argc > 1 ? argv[1] : "";
    if (mode == "--crash" || mode == "--crash-while-logging" || mode == "--stdin-closed")
        return childMain(argc, argv);
    QCoreApplication app(argc, argv);
    tst_Faults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
