// An application's own status codes: loaded at run time all or nothing, reported on the framework's
// road, and checked against their enumeration at build time by vf_check_status_catalogue.
#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfstatusreporter.h"

#include <QtTest>

using namespace Crosscutting;

class TestCodes : public QObject
{
    Q_OBJECT
public:
    enum TestCode : unsigned long long { SensorLost = 0x20000, SensorOverrange, Clash = 34, Alias = 0x20000 };
    Q_ENUM(TestCode)
};

namespace {

QByteArray record(const QByteArray& name, const QByteArray& description = "Sensor %1 lost",
                  const QByteArray& severity = "Warning", const QByteArray& category = "External")
{
    return "{\"name\": \"" + name + "\", \"title\": \"Title of " + name + "\", \"description\": \"" + description
           + "\", \"severity\": \"" + severity + "\", \"category\": \"" + category + "\"}";
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& content)
{
    QFile file(dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(file.fileName()));
    return file.fileName();
}

const QByteArray lost = record("SensorLost");
const QByteArray overrange = record("SensorOverrange", "Reading %1 of sensor %2 out of range", "CriticalError", "Internal");

} // namespace

class tst_AppStatusCodes : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { VfCrosscuttingManagerPlaceholder::drop(); }
    void load_data();
    void load();
    void reportedLikeAFrameworkCode();
    void checker_data();
    void checker();

private:
    StatusEventRecorder m_recorder;
    QTemporaryDir m_dir;
};

void tst_AppStatusCodes::init()
{
    VfCrosscuttingManagerPlaceholder::drop();
    m_recorder.events.clear();
    m_recorder.attach();
}

void tst_AppStatusCodes::load_data()
{
    QTest::addColumn<QByteArray>("catalogue"); // empty: no such file
    QTest::addColumn<QByteArray>("enumName");
    QTest::addColumn<StatusCode>("expected");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QByteArray>("earlier"); // a catalogue loaded first

    const QByteArray e = "TestCode";
    QTest::newRow("loads") << "[" + lost + "," + overrange + "]" << e << StatusCode(0) << "" << QByteArray();
    QTest::newRow("no file") << QByteArray() << e << StatusCode(VfStatusCodes::FileNotFound) << "could not be found" << QByteArray();
    QTest::newRow("syntax") << "[" + lost << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid) << "reason: unterminated array." << QByteArray();
    QTest::newRow("root") << lost << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid) << "reason: its root is not an array." << QByteArray();
    QTest::newRow("no object") << "[" + lost + ", 5]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                               << "record 2 (\"\"): it is not an object." << QByteArray();
    QTest::newRow("no title") << "[" + lost + ", {\"name\": \"SensorOverrange\"}]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                              << "record 2 (\"SensorOverrange\"): its title is missing or not a string." << QByteArray();
    QTest::newRow("no enumerator") << "[" + lost + "," + record("FileNotFound") + "]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                   << "record 2 (\"FileNotFound\"): \"FileNotFound\" is no enumerator of TestCodes::TestCode." << QByteArray();
    QTest::newRow("markers") << "[" + lost + "," + record("SensorOverrange", "%1 and %3") + "]" << e
                             << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                             << "its description has the place markers %1, %3, not %1 to %n each once." << QByteArray();
    QTest::newRow("framework value") << "[" + lost + "," + record("Clash") + "]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                     << "record 2 (\"Clash\"): its value 34 is a framework code." << QByteArray();
    QTest::newRow("same value") << "[" + lost + "," + record("Alias") + "]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                << "record 2 (\"Alias\"): its value 131072 is that of record 1 (\"SensorLost\")." << QByteArray();
    QTest::newRow("earlier catalogue") << "[" + lost + "," + overrange + "]" << e << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                       << "record 2 (\"SensorOverrange\"): its value 131073 is that of an earlier catalogue's record."
                                       << "[" + overrange + "]";
    QTest::newRow("no enum") << "[" + lost + "]" << QByteArray("Other") << StatusCode(VfStatusCodes::InputInvalid) << "'enumName'" << QByteArray();
    QTest::newRow("null enum") << "[" + lost + "]" << QByteArray() << StatusCode(VfStatusCodes::InputNull) << "'enumName'" << QByteArray();
}

void tst_AppStatusCodes::load()
{
    QFETCH(QByteArray, catalogue);
    QFETCH(QByteArray, enumName);
    QFETCH(StatusCode, expected);
    QFETCH(QString, reason);
    QFETCH(QByteArray, earlier);
    VfAbstractStatusReporter* reporter = VfCrosscuttingManagerPlaceholder::instance()->statusReporter();
    if (!earlier.isEmpty())
        QCOMPARE(reporter->loadApplicationStatusCodes(writeFile(m_dir, "earlier.json", earlier), TestCodes::staticMetaObject, "TestCode"), StatusCode(0));

    const QString path = catalogue.isEmpty() ? m_dir.filePath("missing.json") : writeFile(m_dir, "app.json", catalogue);
    const char* name = enumName.isNull() ? nullptr : enumName.constData();
    QCOMPARE(reporter->loadApplicationStatusCodes(path, TestCodes::staticMetaObject, name), expected);
    QCOMPARE(m_recorder.codes(), expected ? QList<StatusCode>{expected} : QList<StatusCode>{});
    if (expected)
        QVERIFY2(m_recorder.descriptions().first().contains(reason), qPrintable(m_recorder.descriptions().first()));

    // All or nothing: the valid first record is known only when the whole catalogue loaded.
    m_recorder.events.clear();
    REPORT_STATUS(TestCodes::SensorLost, QStringLiteral("T1"));
    QCOMPARE(m_recorder.codes().last(), expected ? StatusCode(VfStatusCodes::ReportStatusStatusCodeNotRecognized)
                                                 : StatusCode(TestCodes::SensorLost));
}

void tst_AppStatusCodes::reportedLikeAFrameworkCode()
{
    const QString path = writeFile(m_dir, "app.json", "[" + lost + "," + overrange + "]");
    QCOMPARE(VfCrosscuttingManagerPlaceholder::instance()->statusReporter()->loadApplicationStatusCodes(
                 path, TestCodes::staticMetaObject, "TestCode"),
             StatusCode(0));

    QCOMPARE(REPORT_STATUS(TestCodes::SensorOverrange, QStringLiteral("104.5"), QStringLiteral("T1")), StatusCode(0x20001));
    QCOMPARE(m_recorder.events.size(), 1);
    const auto info = m_recorder.events.first().statusInfo();
    QCOMPARE(info->toString(VfDisplayable::SingleLineLongForm),
             QString("[Title of SensorOverrange, Reading 104.5 of sensor T1 out of range, CriticalError, Internal]"));

    // The argument count is checked as for the framework's codes.
    m_recorder.events.clear();
    REPORT_STATUS(TestCodes::SensorOverrange, QStringLiteral("104.5"));
    QCOMPARE(m_recorder.codes(), (QList<StatusCode>{VfStatusCodes::ReportStatusInvalidArgCount, 0x20001}));
    QVERIFY(m_recorder.descriptions().first().contains("status code 131073 was made with an invalid number of arguments: Got 1 additional arguments, expected 2."));
}

void tst_AppStatusCodes::checker_data()
{
    QTest::addColumn<QByteArray>("catalogue");
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QString>("enumArgument");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const QByteArray header = "#include <QObject>\n"
                              "class TestCodes : public QObject\n{\n    Q_OBJECT\npublic:\n"
                              "    // SensorGone was dropped\n"
                              "    enum TestCode : unsigned long long {\n"
                              "        SensorLost = 0x20000, /* first, */\n"
                              "        SensorOverrange,\n"
                              "        LastValue\n"
                              "    };\n    Q_ENUM(TestCode)\n};\n";
    QByteArray unpublished = header;
    unpublished.replace("Q_ENUM(TestCode)", "");
    const QString e = "TestCodes::TestCode";
    const QByteArray good = "[" + lost + "," + overrange + "]";

    QTest::newRow("agree") << good << header << e << 0 << "";
    QTest::newRow("no enumerator") << "[" + lost + "," + overrange + "," + record("SensorGone") + "]" << header << e << 1
                                   << "app.json: record 3 (\"SensorGone\"): \"SensorGone\" is no enumerator of TestCodes::TestCode in ";
    QTest::newRow("no record") << "[" + lost + "]" << header << e << 1
                               << "app.json: no record for the enumerator \"SensorOverrange\" of TestCodes::TestCode in ";
    QTest::newRow("duplicate") << "[" + lost + "," + overrange + "," + lost + "]" << header << e << 1
                               << "app.json: record 3 (\"SensorLost\"): a second record for \"SensorLost\", after record 1";
    QTest::newRow("severity") << "[" + lost + "," + record("SensorOverrange", "%1", "Fatal") + "]" << header << e << 1
                              << "app.json: record 2 (\"SensorOverrange\"): \"Fatal\" is no severity";
    QTest::newRow("category") << "[" + record("SensorLost", "%1", "Warning", "Outside") + "," + overrange + "]" << header << e << 1
                              << "app.json: record 1 (\"SensorLost\"): \"Outside\" is no category";
    QTest::newRow("marker gap") << "[" + lost + "," + record("SensorOverrange", "%2 %3") + "]" << header << e << 1
                                << "app.json: record 2 (\"SensorOverrange\"): its description has the place markers %2, %3, not %1 to %n each once";
    QTest::newRow("marker twice") << "[" + record("SensorLost", "%1 %2 %1") + "," + overrange + "]" << header << e << 1
                                  << "record 1 (\"SensorLost\"): its description has the place markers %1, %2, %1,";
    QTest::newRow("syntax") << "[" + lost + ",]" << header << e << 1 << "app.json: object is missing after a comma at byte";
    QTest::newRow("unpublished") << good << unpublished << e << 1
                                 << "codes.h: does not publish enum TestCode with Q_ENUM or Q_ENUM_NS";
    QTest::newRow("no enum") << good << header << "TestCodes::Other" << 1 << "codes.h: declares no enum Other";
}

void tst_AppStatusCodes::checker()
{
    QFETCH(QByteArray, catalogue);
    QFETCH(QByteArray, header);
    QFETCH(QString, enumArgument);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    const QString output = m_dir.filePath("checked.json");
    writeFile(m_dir, "checked.json", "stale");

    QProcess checker;
    checker.start(VF_CHECKER, {"--without-record", "LastValue", "--output", output, writeFile(m_dir, "app.json", catalogue),
                               writeFile(m_dir, "codes.h", header), enumArgument});
    QVERIFY(checker.waitForFinished());
    const QString errors = checker.readAllStandardError();
    QCOMPARE(checker.exitCode(), exitCode);
    QVERIFY2(message.isEmpty() ? errors.isEmpty() : errors.contains(message), qPrintable(errors));
    // Only a catalogue that passed is handed on to the resource compiler.
    QFile checked(output);
    QCOMPARE(checked.open(QIODevice::ReadOnly) ? checked.readAll() : QByteArray("(none)"), exitCode ? QByteArray("(none)") : catalogue);
}

QTEST_GUILESS_MAIN(tst_AppStatusCodes)
#include "tst_appstatuscodes.moc"
