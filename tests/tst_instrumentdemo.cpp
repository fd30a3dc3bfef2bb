// The example instrument application, run as a child in this test's sandbox: what it prints and
// what it leaves in /etc/tarvion/logs.
#include <QtTest>

#include <csignal>

class tst_InstrumentDemo : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void runLeavesItsRecordsInBothLogs();
    void sigtermQuitsCleanly();
    void crashShowsBothBacktraceFiles();

private:
    static QByteArray readFile(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static QProcessEnvironment environment()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("PATH", QString(DEMANGLE_BACKTRACE_DIR) + ":" + env.value("PATH"));
        return env;
    }
};

void tst_InstrumentDemo::initTestCase()
{
    QVERIFY2(qEnvironmentVariableIsSet("VF_SANDBOXED"), "run through tests/sandbox-run");
}

void tst_InstrumentDemo::init()
{
    QDir("/etc/tarvion/logs").removeRecursively();
}

void tst_InstrumentDemo::runLeavesItsRecordsInBothLogs()
{
    QProcess demo;
    demo.setProcessEnvironment(environment());
    demo.start(INSTRUMENT_DEMO, {"--seconds", "1"});
    QVERIFY(demo.waitForFinished(60000));
    QCOMPARE(demo.exitStatus(), QProcess::NormalExit);
    QCOMPARE(demo.exitCode(), 0);
    const QByteArray out = demo.readAllStandardOutput();

    // Standard output: the short form, one space, the catalogue's text in long form.
    QVERIFY2(out.contains("[main.cpp:"), out.constData());
    QVERIFY(out.contains(":Velmar Application] [File not found, The file '/opt/tarvion/data/calibration.xml' could not be found. Please ensure the file exists., CriticalError, Internal]\n"));
    QVERIFY(out.contains("instrument: model SPA, unit name \"Bench unit 7\", firmware 1.0.0-demo"));
    QVERIFY(out.contains("volume Internal"));

    const QByteArray velmar = readFile("/etc/tarvion/logs/velmar.log");
    const QByteArray event = readFile("/etc/tarvion/logs/event.log");
    // The printed content is that of the files.
    QVERIFY(out.contains(velmar));
    QVERIFY(out.contains(event));

    // Status reports of the main thread and of the worker, in long form with their thread names.
    QVERIFY(velmar.contains(", Velmar Application, main.cpp, "));
    QVERIFY(velmar.contains(", MainThread, Demo, Instrument, StatusCode calibrate(const QString&), /opt/tarvion/data/calibration.xml] [File not found, "));
    QVERIFY(velmar.contains(", TaskProcessor, Demo, Instrument, StatusCode calibrate(const QString&), /opt/tarvion/data/worker-calibration.xml] [File not found, "));
    // A wrong argument count: the nested report comes first, then the report with "%2" left in.
    const int argCount = velmar.indexOf("Got 1 additional arguments, expected 2");
    const int commandFailed = velmar.indexOf("[Command Failed, The command 'selftest --full' failed with an error code of '%2'., NonCriticalError, Internal]");
    QVERIFY(argCount > 0);
    QVERIFY(commandFailed > argCount);
    // A code of the demo's own catalogue, in the same form as the library's.
    QVERIFY(velmar.contains(", StatusCode measure(double), 104.5, T1] [Sensor overrange, The reading 104.5 of sensor 'T1' lies outside its measuring range., Warning, External]"));
    // The unknown code.
    QVERIFY(velmar.contains("unrecognized status code (4242)"));
    // Qt messages through the bridge.
    QVERIFY(velmar.contains(", appDebug, main.cpp, "));
    QVERIFY(velmar.contains("] demo: debug message from the application\n"));
    QVERIFY(velmar.contains("] worker thread: calibration data missing\n"));
    QVERIFY(velmar.contains("] demo: critical message\n"));
    // Event entries go to event.log only, in ShortFormWithTimestamp.
    QVERIFY(!velmar.contains("instrument-demo started"));
    QVERIFY(QRegularExpression("^\\[\\d\\d-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} [AP]M main\\.cpp:\\d+:Velmar Application\\] instrument-demo started\n")
                .match(QString::fromUtf8(event)).hasMatch());
    QVERIFY(event.contains("] reports made, waiting for the flush\n"));
    QVERIFY(event.endsWith("] instrument-demo stopping\n"));
    QVERIFY(!event.contains("File not found"));
}

void tst_InstrumentDemo::sigtermQuitsCleanly()
{
    QProcess demo;
    demo.setProcessEnvironment(environment());
    demo.start(INSTRUMENT_DEMO, {"--seconds", "60"});
    QVERIFY(demo.waitForStarted());
    // Wait until the reports are made and the event loop runs.
    QByteArray out;
    while (!out.contains("instrument: event loop runs") && demo.waitForReadyRead(20000))
        out += demo.readAllStandardOutput();
    QVERIFY(out.contains("instrument: event loop runs"));
    ::kill(demo.processId(), SIGTERM);
    QVERIFY(demo.waitForFinished(20000));
    QCOMPARE(demo.exitStatus(), QProcess::NormalExit);
    QCOMPARE(demo.exitCode(), 0);
    out += demo.readAllStandardOutput();
    QVERIFY(out.contains("==== /etc/tarvion/logs/velmar.log ===="));
    QVERIFY(readFile("/etc/tarvion/logs/event.log").endsWith("] instrument-demo stopping\n"));
}

void tst_InstrumentDemo::crashShowsBothBacktraceFiles()
{
    QProcess demo;
    demo.setProcessEnvironment(environment());
    demo.start(INSTRUMENT_DEMO, {"--crash"});
    QVERIFY(demo.waitForFinished(60000));
    // Deliberately a normal exit with status 0 after a crash: the crash handler ends with exit(0).
    QCOMPARE(demo.exitStatus(), QProcess::NormalExit);
    QCOMPARE(demo.exitCode(), 0);
    const QByteArray out = demo.readAllStandardOutput();
    QVERIFY(out.contains("instrument: raising SIGFPE"));
    QVERIFY(out.contains("==== /etc/tarvion/logs/backTrace ===="));
    QVERIFY(out.contains("==== /etc/tarvion/logs/backTraceDemangled ===="));
    const QByteArray raw = readFile("/etc/tarvion/logs/backTrace");
    const QByteArray demangled = readFile("/etc/tarvion/logs/backTraceDemangled");
    QVERIFY(!raw.isEmpty());
    QVERIFY(out.contains(raw));
    QVERIFY2(demangled.contains("main"), demangled.constData());
    QVERIFY(out.contains(demangled));
}

QTEST_GUILESS_MAIN(tst_InstrumentDemo)
#include "tst_instrumentdemo.moc"
