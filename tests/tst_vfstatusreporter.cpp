#include "statuseventrecorder.h"
#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfstatusreporter.h"

#include <QtTest>

using namespace Crosscutting;

namespace Crosscutting {
// Test-only window on the reporter's tables (declared a friend in vfstatusreporter.h).
class VfStatusReporterTestAccess
{
public:
    static QHash<unsigned long long, VfStaticStatusInfo*>& table(VfStatusReporter& r) { return r.m_frameworkStatusCodes; }
    static void reloadFrom(VfStatusReporter& r, const QString& path)
    {
        qDeleteAll(r.m_frameworkStatusCodes);
        r.m_frameworkStatusCodes.clear();
        r.m_frameworkStatusCodesPath = path;
        r.loadFrameworkStatusCodes();
    }
};
} // namespace Crosscutting

namespace {
// Tells when the reporter lets go of the context.
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

const QString argCountText = QStringLiteral(
    "A call to REPORT_STATUS for status code %1 was made with an invalid number of arguments: Got %2 additional "
    "arguments, expected %3. Please ensure the number of placeholders specified in the description of this status "
    "code matches the number of additional arguments passed to REPORT_STATUS.");
const QString unrecognizedText = QStringLiteral(
    "A call to REPORT_STATUS was received for an unrecognized status code (%1). Please ensure the status code has "
    "been added to the appropriate status resource file (<AppName>statuscodes.json).");
} // namespace

class tst_VfStatusReporter : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    // Part 2.1
    void catalogueLoaded();
    void fileNotFoundRecord();
    void unknownNameGoesUnderAllOnes();
    void unknownSeverityGets255();
    void numbersInArraySkipped();
    void arrayOrderNotSignificant();
    void missingCatalogueLeavesTableEmpty();
    void extractStringValue();

    // Part 2.3
    void knownCode();
    void successIsUnrecognized();
    void unknownCode();
    void tooFewArguments();
    void tooManyArguments();
    void argumentHoldingMarker();
    void eventsHaveTheirOwnRecord();
    void contextDeletedOnReturn();
    void contextOfUnknownCodeDiscarded();
    void eventToString();
    void eventDefaults();
    void reportFromWorkerThreadEmitsOnThatThread();
    void macroContext();

private:
    VfStatusReporter* reporter() const
    {
        return static_cast<VfStatusReporter*>(VfCrosscuttingManagerPlaceholder::instance()->statusReporter());
    }
    StatusEventRecorder* m_recorder = nullptr;
};

void tst_VfStatusReporter::initTestCase()
{
    qRegisterMetaType<VfStatusChangeEvent>();
}

void tst_VfStatusReporter::init()
{
    m_recorder = new StatusEventRecorder;
    m_recorder->attach();
}

void tst_VfStatusReporter::cleanup()
{
    delete m_recorder;
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_VfStatusReporter::catalogueLoaded()
{
    auto& table = VfStatusReporterTestAccess::table(*reporter());
    QCOMPARE(table.size(), 72);
    QVERIFY(!table.contains(VfStatusCodes::Success));
    QVERIFY(!table.contains(VfStatusCodes::LastValue));
    for (unsigned long long code = 1; code <= 72; ++code)
        QVERIFY2(table.contains(code), qPrintable(QString::number(code)));
}

void tst_VfStatusReporter::fileNotFoundRecord()
{
    auto& table = VfStatusReporterTestAccess::table(*reporter());
    VfStaticStatusInfo* record = table.value(34);
    QVERIFY(record);
    QCOMPARE(record->title(), QString("File not found"));
    QCOMPARE(record->severity(), VfStaticStatusInfo::VfStatusSeverity::CriticalError);
    QCOMPARE(record->category(), VfStaticStatusInfo::VfStatusCategory::Internal);
}

namespace {
QString writeCatalogue(QTemporaryDir& dir, const QByteArray& json)
{
    const QString path = dir.filePath("catalogue.json");
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(json);
    return path;
}
} // namespace

void tst_VfStatusReporter::unknownNameGoesUnderAllOnes()
{
    QTemporaryDir dir;
    VfStatusReporter r(nullptr);
    VfStatusReporterTestAccess::reloadFrom(
        r, writeCatalogue(dir, R"([{"name":"NoSuchCode","title":"A","description":"a","severity":"Warning","category":"Internal"},
                                   {"name":"FileNotFound","title":"B","description":"b %1","severity":"CriticalError","category":"Internal"}])"));
    auto& table = VfStatusReporterTestAccess::table(r);
    QCOMPARE(table.size(), 2);
    QVERIFY(table.contains(0xFFFFFFFFFFFFFFFFull));
    QCOMPARE(table.value(0xFFFFFFFFFFFFFFFFull)->title(), QString("A"));
    QCOMPARE(table.value(34)->title(), QString("B"));
}

void tst_VfStatusReporter::unknownSeverityGets255()
{
    QTemporaryDir dir;
    VfStatusReporter r(nullptr);
    VfStatusReporterTestAccess::reloadFrom(
        r, writeCatalogue(dir, R"([{"name":"Unknown","title":"A","description":"a %1","severity":"Fatal","category":"Nowhere"}])"));
    VfStaticStatusInfo* record = VfStatusReporterTestAccess::table(r).value(71);
    QVERIFY(record);
    QCOMPARE(int(record->severity()), 255);
    QCOMPARE(int(record->category()), 255);
    QCOMPARE(record->toString(VfStaticStatusInfo::SingleLineLongForm), QString("[A, a %1, , ]"));
}

void tst_VfStatusReporter::numbersInArraySkipped()
{
    QTemporaryDir dir;
    VfStatusReporter r(nullptr);
    VfStatusReporterTestAccess::reloadFrom(
        r, writeCatalogue(dir, R"([{"name":"Unknown","title":"A","description":"a","severity":"Warning","category":"Internal"},
                                   42, "text",
                                   {"name":"DataInvalid","title":"B","description":"b","severity":"Warning","category":"Internal"}])"));
    auto& table = VfStatusReporterTestAccess::table(r);
    QCOMPARE(table.size(), 2);
    QVERIFY(table.contains(VfStatusCodes::Unknown));
    QVERIFY(table.contains(VfStatusCodes::DataInvalid));
}

void tst_VfStatusReporter::arrayOrderNotSignificant()
{
    QTemporaryDir dir;
    VfStatusReporter r(nullptr);
    VfStatusReporterTestAccess::reloadFrom(
        r, writeCatalogue(dir, R"([{"name":"Unknown","title":"Last","description":"a","severity":"Warning","category":"Internal"},
                                   {"name":"ApplicationAlreadyLoaded","title":"First","description":"b","severity":"Warning","category":"External"}])"));
    auto& table = VfStatusReporterTestAccess::table(r);
    QCOMPARE(table.value(VfStatusCodes::Unknown)->title(), QString("Last"));
    QCOMPARE(table.value(VfStatusCodes::ApplicationAlreadyLoaded)->title(), QString("First"));
}

void tst_VfStatusReporter::missingCatalogueLeavesTableEmpty()
{
    VfStatusReporter r(nullptr);
    VfStatusReporterTestAccess::reloadFrom(r, "/nonexistent/catalogue.json");
    QVERIFY(VfStatusReporterTestAccess::table(r).isEmpty());
    // Construction and loading stay silent (Part 2.1): nothing reached the reporter of the instance.
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_VfStatusReporter::extractStringValue()
{
    VfStatusReporter r(nullptr);
    QJsonObject o{{"s", "text"}, {"n", 3}};
    QCOMPARE(r.extractStatusCodeStringValue(o, "s"), QString("text"));
    QCOMPARE(r.extractStatusCodeStringValue(o, "n"), QString());
    QCOMPARE(r.extractStatusCodeStringValue(o, "missing"), QString());
}

void tst_VfStatusReporter::knownCode()
{
    const StatusCode result = REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("/tmp/x"));
    QCOMPARE(result, StatusCode(VfStatusCodes::FileNotFound));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{34});
    QCOMPARE(m_recorder->descriptions(),
             QStringList{"The file '/tmp/x' could not be found. Please ensure the file exists."});
    const VfStatusChangeEvent& e = m_recorder->events.first();
    QCOMPARE(e.statusInfo()->title(), QString("File not found"));
    QCOMPARE(e.statusInfo()->severity(), VfStaticStatusInfo::VfStatusSeverity::CriticalError);
    QCOMPARE(e.sourceContext()->additionalInfo(), QStringList{"/tmp/x"});
}

void tst_VfStatusReporter::successIsUnrecognized()
{
    const StatusCode result = reporter()->reportStatus(
        VfStatusCodes::Success, createSourceContext("", "f.cpp", 1, "void f()", {}));
    QCOMPARE(result, StatusCode(0));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{61});
    QCOMPARE(m_recorder->descriptions(), QStringList{QString(unrecognizedText).arg("0")});
    QVERIFY(m_recorder->descriptions().first().contains("(0)"));
}

void tst_VfStatusReporter::unknownCode()
{
    QCOMPARE(REPORT_STATUS(1000), StatusCode(1000));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{61});
    QCOMPARE(m_recorder->descriptions(), QStringList{QString(unrecognizedText).arg("1000")});
    QCOMPARE(m_recorder->events.first().sourceContext()->additionalInfo(), QStringList{"1000"});
    QCOMPARE(REPORT_STATUS(VfStatusCodes::LastValue), StatusCode(73));
    QCOMPARE(m_recorder->codes(), (QList<StatusCode>{61, 61}));
}

void tst_VfStatusReporter::tooFewArguments()
{
    QCOMPARE(REPORT_STATUS(VfStatusCodes::FileCannotOpen), StatusCode(30));
    QCOMPARE(m_recorder->codes(), (QList<StatusCode>{60, 30}));
    QCOMPARE(m_recorder->events.at(0).sourceContext()->additionalInfo(), (QStringList{"30", "0", "1"}));
    QCOMPARE(m_recorder->descriptions(), (QStringList{QString(argCountText).arg("30", "0", "1"), "%1"}));
}

void tst_VfStatusReporter::tooManyArguments()
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("QString::arg: Argument missing"));
    QCOMPARE(REPORT_STATUS(VfStatusCodes::CommandFailed, QStringLiteral("ls"), QStringLiteral("2"), QStringLiteral("x")),
             StatusCode(5));
    QCOMPARE(m_recorder->codes(), (QList<StatusCode>{60, 5}));
    QVERIFY(m_recorder->descriptions().at(0).contains("Got 3 additional arguments, expected 2"));
    QCOMPARE(m_recorder->descriptions(), (QStringList{QString(argCountText).arg("5", "3", "2"),
                                                      "The command 'ls' failed with an error code of '2'."}));
}

void tst_VfStatusReporter::argumentHoldingMarker()
{
    REPORT_STATUS(VfStatusCodes::CommandFailed, QStringLiteral("%2"), QStringLiteral("b"));
    // Part 2.3: an argument's own marker is open to the next arg call.
    QCOMPARE(m_recorder->descriptions(), QStringList{"The command 'b' failed with an error code of 'b'."});
}

void tst_VfStatusReporter::eventsHaveTheirOwnRecord()
{
    REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("a"));
    REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("b"));
    QCOMPARE(m_recorder->events.size(), 2);
    VfStaticStatusInfo* catalogueRecord = VfStatusReporterTestAccess::table(*reporter()).value(34);
    QVERIFY(m_recorder->events.at(0).statusInfo().data() != m_recorder->events.at(1).statusInfo().data());
    QVERIFY(m_recorder->events.at(0).statusInfo().data() != catalogueRecord);
    QCOMPARE(catalogueRecord->description(), QString("The file '%1' could not be found. Please ensure the file exists."));
}

void tst_VfStatusReporter::contextDeletedOnReturn()
{
    delete m_recorder; // no listener may keep the context
    m_recorder = nullptr;
    // The log manager's file writer keeps each status entry, and so its context, until the next flush
    // (Part 4.4): the status log is off while this test looks at the reporter's own ownership.
    VfAbstractLogManager* logManager = VfCrosscuttingManagerPlaceholder::instance()->logManager();
    logManager->disableLog(StatusLog);
    bool deleted = false;
    reporter()->reportStatus(VfStatusCodes::FileNotFound, *new TrackedContext(&deleted));
    QVERIFY(deleted);

    // With a listener that keeps the event, the context lives on with it.
    StatusEventRecorder keeper;
    keeper.attach();
    bool kept = false;
    reporter()->reportStatus(VfStatusCodes::FileNotFound, *new TrackedContext(&kept));
    QVERIFY(!kept);
    keeper.events.clear();
    QVERIFY(kept);
    logManager->enableLog(StatusLog);
}

void tst_VfStatusReporter::contextOfUnknownCodeDiscarded()
{
    bool deleted = false;
    reporter()->reportStatus(999, *new TrackedContext(&deleted));
    QVERIFY(deleted);
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{61});
}

void tst_VfStatusReporter::eventToString()
{
    REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("a"));
    const VfStatusChangeEvent& e = m_recorder->events.first();
    for (int format = 0; format < 4; ++format)
        QCOMPARE(e.toString(VfDisplayable::DisplayFormat(format)), QString("Not Implemented"));
}

void tst_VfStatusReporter::eventDefaults()
{
    VfStatusChangeEvent e;
    QCOMPARE(e.statusCode(), StatusCode(0));
    QVERIFY(e.sourceContext().isNull());
    QVERIFY(e.statusInfo().isNull());
}

void tst_VfStatusReporter::reportFromWorkerThreadEmitsOnThatThread()
{
    QThread* emittedOn = nullptr;
    connect(reporter(), &VfAbstractStatusReporter::statusChangeOccurred, this,
            [&](const VfStatusChangeEvent&) { emittedOn = QThread::currentThread(); }, Qt::DirectConnection);
    QThread* worker = QThread::create([] { REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("w")); });
    worker->start();
    QVERIFY(worker->wait(10000));
    QCOMPARE(emittedOn, worker);
    delete worker;
}

void tst_VfStatusReporter::macroContext()
{
    const int line = __LINE__ + 1;
    REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("why"));
    auto context = m_recorder->events.first().sourceContext();
    QCOMPARE(context->sourceFilename(), QString("tst_vfstatusreporter.cpp"));
    QCOMPARE(context->sourceLineNumber(), (unsigned long long)line);
    QCOMPARE(context->sourceClass(), QString("tst_VfStatusReporter"));
    QCOMPARE(context->sourceFunction(), QString("void macroContext()"));
    QCOMPARE(context->sourceModule(), QString("Velmar Application"));
}

QTEST_GUILESS_MAIN(tst_VfStatusReporter)
#include "tst_vfstatusreporter.moc"
