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
    return depth == 0 ? (VfUtilities::logBackTraceNoDemangle(QFile::encodeName(path).constData()), 0)
                      : recurse(depth - 1, path) + 1;
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

// The REPORT_STATUS and Qt message roads on two threads while a third raises SIGFPE.
[[noreturn]] void logForever()
{
    for (int i = 0;; ++i) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, QString::number(i));
        qDebug("routed %d", i);
    }
}

// This program again: "--crash SIG" (SIGABRT through qFatal) or "--crash-while-logging".
int childMain(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::atexit([] { std::printf("atexit handler ran"); });
    qInstallMessageHandler(&logMessageHandler);
    VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
    if (argc > 2 && atoi(argv[2]) == SIGABRT)
        qFatal("fatal");
    if (argc > 2)
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
    const QString m_self = QCoreApplication::applicationFilePath();
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
        QTest::addColumn<bool>("logsDirectory");
        QTest::addColumn<int>("status");
        QTest::newRow("SIGHUP") << int(SIGHUP) << true << 0;
        QTest::newRow("SIGFPE") << int(SIGFPE) << true << 0;
        QTest::newRow("SIGILL") << int(SIGILL) << true << 0;
        QTest::newRow("SIGSEGV keeps its default action") << int(SIGSEGV) << true << -SIGSEGV;
        QTest::newRow("qFatal aborts") << int(SIGABRT) << true << -SIGABRT;
        QTest::newRow("no logs directory") << int(SIGHUP) << false << 0;
    }
    void crashHandler()
    {
        QFETCH(int, sig);
        QFETCH(bool, logsDirectory);
        QFETCH(int, status);
        if (sanitized && sig == SIGSEGV)
            QSKIP("the address sanitizer takes over SIGSEGV");
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        QDir(logs).removeRecursively();
        QVERIFY(!logsDirectory || QDir().mkpath(logs));
        const Run crash = run(m_self, {"--crash", QString::number(sig)}, QFileInfo(DEMANGLE_BACKTRACE).path());
        // A crash ends with exit(0), atexit handlers and all: the supervisors of the instruments
        // restart a program on any other status, and they rely on that.
        QCOMPARE(crash.status, status);
        QCOMPARE(crash.out.contains("atexit handler ran"), status == 0);
        QCOMPARE(VfTest::readFile(logs + "/backTrace").count('\n') > 4, status == 0 && logsDirectory);
        const QByteArray demangled = VfTest::readFile(logs + "/backTraceDemangled");
        QCOMPARE(demangled.contains("Crosscutting::linuxGeneralSignalHandler(unsigned"), status == 0 && logsDirectory);
        // What qFatal queued reaches the file before abort().
        QCOMPARE(VfTest::readFile(logs + "/velmar.log").endsWith("] fatal\n"), sig == SIGABRT);
        QCOMPARE(QFileInfo::exists(logs), logsDirectory);
        if (sig != SIGILL || sanitized)
            return;
        // The form of older C libraries, a blank before the address and CRLF, gives the same frames.
        QVERIFY(VfTest::writeFile(path("older"), VfTest::readFile(logs + "/backTrace").replace(")[", ") [").replace("\n", "\r\n")));
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("older"), "-"}).out, demangled);
        // Offsets change with every build; the names, the lines and the functions inlined, innermost first, do not.
        // The faulting instruction after the signal trampoline is looked up at its own address.
        const QString text = QString::fromUtf8(demangled).replace(QRegularExpression("\\+0x[0-9a-f]+ "), " ");
        const QString at = QStringLiteral(" at " SOURCE_DIR "/tst_faults.cpp:");
        const QString frame = QString(": Probe::crash(int)%1%2 (inlined: Probe::illegalInstruction() into Probe::inlinedCaller()%1%3; "
                                      "Probe::inlinedCaller() into Probe::crash(int)%1%4)\n")
                                  .arg(at).arg(Probe::faultLine).arg(Probe::inlinedLine).arg(Probe::crashLine);
        QVERIFY2(text.contains("::logBackTraceNoDemangle(char const*) at ") && text.contains(frame), qPrintable(text));
    }

    void crashWhileLogging()
    {
        QVERIFY(QDir().mkpath(logs));
        for (int i = 0; i < 20; ++i) {
            QFile::remove(logs + "/backTrace");
            QCOMPARE(run(m_self, {"--crash-while-logging"}).status, 0);
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
        const QStringList frames = QString::fromLatin1(VfTest::readFile(path("raw"))).split('\n');
        QCOMPARE(frames.size(), 101);
        QCOMPARE(frames.at(100), QString(200000 - frames.mid(0, 100).join('\n').size() - 1, '~'));
        QVERIFY(frames.at(1).contains("(_ZN5Probe7recurseEiRK7QString+0x"));
        // A new file is for its owner alone, less the umask.
        const mode_t previous = umask(0277);
        Probe::recurse(0, path("new"));
        umask(previous);
        struct stat info;
        QVERIFY(stat(QFile::encodeName(path("new")).constData(), &info) == 0 && (info.st_mode & 07777) == 0400);
        // The open is tested against 0, not -1, and instruments rely on that: with standard input
        // closed the file gets descriptor 0, and the capture returns at once, leaving it empty and open.
        close(STDIN_FILENO);
        Probe::recurse(0, path("stdin"));
        QVERIFY(fcntl(STDIN_FILENO, F_GETFD) != -1 && VfTest::readFile(path("stdin")).isEmpty());
        close(STDIN_FILENO);

        // The demangled capture truncates, stamps the local time to the millisecond, leaves out its own
        // frame, writes a name longer than the demangler's first buffer whole, and a C name with "()".
        Probe::longName(path("trace"), {}, {}, {}, {}, {});
        const QStringList trace = QString::fromLatin1(VfTest::readFile(path("trace"))).split('\n');
        // A two-digit year reads as 19yy.
        const QDateTime stamp = QDateTime::fromString(trace.at(0), "[MM-dd-yy hh:mm:ss.zzz AP] 'Backtrace: '").addYears(100);
        QVERIFY2(stamp.isValid() && qAbs(stamp.msecsTo(QDateTime::currentDateTime())) < 10000, qPrintable(trace.at(0)));
        const QString name = QString(" : Probe::longName(QString const&, %1, %1, %1, %1, %1)+0x")
                                 .arg("Probe::ATypeWithALongNameThatIsRepeatedForEveryParameter");
        QVERIFY2(trace.at(1).startsWith(' ') && trace.at(1).contains(name), qPrintable(trace.at(1)));
        QCOMPARE(trace.filter(QRegularExpression("^ \\S+ : main\\(\\)\\+0x[0-9a-f]+$")).size(), 1);
        QCOMPARE(trace.last(), QString());
    }

    // The tool needs no other program (PATH is empty), as on an instrument without binutils. What it
    // cannot resolve it copies, numbering the frames; an OUT it cannot write stays as it was.
    void demangleBacktrace_data()
    {
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("said"); // OUT whole after a success, else a part of what the tool printed
        const QStringList files{path("raw"), path("out")};
        QTest::newRow("no arguments") << QByteArray() << QStringList() << 2 << QByteArray("usage: ");
        QTest::newRow("missing RAW") << QByteArray() << QStringList{path("none"), path("out")} << 1 << path("none").toUtf8();
        QTest::newRow("RAW is a directory") << QByteArray() << QStringList{m_dir.path(), path("out")} << 1 << QByteArray("Is a directory");
        QTest::newRow("OUT cannot be made") << QByteArray() << QStringList{path("raw"), path("no/out")} << 1 << path("no/out").toUtf8();
        QTest::newRow("empty") << QByteArray() << files << 0 << QByteArray();
        QTest::newRow("lines that are no frames") << QByteArray("[0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n[0x2000]\nlast") << files << 0
                                                  << QByteArray("#0 [0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n#1 [0x2000]\nlast\n");
        QTest::newRow("unknown modules") << QByteArray("/no/module(+0x10) [0x55d000000010]\n/no/lib.so(_ZN3Foo3barEv+0x10) [0x7f0000001010]\n[0x00007f00deadbeef]\n")
                                         << files << 0
                                         << QByteArray("#0 /no/module(+0x10) [0x55d000000010]\n#1 /no/lib.so: Foo::bar()+0x10\n#2 [0x00007f00deadbeef]\n");
    }
    void demangleBacktrace()
    {
        QFETCH(QByteArray, raw);
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, said);
        QVERIFY(VfTest::writeFile(path("raw"), raw) && VfTest::writeFile(path("out"), QByteArray(10000, 'x')));
        const Run result = run(DEMANGLE_BACKTRACE, arguments);
        QTEST(result.status, "exitCode");
        const QByteArray out = VfTest::readFile(path("out"));
        if (result.status == 0)
            QCOMPARE(out, said);
        else
            QVERIFY2((result.out + result.err).contains(said) && out == QByteArray(10000, 'x'), result.err.constData());
    }

    void instrumentDemo()
    {
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        const QString path = QFileInfo(DEMANGLE_BACKTRACE).path() + ':' + qgetenv("PATH");
        const Run normal = run(INSTRUMENT_DEMO, {"--seconds", "1"}, path);
        const QByteArray velmar = VfTest::readFile(logs + "/velmar.log"), event = VfTest::readFile(logs + "/event.log");
        QCOMPARE(normal.status, 0);
        QVERIFY(normal.out.contains(velmar) && normal.out.contains(event) && velmar.contains("] [File not found, The file '"));
        QVERIFY(velmar.contains("] demo: critical message\n") && event.endsWith("] instrument-demo stopping\n"));
        // After a crash the demo reports success, as instruments expect of it.
        QCOMPARE(run(INSTRUMENT_DEMO, {"--crash"}, path).status, 0);
        QVERIFY(VfTest::readFile(logs + "/backTraceDemangled").contains("instrument-demo: main"));
    }
};

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]).startsWith("--crash"))
        return childMain(argc, argv);
    QCoreApplication app(argc, argv);
    tst_Faults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
