#include "statuseventrecorder.h"
#include "systemidentity.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfplatforminfo.h"
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
        for (const VfStatusChangeEvent& event : m_recorder->events)
            result << QString::number(event.statusCode()) + ": " + event.sourceContext()->additionalInfo().join(" | ");
        m_recorder->events.clear();
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
    }
    void init()
    {
        VfCrosscuttingManagerPlaceholder::drop();
        QDir(Data).removeRecursively();
        for (const char* variable : {"VF_RW", "VF_RO", "VF_CLOBBER"})
            qunsetenv(variable);
        qputenv("VF_WATCH", UnitName.toUtf8());
        for (const char* file : {"identity/internalserialnumber", "identity/externalserialnumber", "identity/unitname", "version/firmware"})
            VfTest::writeFile(Data + "/" + file, QString(file).section("/", 1).left(3).toUtf8() + "-1");
        VfTest::writeFile(Data + "/identity/model", "SPA");
        m_recorder.reset(new StatusEventRecorder);
        m_recorder->attach();
        calls();
    }
    void readsEveryFile()
    {
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(QStringList({identity.model(), modelOf(identity), identity.unitName(), identity.firmwareVersion(), identity.internalSerialNumber(),
                              identity.externalSerialNumber()}), QStringList({"SPA", "SPA", "uni-1", "fir-1", "int-1", "ext-1"}));
        QDir(Data).removeRecursively();
        identity.refresh();
        QCOMPARE(identity.model() + modelOf(identity) + identity.unitName() + identity.firmwareVersion(), QStringLiteral("UNKNOWNDEFAULTMODELUNKNOWN"));
        QCOMPARE(reports().replaceInStrings(QRegularExpression(",.*|" + Data), ""), QStringList({"30: /identity/internalserialnumber",
                 "30: /identity/externalserialnumber", "30: /version/firmware", "30: /identity/unitname", "30: /identity/model"}));
    }
    void modelFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("model"); // the model and the model of the data
        QTest::addColumn<int>("reports");
        QTest::newRow("one line feed") << QByteArray("VNA\n") << "VNA VNA" << 0;
        QTest::newRow("empty") << QByteArray() << "UNKNOWN DEFAULTMODEL" << 0;
        QTest::newRow("only a line feed: an empty name") << QByteArray("\n") << "UNKNOWN DEFAULTMODEL" << 1;
        QTest::newRow("not upper-cased") << QByteArray("spa") << "UNKNOWN DEFAULTMODEL" << 1;
        // The loader swapped libmodel.so.1 for the tests' second one, which knows this model.
        QTest::newRow("cannot be instantiated") << QByteArray("UNCREATABLE") << "UNCREATABLE <null>" << 1;
    }
    void modelFile()
    {
        QFETCH(QByteArray, content);
        VfTest::writeFile(Data + "/identity/model", content);
        VfSystemIdentity identity(false, nullptr);
        QTEST(identity.model() + ' ' + modelOf(identity), "model");
        QTEST(reports().size(), "reports");
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
        QVERIFY(VfTest::writeFile(Data + "/identity/options", "PREAMP") && VfTest::writeFile(Data + "/scratch/plain", "file") && QDir().mkpath(Data + "/scratch/dir"));
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
        QCOMPARE(identity.model() + identity.options().join(','), QStringLiteral("SPAPREAMP"));
        QCOMPARE(identity.getModelDependentData(), data);
        QTEST(result, "result");
        QTEST(reports().filter(QRegularExpression("^(?!60:)")).value(0), "report");
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
        reports();
        QCOMPARE(identity.setUnitName("BENCH-2"), StatusCode(rw == "0" ? VfStatusCodes::Success : VfStatusCodes::FileSystemMountFailed));
        QTEST(calls(), "calls");
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(UnitName).constData(), &status) == 0 ? status.st_mode & 0777 : 0, rw == "0" ? 0444u : 0400u);
        QCOMPARE(VfTest::readFile(UnitName) + QByteArray::number(reports().size()), rw != "0" ? "uni-11" : exists ? "BENCH-20" : "BENCH-21");
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
    void setModel()
    {
        qputenv("VF_WATCH", QFile::encodeName(Data + "/identity/model"));
        VfTest::writeFile(Data + "/identity/options", "TRACKINGGENERATOR,BOGUS,,PREAMP");
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(identity.options(), QStringList({"TRACKINGGENERATOR", "PREAMP"}));
        QPointer<QObject> data = identity.getModelDependentData();
        QCOMPARE(identity.setModel("spa", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(calls(), QStringList());
        identity.setIsModelForced(true);
        QCOMPARE(identity.setModel("spa", true), StatusCode(VfStatusCodes::Success));
        QVERIFY(data.isNull() && identity.options().isEmpty());
        // The model, then the options it had, emptied.
        QCOMPARE(calls().join(',').replace(Rw + " | SPA,sync | SPA," + Ro + " | SPA", "written"), QStringLiteral("written,written"));
        QCOMPARE(identity.setModel("Vna", false), StatusCode(VfStatusCodes::Success));
        identity.refresh();
        QCOMPARE(identity.model() + VfTest::readFile(Data + "/identity/options"), QStringLiteral("SPA"));
        qputenv("VF_RW", "2");
        QCOMPARE(identity.setModel("vna", true), StatusCode(VfStatusCodes::FileSystemMountFailed));
        QCOMPARE(identity.model() + modelOf(identity), QStringLiteral("SPASPA"));
    }
    void fileIoDisabled()
    {
        VfSystemIdentity identity(true, nullptr);
        QCOMPARE(identity.model() + identity.unitName() + modelOf(identity), QStringLiteral("UNKNOWNDEFAULTMODEL"));
        QCOMPARE(identity.setFirmwareVersion("2.0") + identity.setModel("vna", true) + identity.setInternalSerialNumber("I9")
                     + identity.createFile(Data + "/other/never"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.firmwareVersion() + identity.model() + identity.internalSerialNumber(), QStringLiteral("2.0VNAI9"));
        QCOMPARE(VfTest::readFile(Data + "/identity/model") + VfTest::readFile(Data + "/version/firmware") + VfTest::readFile(Data + "/other/never"), QByteArray("SPAfir-1<missing>"));
        QCOMPARE(calls(), QStringList());
        // The unit name does not ask the switch: it is written all the same.
        QCOMPARE(identity.setUnitName("LAB"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfTest::readFile(UnitName), QByteArray("LAB"));
    }
    void optionsLockAndSerials()
    {
        VfSystemIdentity identity(false, nullptr);
        QStringList seen;
        identity.dispatcher().addHandler([&](const QString& model, const QStringList& options) { seen << model + options.join(','); });
        identity.dispatcher().addHandler([&](const QString&, const QStringList& options) { seen << options.join(','); });
        QCOMPARE(identity.setOptions({"BIASTEE"}), StatusCode(VfStatusCodes::InputInvalid));
        QCOMPARE(identity.setOptions({"PREAMP", "TRACKINGGENERATOR", "PREAMP"}) + identity.unsetOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
        QCOMPARE(seen, QStringList({"SPAPREAMP,TRACKINGGENERATOR", "PREAMP,TRACKINGGENERATOR"}));
        QCOMPARE(identity.setLock(3) + identity.setExternalSerialNumber("EXT-2"), StatusCode(VfStatusCodes::Success));
        VfTest::writeFile(Data + "/identity/options", "TIMEDOMAIN,TRACKINGGENERATOR");
        identity.refresh();
        QCOMPARE(identity.options() << identity.externalSerialNumber() << VfTest::readFile(Data + "/identity/locklevel"), QStringList({"TRACKINGGENERATOR", "EXT-2", "3"}));
        QCOMPARE(QList<bool>({identity.isLevelLocked(0), identity.isLevelLocked(1), identity.isLevelLocked(3), identity.isLevelLocked(4)}),
                 QList<bool>({false, true, true, false}));
    }
    void serviceAccessObject()
    {
        VfCrosscuttingManagerPlaceholder* manager = VfCrosscuttingManagerPlaceholder::instance();
        VfSystemIdentity* identity = manager->systemIdentity();
        QCOMPARE(manager->systemIdentity(), identity);
        QStringList order;
        connect(identity->getModelDependentData(), &QObject::destroyed, [&] { order << "data"; });
        connect(identity, &QObject::destroyed, [&] { order << "identity"; });
        connect(manager->platformInfo(), &QObject::destroyed, [&] { order << "platform"; });
        connect(manager->statusReporter(), &QObject::destroyed, [&] { order << "reporter"; });
        m_recorder.reset();
        VfCrosscuttingManagerPlaceholder::drop();
        QCOMPARE(order, QStringList({"data", "identity", "platform", "reporter"}));
    }
};

QTEST_GUILESS_MAIN(tst_Identity)
#include "tst_identity.moc"
