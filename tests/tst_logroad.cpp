// End to end: from REPORT_STATUS and addLogEntry to standard output and the log files (Parts 1.1, 2.3, 4.1-4.4).
#define VF_LOGTEST_COUNT_SYNC
#include "helpers/vflogtesthelpers.h"
#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vflogmanager.h"

#include <QtTest>

#include <atomic>

using namespace Crosscutting;
using VfLogTest::captureStdout;
using VfLogTest::readFile;
using Access = VfLogManagerTestAccess;

namespace {

const QString s_velmarLog = QStringLiteral("/etc/tarvion/logs/velmar.log");
const QString s_eventLog = QStringLiteral("/etc/tarvion/logs/event.log");
const QString s_stressDirectory = QStringLiteral("/etc/tarvion/stress");
const int s_threads = 4;
const int s_entriesPerThread = 5000;

VfLogManager* instanceManager()
{
    return qobject_cast<VfLogManager*>(VfCrosscuttingManagerPlaceholder::instance()->logManager());
}

// Logs through the log manager's addLogEntry, as an application thread does.
class EntryWorker : public QThread
{
public:
    EntryWorker(int id, VfLogManager* manager)
        : m_id(id)
        , m_manager(manager)
    {
        setObjectName(QStringLiteral("T%1").arg(id));
    }
    void run() override
    {
        const auto context = VfLogTest::makeContext(QString(), QString(), QStringLiteral("M"), QStringLiteral("stress"),
                                                    quint64(m_id));
        for (int i = 0; i < s_entriesPerThread; ++i) {
            m_manager->addLogEntry(context, VfStaticStatusInfo::VfStatusSeverity::Notification,
                                   QStringLiteral("T%1 %2\n").arg(m_id).arg(i, 5, 10, QLatin1Char('0')), EventLog);
        }
    }

private:
    int m_id;
    VfLogManager* m_manager;
};

// Flushes the writers explicitly while the others log, until told to stop.
class FlushWorker : public QThread
{
public:
    FlushWorker(VfLogManager* manager, VfLogType type)
        : m_manager(manager)
        , m_type(type)
    {
    }
    void run() override
    {
        while (!stop) {
            m_manager->forceFlushLog(m_type);
            ++flushes;
            QThread::msleep(1);
        }
    }
    std::atomic<bool> stop{false};
    std::atomic<int> flushes{0};

private:
    VfLogManager* m_manager;
    VfLogType m_type;
};

struct Record
{
    int thread;
    int index;
};

// Splits a log's text into records (one line each) and checks each against `pattern`, whose first two
// captures are the thread and the index. Returns false on the first record that is not whole.
bool parseRecords(const QByteArray& text, const QRegularExpression& pattern, QList<Record>* records, QString* error)
{
    if (text.isEmpty())
        return true;
    if (!text.endsWith('\n')) {
        *error = QStringLiteral("text does not end with a whole record");
        return false;
    }
    const QList<QByteArray> lines = text.left(text.size() - 1).split('\n');
    for (const QByteArray& line : lines) {
        const QRegularExpressionMatch match = pattern.match(QString::fromUtf8(line));
        if (!match.hasMatch()) {
            *error = QStringLiteral("not a whole record: ") + QString::fromUtf8(line.left(300));
            return false;
        }
        records->append(Record{match.captured(1).toInt(), match.captured(2).toInt()});
    }
    return true;
}

} // namespace

// Reports on its own thread; the events are queued to the log manager's thread. At global scope so that its
// signature parses into class and function (Part 3.1).
class ReportWorker : public QThread
{
public:
    explicit ReportWorker(int id)
        : m_id(id)
    {
        setObjectName(QStringLiteral("T%1").arg(id));
    }
    void run() override
    {
        for (int i = 0; i < s_entriesPerThread; ++i)
            REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("T%1-%2").arg(m_id).arg(i, 5, 10, QLatin1Char('0')));
    }

private:
    int m_id;
};

class tst_LogRoad : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void byteExactRecords();
    void statusReportReachesLogsThroughPlaceholder();
    void noRecordLost_data();
    void noRecordLost();
    void restartAppendsAndRotatesOnce();

private:
    void runStress(bool reports, bool limited);
    StatusCode reportOnce();
    int m_reportLine = 0;
};

StatusCode tst_LogRoad::reportOnce()
{
    m_reportLine = __LINE__ + 1;
    return REPORT_STATUS(VfStatusCodes::FileCannotCopy, QStringLiteral("/a b"), QStringLiteral("/c"));
}

void tst_LogRoad::initTestCase()
{
    qRegisterMetaType<VfStatusChangeEvent>();
    QThread::currentThread()->setObjectName(QStringLiteral("MainThread"));
}

void tst_LogRoad::cleanup()
{
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_LogRoad::byteExactRecords()
{
    VfLogManager* manager = instanceManager();
    manager->forceFlushAllLogs();
    const QByteArray velmarBefore = readFile(s_velmarLog);
    const QByteArray eventBefore = readFile(s_eventLog);
    StatusEventRecorder recorder;
    recorder.attach();
    StatusCode result = 0;
    const QByteArray printed = captureStdout([&] { result = reportOnce(); });
    QCOMPARE(result, StatusCode(VfStatusCodes::FileCannotCopy));
    const int line = m_reportLine;
    QCOMPARE(recorder.events.size(), 1);
    const QString time = VfLogTest::timeText(recorder.events.first().sourceContext());
    const QString message = QStringLiteral(
        "[File cannot be copied, An attempt to copy file /a b to /c failed., NonCriticalError, Internal]\n");
    // Standard output: the short bracket (file, line, module), one space, the message (Parts 3.2, 4.3).
    const QString expectedStdout =
        QStringLiteral("[tst_logroad.cpp:%1:Velmar Application] ").arg(line) + message;
    QCOMPARE(printed, expectedStdout.toLocal8Bit());
    // velmar.log at the next flush: the single-line long form, one space, the message (Parts 3.2, 4.4).
    QCOMPARE(readFile(s_velmarLog), velmarBefore);
    manager->forceFlushAllLogs();
    const QString expectedRecord =
        QStringLiteral("[%1, Velmar Application, tst_logroad.cpp, %2, MainThread, , tst_LogRoad, "
                       "StatusCode reportOnce(), /a b, /c] ")
            .arg(time)
            .arg(line)
        + message;
    const QByteArray velmar = readFile(s_velmarLog);
    QCOMPARE(velmar.mid(velmarBefore.size()), expectedRecord.toUtf8());
    QCOMPARE(readFile(s_eventLog), eventBefore); // the status log does not feed event.log
}

void tst_LogRoad::statusReportReachesLogsThroughPlaceholder()
{
    // A fresh service object connects reporter and log manager anew (Part 1.1).
    VfCrosscuttingManagerPlaceholder::drop();
    VfLogManager* manager = instanceManager();
    QVERIFY(manager);
    const QByteArray printed = captureStdout([] { REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("again")); });
    QVERIFY(printed.endsWith(" [Unknown, An unknown internal error has occurred. More information: again, "
                             "NonCriticalError, Internal]\n"));
    manager->forceFlushAllLogs();
    QVERIFY(readFile(s_velmarLog).endsWith("More information: again, NonCriticalError, Internal]\n"));
}

void tst_LogRoad::noRecordLost_data()
{
    QTest::addColumn<bool>("reports");
    QTest::addColumn<bool>("limited");
    QTest::newRow("addLogEntry, no size limit") << false << false;
    QTest::newRow("addLogEntry, rotating") << false << true;
    QTest::newRow("REPORT_STATUS on workers, no size limit") << true << false;
    QTest::newRow("REPORT_STATUS on workers, rotating") << true << true;
}

void tst_LogRoad::noRecordLost()
{
    QFETCH(bool, reports);
    QFETCH(bool, limited);
    runStress(reports, limited);
}

void tst_LogRoad::runStress(bool reports, bool limited)
{
    QDir(s_stressDirectory).removeRecursively();
    VfLogManager* manager = instanceManager();
    // The writer under test takes the place of event.log (addLogEntry) or velmar.log (status reports).
    const VfLogType type = reports ? StatusLog : EventLog;
    const VfLogDestination destination = reports ? LogFileDestination : EventFileDestination;
    const VfDisplayable::DisplayFormat format = reports ? VfDisplayable::SingleLineLongForm : VfDisplayable::ShortForm;
    const unsigned long long limit = reports ? 600000 : 60000; // several rotations either way
    auto* writer = new VfFileWriter(QDir(s_stressDirectory), QStringLiteral("stress.log"), format, limited, limit,
                                    QSharedPointer<VfErrorRateHandler>(), nullptr);
    Access::replaceWriter(*manager, destination, writer);
    if (reports)
        manager->setLogDestination(StatusLog, LogFileDestination); // no console
    std::atomic<int> rotations{0};
    connect(writer, &VfFileWriter::backupLogFileCreated, this, [&rotations] { ++rotations; }, Qt::DirectConnection);
    int delivered = 0; // entries that reached the log, on this (the manager's) thread or a worker's
    std::atomic<int> deliveredAnywhere{0};
    std::atomic<int> deliveredOnWorkers{0};
    QThread* const managerThread = manager->thread();
    connect(Access::log(*manager, type), &VfLog::logEntryReady, this,
            [&deliveredAnywhere, &deliveredOnWorkers, managerThread](const QSharedPointer<const VfLogEntry>&) {
                ++deliveredAnywhere;
                if (QThread::currentThread() != managerThread)
                    ++deliveredOnWorkers;
            },
            Qt::DirectConnection);
    int timerTicks = 0;
    connect(&Access::flushTimer(*manager), &QTimer::timeout, this, [&timerTicks] { ++timerTicks; });
    manager->setFlushInterval(5);

    FlushWorker flusher(manager, type);
    QList<QThread*> workers;
    for (int id = 1; id <= s_threads; ++id)
        workers.append(reports ? static_cast<QThread*>(new ReportWorker(id))
                               : static_cast<QThread*>(new EntryWorker(id, manager)));
    flusher.start();
    for (QThread* worker : qAsConst(workers))
        worker->start();
    // This thread runs its event loop meanwhile: the timer flushes, and queued status events arrive.
    auto allFinished = [&workers] {
        return std::all_of(workers.cbegin(), workers.cend(), [](QThread* t) { return t->isFinished(); });
    };
    QTRY_VERIFY_WITH_TIMEOUT(allFinished(), 60000);
    QTRY_COMPARE_WITH_TIMEOUT(deliveredAnywhere.load(), s_threads * s_entriesPerThread, 30000);
    delivered = deliveredAnywhere;
    flusher.stop = true;
    flusher.wait();
    qDeleteAll(workers);
    manager->forceFlushAllLogs();
    QVERIFY(flusher.flushes > 0);
    QVERIFY(timerTicks > 0);
    QCOMPARE(delivered, s_threads * s_entriesPerThread);
    if (reports)
        QCOMPARE(deliveredOnWorkers.load(), 0); // status events queued to the manager's thread (Part 2.3)
    else
        QCOMPARE(deliveredOnWorkers.load(), delivered); // addLogEntry runs on the logging thread (Part 4.1)

    QRegularExpression pattern;
    if (reports) {
        pattern.setPattern(QStringLiteral(
            "^\\[\\d\\d-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} [AP]M, Velmar Application, tst_logroad\\.cpp, \\d+, "
            "T(\\d), , ReportWorker, virtual void run\\(\\), T\\1-(\\d{5})\\] \\[Unknown, An unknown internal error "
            "has occurred\\. More information: T\\1-\\2, NonCriticalError, Internal\\]$"));
    } else {
        pattern.setPattern(QStringLiteral("^\\[stress:(\\d):M\\] T\\1 (\\d{5})$"));
    }
    const QString path = s_stressDirectory + QStringLiteral("/stress.log");
    QList<Record> records;
    QString error;
    const QByteArray backup = readFile(path + QStringLiteral(".bak"));
    QVERIFY2(parseRecords(backup, pattern, &records, &error), qPrintable(error));
    QVERIFY2(parseRecords(readFile(path), pattern, &records, &error), qPrintable(error));

    QHash<int, QList<int>> byThread;
    for (const Record& record : qAsConst(records))
        byThread[record.thread].append(record.index);
    if (!limited) {
        QCOMPARE(rotations.load(), 0);
        QVERIFY(backup.isEmpty());
        // Every entry exactly once, whole, in each thread's order.
        QCOMPARE(records.size(), s_threads * s_entriesPerThread);
        for (int id = 1; id <= s_threads; ++id) {
            const QList<int>& indexes = byThread.value(id);
            QCOMPARE(indexes.size(), s_entriesPerThread);
            for (int i = 0; i < s_entriesPerThread; ++i)
                QCOMPARE(indexes.at(i), i);
        }
    } else {
        QVERIFY2(rotations >= 3, qPrintable(QString::number(rotations)));
        QVERIFY(!backup.isEmpty());
        QVERIFY(records.size() < s_threads * s_entriesPerThread);
        // What is left forms, for each thread, one unbroken run ending with its last entry; none twice.
        for (auto it = byThread.cbegin(); it != byThread.cend(); ++it) {
            const QList<int>& indexes = it.value();
            QVERIFY(!indexes.isEmpty());
            QCOMPARE(indexes.last(), s_entriesPerThread - 1);
            for (int k = 1; k < indexes.size(); ++k)
                QCOMPARE(indexes.at(k), indexes.at(k - 1) + 1);
        }
        // The size check leaves out the separating space of each record, and nothing else (Part 4.4).
        QVERIFY(backup.size() <= qint64(limit) + backup.count('\n'));
    }
}

void tst_LogRoad::restartAppendsAndRotatesOnce()
{
    VfCrosscuttingManagerPlaceholder::drop();
    QVERIFY(QDir(QStringLiteral("/etc/tarvion/logs")).removeRecursively());
    auto runHelper = [](const QString& tag, QByteArray* output) {
        QProcess helper;
        helper.start(QStringLiteral(VF_LOGROAD_HELPER), {tag, QStringLiteral("3")});
        if (!helper.waitForFinished(30000)) {
            helper.kill();
            helper.waitForFinished();
            return false;
        }
        *output = helper.readAllStandardOutput();
        return helper.exitStatus() == QProcess::NormalExit && helper.exitCode() == 0;
    };
    auto tagsIn = [](const QByteArray& text) {
        QStringList tags;
        const QRegularExpression more(QStringLiteral("More information: (run\\d-\\d), NonCriticalError, Internal\\]\n"));
        auto it = more.globalMatch(QString::fromUtf8(text));
        while (it.hasNext())
            tags.append(it.next().captured(1));
        return tags;
    };

    QByteArray output;
    QVERIFY(runHelper(QStringLiteral("run1"), &output));
    QCOMPARE(output, QByteArray("rotations 0 0\n"));
    const QByteArray first = readFile(s_velmarLog);
    QCOMPARE(tagsIn(first), (QStringList{"run1-0", "run1-1", "run1-2"}));
    // The second process opens the same file in append mode and goes on where the first stopped.
    QVERIFY(runHelper(QStringLiteral("run2"), &output));
    QCOMPARE(output, QByteArray("rotations 0 0\n"));
    const QByteArray second = readFile(s_velmarLog);
    QVERIFY(second.startsWith(first));
    QCOMPARE(tagsIn(second), (QStringList{"run1-0", "run1-1", "run1-2", "run2-0", "run2-1", "run2-2"}));
    QCOMPARE(second.count('\n'), 6);

    // A file already past the 1 MiB limit at start-up rotates on the first flush, once, without looping.
    QByteArray filler;
    while (filler.size() <= 1048576)
        filler += "an old line of an earlier run\n";
    QVERIFY(VfLogTest::writeFile(s_velmarLog, filler));
    QVERIFY(runHelper(QStringLiteral("run3"), &output));
    QCOMPARE(output, QByteArray("rotations 1 1\n"));
    QCOMPARE(readFile(s_velmarLog + QStringLiteral(".bak")), filler);
    const QByteArray third = readFile(s_velmarLog);
    QCOMPARE(tagsIn(third), (QStringList{"run3-0", "run3-1", "run3-2"}));
    QCOMPARE(third.count('\n'), 3);
}

QTEST_GUILESS_MAIN(tst_LogRoad)
#include "tst_logroad.moc"
