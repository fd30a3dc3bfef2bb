#include "statuseventrecorder.h"
#include "vflogmanager.h"
#include "vfstatusseverityerrorratehandler.h"
#include "vfstatusseverityfilewriter.h"
#include "vftestsupport.h"

#include <QtTest>

#include <atomic>
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
        QTest::addColumn<QString>("filter"); // on the namespace "Ns"
        QTest::addColumn<QString>("message"); // empty: REPORT_STATUS from report()
        QTest::addColumn<QString>("console"); // %1 is the time, %2 the line of the report
        QTest::addColumn<QString>("velmar");
        QTest::addColumn<QString>("event");
        const QString longForm = QStringLiteral("[%1, Mod, src.cpp, 42, T, Ns, Cls, void fn(), arg] x\n");
        const QString shortForm = QStringLiteral("[src.cpp:42:Mod] x\n");
        const QString eventForm = QStringLiteral("[%1 src.cpp:42:Mod] x\n");
        QTest::newRow("debug log") << 1 << -1 << "" << "x\n" << shortForm << longForm << "";
        QTest::newRow("event log") << 2 << -1 << "" << "x\n" << "" << "" << eventForm;
        // The mask never connects or disconnects event.log: instruments rely on its one fixed connection.
        QTest::newRow("event log gains the console") << 2 << 1 << "" << "x\n" << shortForm << "" << eventForm;
        QTest::newRow("event log keeps event.log") << 2 << 0 << "" << "x\n" << "" << "" << eventForm;
        const QString text = QStringLiteral(
            "[File cannot be copied, An attempt to copy file /a b to /c failed., NonCriticalError, Internal]\n");
        QTest::newRow("REPORT_STATUS") << 0 << -1 << "" << "" << "[tst_logging.cpp:%2:Velmar Application] " + text
                                       << "[%1, Velmar Application, tst_logging.cpp, %2, MainThread, , tst_Logging, "
                                          "StatusCode report(), /a b, /c] " + text << "";
        QTest::newRow("filter sees the namespace alone") << 0 << -1 << "Cls|Mod|src|fn|x" << "x\n" << "" << "" << "";
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
        if (mask >= 0)
            manager()->setLogDestination(VfLogType(type), unsigned(mask));
        if (!filter.isEmpty())
            manager()->setNamespaceFilter(VfLogType(type), QRegularExpression(filter));
        manager()->forceFlushAllLogs();
        const QByteArray velmarBefore = readFile(velmarLog), eventBefore = readFile(eventLog);
        StatusEventRecorder recorder;
        recorder.attach();
        auto source = QSharedPointer<VfSourceContext>(
            new VfSourceContext("Mod", "src.cpp", "Ns", "Cls", "void fn()", 42, "T", {QStringLiteral("arg")}));
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
        const QString message = QStringLiteral("  caf\u00e9 \u20ac \n");
        const QByteArray printed = captureStdout(
            [&] { manager()->addLogEntry(context(cls, module), Severity::Warning, message, StatusLog); });
        // The handler sees the text trimmed, in Latin-1; the console gets it untrimmed.
        QCOMPARE(seen, (QList<QPair<int, QByteArray>>{{source, "caf\xe9 ?"}}));
        QCOMPARE(printed, source == QtSource ? QByteArray() : "[f:1:" + module.toUtf8() + "] " + message.toLocal8Bit());
        manager()->forceFlushAllLogs();
        QVERIFY(readFile(velmarLog).endsWith(" " + message.toUtf8())); // file writers never ask the handler
    }

    void managerDefaults()
    {
        QCOMPARE(manager()->flushInterval(), 5000u);
        QCOMPARE(manager()->logFileName(StatusLog) + manager()->logFileName(EventLog), (QStringList{"velmar.log", "event.log"}));
        captureStdout([] { manager()->addLogEntry(context(), Severity::Notification, "last\n", StatusLog); });
        const int before = syncCalls;
        VfCrosscuttingManagerPlaceholder::drop();
        QCOMPARE(syncCalls - before, 5); // all logs, then each file writer once more
        QVERIFY(readFile(velmarLog).endsWith("] last\n"));
    }

    void rotation_data()
    {
        QTest::addColumn<int>("prefill"); // bytes of "x" already in the file
        QTest::addColumn<QString>("plan"); // counted size of each entry, "|" for a flush
        QTest::addColumn<QString>("backup"); // x for the prefill, a, b, ... for the entries
        QTest::addColumn<QString>("file");
        // The limit is 100; equality does not rotate, and the separating space is not counted.
        QTest::newRow("90 + 10 fits") << 90 << "10" << "" << "xa";
        QTest::newRow("90 + 11 rotates") << 90 << "11" << "x" << "a";
        QTest::newRow("count restarts after a rotation") << 0 << "60 60 30 20" << "bc" << "d";
        QTest::newRow("second rotation replaces the backup") << 0 << "70 | 70 | 70" << "b" << "c";
    }

    void rotation()
    {
        QFETCH(int, prefill);
        QFETCH(QString, plan);
        QFETCH(QString, backup);
        QFETCH(QString, file);
        QTemporaryDir directory;
        const QString path = directory.filePath("w.log");
        QVERIFY(prefill == 0 || VfTest::writeFile(path, QByteArray(prefill, 'x')));
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path()));
        char fill = 'a';
        for (const QString& step : plan.split(' ')) {
            if (step == "|")
                writer->flush();
            else
                QVERIFY(writer->writeToLog(sized(step.toInt(), fill++)));
        }
        writer->flush();
        // Each run of one letter, the prefill or a record, as that letter: a record written twice shows.
        const auto letters = [](const QString& name) {
            return QString::fromUtf8(readFile(name)).remove("[f:1] ").replace(QRegularExpression("(.)\\1+"), "\\1").remove('\n');
        };
        QCOMPARE(letters(path + ".bak") + '|' + letters(path), backup + '|' + file);
        // With a backup, the copy is the backup alone: the live file is deliberately read through the
        // writer's write-only device, which gives nothing, and instruments ship the copy as it is.
        if (!backup.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("WriteOnly device"));
        QVERIFY(writer->copyLogTo(QDir(directory.filePath("copy"))));
        QCOMPARE(letters(directory.filePath("copy")), backup.isEmpty() ? file : backup);
    }

    void rateLimit_data()
    {
        QTest::addColumn<int>("handlerSeverity"); // -1: the plain handler
        QTest::addColumn<int>("maxErrors");
        QTest::addColumn<QString>("severities");
        QTest::addColumn<bool>("refill"); // a second passes before the entries
        QTest::addColumn<int>("accepted");
        QTest::addColumn<int>("reports");
        QTest::newRow("the fourth leaves one token and reports") << -1 << 5 << "4 4 4 4" << false << 4 << 1;
        QTest::newRow("the last token, then refusal") << -1 << 5 << "4 4 4 4 4 4" << false << 5 << 2;
        QTest::newRow("low entries pass an empty severity bucket") << 4 << 0 << "2 2 4" << false << 2 << 2;
        QTest::newRow("the refill stops at the maximum") << -1 << 2 << "4 4 4 4" << true << 2 << 2;
    }

    void rateLimit()
    {
        QFETCH(int, handlerSeverity);
        QFETCH(int, maxErrors);
        QFETCH(QString, severities);
        QFETCH(bool, refill);
        QFETCH(int, accepted);
        QFETCH(int, reports);
        StatusEventRecorder recorder;
        recorder.attach();
        manager()->setLogDestination(StatusLog, 0);
        // Else an interval of a million seconds: no token comes back while the test runs.
        const int interval = refill ? 1 : 1000000;
        QSharedPointer<VfErrorRateHandler> handler(
            handlerSeverity < 0 ? new VfErrorRateHandler(maxErrors, interval, nullptr)
                                : new VfStatusSeverityErrorRateHandler(Severity(handlerSeverity), maxErrors, interval, nullptr));
        // Entries right after the clock's second changed: no further refill comes while they are written.
        for (const qint64 start = QDateTime::currentSecsSinceEpoch(); refill && QDateTime::currentSecsSinceEpoch() == start;)
            QThread::msleep(5);
        QTemporaryDir directory;
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), false, 0, handler));
        int passed = 0;
        for (const QString& severity : severities.split(' '))
            passed += writer->writeToLog(entry("e\n", Severity(severity.toInt()))) ? 1 : 0;
        QCOMPARE(passed, accepted);
        QCOMPARE(recorder.events.size(), reports);
    }

    void severityWriter()
    {
        QTemporaryDir directory;
        // Room for three entries; a NonCriticalError writes them out, itself the third.
        QScopedPointer<VfFileWriter> writer(new VfStatusSeverityFileWriter(
            QDir(directory.path()), "w.log", VfDisplayable::ShortForm, true, 1048576, 3, Severity::NonCriticalError, {}, nullptr));
        for (int i = 1; i <= 6; ++i)
            writer->writeToLog(entry(QString::number(i) + '\n', i == 6 ? Severity::NonCriticalError : Severity::Notification));
        QCOMPARE(QString::fromUtf8(readFile(directory.filePath("w.log"))).remove("[f:1] ").remove('\n'), QStringLiteral("456"));
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
        QTemporaryDir directory;
        VfLog log(nullptr);
        QScopedPointer<VfFileWriter> writer(newWriter(directory.path(), limited, 60000));
        connect(&log, &VfLog::logEntryReady, writer.data(), &VfFileWriter::writeToLog, Qt::DirectConnection);
        std::atomic<bool> done{false};
        std::thread flusher([&] {
            for (; !done; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
                writer->flush();
        });
        std::vector<std::thread> workers;
        for (int t = 0; t < 4; ++t)
            workers.emplace_back([&log, t] {
                const QSharedPointer<VfSourceContext> source(new VfSourceContext("M", "s", "", "", "f", t, "", {}));
                for (int i = 0; i < 5000; ++i)
                    log.addLogEntry(source, Severity::Notification, QStringLiteral("T%1 %2\n").arg(t).arg(i));
            });
        for (std::thread& worker : workers)
            worker.join();
        done = true;
        flusher.join();
        writer->flush();

        const QByteArray backup = readFile(directory.filePath("w.log.bak"));
        QCOMPARE(backup.isEmpty(), !limited);
        const QList<QByteArray> lines = (backup + readFile(directory.filePath("w.log"))).split('\n');
        QCOMPARE(lines.last(), QByteArray()); // nothing cut at the end
        // Each thread's entries whole, in order, none twice, up to its last; rotation drops only the oldest.
        QVector<int> next(4, limited ? -1 : 0);
        const QRegularExpression whole(QStringLiteral("^\\[s:(\\d):M\\] T\\1 (\\d+)$"));
        for (const QByteArray& line : lines.mid(0, lines.size() - 1)) {
            const QRegularExpressionMatch m = whole.match(QString::fromUtf8(line));
            QVERIFY2(m.hasMatch(), line.constData());
            const int t = m.captured(1).toInt(), i = m.captured(2).toInt();
            QVERIFY(next[t] < 0 || i == next[t]);
            next[t] = i + 1;
        }
        for (int last : next)
            QVERIFY(last == 5000 || (limited && last < 0));
    }

    void qtMessages_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("entry"); // module:line severity message
        QTest::newRow("path to a framework file") << 0 << QByteArray("/src/vflog.cpp") << "a" << "VfDebug:7 1 a\n";
        QTest::newRow("debug, Qt file") << 0 << QByteArray("qobject.cpp") << "a" << "QDEBUG:7 1 a\n";
        QTest::newRow("info as debug") << int(QtInfoMsg) << QByteArray("qobject.cpp") << "a" << "QDEBUG:7 1 a\n";
        QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("qobject.cpp") << "a" << "QWARNING:7 2 a\n";
        QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("qobject.cpp") << "a" << "QCRITICAL:7 4 a\n";
        QTest::newRow("upper-case Q file") << 1 << QByteArray("QObject.cpp") << "a" << "appDebug:7 2 a\n";
        QTest::newRow("directory beginning with q") << 0 << QByteArray("/qt/main.cpp") << "a" << "appDebug:7 1 a\n";
        QTest::newRow("v but not vf") << 0 << QByteArray("velmar.cpp") << "a" << "appDebug:7 1 a\n";
        QTest::newRow("trimmed, one line end") << 0 << QByteArray("main.cpp") << " a\nb \n\n" << "appDebug:7 1 a\nb\n";
    }

    void qtMessages()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, file);
        QFETCH(QString, text);
        QFETCH(QString, entry);
        manager()->registerIgnoreHandler([](MessageSource, const char*) { return true; });
        QStringList entries;
        connect(velmarWriter(), &VfFileWriter::errorAddedToOutstandingLogEntries, this, [&entries](const Entry& e) {
            entries << QStringLiteral("%1:%2 %3 %4").arg(e->sourceContext()->sourceModule())
                           .arg(e->sourceContext()->sourceLineNumber()).arg(int(e->severity())).arg(e->message());
        });
        logMessageHandler(QtMsgType(type), QMessageLogContext(file.constData(), 7, "int main()", "default"), text);
        QCOMPARE(entries, QStringList{entry});
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
        QVERIFY(QDir().mkpath(directory));
        if (fault == "full")
            QCOMPARE(mount("vffull", qPrintable(directory), "tmpfs", 0, "size=64k"), 0);
        else
            QVERIFY(fault == "devfull" ? QFile::link("/dev/full", log) : QDir().mkpath(log));
        QScopedPointer<VfFileWriter> writer(newWriter(directory, true, 128 * 1024));
        const auto writeEntries = [&](int first, int count, int batch) {
            QByteArray written;
            for (int i = first; i < first + count; ++i) {
                const Entry e = entry(QString::number(i) + QString(400, 'x') + '\n');
                written += record(e);
                writer->writeToLog(e);
                if ((i - first + 1) % batch == 0)
                    writer->flush();
            }
            return written;
        };
        // 2 MB of text while the writer cannot write: what it cannot write must not pile up in memory.
        writeEntries(0, 100, 100);
        writer->getCurrentStream(5) << "lost\n"; // the stream fails with the flush
        const size_t heapBefore = mallinfo2().uordblks;
        writeEntries(100, 5000, 500);
        QVERIFY(qint64(mallinfo2().uordblks) - qint64(heapBefore) < 512 * 1024);
        // What fitted before the disk filled stays: no rotation moves an empty file over it.
        QVERIFY(fault != "full" || QFileInfo(log).size() + QFileInfo(log + ".bak").size() > 60000);
        if (fault == "full")
            QCOMPARE(mount(nullptr, qPrintable(directory), nullptr, MS_REMOUNT, "size=64m"), 0);
        else
            QVERIFY(fault == "devfull" ? QFile::remove(log) : QDir(log).removeRecursively());
        const QByteArray written = writeEntries(10000, 100, 100);
        writer->getCurrentStream(5) << "kept\n"; // and writes again once the disk is back
        writer->flush();
        const QByteArray text = readFile(log);
        QVERIFY(text.endsWith(written + "kept\n"));
        // A record the full disk cut halfway was taken back: none is split.
        QVERIFY(QRegularExpression("\\A(\\[f:1\\] \\d+x{400}\\n|lost\\n|kept\\n)*\\z").match(QString::fromLatin1(text)).hasMatch());
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
            if (i % batch == 0 || i == 300)
                writer->flush();
        }
        // 43 records of 1500 counted characters fit in 64 KiB: each rotation moves a full file.
        QCOMPARE(readFile(directory.filePath("w.log.bak")).count('\n'), 43);
    }
};

QTEST_GUILESS_MAIN(tst_Logging)

#include "tst_logging.moc"
