#include "statuseventrecorder.h"
#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfstatusreporter.h"
#include "vfunixsignalhandler.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>
#include <csignal>
#include <thread>

using namespace Crosscutting;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using Category = VfStaticStatusInfo::VfStatusCategory;

namespace {
class TrackedContext : public VfSourceContext
{
public:
    explicit TrackedContext(bool* deleted)
        : VfSourceContext("", "t.cpp", "", "", "void t()", 1, "", {"x"})
        , m_deleted(deleted)
    {
    }
    ~TrackedContext() override { *m_deleted = true; }

private:
    bool* m_deleted;
};

const QString argCount = "[REPORT_STATUS error, A call to REPORT_STATUS for status code %1 was made with an invalid "
                         "number of arguments: Got %2 additional arguments, expected %3. Please ensure the number of "
                         "placeholders specified in the description of this status code matches the number of "
                         "additional arguments passed to REPORT_STATUS., Warning, Internal]";
const QString unrecognized = "[Status code unrecognized, A call to REPORT_STATUS was received for an unrecognized "
                             "status code (%1). Please ensure the status code has been added to the appropriate "
                             "status resource file (<AppName>statuscodes.json)., Warning, Internal]";
} // namespace

class tst_Status : public QObject
{
    Q_OBJECT
    StatusEventRecorder* m_recorder = nullptr;
    VfStatusReporter* reporter()
    {
        return static_cast<VfStatusReporter*>(VfCrosscuttingManagerPlaceholder::instance()->statusReporter());
    }

private slots:
    void initTestCase() { qRegisterMetaType<VfStatusChangeEvent>(); }
    void init()
    {
        m_recorder = new StatusEventRecorder;
        m_recorder->attach();
    }
    void cleanup()
    {
        delete m_recorder;
        m_recorder = nullptr;
        VfCrosscuttingManagerPlaceholder::drop();
    }

    void catalogue()
    {
        QFile file(":/configuration/statuscodes_framework.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray records = QJsonDocument::fromJson(file.readAll()).array();
        QCOMPARE(records.size(), 72);
        QMap<QString, int> counts;
        for (int i = 0; i < records.size(); ++i) {
            VfStatusCodes::VfStatusCode code;
            QScopedPointer<VfStaticStatusInfo> info(
                reporter()->createStaticStatusInfoObjectFromJsonObject(records.at(i).toObject(), &code));
            QCOMPARE(quint64(code), quint64(i + 1)); // in the order of the enumeration, 1 to 72
            const QString form = info->toString(VfStaticStatusInfo::SingleLineLongForm);
            ++counts[form.section(", ", -2, -2)];
            ++counts[form.section(", ", -1)];
        }
        QCOMPARE(counts, (QMap<QString, int>{{"CriticalError", 24}, {"Warning", 7}, {"Notification", 1},
                                             {"NonCriticalError", 40}, {"Internal]", 69}, {"External]", 3}}));
        // An unknown name is sign-extended to all ones, unknown enumerators to 255; non-strings read empty.
        VfStatusCodes::VfStatusCode code;
        QScopedPointer<VfStaticStatusInfo> odd(reporter()->createStaticStatusInfoObjectFromJsonObject(
            QJsonObject{{"name", "NoSuchCode"}, {"title", 3}, {"severity", "Fatal"}, {"category", "Nowhere"}}, &code));
        QCOMPARE(quint64(code), ~quint64(0));
        QCOMPARE(int(odd->severity()), 255);
        QCOMPARE(int(odd->category()), 255);
        QCOMPARE(odd->title(), QString());
        QObject owner;
        QCOMPARE(VfStatusReporter(&owner).parent(), &owner);
    }

    void displayForms_data()
    {
        QTest::addColumn<int>("severity");
        QTest::addColumn<int>("format");
        QTest::addColumn<QString>("expected");
        QTest::newRow("short: the description") << 4 << 0 << " D 'x'\n";
        QTest::newRow("short with timestamp: the same") << 4 << 1 << " D 'x'\n";
        QTest::newRow("single line") << 3 << 2 << "[Invalid data,  D 'x'\n, NonCriticalError, External]";
        QTest::newRow("unknown severity: empty field") << 255 << 2 << "[Invalid data,  D 'x'\n, , External]";
        QTest::newRow("no such format") << 4 << 4 << "";
        // Keys right-aligned to 13, values left-aligned to 20 and never cut; lines in hash order.
        QTest::newRow("multi line") << 4 << 3
                                    << "        Title: Invalid data        |  Description:  D 'x'\n             |"
                                       "     Severity: CriticalError       |     Category: External            ";
    }
    void displayForms()
    {
        QFETCH(int, severity);
        QFETCH(int, format);
        QFETCH(QString, expected);
        VfStaticStatusInfo info("Invalid data", " D 'x'\n", Severity(severity), Category::External, nullptr);
        const QString text = info.toString(VfDisplayable::DisplayFormat(format));
        QCOMPARE(text.size(), expected.size());
        for (const QString& line : expected.split('|'))
            QVERIFY2(text.contains(line), qPrintable(text));
        QCOMPARE(VfStaticStatusInfo().toString(VfDisplayable::SingleLineLongForm), "[, , Unassigned, Unassigned]");
        struct Probe : VfDisplayable {
            QString toString(DisplayFormat) const override { return formatSingleLineLongFormString({"a", "", "b"}); }
        };
        QCOMPARE(Probe().toString(VfDisplayable::ShortForm), QString("[a, , b]"));
    }

    void reportRoad_data()
    {
        QTest::addColumn<quint64>("code");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QStringList>("events"); // each event's code and record, single line
        QTest::newRow("known code") << quint64(34) << QStringList{"/tmp/x"}
            << QStringList{"34 [File not found, The file '/tmp/x' could not be found. Please ensure the file exists., "
                           "CriticalError, Internal]"};
        QTest::newRow("unknown code") << quint64(1000) << QStringList() << QStringList{"61 " + unrecognized.arg(1000)};
        QTest::newRow("Success is not in the catalogue") << quint64(0) << QStringList()
                                                         << QStringList{"61 " + unrecognized.arg(0)};
        QTest::newRow("too few arguments") << quint64(30) << QStringList()
            << QStringList{"60 " + argCount.arg(30).arg(0).arg(1), "30 [File cannot be opened, %1, NonCriticalError, Internal]"};
        QTest::newRow("too many arguments") << quint64(5) << QStringList{"ls", "2", "x"}
            << QStringList{"60 " + argCount.arg(5).arg(3).arg(2),
                           "5 [Command Failed, The command 'ls' failed with an error code of '2'., NonCriticalError, Internal]"};
        // An argument's own marker is open to the next argument.
        QTest::newRow("marker in an argument") << quint64(5) << QStringList{"%2", "b"}
            << QStringList{"5 [Command Failed, The command 'b' failed with an error code of 'b'., NonCriticalError, Internal]"};
        QTest::newRow("second marker first") << quint64(72) << QStringList{"VfStatusSeverity", "7"}
            << QStringList{"72 [An unknown enum value was encountered, The enum value '7' does not match any known "
                           "enumerator in the 'VfStatusSeverity' enum., NonCriticalError, Internal]"};
        QTest::newRow("external") << quint64(1) << QStringList{"a"}
            << QStringList{"1 [Application already loaded, Requested application 'a' is already loaded. Unload the "
                           "applicaiton before attempting to load the application again., CriticalError, External]"};
    }
    void reportRoad()
    {
        QFETCH(quint64, code);
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, events);
        if (arguments.size() == 3)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("QString::arg: Argument missing"));
        VfSourceContext& context = createSourceContext("", "f.cpp", 1, "void f()", arguments);
        QCOMPARE(reporter()->reportStatus(code, context), StatusCode(code));
        QStringList seen;
        for (const VfStatusChangeEvent& event : m_recorder->events) {
            seen << QString::number(event.statusCode()) + ' '
                        + event.statusInfo()->toString(VfDisplayable::SingleLineLongForm);
            QCOMPARE(event.toString(VfDisplayable::SingleLineLongForm), QString("Not Implemented"));
        }
        QCOMPARE(seen, events);
        QCOMPARE(m_recorder->events.last().sourceContext()->additionalInfo(),
                 seen.front().startsWith("61") ? QStringList{QString::number(code)} : arguments);
    }

    void contextOwnershipAndOwnRecords()
    {
        // The file writer holds each entry, and with it the context, until its next flush.
        VfCrosscuttingManagerPlaceholder::instance()->logManager()->disableLog(StatusLog);
        bool kept = false;
        reporter()->reportStatus(VfStatusCodes::FileNotFound, *new TrackedContext(&kept));
        QVERIFY(!kept); // the event that the recorder holds keeps the context
        REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("b"));
        // Each event fills a record of its own; the catalogue keeps its markers.
        QCOMPARE(m_recorder->descriptions().last(), "The file 'b' could not be found. Please ensure the file exists.");
        m_recorder->events.clear();
        QVERIFY(kept);
        delete m_recorder;
        m_recorder = nullptr;
        bool deleted = false;
        reporter()->reportStatus(999, *new TrackedContext(&deleted));
        QVERIFY(deleted);
    }

    void macroContextOnTheReportingThread()
    {
        QThread* emittedOn = nullptr;
        connect(reporter(), &VfAbstractStatusReporter::statusChangeOccurred, this,
                [&](const VfStatusChangeEvent&) { emittedOn = QThread::currentThread(); }, Qt::DirectConnection);
        const int line = __LINE__ + 1;
        QScopedPointer<QThread> worker(QThread::create([] { REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("w")); }));
        worker->setObjectName("worker");
        worker->start();
        QVERIFY(worker->wait(10000));
        QCOMPARE(emittedOn, worker.data());
        const QSharedPointer<VfSourceContext> context = m_recorder->events.first().sourceContext();
        QCOMPARE(context->toString(VfSourceContext::ShortForm), QString("[tst_status.cpp:%1:Velmar Application]").arg(line));
        QCOMPARE(context->sourceThread(), QString("worker"));
    }

    void serviceAccess()
    {
        VfCrosscuttingManagerPlaceholder::drop();
        std::vector<VfCrosscuttingManagerPlaceholder*> seen(8, nullptr);
        std::vector<std::thread> threads;
        for (auto& instance : seen)
            threads.emplace_back([&instance] { instance = VfCrosscuttingManagerPlaceholder::instance(); });
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(std::count(seen.begin(), seen.end(), seen.front()), 8L);
        QCOMPARE(VfCrosscuttingManagerPlaceholder::instance(), seen.front());
        QPointer<VfAbstractStatusReporter> old = seen.front()->statusReporter();
        QVERIFY(!old->parent() && seen.front()->platformInfo() && seen.front()->logManager());
        VfCrosscuttingManagerPlaceholder::drop();
        QVERIFY(old.isNull());
        StatusEventRecorder fresh;
        fresh.attach();
        QCOMPARE(REPORT_STATUS(VfStatusCodes::DirectoryNotFound, QStringLiteral("/x")), StatusCode(23));
        QCOMPARE(fresh.descriptions(), QStringList{"The /x directory was not found"});
    }

    void crashHandlerOnThreeSignals()
    {
        const int signals_[] = {SIGILL, SIGHUP, SIGFPE, SIGSEGV};
        struct sigaction before[4], now;
        for (int i = 0; i < 4; ++i)
            sigaction(signals_[i], nullptr, &before[i]);
        VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
        for (int i = 0; i < 4; ++i) {
            sigaction(signals_[i], nullptr, &now);
            QCOMPARE(now.sa_handler == reinterpret_cast<void (*)(int)>(reinterpret_cast<void (*)()>(&linuxGeneralSignalHandler)),
                     i < 3);
            sigaction(signals_[i], &before[i], nullptr);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Status)
#include "tst_status.moc"
