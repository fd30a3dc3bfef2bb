#include "statuseventrecorder.h"
#include "systemidentity.h"
#include "vftestsupport.h"

#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;

static const QString Data = QStringLiteral("/opt/tarvion/data");
static const QString UnitName = Data + "/identity/unitname";
static const QString Rw = QStringLiteral("mount -o remount,rw /media/card");
static const QString Ro = QStringLiteral("mount -o remount,ro /media/card");

static QString modelOf(const VfSystemIdentity& identity)
{
    return identity.getModelDependentData() ? identity.getModelDependentData()->property("modelName").toString() : "<null>";
}

class tst_Identity : public QObject
{
    Q_OBJECT
    QTemporaryDir m_fakes;
    QScopedPointer<StatusEventRecorder> m_recorder;
    // What mount and sync were called with, each with the content of the watched file at the time.
    QStringList calls()
    {
        const QStringList lines = QString(VfTest::readFile(m_fakes.filePath("log"))).split('\n', Qt::SkipEmptyParts);
        QFile::remove(m_fakes.filePath("log"));
        return lines.value(0) == "<missing>" ? QStringList() : lines;
    }
    // Each report as its code and arguments, and forgotten.
    QStringList reports()
    {
        QStringList result;
        for (const VfStatusChangeEvent& event : std::exchange(m_recorder->events, {}))
            result << QString::number(event.statusCode()) + ": " + event.sourceContext()->additionalInfo().join(" | ");
        return result;
    }
private slots:
    void initTestCase()
    {
        if (!VfTest::isSandboxed())
            QSKIP("the identity files live under /opt/tarvion/data: run through tests/sandbox-run");
        const QString fake = "state=$(cat \"$VF_WATCH\" 2>/dev/null || echo '<missing>')\n"
                             "echo \"${0##*/}${*:+ $*} | $state\" >> " + m_fakes.filePath("log") + "\n"
                             "case \"$*\" in *rw*) exit ${VF_RW:-0};; *ro*) exit ${VF_RO:-0};; esac\n"
                             "[ -z \"$VF_CLOBBER\" ] || printf %s \"$VF_CLOBBER\" > \"$VF_WATCH\"\n";
        VfTest::writeFakeProgram(m_fakes.path(), "mount", fake);
        VfTest::writeFakeProgram(m_fakes.path(), "sync", fake);
        VfTest::prependToPath(m_fakes.path());
        qputenv("VF_WATCH", UnitName.toUtf8());
    }
    void init()
    {
        QDir(Data).removeRecursively();
        for (const char* variable : {"VF_RW", "VF_RO", "VF_CLOBBER"})
            qunsetenv(variable);
        VfTest::writeFile(UnitName, "uni-1");
        VfTest::writeFile(Data + "/identity/model", "SPA");
        m_recorder.reset(new StatusEventRecorder);
        m_recorder->attach();
        calls();
    }
    void modelFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("model"); // the model and the model of the data
        QTest::addColumn<QString>("report");
        QTest::newRow("empty") << QByteArray() << "UNKNOWN DEFAULTMODEL" << QString();
        QTest::newRow("not upper-cased") << QByteArray("spa") << "UNKNOWN DEFAULTMODEL" << "8: /identity/model | invalid model spa";
        // The loader swapped libmodel.so.1 for the tests' second one, which knows these two models.
        QTest::newRow("one line feed, known to the other library") << QByteArray("ALT\n") << "ALT ALT" << QString();
        QTest::newRow("cannot be instantiated") << QByteArray("UNCREATABLE") << "UNCREATABLE <null>" << "50: Model::UncreatableModel";
    }
    void modelFile()
    {
        QFETCH(QByteArray, content);
        VfTest::writeFile(Data + "/identity/model", content);
        VfSystemIdentity identity(false, nullptr);
        QTEST(identity.model() + ' ' + modelOf(identity), "model");
        QTEST(reports().filter(QRegularExpression("^(?!30:)")).value(0), "report"); // 30: the serial numbers and firmware are missing
    }
    void failures_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("report");
        QTest::addColumn<StatusCode>("result");
        // The catalogue's codes: 23 DirectoryNotFound, 30 FileCannotOpen, 34 FileNotFound, 35 FileSystemMountFailed,
        // 39 InputInvalid, 50 MetaObjectInstantiationError.
        const QString s = Data + "/scratch/";
        QTest::newRow("read: open failed") << "read none" << "30: " + s + "none, No such file or directory" << StatusCode(0);
        QTest::newRow("write: writable remount failed") << "write rw" << "35: rootfs | read-write | 3" << StatusCode(35);
        QTest::newRow("write: file missing") << "write new" << "34: Failed to open the file " + s + "new, creating a new file" << StatusCode(0);
        QTest::newRow("write: open failed") << "write dir" << "30: " + s + "dir, Is a directory" << StatusCode(30);
        QTest::newRow("write: read-only remount failed") << "write ro" << "35: rootfs | read-only | 4" << StatusCode(0);
        QTest::newRow("create: no directory") << "create plain/x" << "23: " + s + "plain/x" << StatusCode(23);
        QTest::newRow("setModel: unknown") << "setModel xyz" << "39: model(XYZ)" << StatusCode(39);
        QTest::newRow("setModel: cannot be instantiated") << "setModel uncreatable" << "50: Model::UncreatableModel" << StatusCode(50);
    }
    void failures()
    {
        QFETCH(QString, call);
        const QString operation = call.section(' ', 0, 0), argument = call.section(' ', 1), path = Data + "/scratch/" + argument;
        QVERIFY(VfTest::writeFile(Data + "/identity/options", "PREAMP") && VfTest::writeFile(Data + "/scratch/plain", "file"));
        QVERIFY(QDir().mkpath(Data + "/scratch/dir"));
        qputenv("VF_RW", argument == "rw" ? "3" : "0");
        qputenv("VF_RO", argument == "ro" ? "4" : "0");
        VfSystemIdentity identity(false, nullptr);
        QObject* const data = identity.getModelDependentData();
        reports();
        StatusCode result = VfStatusCodes::Success;
        if (operation == "read")
            QCOMPARE(identity.readFile(path), QStringLiteral("UNKNOWN"));
        if (operation == "write")
            result = identity.writeFile(argument == "new" || argument == "dir" ? path : UnitName, "NEW");
        if (operation == "create")
            result = identity.createFile(path);
        if (operation == "setModel")
            result = identity.setModel(argument, true);
        // Nothing changes on failure.
        QCOMPARE(identity.model() + identity.options().join(','), QStringLiteral("SPAPREAMP"));
        QCOMPARE(identity.getModelDependentData(), data);
        QTEST(result, "result");
        QTEST(reports().value(0), "report");
    }
    void remountSequence_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("rw");
        QTest::addColumn<QStringList>("calls");
        QTest::newRow("existing file") << true << QByteArray("0") << QStringList{Rw + " | uni-1", "sync | BENCH-2", Ro + " | BENCH-2"};
        QTest::newRow("missing file") << false << QByteArray("0") << QStringList{Rw + " | <missing>", "sync | BENCH-2", Ro + " | BENCH-2"};
        QTest::newRow("writable remount failed") << true << QByteArray("32") << QStringList{Rw + " | uni-1"};
    }
    void remountSequence()
    {
        QFETCH(bool, exists);
        QFETCH(QByteArray, rw);
        if (!exists)
            QDir(Data + "/identity").removeRecursively();
        qputenv("VF_RW", rw);
        VfSystemIdentity identity(false, nullptr);
        QFile::setPermissions(UnitName, QFile::ReadOwner);
        QCOMPARE(identity.setUnitName("BENCH-2"), StatusCode(rw == "0" ? VfStatusCodes::Success : VfStatusCodes::FileSystemMountFailed));
        QTEST(calls(), "calls");
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(UnitName).constData(), &status) == 0 ? status.st_mode & 0777 : 0, rw == "0" ? 0444u : 0400u);
        // A read-back that differs, as after a write that did not reach the card: "UNKNOWN" matches only an empty name.
        qputenv("VF_RW", "0");
        qputenv("VF_CLOBBER", "UNKNOWN");
        QCOMPARE(identity.setUnitName("BENCH-3"), StatusCode(VfStatusCodes::IoWriteFailed));
        QCOMPARE(identity.unitName(), QString(rw == "0" ? "BENCH-2" : "uni-1"));
    }
    void unitName()
    {
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(identity.setUnitName(QString(46, 'N')), StatusCode(VfStatusCodes::DataSizeInvalid));
        QCOMPARE(identity.setUnitName("UNI-1") + identity.setUnitName(QString(45, 'N')), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.unitName() + QString::number(calls().size()), QString(45, 'N') + "3"); // a change of case only is not written
    }
    void fileIoDisabled()
    {
        VfSystemIdentity identity(true, nullptr);
        QCOMPARE(identity.setFirmwareVersion("2.0") + identity.setModel("vna", true) + identity.createFile(Data + "/other/never"),
                 StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.firmwareVersion() + identity.model() + modelOf(identity), QStringLiteral("2.0VNAVNA"));
        // Deliberately the unit name does not ask the switch and is written all the same: instruments rely on it.
        QCOMPARE(identity.setUnitName("LAB"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfTest::readFile(Data + "/identity/model") + VfTest::readFile(Data + "/other/never") + VfTest::readFile(UnitName),
                 QByteArray("SPA<missing>LAB"));
    }
    void optionsLockAndModel()
    {
        VfSystemIdentity identity(false, nullptr);
        QStringList seen;
        identity.dispatcher().addHandler([&](const QString& model, const QStringList& options) { seen << model + options.join(','); });
        QCOMPARE(identity.setOptions({"PREAMP"}) + identity.setLock(3), StatusCode(VfStatusCodes::Success));
        QCOMPARE(seen, QStringList({"SPAPREAMP"}));
        QVERIFY(!identity.isLevelLocked(0) && identity.isLevelLocked(3) && !identity.isLevelLocked(4));
        // A new model starts without the options of the one before.
        QCOMPARE(identity.setModel("vna", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.options(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_Identity)
#include "tst_identity.moc"
