#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfunixsignalhandler.h"
#include "vfutilities.h"
#include "vftestsupport.h"

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
__attribute__((always_inline)) inline void illegalInstruction()
{
    asm volatile("nop");
    asm volatile("ud2"); // the byte before the faulting instruction belongs to the line before
}
const int faultLine = __LINE__ - 2;
__attribute__((always_inline)) inline void inlinedCaller()
{
    illegalInstruction(); asm volatile("");
}
const int inlinedLine = __LINE__ - 2;
__attribute__((noinline)) void crash(int sig)
{
    if (sig == SIGILL)
        inlinedCaller();
    raise(sig);
}
const int crashLine = __LINE__ - 3;
__attribute__((noinline)) int recurse(int depth, const QString& path)
{
    if (depth == 0)
        VfUtilities::logBackTraceNoDemangle(QFile::encodeName(path).constData());
    return depth == 0 ? 0 : recurse(depth - 1, path) + 1;
}
struct ATypeWithALongNameThatIsRepeatedForEveryParameter {};
using P = ATypeWithALongNameThatIsRepeatedForEveryParameter;
__attribute__((noinline)) void longName(const QString& path, P, P, P, P, P)
{
    VfUtilities::logBackTrace(path);
}
} // namespace Probe

namespace {

const QString logs = QStringLiteral("/etc/tarvion/logs");

QStringList lines(const QString& path)
{
    return QString::fromLatin1(VfTest::readFile(path)).split('\n');
}

// status: the exit code, or minus the signal that ended the program; -1000 when it did not end.
struct Run { int status; QByteArray out, err; };
Run run(const QString& program, const QStringList& arguments, const QString& path = "/none")
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"), path);
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(120000);
    const int code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -process.exitCode();
    return {ended ? code : -1000, process.readAllStandardOutput(), process.readAllStandardError()};
}

Run child(const QStringList& arguments, const QString& path = "/none")
{
    return run(QCoreApplication::applicationFilePath(), arguments, path);
}

// The REPORT_STATUS and Qt message roads on two threads while a third raises SIGFPE.
[[noreturn]] void logForever()
{
    for (int i = 0;; ++i) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, QString::number(i));
        qDebug("routed %d", i);
    }
}

// This program again: "--crash SIG" (SIGABRT through qFatal), "--crash-while-logging" or "--stdin-closed PATH".
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
    if (qstrcmp(argv[1], "--crash") == 0 && atoi(argv[2]) == SIGABRT)
        qFatal("fatal");
    if (qstrcmp(argv[1], "--crash") == 0)
        Probe::crash(atoi(argv[2]));
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
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(name); }
private slots:
    void signalsReachTheEventLoop()
    {
        QList<int> calls;
        const auto record = [&](int number) { calls.append(number); };
        // SIGKILL cannot be caught; the others of the map are installed all the same.
        auto* handler = new VfUnixSignalHandler({{SIGKILL, record}, {SIGTERM, record}, {SIGUSR1, record}}, nullptr);
        QCOMPARE(raise(SIGTERM) + kill(getpid(), SIGUSR1) + raise(SIGUSR1), 0);
        QVERIFY(calls.isEmpty()); // the callbacks wait for the event loop
        QTRY_COMPARE(calls, (QList<int>{SIGTERM, SIGUSR1, SIGUSR1}));
        delete handler;
        // Nothing is restored: the signal still only writes to the socket, and the process lives on.
        raise(SIGTERM);
        QTest::qWait(100);
        QCOMPARE(calls.size(), 3);
    }

    void crashHandler_data()
    {
        QTest::addColumn<int>("sig");
        QTest::addColumn<bool>("tool"); // demangle_backtrace on PATH
        QTest::addColumn<bool>("logsDirectory");
        QTest::newRow("SIGHUP") << int(SIGHUP) << true << true;
        QTest::newRow("SIGFPE") << int(SIGFPE) << true << true;
        QTest::newRow("SIGILL") << int(SIGILL) << true << true;
        QTest::newRow("SIGSEGV keeps its default action") << int(SIGSEGV) << true << true;
        QTest::newRow("qFatal aborts") << int(SIGABRT) << true << true;
        QTest::newRow("no demangle_backtrace") << int(SIGHUP) << false << true;
        QTest::newRow("no logs directory") << int(SIGHUP) << true << false;
    }

    void crashHandler()
    {
        QFETCH(int, sig);
        QFETCH(bool, tool);
        QFETCH(bool, logsDirectory);
        if (sanitized && sig == SIGSEGV)
            QSKIP("the address sanitizer takes over SIGSEGV");
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        QDir(logs).removeRecursively();
        QVERIFY(!logsDirectory || QDir().mkpath(logs));
        const Run crash = child({"--crash", QString::number(sig)}, tool ? QFileInfo(DEMANGLE_BACKTRACE).path() : "/none");
        if (sig == SIGSEGV || sig == SIGABRT) {
            QCOMPARE(crash.status, -sig);
            QVERIFY(!QFileInfo::exists(logs + "/backTrace"));
            // What was queued reaches the file before abort().
            QCOMPARE(VfTest::readFile(logs + "/velmar.log").endsWith("] fatal\n"), sig == SIGABRT);
            return;
        }
        // A crash ends with exit(0), atexit handlers and all: the supervisors of the instruments
        // restart a program on any other status, and they rely on that.
        QCOMPARE(crash.status, 0);
        QCOMPARE(crash.out, QByteArray("atexit handler ran"));
        QCOMPARE(lines(logs + "/backTrace").size() > 4, logsDirectory);
        QCOMPARE(VfTest::readFile(logs + "/backTraceDemangled").contains("Crosscutting::linuxGeneralSignalHandler(unsigned"),
                 tool && logsDirectory);
        QCOMPARE(QFileInfo::exists(logs), logsDirectory);
    }

    void crashWhileLogging()
    {
        QVERIFY(QDir().mkpath(logs));
        for (int i = 0; i < 20; ++i) {
            QFile::remove(logs + "/backTrace");
            QCOMPARE(child({"--crash-while-logging"}).status, 0);
            QVERIFY(QFileInfo(logs + "/backTrace").size() > 0);
        }
    }

    void backtraceFiles()
    {
        if (sanitized)
            QSKIP("checks exact stack frames");
        QVERIFY(VfTest::writeFile(path("raw"), QByteArray(200000, '~')) && VfTest::writeFile(path("trace"), QByteArray(200000, '~')));
        // 100 frames at most, the innermost. The raw capture does not truncate: the older file keeps its tail.
        Probe::recurse(150, path("raw"));
        const QStringList frames = lines(path("raw"));
        QCOMPARE(frames.size(), 101);
        QCOMPARE(frames.at(100), QString(200000 - frames.mid(0, 100).join('\n').size() - 1, '~'));
        QVERIFY(frames.at(1).contains("(_ZN5Probe7recurseEiRK7QString+0x"));
        // A new file is for its owner alone, less the umask; a missing directory is not made.
        const mode_t previous = umask(0277);
        Probe::recurse(0, path("new"));
        umask(previous);
        struct stat info;
        QVERIFY(stat(QFile::encodeName(path("new")).constData(), &info) == 0 && (info.st_mode & 07777) == 0400);
        Probe::recurse(0, path("missing/raw"));
        VfUtilities::logBackTrace(path("missing/trace"));
        QVERIFY(!QFileInfo::exists(path("missing")));

        // The demangled capture truncates, stamps the local time to the millisecond, leaves out its own
        // frame, writes a name longer than the demangler's first buffer whole, and a C name with "()".
        const QDateTime before = QDateTime::currentDateTime();
        Probe::longName(path("trace"), {}, {}, {}, {}, {});
        const QDateTime after = QDateTime::currentDateTime();
        const QStringList trace = lines(path("trace"));
        QStringList stamps;
        for (QDateTime t = before; t <= after; t = t.addMSecs(1))
            stamps << '[' + t.toString("MM-dd-yy hh:mm:ss.zzz AP") + "] Backtrace: ";
        QVERIFY2(stamps.contains(trace.at(0)), qPrintable(trace.at(0)));
        const QString name = QString(" : Probe::longName(QString const&, %1, %1, %1, %1, %1)+0x")
                                 .arg("Probe::ATypeWithALongNameThatIsRepeatedForEveryParameter");
        QVERIFY2(trace.at(1).startsWith(' ') && trace.at(1).contains(name), qPrintable(trace.at(1)));
        QCOMPARE(trace.filter(QRegularExpression("^ \\S+ : main\\(\\)\\+0x[0-9a-f]+$")).size(), 1);
        QCOMPARE(trace.last(), QString());

        // The open is tested against 0, not -1, and instruments rely on that: with standard input
        // closed the file gets descriptor 0, and the capture returns at once, leaving it empty and open.
        QCOMPARE(child({"--stdin-closed", path("stdin")}).out, QByteArray("descriptor 0 open"));
        QCOMPARE(VfTest::readFile(path("stdin")), QByteArray());
    }

    void demangleArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said");
        QTest::newRow("--help") << QStringList{"--help"} << 0 << "\nEXIT STATUS\n";
        QTest::newRow("no arguments") << QStringList() << 2 << "usage: ";
        QTest::newRow("missing RAW") << QStringList{path("none"), path("out")} << 1 << path("none");
        QTest::newRow("RAW is a directory") << QStringList{m_dir.path(), path("out")} << 1 << "Is a directory";
        QTest::newRow("OUT cannot be made") << QStringList{DEMANGLE_BACKTRACE, path("no/out")} << 1 << path("no/out");
    }
    void demangleArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, said);
        const Run result = run(DEMANGLE_BACKTRACE, arguments);
        QTEST(result.status, "exitCode");
        QVERIFY2((result.out + result.err).contains(said.toUtf8()), result.err.constData());
        QVERIFY(!QFile::exists(path("out")));
    }

    // The tool needs no other program (PATH is empty), as on an instrument without binutils.
    void demangleCopiesWhatItCannotResolve_data()
    {
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("lines that are no frames") << QByteArray("[0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n[0x2000]\nlast")
                                                  << QByteArray("#0 [0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n#1 [0x2000]\nlast\n");
        QTest::newRow("unknown modules") << QByteArray("/no/module(+0x10) [0x55d000000010]\n/no/lib.so(_ZN3Foo3barEv+0x10) [0x7f0000001010]\n[0x00007f00deadbeef]\n")
                                         << QByteArray("#0 /no/module(+0x10) [0x55d000000010]\n#1 /no/lib.so: Foo::bar()+0x10\n#2 [0x00007f00deadbeef]\n");
    }
    void demangleCopiesWhatItCannotResolve()
    {
        QFETCH(QByteArray, raw);
        QFETCH(QByteArray, expected);
        QVERIFY(VfTest::writeFile(path("raw"), raw) && VfTest::writeFile(path("longer"), QByteArray(10000, 'x')));
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("raw"), path("longer")}).status, 0);
        QCOMPARE(VfTest::readFile(path("longer")), expected);
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("raw"), "-"}).out, expected);
    }

    void demangleCrash()
    {
        if (sanitized)
            QSKIP("the sanitizers' runtime changes the frames of the capture");
        QVERIFY(QDir(logs).removeRecursively() && QDir().mkpath(logs));
        QCOMPARE(child({"--crash", QString::number(SIGILL)}, QFileInfo(DEMANGLE_BACKTRACE).path()).status, 0);
        const QByteArray demangled = VfTest::readFile(logs + "/backTraceDemangled");
        // The form of older C libraries, a blank before the address and CRLF, gives the same frames.
        QVERIFY(VfTest::writeFile(path("older"), VfTest::readFile(logs + "/backTrace").replace(")[", ") [").replace("\n", "\r\n")));
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("older"), "-"}).out, demangled);
        // Offsets change with every build; the names, the lines and the functions inlined, innermost first, do not.
        const QString text = QString::fromUtf8(demangled).replace(QRegularExpression("\\+0x[0-9a-f]+ "), " ");
        // The faulting instruction after the signal trampoline is looked up at its own address.
        const QString at = QStringLiteral(" at " SOURCE_DIR "/tst_faults.cpp:");
        const QString crash = QString(": Probe::crash(int)%1%2 (inlined: Probe::illegalInstruction() into Probe::inlinedCaller()%1%3; "
                                      "Probe::inlinedCaller() into Probe::crash(int)%1%4)\n")
                                  .arg(at).arg(Probe::faultLine).arg(Probe::inlinedLine).arg(Probe::crashLine);
        QVERIFY2(text.startsWith("#0 ") && text.contains("::logBackTraceNoDemangle(char const*) at ") && text.contains(crash)
                     && text.contains(": main at "), qPrintable(text));
    }

    void instrumentDemo()
    {
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        const QString path = QFileInfo(DEMANGLE_BACKTRACE).path() + ':' + qgetenv("PATH");
        const Run normal = run(INSTRUMENT_DEMO, {"--seconds", "1"}, path);
        QCOMPARE(normal.status, 0);
        const QByteArray velmar = VfTest::readFile(logs + "/velmar.log"), event = VfTest::readFile(logs + "/event.log");
        QVERIFY(normal.out.contains(velmar) && normal.out.contains(event) && normal.out.contains("volume Internal"));
        QVERIFY(normal.out.contains(":Velmar Application] [File not found, The file '/opt/tarvion/data/calibration.xml' could not be found. "
                                    "Please ensure the file exists., CriticalError, Internal]\n"));
        // A code of the demo's own catalogue, in the same form as the library's.
        QVERIFY(velmar.contains(", StatusCode measure(double), 104.5, T1] [Sensor overrange, The reading 104.5 of sensor 'T1' lies outside its measuring range., Warning, External]"));
        QVERIFY(velmar.contains("] demo: critical message\n") && !velmar.contains("instrument-demo started"));
        QVERIFY(event.contains("main.cpp") && event.endsWith("] instrument-demo stopping\n") && !event.contains("File not found"));
        const Run crash = run(INSTRUMENT_DEMO, {"--crash"}, path);
        QCOMPARE(crash.status, 0);
        QVERIFY(crash.out.contains("==== /etc/tarvion/logs/backTraceDemangled ===="));
        QVERIFY(VfTest::readFile(logs + "/backTraceDemangled").contains("instrument-demo: main"));
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
