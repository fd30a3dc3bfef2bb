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

QSharedPointer<VfSourceContext> context(const QString& cls = QString(), const QString& module = QString())
{
    return QSharedPointer<VfSourceContext>(new VfSourceContext(module, "f", "", cls, "void f()", 1, "", {}));
}

Entry entry(const QString& message, Severity severity = Severity::Notification)
{
    return Entry(new VfLogEntry(context(), severity, message));
}

// The size check counts the context text "[f:1]" and the message.
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
    file.open();
    const int saved = dup(1);
    dup2(file.handle(), 1);
    action(); // no flush here: the writer flushes each record itself
    dup2(saved, 1);
    close(saved);
    return readFile(file.fileName());
}

VfLogManager* manager()
{
    return qobject_cast<VfLogManager*>(VfCrosscuttingManagerPlaceholder::instance()->logManager());
}

VfFileWriter* velmarWriter() // which every entry of the debug log reaches
{
    for (VfAbstractLogWriter* writer : manager()->getLogWritersByLog(DebugLog))
        if (writer->logName() == QLatin1String("velmar.log"))
            return qobject_cast<VfFileWriter*>(writer);
    return nullptr;
}

VfFileWriter* newWriter(const QString& directory, bool limited = true, unsigned long long limit = 100,
                        QSharedPointer<VfErrorRateHandler> handler = {})
{
    return new VfFileWriter(QDir(directory), "w.log", VfDisplayable::ShortForm, limited, limit, handler, nullptr);
}

// This program again, as a child: "--restart TAG" or "--fatal".
QProcess* child(const QStringList& arguments)
{
    auto* process = new QProcess;
    process->start(QCoreApplication::applicationFilePath(), arguments);
    process->waitForFinished(60000);
    return process;
}

int childMain(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(logMessageHandler);
    if (qstrcmp(argv[1], "--fatal") == 0) {
        qDebug("before");
        qFatal("fatal");
    }
    manager()->setLogDestination(StatusLog, LogFileDestination);
    int rotations = 0;
    QObject::connect(velmarWriter(), &VfFileWriter::backupLogFileCreated, [&rotations] { ++rotations; });
    for (int i = 0; i < 3; ++i)
        REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("%1-%2").arg(argv[2]).arg(i));
    manager()->forceFlushAllLogs();
    std::printf("%d", rotations);
    VfCrosscuttingManagerPlaceholder::drop();
    std::printf(" %d", rotations);
    return 0;
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
        QTest::addColumn<int>("mask"); // -1: the default destinations
        QTest::addColumn<QString>("filter"); // on the namespace "Ns"; "!" disables the log
        QTest::addColumn<QString>("message"); // empty: REPORT_STATUS from report()
        QTest::addColumn<QString>("console"); // %1 is the time, %2 the line of the report
        QTest::addColumn<QString>("velmar");
        QTest::addColumn<QString>("event");
        const QString longForm = QStringLiteral("[%1, Mod, src.cpp, 42, T, Ns, Cls, void fn(), arg] ");
        const QString shortForm = QStringLiteral("[src.cpp:42:Mod] ");
        const QString eventForm = QStringLiteral("[%1 src.cpp:42:Mod] ");
        QTest::newRow("status log") << 0 << -1 << "" << "x\n" << shortForm + "x\n" << longForm + "x\n" << "";
        QTest::newRow("debug log") << 1 << -1 << "" << "x\n" << shortForm + "x\n" << longForm + "x\n" << "";
        QTest::newRow("event log") << 2 << -1 << "" << "x\n" << "" << "" << eventForm + "x\n";
        QTest::newRow("no line end added") << 0 << -1 << "" << "x" << shortForm + "x" << longForm + "x" << "";
        const QString text = QStringLiteral(
            "[File cannot be copied, An attempt to copy file /a b to /c failed., NonCriticalError, Internal]\n");
        QTest::newRow("REPORT_STATUS") << 0 << -1 << "" << "" << "[tst_logging.cpp:%2:Velmar Application] " + text
                                       << "[%1, Velmar Application, tst_logging.cpp, %2, MainThread, , tst_Logging, "
                                          "StatusCode report(), /a b, /c] " + text << "";
        QTest::newRow("debug log to nothing") << 1 << 0 << "" << "x\n" << "" << "" << "";
        QTest::newRow("debug log to the console") << 1 << 1 << "" << "x\n" << shortForm + "x\n" << "" << "";
        // The mask never connects or disconnects event.log: instruments rely on its one fixed connection.
        QTest::newRow("event log gains the console") << 2 << 1 << "" << "x\n" << shortForm + "x\n" << "" << eventForm + "x\n";
        QTest::newRow("event log keeps event.log") << 2 << 0 << "" << "x\n" << "" << "" << eventForm + "x\n";
        QTest::newRow("status log cannot take event.log") << 0 << 8 << "" << "x\n" << "" << "" << "";
        QTest::newRow("filter, caret") << 0 << -1 << "^N" << "x\n" << shortForm + "x\n" << longForm + "x\n" << "";
        QTest::newRow("filter, caret, contains only") << 0 << -1 << "^s" << "x\n" << "" << "" << "";
        QTest::newRow("filter, no caret") << 0 << -1 << "s" << "x\n" << shortForm + "x\n" << longForm + "x\n" << "";
        QTest::newRow("filter sees the namespace alone") << 0 << -1 << "Cls|Mod|src|fn|x" << "x\n" << "" << "" << "";
        QTest::newRow("disabled") << 0 << -1 << "!" << "x\n" << "" << "" << "";
    }

    void records()
    {
        QFETCH(int, type);
        QFETCH(int, mask);
        QFETCH(QString, filter);
        QFETCH(QString, message);
        QFETCH(QString, console);
        QFETCH(QString, velmar);
        QFETCH(QString, event);
        const VfLogType log = VfLogType(type);
        if (mask >= 0)
            manager()->setLogDestination(log, unsigned(mask));
        if (filter == "!")
            manager()->disableLog(log);
        else if (!filter.isEmpty())
            manager()->setNamespaceFilter(log, QRegularExpression(filter));
        manager()->forceFlushAllLogs();
        const QByteArray velmarBefore = readFile(velmarLog);
        const QByteArray eventBefore = readFile(eventLog);
        StatusEventRecorder recorder;
        recorder.attach();
        auto source = QSharedPointer<VfSourceContext>(
            new VfSourceContext("Mod", "src.cpp", "Ns", "Cls", "void fn()", 42, "T", {QStringLiteral("arg")}));
        const QByteArray printed = captureStdout([&] {
            if (message.isEmpty())
                QCOMPARE(report(), StatusCode(VfStatusCodes::FileCannotCopy));
            else
                manager()->addLogEntry(source, Severity::Warning, message, log);
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

    void console_data()
    {
        QTest::addColumn<QString>("cls");
        QTest::addColumn<QString>("module");
        QTest::addColumn<int>("source");
        QTest::newRow("Vf class, VfDebug") << "VfUtilities" << "VfDebug" << int(FrameworkDebugSource);
        QTest::newRow("Vf class, other module") << "VfThing" << "appDebug" << int(FrameworkSource);
        QTest::newRow("Q class, hidden") << "QObject" << "VfDebug" << int(QtSource);
        QTest::newRow("lower-case q class, appDebug") << "qobject" << "appDebug" << int(ApplicationDebugSource);
        QTest::newRow("application class") << "Foo" << "AppDebug" << int(ApplicationSource);
    }

    void console()
    {
        QFETCH(QString, cls);
        QFETCH(QString, module);
        QFETCH(int, source);
        QList<QPair<int, QByteArray>> seen;
        manager()->registerIgnoreHandler([&seen](MessageSource source, const char* text) {
            seen.append({int(source), text});
            return source == QtSource;
        });
        const QString message = QStringLiteral("  caf\u00e9 \n");
        const QByteArray printed = captureStdout(
            [&] { manager()->addLogEntry(context(cls, module), Severity::Warning, message, StatusLog); });
        // The handler sees the text trimmed, in Latin-1; the console gets it untrimmed.
        QCOMPARE(seen, (QList<QPair<int, QByteArray>>{{source, "caf\xe9"}}));
        QCOMPARE(printed, source == QtSource ? QByteArray() : '[' + ("f:1:" + module).toUtf8() + "] " + message.toLocal8Bit());
        manager()->forceFlushAllLogs();
        QVERIFY(readFile(velmarLog).endsWith(" " + message.toUtf8())); // file writers never ask the handler
    }

    void managerFiles()
    {
        StatusEventRecorder recorder;
        recorder.attach();
        QCOMPARE(manager()->flushInterval(), 5000u);
        QCOMPARE(manager()->logFileName(StatusLog), QStringList{"velmar.log"});
        QCOMPARE(manager()->logFileName(EventLog), QStringList{"event.log"});
        captureStdout([] { manager()->addLogEntry(context(), Severity::Notification, "kept\n", StatusLog); });
        const QString copy = QStringLiteral("/etc/tarvion/copy");
        QFile::remove(copy);
        QVERIFY(manager()->copyLogTo(StatusLog, "velmar.log", QDir(copy)));
        QVERIFY(readFile(copy).endsWith("] kept\n"));
        QCOMPARE(manager()->readByLogFileName(StatusLog, "velmar.log"), QString::fromUtf8(readFile(copy)));
        QVERIFY(!manager()->copyLogTo(StatusLog, "event.log", QDir(copy + "2")));
        QVERIFY(recorder.events.isEmpty());
        QCOMPARE(manager()->readByLogFileName(StatusLog, "Stdout"), QString());
        QCOMPARE(recorder.codes(), QList<StatusCode>{VfStatusCodes::FileNotFound});
        QCOMPARE(recorder.events.first().sourceContext()->additionalInfo(), QStringList{"Stdout"});

        // A tick flushes velmar.log for each of its two logs and event.log once, each with a sync.
        int before = syncCalls;
        manager()->forceFlushAllLogs();
        QCOMPARE(syncCalls - before, 3);
        QVERIFY(writeFile(velmarLog + ".bak", "old"));
        QVERIFY(manager()->clearLog(StatusLog));
        QCOMPARE(QFileInfo(velmarLog).size(), 0);
        QVERIFY(!QFile::exists(velmarLog + ".bak"));
        QVERIFY(QDir().mkpath(velmarLog + ".bak/keep"));
        QVERIFY(!manager()->clearLog(StatusLog)); // a backup that cannot go fails the clear
        QVERIFY(QDir(velmarLog + ".bak").removeRecursively());

        // Shutdown flushes all logs, then each file writer once more.
        captureStdout([] { manager()->addLogEntry(context(), Severity::Notification, "last\n", StatusLog); });
        manager()->addLogEntry(context(), Severity::Notification, "last event\n", EventLog);
        before = syncCalls;
        VfCrosscuttingManagerPlaceholder::drop();
        QCOMPARE(syncCalls - before, 5);
        QVERIFY(readFile(velmarLog).endsWith("] last\n"));
        QVERIFY(readFile(eventLog).endsWith("] last event\n"));
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
        const QString path = directory.filePath("w.log");
        QVERIFY(prefill == 0 || writeFile(path, QByteArray(prefill, 'x')));
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), limited));
        QHash<QChar, QByteArray> texts{{'x', QByteArray(prefill, 'x')}};
        char fill = 'a';
        for (const QString& step : plan.split(' ')) {
            if (step == "|") {
                writer->flush();
            } else {
                texts.insert(fill, record(sized(step.toInt(), fill)));
                QVERIFY(writer->writeToLog(sized(step.toInt(), fill++)));
            }
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
        const QString path = directory.filePath("w.log"), copy = directory.filePath("copy");
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path()));
        const Entry a = sized(70, 'a'), b = sized(70, 'b');
        int before = syncCalls;
        writer->writeToLog(a);
        QCOMPARE(syncCalls - before, 0); // queueing touches no disk
        QCOMPARE(writer->readLog(), QString());
        writer->flush();
        QCOMPARE(writer->readLog(), QString::fromUtf8(record(a)));
        writer->writeToLog(b);
        // The current file is read through the write-only device and gives nothing: instruments
        // ship that copy as it is, the backup alone.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("WriteOnly device"));
        QVERIFY(writer->copyLogTo(QDir(copy)));
        QCOMPARE(readFile(copy), record(a));
        QCOMPARE(writer->readLog(), QString::fromUtf8(record(a) + record(b))); // the backup first
        QVERIFY(recorder.events.isEmpty());
        QVERIFY(!writer->copyLogTo(QDir(copy)));
        QCOMPARE(recorder.codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
        QCOMPARE(recorder.events.first().sourceContext()->additionalInfo(), (QStringList{path + ".bak", copy}));

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
        QTest::addColumn<int>("handlerSeverity"); // -1: the plain handler
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
        // An interval of a million seconds: no token comes back while the test runs.
        QSharedPointer<VfErrorRateHandler> handler(
            handlerSeverity < 0 ? new VfErrorRateHandler(maxErrors, 1000000, nullptr)
                                : new VfStatusSeverityErrorRateHandler(Severity(handlerSeverity), maxErrors, 1000000, nullptr));
        QTemporaryDir directory;
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), false, 0, handler));
        int passed = 0;
        for (const QString& severity : severities.split(' '))
            passed += writer->writeToLog(entry("e\n", Severity(severity.toInt()))) ? 1 : 0;
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
        // The writer hears the status log, so a report re-enters it under its own lock.
        connect(VfCrosscuttingManagerPlaceholder::instance()->statusReporter(),
                &VfAbstractStatusReporter::statusChangeOccurred, writer.data(), [&](const VfStatusChangeEvent& event) {
                    writer->writeToLog(Entry(new VfLogEntry(
                        event.sourceContext(), event.statusInfo()->severity(),
                        event.statusInfo()->toString(VfDisplayable::SingleLineLongForm) + '\n')));
                });
        QVERIFY(writer->writeToLog(entry("trigger\n", Severity::CriticalError)));
        QVERIFY(!writer->writeToLog(entry("refused\n", Severity::CriticalError)));
        writer->flush();
        // The last token pays for the report; the second report finds the bucket empty.
        const QByteArray text = readFile(directory.filePath("w.log"));
        QCOMPARE(recorder.events.size(), 2);
        QVERIFY(text.startsWith("[f:1] trigger\n"));
        QCOMPARE(text.count("Too many errors for type 'critical' reported. Logging is stopped for these errors, it "
                            "will resume when the error rate goes down"), 1);
        QCOMPARE(text.count('\n'), 2);
    }

    void severityWriter_data()
    {
        QTest::addColumn<QString>("severities"); // entry i has the message "i\n"
        QTest::addColumn<QString>("written"); // the entries in the file, before and after shutdown
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
        auto* writer = new VfStatusSeverityFileWriter(QDir(directory.path()), "w.log", VfDisplayable::ShortForm, true,
                                                      1048576, 3, Severity::NonCriticalError, {}, nullptr);
        QVERIFY(!writer->isTimedSaveEnabled()); // the log manager's ticks leave the ring alone
        int signalled = 0, severe = 0, number = 0;
        connect(writer, &VfFileWriter::errorAddedToOutstandingLogEntries, this, [&signalled] { ++signalled; });
        for (const QString& severity : severities.split(' ')) {
            severe += severity.toInt() >= 3 ? 1 : 0;
            writer->writeToLog(entry(QString::number(++number) + '\n', Severity(severity.toInt())));
        }
        const auto records = [](const QString& numbers) {
            QByteArray text;
            for (QChar n : numbers)
                text += "[f:1] " + QString(n).toUtf8() + '\n';
            return text;
        };
        QCOMPARE(readFile(directory.filePath("w.log")), records(written));
        QCOMPARE(signalled, severe);
        delete writer;
        QCOMPARE(readFile(directory.filePath("w.log")), records(atShutdown));
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
        const QString path = directory.filePath("w.log");
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
                const QSharedPointer<VfSourceContext> source(new VfSourceContext("M", "s", "", "", "f", t, "", {}));
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
            // Each thread's entries in order, none twice; rotation drops only the oldest.
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
        QCOMPARE(QScopedPointer<QProcess>(child({"--restart", "run1"}))->readAll(), QByteArray("0 0"));
        const QByteArray first = readFile(velmarLog);
        QCOMPARE(first.count("More information: run1-"), 3);
        QCOMPARE(QScopedPointer<QProcess>(child({"--restart", "run2"}))->readAll(), QByteArray("0 0"));
        QVERIFY(readFile(velmarLog).startsWith(first)); // the next run appends
        QCOMPARE(readFile(velmarLog).count('\n'), 6);
        // A file already past 1 MiB rotates once at the first flush, and not again at shutdown.
        const QByteArray filler(1048577, 'x');
        QVERIFY(writeFile(velmarLog, filler));
        QCOMPARE(QScopedPointer<QProcess>(child({"--restart", "run3"}))->readAll(), QByteArray("1 1"));
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
        QTest::newRow("debug, framework file") << 0 << QByteArray("vfutilities.cpp") << "a" << "VfDebug" << 1 << "a\n";
        QTest::newRow("debug, Qt file") << 0 << QByteArray("qobject.cpp") << "a" << "QDEBUG" << 1 << "a\n";
        QTest::newRow("debug, application") << 0 << QByteArray("main.cpp") << "a" << "appDebug" << 1 << "a\n";
        QTest::newRow("info as debug") << int(QtInfoMsg) << QByteArray("qobject.cpp") << "a" << "QDEBUG" << 1 << "a\n";
        QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("qobject.cpp") << "a" << "QWARNING" << 2 << "a\n";
        QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("qobject.cpp") << "a" << "QCRITICAL" << 4 << "a\n";
        QTest::newRow("upper-case Q file") << 1 << QByteArray("QObject.cpp") << "a" << "appDebug" << 2 << "a\n";
        QTest::newRow("directory beginning with q") << 0 << QByteArray("/qt/main.cpp") << "a" << "appDebug" << 1 << "a\n";
        QTest::newRow("path to a framework file") << 0 << QByteArray("/src/vflog.cpp") << "a" << "VfDebug" << 1 << "a\n";
        QTest::newRow("white space only") << 0 << QByteArray("main.cpp") << " \t\n " << "appDebug" << 1 << "\n";
        QTest::newRow("trimmed, one line end") << 0 << QByteArray("main.cpp") << " a\nb \n\n" << "appDebug" << 1 << "a\nb\n";
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
        QScopedPointer<QProcess> process(child({"--fatal"}));
        QCOMPARE(process->exitStatus(), QProcess::CrashExit);
        QCOMPARE(process->exitCode(), int(SIGABRT));
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
        const QString directory = "/etc/tarvion/faults/" + fault, log = directory + "/w.log";
        QDir(directory).removeRecursively();
        QVERIFY(QDir().mkpath(directory));
        if (fault == "full")
            QCOMPARE(mount("vffull", qPrintable(directory), "tmpfs", 0, "size=64k"), 0);
        else
            QVERIFY(fault == "devfull" ? QFile::link("/dev/full", log) : QDir().mkpath(log));
        QScopedPointer<VfFileWriter> writer(newWriter(directory, true, 128 * 1024));
        const auto writeEntries = [&](int first, int count, int batch) {
            QByteArrayList written;
            for (int i = first; i < first + count; ++i) {
                written.append(record(entry(QString::number(i) + QString(400, 'x') + '\n')));
                writer->writeToLog(entry(QString::number(i) + QString(400, 'x') + '\n'));
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
        QVERIFY(fault != "full" || QFileInfo(log).size() + QFileInfo(log + ".bak").size() > 60000);
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
        QVERIFY(QFileInfo(directory.filePath("w.log.bak")).size() >= 65536 * 9 / 10);
    }
};

int main(int argc, char** argv)
{
    const QByteArray mode = argc > 1 ? argv[1] : "";
    if (mode == "--fatal" || (mode == "--restart" && argc > 2))
        return childMain(argc, argv);
    QCoreApplication app(argc, argv);
    tst_Logging test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logging.moc"
