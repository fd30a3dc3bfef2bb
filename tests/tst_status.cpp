#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfstatusreporter.h"
#include "vftestsupport.h"

#include <QtTest>
#include <thread>

using namespace Crosscutting;

// An application's own codes. 73 is the framework's LastValue: it has no record, yet is the framework's.
class TestCodes : public QObject
{
    Q_OBJECT
public:
    enum TestCode : unsigned long long { SensorLost = 0x20000, SensorOverrange, Clash = 73, Alias = 0x20000 };
    Q_ENUM(TestCode)
};

namespace {
const QString argCount = "[REPORT_STATUS error, A call to REPORT_STATUS for status code %1 was made with an invalid "
                         "number of arguments: Got %2 additional arguments, expected %3. Please ensure the number of "
                         "placeholders specified in the description of this status code matches the number of "
                         "additional arguments passed to REPORT_STATUS., Warning, Internal]";
const QString unrecognized = "[Status code unrecognized, A call to REPORT_STATUS was received for an unrecognized "
                             "status code (%1). Please ensure the status code has been added to the appropriate "
                             "status resource file (<AppName>statuscodes.json)., Warning, Internal]";

QByteArray record(const QByteArray& name, const QByteArray& description = "Sensor %1 lost",
                  const QByteArray& severity = "Warning", const QByteArray& category = "External")
{
    return "{\"name\": \"" + name + "\", \"title\": \"Title of " + name + "\", \"description\": \"" + description
           + "\", \"severity\": \"" + severity + "\", \"category\": \"" + category + "\"}";
}

const QByteArray lost = record("SensorLost");
// What the checker reads: TestCodes as an application declares it.
const QByteArray header = "#include <QObject>\nclass TestCodes : public QObject\n{\n    Q_OBJECT\npublic:\n    enum TestCode "
                          ": unsigned long long { SensorLost = 0x20000, SensorOverrange, LastValue };\n    Q_ENUM(TestCode)\n};\n";
const QByteArray both = "[" + lost + "," + record("SensorOverrange", "%2 of %1", "CriticalError", "Internal") + "]";
} // namespace

class tst_Status : public QObject
{
    Q_OBJECT
    StatusEventRecorder m_recorder;
    QTemporaryDir m_dir;
    VfStatusReporter* reporter()
    {
        return static_cast<VfStatusReporter*>(VfCrosscuttingManagerPlaceholder::instance()->statusReporter());
    }

private slots:
    void initTestCase()
    {
        qRegisterMetaType<VfStatusChangeEvent>();
        QVERIFY(VfTest::writeFile(m_dir.filePath("codes.h"), header));
    }
    void init()
    {
        m_recorder.events.clear();
        m_recorder.attach();
    }
    void cleanup() { VfCrosscuttingManagerPlaceholder::drop(); }

    void parentAndJoinedFields()
    {
        QObject owner;
        QCOMPARE(VfStatusReporter(&owner).parent(), &owner);
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
        QTest::newRow("too few arguments") << quint64(30) << QStringList()
            << QStringList{"60 " + argCount.arg(30).arg(0).arg(1), "30 [File cannot be opened, %1, NonCriticalError, Internal]"};
    }
    void reportRoad()
    {
        QFETCH(quint64, code);
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, events);
        VfSourceContext& context = createSourceContext("", "f.cpp", 1, "void f()", arguments);
        QCOMPARE(reporter()->reportStatus(code, context), StatusCode(code));
        QStringList seen;
        for (const VfStatusChangeEvent& event : m_recorder.events)
            seen << QString::number(event.statusCode()) + ' '
                        + event.statusInfo()->toString(VfDisplayable::SingleLineLongForm);
        QCOMPARE(seen, events);
    }

    void applicationCodes_data()
    {
        QTest::addColumn<QByteArray>("catalogue"); // empty: no such file
        QTest::addColumn<QByteArray>("enumName");  // null: none given
        QTest::addColumn<QString>("loadError");    // in what loading reports; empty: it loads
        QTest::addColumn<QString>("checkerError"); // in what the checker prints; empty: they agree
        const QByteArray e = "TestCode";
        const auto sameError = [&](const char* tag, const QByteArray& catalogue, const QString& error) {
            QTest::newRow(tag) << catalogue << e << error << error;
        };
        const QString markers = "record 2 (\"SensorOverrange\"): its description has the place markers %1, %3, %1, not %1 to %n each once";
        QTest::newRow("agree") << both << e << "" << "";
        QTest::newRow("no file") << QByteArray() << e << "could not be found" << "app.json: cannot be read";
        QTest::newRow("syntax") << "[" + lost << e << "reason: unterminated array." << "app.json: unterminated array at byte";
        QTest::newRow("root") << lost << e << "reason: its root is not an array." << "app.json: its root is not an array";
        sameError("no object", "[" + lost + ", 5]", "record 2 (\"\"): it is not an object");
        sameError("no title", "[" + lost + ", {\"name\": \"SensorOverrange\"}]",
                  "record 2 (\"SensorOverrange\"): its title is missing or not a string");
        sameError("no enumerator", "[" + lost + "," + record("SensorOverrange") + "," + record("SensorGone") + "]",
                  "record 3 (\"SensorGone\"): \"SensorGone\" is no enumerator of TestCodes::TestCode");
        sameError("markers", "[" + lost + "," + record("SensorOverrange", "%1 %3 %1") + "]", markers);
        sameError("severity", "[" + lost + "," + record("SensorOverrange", "%1", "Fatal") + "]",
                  "record 2 (\"SensorOverrange\"): \"Fatal\" is no severity");
        sameError("category", "[" + record("SensorLost", "%1", "Warning", "Outside") + "," + record("SensorOverrange") + "]",
                  "record 1 (\"SensorLost\"): \"Outside\" is no category");
        QTest::newRow("framework value") << "[" + lost + "," + record("Clash") + "]" << e << "record 2 (\"Clash\"): its value 73 is a framework code."
                                         << "record 2 (\"Clash\"): \"Clash\" is no enumerator of TestCodes::TestCode in ";
        QTest::newRow("duplicate") << "[" + lost + "," + record("SensorOverrange") + "," + lost + "]" << e
                                   << "record 3 (\"SensorLost\"): its value 131072 is that of record 1 (\"SensorLost\")."
                                   << "record 3 (\"SensorLost\"): a second record for \"SensorLost\", after record 1";
        QTest::newRow("no record") << "[" + lost + "]" << e << "" << "app.json: no record for the enumerator \"SensorOverrange\"";
        QTest::newRow("no enum") << both << QByteArray("Other") << "invalid input parameter for 'enumName'" << "codes.h: declares no enum Other";
        QTest::newRow("null enum") << both << QByteArray() << "nullptr input parameter for 'enumName'" << "codes.h: declares no enum \n";
    }
    void applicationCodes()
    {
        QFETCH(QByteArray, catalogue);
        QFETCH(QByteArray, enumName);
        QFETCH(QString, loadError);
        QFETCH(QString, checkerError);
        const QString path = m_dir.filePath("app.json");
        QVERIFY(catalogue.isEmpty() ? !QFile::exists(path) || QFile::remove(path) : VfTest::writeFile(path, catalogue));
        const char* name = enumName.isNull() ? nullptr : enumName.constData();
        const StatusCode loaded = reporter()->loadApplicationStatusCodes(path, TestCodes::staticMetaObject, name);
        const QString report = m_recorder.descriptions().join('\n');
        QVERIFY2(loadError.isEmpty() ? report.isEmpty() && !loaded : report.contains(loadError), qPrintable(report));
        QCOMPARE(m_recorder.codes(), loaded ? QList<StatusCode>{loaded} : QList<StatusCode>{});
        if (!loaded) // the same codes again clash with those of the first load, which stay
            QCOMPARE(reporter()->loadApplicationStatusCodes(path, TestCodes::staticMetaObject, name),
                     StatusCode(VfStatusCodes::ConfigurationDataInvalid));

        // All or nothing: the valid first record is known only when the whole catalogue loaded.
        m_recorder.events.clear();
        REPORT_STATUS(TestCodes::SensorLost, QStringLiteral("T1"));
        QCOMPARE(m_recorder.events.last().statusInfo()->toString(VfDisplayable::SingleLineLongForm),
                 loaded ? unrecognized.arg(0x20000) : "[Title of SensorLost, Sensor T1 lost, Warning, External]");

        const QString output = m_dir.filePath("checked.json");
        QVERIFY(VfTest::writeFile(output, "stale"));
        QProcess checker;
        checker.start(VF_CHECKER, {"--without-record", "LastValue", "--output", output, path, m_dir.filePath("codes.h"),
                                   "TestCodes::" + enumName});
        QVERIFY(checker.waitForFinished());
        const QString errors = checker.readAllStandardError();
        QCOMPARE(checker.exitCode(), checkerError.isEmpty() ? 0 : catalogue.isEmpty() ? 2 : 1);
        QVERIFY2(checkerError.isEmpty() ? errors.isEmpty() : errors.contains(checkerError), qPrintable(errors));
        // Only a catalogue that passed is handed on to the resource compiler.
        QCOMPARE(VfTest::readFile(output), checkerError.isEmpty() ? catalogue : QByteArray("<missing>"));
    }
};

QTEST_GUILESS_MAIN(tst_Status)
#include "tst_status.moc"
