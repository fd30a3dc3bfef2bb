#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vflogmanager.h"
#include "vfstatusseverityerrorratehandler.h"
#include "vfstatusseverityfilewriter.h"
#include "vfstdoutwriter.h"
#include "vftestsupport.h"

#include <QtTest>

#include <atomic>
#include <csignal>
#include <dlfcn.h>
#include <malloc.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

using namespace Crosscutting;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using Entry = QSharedPointer<const VfLogEntry>;

// Counts the library's calls of sync(); the real one still runs.
static std::atomic<int> syncCalls{0};
extern "C" void sync(void) __THROW
{
    ++syncCalls;
    static const auto realSync = reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "sync"));
    realSync();
}

namespace {

const QString velmarLog = QStringLiteral("/etc/tarvion/logs/velmar.log");
const QString eventLog = QStringLiteral("/etc/tarvion/logs/event.log");

QSharedPointer<VfSourceContext> context(const QString& ns = QString(), const QString& cls = QString(),
                                        const QString& module = QString())
{
    return QSharedPointer<VfSourceContext>(
        new VfSourceContext(module, QStringLiteral("f"), ns, cls, QStringLiteral("void f()"), 1, QString(), {}));
}

Entry entry(const QString& message, Severity severity = Severity::Notification)
{
    return Entry(new VfLogEntry(context(), severity, message));
}

// The size check counts "[f:1]" and the message: 5 + counted - 5.
Entry sized(int counted, char fill)
{
    return entry(QString(counted - 6, QLatin1Char(fill)) + QLatin1Char('\n'));
}

QByteArray record(const Entry& e)
{
    return "[f:1] " + e->message().toUtf8();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray captureStdout(const std::function<void()>& action)
{
    std::fflush(stdout);
    QTemporaryFile file;
    if (!file.open())
        return "<no temporary file>";
    const int saved = dup(1);
    dup2(file.handle(), 1);
    action();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    return readFile(file.fileName());
}

VfLogManager* manager()
{
    return qobject_cast<VfLogManager*>(VfCrosscuttingManagerPlaceholder::instance()->logManager());
}

// velmar.log's writer, which every entry of the debug log reaches.
VfFileWriter* velmarWriter()
{
    for (VfAbstractLogWriter* writer : manager()->getLogWritersByLog(DebugLog))
        if (writer->logName() == QLatin1String("velmar.log"))
            return qobject_cast<VfFileWriter*>(writer);
    return nullptr;
}

VfFileWriter* newWriter(const QString& directory, bool limited = true, unsigned long long limit = 100,
                        QSharedPointer<VfErrorRateHandler> handler = {})
{
    return new VfFileWriter(QDir(directory), QStringLiteral("w.log"), VfDisplayable::ShortForm, limited, limit,
                            handler, nullptr);
}

int restartChild(const char* tag)
{
    manager()->setLogDestination(StatusLog, LogFileDestination);
    int rotations = 0;
    QObject::connect(velmarWriter(), &VfFileWriter::backupLogFileCreated, [&rotations] { ++rotations; });
    for (int i = 0; i < 3; ++i)
        REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("%1-%2").arg(QLatin1String(tag)).arg(i));
    manager()->forceFlushAllLogs();
    std::printf("%d", rotations);
    VfCrosscuttingManagerPlaceholder::drop();
    std::printf(" %d", rotations);
    return 0;
}

QByteArray runChild(const QStringList& arguments, QProcess::ExitStatus* status = nullptr, int* code = nullptr)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), arguments);
    child.waitForFinished(60000);
    if (status)
        *status = child.exitStatus();
    if (code)
        *code = child.exitCode();
    return child.readAllStandardOutput();
}

} // namespace

class tst_Logging : public QObject
{
    Q_OBJECT
    StatusCode report()
    {
        m_reportLine = __LINE__ + 1;
        return REPORT_STATUS(VfStatusCodes::FileCannotCopy, QStringLiteral("/a b"), QStringLiteral("/c"));
    }
    int m_reportLine = 0;

private slots:
    void initTestCase()
    {
        QVERIFY2(VfTest::isSandboxed(), "run through tests/sandbox-run");
        qRegisterMetaType<VfStatusChangeEvent>();
        QThread::currentThread()->setObjectName(QStringLiteral("MainThread"));
    }

    void cleanup()
    {
        VfCrosscuttingManagerPlaceholder::drop();
    }

    void records_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("message"); // empty: REPORT_STATUS from report()
        QTest::addColumn<QString>("console");
        QTest::addColumn<QString>("velmar");
        QTest::addColumn<QString>("event");
        const QString longForm = QStringLiteral("[%1, Mod, src.cpp, 42, T, Ns, Cls, void fn(), arg] ");
        QTest::newRow("status log") << int(StatusLog) << "both\n" << "[src.cpp:42:Mod] both\n" << longForm + "both\n" << "";
        QTest::newRow("debug log") << int(DebugLog) << "both\n" << "[src.cpp:42:Mod] both\n" << longForm + "both\n" << "";
        QTest::newRow("event log") << int(EventLog) << "ev\n" << "" << "" << "[%1 src.cpp:42:Mod] ev\n";
        QTest::newRow("no line end added") << int(StatusLog) << "run on" << "[src.cpp:42:Mod] run on" << longForm + "run on"
                                           << "";
        const QString text = QStringLiteral(
            "[File cannot be copied, An attempt to copy file /a b to /c failed., NonCriticalError, Internal]\n");
        QTest::newRow("REPORT_STATUS") << int(StatusLog) << "" << "[tst_logging.cpp:%2:Velmar Application] " + text
                                       << "[%1, Velmar Application, tst_logging.cpp, %2, MainThread, , tst_Logging, "
                                          "StatusCode report(), /a b, /c] " + text
                                       << "";
    }

    void records()
    {
        QFETCH(int, type);
        QFETCH(QString, message);
        QFETCH(QString, console);
        QFETCH(QString, velmar);
        QFETCH(QString, event);
        manager()->forceFlushAllLogs();
        const QByteArray velmarBefore = readFile(velmarLog);
        const QByteArray eventBefore = readFile(eventLog);
        StatusEventRecorder recorder;
        recorder.attach();
        auto source = QSharedPointer<VfSourceContext>(new VfSourceContext(
            "Mod", "src.cpp", "Ns", "Cls", "void fn()", 42, "T", {QStringLiteral("arg")}));
        const QByteArray printed = captureStdout([&] {
            if (message.isEmpty())
                QCOMPARE(report(), StatusCode(VfStatusCodes::FileCannotCopy));
            else
                manager()->addLogEntry(source, Severity::Warning, message, VfLogType(type));
        });
        if (message.isEmpty())
            source = recorder.events.value(0).sourceContext();
        const QString time = source->timestamp().toString(QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP"));
        const auto fill = [&](QString s) {
            return s.replace("%1", time).replace("%2", QString::number(m_reportLine)).toUtf8();
        };
        QCOMPARE(printed, fill(console));
        QCOMPARE(readFile(velmarLog), velmarBefore); // the files wait for the next flush
        manager()->forceFlushAllLogs();
        QCOMPARE(readFile(velmarLog), velmarBefore + fill(velmar));
        QCOMPARE(readFile(eventLog), eventBefore + fill(event));
    }

    void routing_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<unsigned>("mask");
        QTest::addColumn<QString>("reached"); // c: console, v: velmar.log, e: event.log
        QTest::newRow("debug log to nothing") << int(DebugLog) << 0u << "";
        QTest::newRow("debug log to the console alone") << int(DebugLog) << 1u << "c";
        QTest::newRow("status log to velmar.log alone") << int(StatusLog) << 2u << "v";
        // The mask never connects or disconnects event.log: instruments depend on its one fixed connection.
        QTest::newRow("event log gains the console") << int(EventLog) << 1u << "ce";
        QTest::newRow("event log keeps event.log") << int(EventLog) << 0u << "e";
        QTest::newRow("status log cannot take event.log") << int(StatusLog) << 8u << "";
    }

    void routing()
    {
        QFETCH(int, type);
        QFETCH(unsigned, mask);
        QFETCH(QString, reached);
        manager()->setLogDestination(VfLogType(type), mask);
        manager()->forceFlushAllLogs();
        const qint64 velmar = QFileInfo(velmarLog).size();
        const qint64 event = QFileInfo(eventLog).size();
        const QByteArray printed = captureStdout(
            [&] { manager()->addLogEntry(context(), Severity::Notification, QStringLiteral("x\n"), VfLogType(type)); });
        manager()->forceFlushAllLogs();
        QCOMPARE(!printed.isEmpty(), reached.contains('c'));
        QCOMPARE(QFileInfo(velmarLog).size() > velmar, reached.contains('v'));
        QCOMPARE(QFileInfo(eventLog).size() > event, reached.contains('e'));
    }

    void filters_data()
    {
        QTest::addColumn<QString>("pattern"); // empty: the default filter
        QTest::addColumn<QString>("ns");
        QTest::addColumn<int>("action"); // 1: disable, 2: disable and enable, 3: reset the filter
        QTest::addColumn<bool>("delivered");
        QTest::newRow("default, empty namespace") << "" << "" << 0 << true;
        QTest::newRow("caret, begins with") << "^Cross" << "Crosscutting" << 0 << true;
        QTest::newRow("caret, only contains") << "^Cross" << "MyCrosscutting" << 0 << false;
        QTest::newRow("no caret, only contains") << "Cross" << "MyCrosscutting" << 0 << true;
        QTest::newRow("class and module are not looked at") << "^Foo" << "Bar" << 0 << false;
        QTest::newRow("invalid pattern drops everything") << "(" << "(" << 0 << false;
        QTest::newRow("disabled") << "" << "" << 1 << false;
        QTest::newRow("enabled again, filter kept") << "^Cross" << "MyCross" << 2 << false;
        QTest::newRow("reset") << "^Cross" << "MyCross" << 3 << true;
    }

    void filters()
    {
        QFETCH(QString, pattern);
        QFETCH(QString, ns);
        QFETCH(int, action);
        QFETCH(bool, delivered);
        VfLog log(nullptr);
        if (!pattern.isEmpty())
            log.setNamespaceFilter(QRegularExpression(pattern));
        if (action == 1 || action == 2)
            log.disable();
        if (action == 2)
            log.enable();
        if (action == 3)
            log.resetNamespaceFilter();
        QList<const VfLogEntry*> first, second;
        connect(&log, &VfLog::logEntryReady, this, [&](const Entry& e) { first.append(e.data()); });
        connect(&log, &VfLog::logEntryReady, this, [&](const Entry& e) { second.append(e.data()); });
        if (pattern == QLatin1String("("))
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("doMatch")));
        log.addLogEntry(context(ns, QStringLiteral("Foo"), QStringLiteral("Foo")), Severity::Notification, "m");
        QCOMPARE(first.size(), delivered ? 1 : 0);
        QCOMPARE(second, first); // one entry object for every writer
        QCOMPARE(log.isLogEnable(), action != 1);
    }

    void managerFiles()
    {
        StatusEventRecorder recorder;
        recorder.attach();
        QCOMPARE(manager()->logFileName(StatusLog), QStringList{"velmar.log"});
        QCOMPARE(manager()->logFileName(EventLog), QStringList{"event.log"});
        captureStdout([] { manager()->addLogEntry(context(), Severity::Notification, "kept\n", StatusLog); });
        const QString copy = QStringLiteral("/etc/tarvion/copy");
        QFile::remove(copy);
        QVERIFY(manager()->copyLogTo(StatusLog, QStringLiteral("velmar.log"), QDir(copy)));
        QVERIFY(readFile(copy).endsWith("] kept\n"));
        QCOMPARE(manager()->readByLogFileName(StatusLog, QStringLiteral("velmar.log")), QString::fromUtf8(readFile(copy)));
        QVERIFY(!manager()->copyLogTo(StatusLog, QStringLiteral("event.log"), QDir(copy + "2")));
        QVERIFY(recorder.events.isEmpty());
        QCOMPARE(manager()->readByLogFileName(StatusLog, QStringLiteral("Stdout")), QString());
        QCOMPARE(recorder.codes(), QList<StatusCode>{VfStatusCodes::FileNotFound});
        QCOMPARE(recorder.events.first().sourceContext()->additionalInfo(), QStringList{"Stdout"});

        // One tick flushes velmar.log for each of its two logs and event.log once, each with a sync.
        int before = syncCalls;
        manager()->forceFlushAllLogs();
        QCOMPARE(syncCalls - before, 3);

        QVERIFY(writeFile(velmarLog + ".bak", "old"));
        QVERIFY(manager()->clearLog(StatusLog));
        QCOMPARE(QFileInfo(velmarLog).size(), 0);
        QVERIFY(!QFile::exists(velmarLog + ".bak"));
        QVERIFY(QDir().mkpath(velmarLog + ".bak/keep"));
        QVERIFY(!manager()->clearLog(StatusLog)); // a backup that cannot go fails the whole clear
        QVERIFY(QDir(velmarLog + ".bak").removeRecursively());

        // Shutdown flushes all logs, then each file writer once more.
        captureStdout([] { manager()->addLogEntry(context(), Severity::Notification, "last\n", StatusLog); });
        manager()->addLogEntry(context(), Severity::Notification, QStringLiteral("last event\n"), EventLog);
        before = syncCalls;
        VfCrosscuttingManagerPlaceholder::drop();
        QCOMPARE(syncCalls - before, 5);
        QVERIFY(readFile(velmarLog).endsWith("] last\n"));
        QVERIFY(readFile(eventLog).endsWith("] last event\n"));
    }

    void sources_data()
    {
        QTest::addColumn<QString>("cls");
        QTest::addColumn<QString>("module");
        QTest::addColumn<int>("source");
        QTest::newRow("Vf class, VfDebug") << "VfUtilities" << "VfDebug" << int(FrameworkDebugSource);
        QTest::newRow("Vf class, other module") << "VfThing" << "appDebug" << int(FrameworkSource);
        QTest::newRow("Q class, module ignored") << "QObject" << "VfDebug" << int(QtSource);
        QTest::newRow("lower-case q class, appDebug") << "qobject" << "appDebug" << int(ApplicationDebugSource);
        QTest::newRow("application class") << "Foo" << "AppDebug" << int(ApplicationSource);
        QTest::newRow("empty class") << "" << "appDebug" << int(ApplicationDebugSource);
    }

    void sources()
    {
        QFETCH(QString, cls);
        QFETCH(QString, module);
        QFETCH(int, source);
        QCOMPARE(int(sourceForLogEntry(Entry(new VfLogEntry(context("", cls, module), Severity::Warning, "m")))), source);
    }

    void ignoreHandler()
    {
        QList<QByteArray> seen;
        manager()->registerIgnoreHandler([&seen](MessageSource source, const char* text) {
            seen.append(text);
            return source == QtSource;
        });
        const QString message = QStringLiteral("  caf\u00e9 \n");
        const QByteArray printed = captureStdout([&] {
            manager()->addLogEntry(context("", "QObject"), Severity::Notification, QStringLiteral("hidden\n"), StatusLog);
            manager()->addLogEntry(context("", "qobject"), Severity::Notification, message, StatusLog);
        });
        QCOMPARE(printed, "[f:1] " + message.toLocal8Bit()); // the console gets the message untrimmed
        QCOMPARE(seen, (QList<QByteArray>{"hidden", "caf\xe9"})); // the handler sees it trimmed, in Latin-1
        manager()->forceFlushAllLogs();
        QVERIFY(readFile(velmarLog).contains("] hidden\n")); // file writers never ask the handler
        manager()->deregisterIgnoreHandler();
        QVERIFY(!manager()->ignoreHandler()(QtSource, ""));
    }

    void rotation_data()
    {
        QTest::addColumn<int>("prefill"); // bytes of "x" already in the file
        QTest::addColumn<bool>("limited");
        QTest::addColumn<QString>("plan"); // counted size of each entry, "|" for a flush
        QTest::addColumn<QString>("backup"); // x for the prefill, a, b, ... for the entries
        QTest::addColumn<QString>("file");
        // The limit is 100; equality does not rotate, and the separating space is not counted.
        QTest::newRow("90 + 10 fits") << 90 << true << "10" << "" << "xa";
        QTest::newRow("90 + 11 rotates") << 90 << true << "11" << "x" << "a";
        QTest::newRow("each fits, the sum does not") << 0 << true << "40 40 40" << "ab" << "c";
        QTest::newRow("count restarts after a rotation") << 0 << true << "60 60 30 20" << "bc" << "d";
        QTest::newRow("second rotation replaces the backup") << 0 << true << "70 | 70 | 70" << "b" << "c";
        QTest::newRow("oversized file rotates at once") << 150 << true << "10 10" << "x" << "ab";
        QTest::newRow("no size limit") << 0 << false << "70 70 | 70" << "" << "abc";
    }

    void rotation()
    {
        QFETCH(int, prefill);
        QFETCH(bool, limited);
        QFETCH(QString, plan);
        QFETCH(QString, backup);
        QFETCH(QString, file);
        QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("w.log"));
        QVERIFY(prefill == 0 || writeFile(path, QByteArray(prefill, 'x')));
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), limited));
        QHash<QChar, QByteArray> texts{{QLatin1Char('x'), QByteArray(prefill, 'x')}};
        char fill = 'a';
        for (const QString& step : plan.split(QLatin1Char(' '))) {
            if (step == QLatin1String("|")) {
                writer->flush();
                continue;
            }
            const Entry e = sized(step.toInt(), fill);
            texts.insert(QLatin1Char(fill++), record(e));
            QVERIFY(writer->writeToLog(e));
        }
        writer->flush();
        const auto expected = [&](const QString& names) {
            QByteArray text;
            for (QChar name : names)
                text += texts.value(name);
            return text;
        };
        QCOMPARE(readFile(path + ".bak"), expected(backup));
        QCOMPARE(readFile(path), expected(file));
    }

    void fileWriter()
    {
        StatusEventRecorder recorder;
        recorder.attach();
        QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("w.log"));
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path()));
        QVERIFY(writer->isTimedSaveEnabled());
        const Entry a = sized(70, 'a'), b = sized(70, 'b');
        int before = syncCalls;
        writer->writeToLog(a);
        QCOMPARE(syncCalls - before, 0); // queueing touches no disk
        QCOMPARE(writer->readLog(), QString());
        writer->flush();
        QCOMPARE(writer->readLog(), QString::fromUtf8(record(a)));
        writer->writeToLog(b);
        // The current file is read through the write-only device and gives nothing: instruments ship
        // that copy as it is, the backup alone.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("WriteOnly device")));
        QVERIFY(writer->copyLogTo(QDir(directory.filePath(QStringLiteral("copy")))));
        QCOMPARE(readFile(directory.filePath(QStringLiteral("copy"))), record(a));
        QCOMPARE(writer->readLog(), QString::fromUtf8(record(a) + record(b))); // the backup first
        QVERIFY(recorder.events.isEmpty());
        QVERIFY(!writer->copyLogTo(QDir(directory.filePath(QStringLiteral("copy")))));
        QCOMPARE(recorder.codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
        QCOMPARE(recorder.events.first().sourceContext()->additionalInfo(),
                 (QStringList{path + ".bak", directory.filePath(QStringLiteral("copy"))}));

        writer->writeToLog(sized(20, 'q'));
        QVERIFY(writer->clearLog());
        writer->flush();
        QCOMPARE(QFileInfo(path).size(), 0); // the queue went too
        QVERIFY(!QFile::exists(path + ".bak"));
        before = syncCalls;
        writer->flush();
        QCOMPARE(syncCalls - before, 1); // an empty flush still syncs

        recorder.events.clear();
        QCOMPARE(writer->readLogFile(path + "-missing"), QString());
        QCOMPARE(writer->readLogFile(directory.path()), QString());
        QCOMPARE(recorder.codes(), (QList<StatusCode>{VfStatusCodes::FileNotFound, VfStatusCodes::FileCannotOpen}));
        QCOMPARE(recorder.events.first().sourceContext()->additionalInfo(), QStringList{path + "-missing"});

        writer->writeToLog(b);
        writer.reset();
        QCOMPARE(readFile(path), record(b)); // the destructor flushes
    }

    void rateLimit_data()
    {
        QTest::addColumn<int>("handlerSeverity"); // -1: plain handler
        QTest::addColumn<int>("maxErrors");
        QTest::addColumn<QString>("severities");
        QTest::addColumn<int>("accepted");
        QTest::addColumn<int>("reports");
        QTest::newRow("three of five pass quietly") << -1 << 5 << "4 4 4" << 3 << 0;
        QTest::newRow("the fourth leaves one token and reports") << -1 << 5 << "4 4 4 4" << 4 << 1;
        QTest::newRow("the last token, then refusal") << -1 << 5 << "4 4 4 4 4 4" << 5 << 2;
        QTest::newRow("no errors allowed") << -1 << 0 << "4" << 0 << 0;
        QTest::newRow("low entries pass an empty severity bucket") << 4 << 0 << "2 2 4" << 2 << 2;
        QTest::newRow("low entries still take tokens") << 4 << 5 << "2 2 2 4" << 4 << 1;
    }

    void rateLimit()
    {
        QFETCH(int, handlerSeverity);
        QFETCH(int, maxErrors);
        QFETCH(QString, severities);
        QFETCH(int, accepted);
        QFETCH(int, reports);
        StatusEventRecorder recorder;
        recorder.attach();
        manager()->setLogDestination(StatusLog, 0);
        // An interval of a million seconds: no token is regained while the test runs.
        QSharedPointer<VfErrorRateHandler> handler(
            handlerSeverity < 0 ? new VfErrorRateHandler(maxErrors, 1000000, nullptr)
                                : new VfStatusSeverityErrorRateHandler(Severity(handlerSeverity), maxErrors, 1000000, nullptr));
        QTemporaryDir directory;
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), false, 0, handler));
        int passed = 0;
        for (const QString& severity : severities.split(QLatin1Char(' ')))
            passed += writer->writeToLog(entry(QStringLiteral("e\n"), Severity(severity.toInt()))) ? 1 : 0;
        QCOMPARE(passed, accepted);
        QCOMPARE(recorder.events.size(), reports);
    }

    void rateReportLeavesOneRecord()
    {
        StatusEventRecorder recorder;
        recorder.attach();
        manager()->setLogDestination(StatusLog, 0);
        QSharedPointer<VfErrorRateHandler> handler(new VfErrorRateHandler(2, 1000000, nullptr));
        QTemporaryDir directory;
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), false, 0, handler));
        // The writer is fed by the status log, so a report re-enters it under its own lock.
        connect(VfCrosscuttingManagerPlaceholder::instance()->statusReporter(),
                &VfAbstractStatusReporter::statusChangeOccurred, writer.data(), [&](const VfStatusChangeEvent& event) {
                    writer->writeToLog(Entry(new VfLogEntry(
                        event.sourceContext(), event.statusInfo()->severity(),
                        event.statusInfo()->toString(VfDisplayable::SingleLineLongForm) + QLatin1Char('\n'))));
                });
        QVERIFY(writer->writeToLog(entry(QStringLiteral("trigger\n"), Severity::CriticalError)));
        QVERIFY(!writer->writeToLog(entry(QStringLiteral("refused\n"), Severity::CriticalError)));
        writer->flush();
        const QByteArray text = readFile(directory.filePath(QStringLiteral("w.log")));
        // The last token pays for the report; the second report finds the bucket empty.
        QCOMPARE(recorder.events.size(), 2);
        QVERIFY(text.startsWith("[f:1] trigger\n"));
        QCOMPARE(text.count("Too many errors for type 'critical' reported. Logging is stopped for these errors, it "
                            "will resume when the error rate goes down"),
                 1);
        QCOMPARE(text.count('\n'), 2);
    }

    void severityWriter_data()
    {
        QTest::addColumn<QString>("severities"); // entry i has the message "i\n"
        QTest::addColumn<QString>("written"); // numbers of the entries in the file before shutdown
        QTest::addColumn<QString>("atShutdown");
        // Capacity 3, flush at NonCriticalError (3).
        QTest::newRow("low entries stay in memory") << "1 2 1 2 1" << "" << "345";
        QTest::newRow("the severe entry counts in the ring") << "1 1 1 1 1 3" << "456" << "456";
        QTest::newRow("just below does not flush") << "2" << "" << "1";
        QTest::newRow("above flushes") << "1 4 1" << "12" << "123";
    }

    void severityWriter()
    {
        QFETCH(QString, severities);
        QFETCH(QString, written);
        QFETCH(QString, atShutdown);
        QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("bb.log"));
        auto* writer = new VfStatusSeverityFileWriter(QDir(directory.path()), QStringLiteral("bb.log"),
                                                      VfDisplayable::ShortForm, true, 1048576, 3,
                                                      Severity::NonCriticalError, {}, nullptr);
        QVERIFY(!writer->isTimedSaveEnabled()); // the log manager's ticks leave the ring alone
        int signalled = 0, severe = 0, number = 0;
        connect(writer, &VfFileWriter::errorAddedToOutstandingLogEntries, this, [&signalled] { ++signalled; });
        for (const QString& severity : severities.split(QLatin1Char(' '))) {
            severe += severity.toInt() >= 3 ? 1 : 0;
            writer->writeToLog(entry(QString::number(++number) + QLatin1Char('\n'), Severity(severity.toInt())));
        }
        const auto records = [](const QString& numbers) {
            QByteArray text;
            for (QChar n : numbers)
                text += "[f:1] " + QByteArray(1, n.toLatin1()) + '\n';
            return text;
        };
        QCOMPARE(readFile(path), records(written));
        QCOMPARE(signalled, severe);
        delete writer;
        QCOMPARE(readFile(path), records(atShutdown));
    }

    void noLossNoSplit_data()
    {
        QTest::addColumn<bool>("limited");
        QTest::newRow("no size limit") << false;
        QTest::newRow("rotating") << true;
    }

    void noLossNoSplit()
    {
        QFETCH(bool, limited);
        const int threads = 4, perThread = 5000;
        QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("w.log"));
        VfLog log(nullptr);
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), limited, 60000));
        connect(&log, &VfLog::logEntryReady, writer.data(), &VfFileWriter::writeToLog, Qt::DirectConnection);
        std::atomic<bool> done{false};
        std::thread flusher([&] {
            while (!done) {
                writer->flush();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([&log, t] {
                const auto source = QSharedPointer<VfSourceContext>(
                    new VfSourceContext("M", "s", "", "", "void f()", quint64(t), "", {}));
                for (int i = 0; i < perThread; ++i)
                    log.addLogEntry(source, Severity::Notification, QStringLiteral("T%1 %2\n").arg(t).arg(i));
            });
        for (std::thread& worker : workers)
            worker.join();
        done = true;
        flusher.join();
        writer->flush();

        const QByteArray backup = readFile(path + ".bak");
        QCOMPARE(backup.isEmpty(), !limited);
        QVERIFY(backup.size() <= 60000 + backup.count('\n')); // the separating space alone is not counted
        const QList<QByteArray> lines = (backup + readFile(path)).split('\n');
        QCOMPARE(lines.last(), QByteArray()); // nothing cut at the end
        QHash<int, int> next;
        const QRegularExpression whole(QStringLiteral("^\\[s:(\\d):M\\] T\\1 (\\d+)$"));
        for (int k = 0; k < lines.size() - 1; ++k) {
            const QRegularExpressionMatch m = whole.match(QString::fromUtf8(lines.at(k)));
            QVERIFY2(m.hasMatch(), lines.at(k).constData());
            const int t = m.captured(1).toInt(), i = m.captured(2).toInt();
            // Each thread's entries in order, none twice; rotation only drops the oldest.
            QVERIFY(next.contains(t) ? i == next.value(t) : (limited || i == 0));
            next[t] = i + 1;
        }
        QCOMPARE(next.size(), limited ? next.size() : threads);
        for (int last : next)
            QCOMPARE(last, perThread);
    }

    void restart()
    {
        QDir(QStringLiteral("/etc/tarvion/logs")).removeRecursively();
        QCOMPARE(runChild({"--restart", "run1"}), QByteArray("0 0"));
        const QByteArray first = readFile(velmarLog);
        QCOMPARE(first.count("More information: run1-"), 3);
        // The next run appends to the same file.
        QCOMPARE(runChild({"--restart", "run2"}), QByteArray("0 0"));
        const QByteArray second = readFile(velmarLog);
        QVERIFY(second.startsWith(first));
        QCOMPARE(second.count('\n'), 6);
        // A file already past 1 MiB rotates once at the first flush, and not again at shutdown.
        QByteArray filler(1048577, 'x');
        QVERIFY(writeFile(velmarLog, filler));
        QCOMPARE(runChild({"--restart", "run3"}), QByteArray("1 1"));
        QCOMPARE(readFile(velmarLog + ".bak"), filler);
        QCOMPARE(readFile(velmarLog).count("More information: run3-"), 3);
    }

    void qtMessages_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("module");
        QTest::addColumn<int>("severity");
        QTest::addColumn<QString>("message");
        QTest::newRow("debug, framework file") << int(QtDebugMsg) << QByteArray("vfutilities.cpp") << "a" << "VfDebug" << 1 << "a\n";
        QTest::newRow("debug, Qt file") << int(QtDebugMsg) << QByteArray("qobject.cpp") << "a" << "QDEBUG" << 1 << "a\n";
        QTest::newRow("debug, application") << int(QtDebugMsg) << QByteArray("main.cpp") << "a" << "appDebug" << 1 << "a\n";
        QTest::newRow("info as debug") << int(QtInfoMsg) << QByteArray("qobject.cpp") << "a" << "QDEBUG" << 1 << "a\n";
        QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("qobject.cpp") << "a" << "QWARNING" << 2 << "a\n";
        QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("qobject.cpp") << "a" << "QCRITICAL" << 4 << "a\n";
        QTest::newRow("upper-case Q file") << int(QtWarningMsg) << QByteArray("QObject.cpp") << "a" << "appDebug" << 2 << "a\n";
        QTest::newRow("directory beginning with q") << int(QtDebugMsg) << QByteArray("/qt/main.cpp") << "a" << "appDebug" << 1 << "a\n";
        QTest::newRow("path to a framework file") << int(QtDebugMsg) << QByteArray("/src/vflog.cpp") << "a" << "VfDebug" << 1 << "a\n";
        QTest::newRow("white space only") << int(QtDebugMsg) << QByteArray("main.cpp") << " \t\n " << "appDebug" << 1 << "\n";
        QTest::newRow("trimmed, one line end") << int(QtDebugMsg) << QByteArray("main.cpp") << " a\nb \n\n" << "appDebug" << 1
                                               << "a\nb\n";
    }

    void qtMessages()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, file);
        QFETCH(QString, text);
        QFETCH(QString, module);
        QFETCH(int, severity);
        QFETCH(QString, message);
        manager()->registerIgnoreHandler([](MessageSource, const char*) { return true; });
        manager()->setLogDestination(StatusLog, 0); // velmar.log now hears the debug log alone
        QList<Entry> entries;
        connect(velmarWriter(), &VfFileWriter::errorAddedToOutstandingLogEntries, this,
                [&entries](const Entry& e) { entries.append(e); });
        logMessageHandler(QtMsgType(type), QMessageLogContext(file.constData(), 7, "int main()", "default"), text);
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.at(0)->sourceContext()->sourceModule(), module);
        QCOMPARE(entries.at(0)->sourceContext()->sourceLineNumber(), 7ull);
        QCOMPARE(int(entries.at(0)->severity()), severity);
        QCOMPARE(entries.at(0)->message(), message);
    }

    void qtFatal()
    {
        QFile::remove(velmarLog);
        QProcess::ExitStatus status;
        int code = 0;
        runChild({"--fatal"}, &status, &code);
        QCOMPARE(status, QProcess::CrashExit);
        QCOMPARE(code, int(SIGABRT));
        // The entry queued before and the fatal one reached the file through the flush before abort().
        const QByteArray text = readFile(velmarLog);
        QVERIFY2(text.contains("] before\n") && text.endsWith("] fatal\n"), text.constData());
    }

    void writeErrorRecovery_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("tmpfs of 64 KiB fills, then grows") << "full";
        QTest::newRow("log is a symlink to /dev/full, then a file") << "devfull";
        QTest::newRow("a directory in the log's place, then removed") << "directory";
    }

    void writeErrorRecovery()
    {
        QFETCH(QString, fault);
        const QString directory = QStringLiteral("/etc/tarvion/faults/") + fault;
        const QString log = directory + QStringLiteral("/w.log");
        QDir(directory).removeRecursively();
        QVERIFY(QDir().mkpath(directory));
        if (fault == "full")
            QCOMPARE(mount("vffull", qPrintable(directory), "tmpfs", 0, "size=64k"), 0);
        else if (fault == "devfull")
            QVERIFY(QFile::link(QStringLiteral("/dev/full"), log));
        else
            QVERIFY(QDir().mkpath(log));
        QScopedPointer<VfFileWriter> writer(newWriter(directory, true, 128 * 1024));
        const auto writeEntries = [&](int first, int count, int batch) {
            QByteArrayList written;
            for (int i = first; i < first + count; ++i) {
                const Entry e = entry(QString::number(i) + QString(400, QLatin1Char('x')) + QLatin1Char('\n'));
                writer->writeToLog(e);
                written.append(record(e));
                if ((i - first + 1) % batch == 0)
                    writer->flush();
            }
            writer->flush();
            return written;
        };
        // 2 MB of text while the writer cannot write: what it cannot write must not pile up in memory.
        writeEntries(0, 100, 100);
        const size_t heapBefore = mallinfo2().uordblks;
        writeEntries(100, 5000, 500);
        QVERIFY(qint64(mallinfo2().uordblks) - qint64(heapBefore) < 512 * 1024);
        // What fitted before the disk filled stays: no rotation moves an empty file over it.
        if (fault == "full")
            QVERIFY(QFileInfo(log).size() + QFileInfo(log + ".bak").size() > 60000);

        if (fault == "full")
            QCOMPARE(mount(nullptr, qPrintable(directory), nullptr, MS_REMOUNT, "size=64m"), 0);
        else
            QVERIFY(fault == "devfull" ? QFile::remove(log) : QDir(log).removeRecursively());
        const QByteArrayList written = writeEntries(10000, 100, 100);
        const QByteArray text = readFile(log);
        for (const QByteArray& r : written)
            QVERIFY2(text.contains(r), r.left(10).constData());
        if (fault == "full")
            umount2(qPrintable(directory), MNT_DETACH);
    }

    void rotationUnderLoad_data()
    {
        QTest::addColumn<int>("batch");
        for (int batch : {1, 10, 100, 1000})
            QTest::addRow("%d entries per flush", batch) << batch;
    }

    void rotationUnderLoad()
    {
        QFETCH(int, batch);
        QTemporaryDir directory;
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), true, 65536));
        for (int i = 1; i <= 300; ++i) {
            writer->writeToLog(sized(1500, 'a'));
            if (i % batch == 0)
                writer->flush();
        }
        writer->flush();
        QVERIFY(QFileInfo(directory.filePath(QStringLiteral("w.log.bak"))).size() >= 65536 * 9 / 10);
    }

};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 2 && qstrcmp(argv[1], "--restart") == 0)
        return restartChild(argv[2]);
    if (argc > 1 && qstrcmp(argv[1], "--fatal") == 0) {
        qInstallMessageHandler(logMessageHandler);
        qDebug("before");
        qFatal("fatal");
    }
    tst_Logging test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logging.moc"
