#include "vftestsupport.h"
#include "vfutilities.h"

#include <QtTest>

namespace Tools {
// The frames that demangle_backtrace is run on: a child of this program captures its own stack
// here, through a function inlined into its caller.
__attribute__((always_inline)) inline void captureInlined(const char* raw)
{
    Crosscutting::VfUtilities::logBackTraceNoDemangle(raw); asm volatile("");
}
const int inlinedLine = __LINE__ - 2;
__attribute__((noinline)) void captureFrame(const char* raw)
{
    captureInlined(raw); asm volatile("");
}
const int captureLine = __LINE__ - 2;
} // namespace Tools

struct Run { int exitCode; QByteArray out, err; };

static Run run(const QString& program, const QStringList& arguments, const QByteArray& path = "/nonexistent")
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", path); // the tool needs no other program, as on an instrument without binutils
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    process.waitForFinished(120000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

class tst_Tools : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(name); }
private slots:
    void arguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("said");
        QTest::newRow("--help") << QStringList{"--help"} << 0 << QByteArray("\nEXIT STATUS\n");
        QTest::newRow("no arguments") << QStringList() << 2 << QByteArray("usage: ");
        QTest::newRow("missing RAW") << QStringList{path("none"), path("out")} << 1 << path("none").toUtf8();
        QTest::newRow("RAW is a directory") << QStringList{m_dir.path(), path("out")} << 1 << QByteArray("Is a directory");
        QTest::newRow("OUT cannot be made") << QStringList{DEMANGLE_BACKTRACE, path("no/out")} << 1 << path("no/out").toUtf8();
    }
    void arguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, said);
        const Run result = run(DEMANGLE_BACKTRACE, arguments);
        QTEST(result.exitCode, "exitCode");
        QVERIFY2((result.out + result.err).contains(said), result.err.constData());
        QVERIFY(!QFile::exists(path("out")));
    }
    void copiesWhatItCannotResolve_data()
    {
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("lines that are no frames") << QByteArray("[0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n[0x2000]\nlast")
                                                  << QByteArray("#0 [0x1000]\n(((\n[0xZZ]\n[0x12\n\x01\xff text\n#1 [0x2000]\nlast\n");
        QTest::newRow("unknown modules") << QByteArray("/no/module(+0x10) [0x55d000000010]\n/no/lib.so(_ZN3Foo3barEv+0x10) [0x7f0000001010]\n[0x00007f00deadbeef]\n")
                                         << QByteArray("#0 /no/module(+0x10) [0x55d000000010]\n#1 /no/lib.so: Foo::bar()+0x10\n#2 [0x00007f00deadbeef]\n");
    }
    void copiesWhatItCannotResolve()
    {
        QFETCH(QByteArray, raw);
        QFETCH(QByteArray, expected);
        QVERIFY(VfTest::writeFile(path("raw"), raw) && VfTest::writeFile(path("longer"), QByteArray(10000, 'x')));
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("raw"), path("longer")}).exitCode, 0);
        QCOMPARE(VfTest::readFile(path("longer")), expected);
        QCOMPARE(run(DEMANGLE_BACKTRACE, {path("raw"), "-"}).out, expected);
    }
    void resolvesRealBacktrace_data()
    {
        QTest::addColumn<bool>("olderLibc");
        QTest::newRow("as captured") << false;
        QTest::newRow("blank before the address, CRLF") << true;
    }
    void resolvesRealBacktrace()
    {
        QFETCH(bool, olderLibc);
#if defined(__SANITIZE_ADDRESS__)
        QSKIP("the sanitizers' runtime changes the frames of the capture");
#endif
        QFile::remove(path("captured"));
        QCOMPARE(run(QCoreApplication::applicationFilePath(), {"capture", path("captured")}).exitCode, 0);
        QByteArray raw = VfTest::readFile(path("captured"));
        if (olderLibc)
            raw.replace(")[", ") [").replace("\n", "\r\n");
        QVERIFY(raw.count('\n') >= 4 && VfTest::writeFile(path("captured"), raw));
        const Run result = run(DEMANGLE_BACKTRACE, {path("captured"), "-"});
        QCOMPARE(result.exitCode, 0);
        const QList<QByteArray> lines = result.out.split('\n');
        QVERIFY2(lines.value(0).startsWith("#0 ") && lines.value(0).contains(": Crosscutting::VfUtilities::logBackTraceNoDemangle(char const*)+0x")
                     && lines.value(0).contains("vfutilities.cpp:"), result.out.constData());
        const QByteArray frame1 = "#1 " + QCoreApplication::applicationFilePath().toUtf8() + ": Tools::captureFrame(char const*)+0x";
        const QByteArray inlined = "/tst_tools.cpp:" + QByteArray::number(Tools::inlinedLine)
                                   + " (inlined: Tools::captureInlined(char const*) into Tools::captureFrame(char const*) at ";
        QVERIFY2(lines.value(1).startsWith(frame1) && lines.value(1).contains(inlined) && !lines.value(1).contains("/../"), result.out.constData());
        QVERIFY2(lines.value(1).endsWith("/tst_tools.cpp:" + QByteArray::number(Tools::captureLine) + ')'), result.out.constData());
        QVERIFY2(lines.value(2).contains(": main+0x"), result.out.constData());
    }
    void instrumentDemo()
    {
        if (!qEnvironmentVariableIsSet("VF_SANDBOXED"))
            QSKIP("writes /etc/tarvion/logs: run through tests/sandbox-run");
        const QByteArray path = QFileInfo(DEMANGLE_BACKTRACE).path().toUtf8() + ':' + qgetenv("PATH");
        const Run normal = run(INSTRUMENT_DEMO, {"--seconds", "1"}, path);
        QCOMPARE(normal.exitCode, 0);
        const QByteArray velmar = VfTest::readFile("/etc/tarvion/logs/velmar.log"), event = VfTest::readFile("/etc/tarvion/logs/event.log");
        QVERIFY(normal.out.contains(velmar) && normal.out.contains(event) && normal.out.contains("volume Internal"));
        QVERIFY(normal.out.contains(":Velmar Application] [File not found, The file '/opt/tarvion/data/calibration.xml' could not be found. "
                                    "Please ensure the file exists., CriticalError, Internal]\n"));
        QVERIFY(velmar.contains(", TaskProcessor, Demo, Instrument, StatusCode calibrate(const QString&), /opt/tarvion/data/worker-calibration.xml] [File not found, "));
        // A code of the demo's own catalogue, in the same form as the library's.
        QVERIFY(velmar.contains(", StatusCode measure(double), 104.5, T1] [Sensor overrange, The reading 104.5 of sensor 'T1' lies outside its measuring range., Warning, External]"));
        QVERIFY(velmar.indexOf("Got 1 additional arguments, expected 2") < velmar.indexOf("[Command Failed, The command 'selftest --full' failed"));
        QVERIFY(velmar.contains("] demo: critical message\n") && !velmar.contains("instrument-demo started"));
        QVERIFY(event.contains("main.cpp") && event.endsWith("] instrument-demo stopping\n") && !event.contains("File not found"));
        // After a crash the process reports success, as instruments expect of it.
        const Run crash = run(INSTRUMENT_DEMO, {"--crash"}, path);
        QCOMPARE(crash.exitCode, 0);
        QVERIFY(crash.out.contains(VfTest::readFile("/etc/tarvion/logs/backTrace")) && crash.out.contains("==== /etc/tarvion/logs/backTraceDemangled ===="));
        QVERIFY(VfTest::readFile("/etc/tarvion/logs/backTraceDemangled").contains("instrument-demo: main"));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "capture") {
        Tools::captureFrame(argv[2]);
        return 0;
    }
    tst_Tools test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tools.moc"
