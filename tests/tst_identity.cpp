#include "modelutilities.h"
#include "statuseventrecorder.h"
#include "systemidentity.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfplatforminfo.h"
#include "vftestsupport.h"

#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;
using Codes = QList<StatusCode>;

static const QString Data = QStringLiteral("/opt/tarvion/data");
static const QString UnitName = Data + "/identity/unitname";
static const QString Rw = QStringLiteral("mount -o remount,rw /media/card");
static const QString Ro = QStringLiteral("mount -o remount,ro /media/card");

static bool write(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

static QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "<missing>";
}

static int modeOf(const QString& path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

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
        QStringList lines = QString(read(m_fakes.filePath("log"))).split('\n', Qt::SkipEmptyParts);
        QFile::remove(m_fakes.filePath("log"));
        return lines.value(0) == "<missing>" ? QStringList() : lines;
    }
    QList<QPair<StatusCode, QStringList>> reports()
    {
        QList<QPair<StatusCode, QStringList>> result;
        for (const VfStatusChangeEvent& event : m_recorder->events)
            result << qMakePair(event.statusCode(), event.sourceContext()->additionalInfo());
        m_recorder->events.clear();
        return result;
    }
private slots:
    void initTestCase()
    {
        if (!VfTest::isSandboxed())
            QSKIP("the identity files live under /opt/tarvion/data: run through tests/sandbox-run");
        // The loader swapped libmodel.so.1 for the tests' second one, without a rebuild.
        QVERIFY(Model::ModelUtilities::modelMetaObject("UNCREATABLE"));
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
        QDir().mkpath(Data);
        for (const char* variable : {"VF_RW", "VF_RO", "VF_CLOBBER"})
            qunsetenv(variable);
        qputenv("VF_WATCH", UnitName.toUtf8());
        for (const char* file : {"internalserialnumber", "externalserialnumber", "unitname", "model"})
            write(Data + "/identity/" + file, QByteArray(file).left(5).toUpper() + (file[0] == 'm' ? "" : "-1"));
        write(Data + "/version/firmware", "1.0.0");
        write(Data + "/identity/model", "SPA");
        m_recorder.reset(new StatusEventRecorder);
        m_recorder->attach();
    }
    void cleanup()
    {
        m_recorder.reset();
        VfCrosscuttingManagerPlaceholder::drop();
        calls();
    }
    void readsEveryFile()
    {
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(QStringList({identity.model(), modelOf(identity), identity.unitName(), identity.firmwareVersion(),
                              identity.internalSerialNumber(), identity.externalSerialNumber()}),
                 QStringList({"SPA", "SPA", "UNITN-1", "1.0.0", "INTER-1", "EXTER-1"}));
        QCOMPARE(reports().size(), 0);
        QCOMPARE(calls(), QStringList());
        QDir(Data).removeRecursively();
        identity.refresh();
        QCOMPARE(QStringList({identity.model(), modelOf(identity), identity.unitName(), identity.firmwareVersion()}),
                 QStringList({"UNKNOWN", "DEFAULTMODEL", "", "UNKNOWN"}));
        QStringList opened;
        for (const auto& report : reports())
            opened << QString::number(report.first) + ' ' + report.second.value(0).section(',', 0, 0);
        QCOMPARE(opened, QStringList({"30 " + Data + "/identity/internalserialnumber", "30 " + Data + "/identity/externalserialnumber",
                                      "30 " + Data + "/version/firmware", "30 " + UnitName, "30 " + Data + "/identity/model"}));
    }
    void modelFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("data");
        QTest::addColumn<Codes>("codes");
        QTest::newRow("one line feed") << QByteArray("VNA\n") << "VNA" << "VNA" << Codes();
        QTest::newRow("empty") << QByteArray() << "UNKNOWN" << "DEFAULTMODEL" << Codes();
        QTest::newRow("only a line feed: an empty name") << QByteArray("\n") << "UNKNOWN" << "DEFAULTMODEL"
                                                         << Codes{VfStatusCodes::ConfigurationDataInvalid};
        QTest::newRow("two lines") << QByteArray("SP\nA") << "UNKNOWN" << "DEFAULTMODEL"
                                   << Codes{VfStatusCodes::ReportStatusInvalidArgCount, VfStatusCodes::StringParseError};
        QTest::newRow("not upper-cased") << QByteArray("spa") << "UNKNOWN" << "DEFAULTMODEL"
                                         << Codes{VfStatusCodes::ConfigurationDataInvalid};
        QTest::newRow("cannot be instantiated") << QByteArray("UNCREATABLE") << "UNCREATABLE" << "<null>"
                                                << Codes{VfStatusCodes::MetaObjectInstantiationError};
    }
    void modelFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(Codes, codes);
        write(Data + "/identity/model", content);
        if (codes.contains(VfStatusCodes::StringParseError))
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: Argument missing"));
        VfSystemIdentity identity(false, nullptr);
        QTEST(identity.model(), "model");
        QTEST(modelOf(identity), "data");
        QTEST(m_recorder->codes(), "codes");
    }
    void failures_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<StatusCode>("code");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<StatusCode>("result");
        const QString scratch = Data + "/scratch/";
        const StatusCode none = VfStatusCodes::Success;
        QTest::newRow("read: open failed") << "read none" << StatusCode(VfStatusCodes::FileCannotOpen)
                                           << QStringList{scratch + "none, No such file or directory"} << none;
        QTest::newRow("read: two lines") << "read lines" << StatusCode(VfStatusCodes::StringParseError)
                                         << QStringList{scratch + "lines", "ONE\nTWO\n"} << none;
        QTest::newRow("write: writable remount failed") << "write rw" << StatusCode(VfStatusCodes::FileSystemMountFailed)
                                                        << QStringList{"rootfs", "read-write", "3"}
                                                        << StatusCode(VfStatusCodes::FileSystemMountFailed);
        QTest::newRow("write: file missing") << "write new" << StatusCode(VfStatusCodes::FileNotFound)
                                             << QStringList{"Failed to open the file " + scratch + "new, creating a new file"} << none;
        QTest::newRow("write: open failed") << "write dir" << StatusCode(VfStatusCodes::FileCannotOpen)
                                            << QStringList{scratch + "dir, Is a directory"} << StatusCode(VfStatusCodes::FileCannotOpen);
        QTest::newRow("write: read-only remount failed") << "write ro" << StatusCode(VfStatusCodes::FileSystemMountFailed)
                                                         << QStringList{"rootfs", "read-only", "4"} << none;
        QTest::newRow("create: no directory") << "create plain/x" << StatusCode(VfStatusCodes::DirectoryNotFound)
                                              << QStringList{scratch + "plain/x"} << StatusCode(VfStatusCodes::DirectoryNotFound);
        QTest::newRow("create: open failed") << "create " + QString(300, 'x') << StatusCode(VfStatusCodes::FileCannotOpen)
                                             << QStringList{scratch + QString(300, 'x') + ", File name too long"}
                                             << StatusCode(VfStatusCodes::FileCannotOpen);
        QTest::newRow("refresh: model unknown") << "refresh XYZ" << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                                << QStringList{"/identity/model", "invalid model XYZ"} << none;
        QTest::newRow("refresh: cannot be instantiated") << "refresh UNCREATABLE" << StatusCode(VfStatusCodes::MetaObjectInstantiationError)
                                                         << QStringList{"Model::UncreatableModel"} << none;
        QTest::newRow("setModel: unknown") << "setModel xyz" << StatusCode(VfStatusCodes::InputInvalid)
                                           << QStringList{"model(XYZ)"} << StatusCode(VfStatusCodes::InputInvalid);
        QTest::newRow("setModel: cannot be instantiated") << "setModel uncreatable" << StatusCode(VfStatusCodes::MetaObjectInstantiationError)
                                                          << QStringList{"Model::UncreatableModel"}
                                                          << StatusCode(VfStatusCodes::MetaObjectInstantiationError);
    }
    void failures()
    {
        QFETCH(QString, call);
        const QString operation = call.section(' ', 0, 0), argument = call.section(' ', 1), path = Data + "/scratch/" + argument;
        write(Data + "/identity/options", "PREAMP");
        write(Data + "/scratch/lines", "ONE\nTWO\n");
        write(Data + "/scratch/plain", "a file");
        QDir().mkpath(Data + "/scratch/dir");
        qputenv("VF_RW", argument == "rw" ? "3" : "0");
        qputenv("VF_RO", argument == "ro" ? "4" : "0");
        VfSystemIdentity identity(false, nullptr);
        QObject* const data = identity.getModelDependentData();
        reports();
        StatusCode result = VfStatusCodes::Success;
        if (operation == "read" && argument == "lines")
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: Argument missing"));
        if (operation == "read")
            QCOMPARE(identity.readFile(path), QStringLiteral("UNKNOWN"));
        if (operation == "write")
            result = identity.writeFile(argument == "new" || argument == "dir" ? path : UnitName, "NEW");
        if (operation == "create")
            result = identity.createFile(path);
        if (operation == "refresh") {
            write(Data + "/identity/model", argument.toUtf8());
            identity.refresh();
            QCOMPARE(identity.model(), argument == "XYZ" ? "UNKNOWN" : argument);
            // A model that cannot be instantiated keeps the data and the options made before.
            QCOMPARE(identity.options(), argument == "XYZ" ? QStringList() : QStringList{"PREAMP"});
            QCOMPARE(identity.getModelDependentData() == data, argument != "XYZ");
        }
        if (operation == "setModel") {
            result = identity.setModel(argument, true);
            QCOMPARE(identity.model(), QStringLiteral("SPA"));
            QCOMPARE(identity.getModelDependentData(), data);
        }
        QTEST(result, "result");
        QFETCH(StatusCode, code);
        QStringList arguments;
        for (const auto& report : reports())
            arguments = report.first == code ? report.second : arguments;
        QTEST(arguments, "arguments");
    }
    void remountSequence_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("rw");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QByteArray>("file");
        QTest::newRow("existing file") << true << QByteArray("0")
                                       << QStringList{Rw + " | UNITN-1", "sync | BENCH-2", Ro + " | BENCH-2"} << QByteArray("BENCH-2");
        QTest::newRow("missing file") << false << QByteArray("0")
                                      << QStringList{Rw + " | <missing>", "sync | BENCH-2", Ro + " | BENCH-2"} << QByteArray("BENCH-2");
        QTest::newRow("writable remount failed") << true << QByteArray("32") << QStringList{Rw + " | UNITN-1"} << QByteArray("UNITN-1");
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
        QTEST(read(UnitName), "file");
        QCOMPARE(modeOf(UnitName), rw == "0" ? 0444 : 0400);
        QCOMPARE(reports().size(), exists && rw == "0" ? 0 : 1);
        // A read-back that differs, as after a write that did not reach the card.
        qputenv("VF_RW", "0");
        qputenv("VF_CLOBBER", "GARBLED");
        QCOMPARE(identity.setUnitName("BENCH-3"), StatusCode(VfStatusCodes::IoWriteFailed));
        QCOMPARE(identity.unitName(), QString(rw == "0" ? "BENCH-2" : "UNITN-1"));
    }
    void unitName()
    {
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(identity.setUnitName(QString(46, 'N')), StatusCode(VfStatusCodes::DataSizeInvalid));
        QCOMPARE(identity.setUnitName("unitn-1"), StatusCode(VfStatusCodes::Success)); // a change of case only is not stored
        QCOMPARE(calls(), QStringList());
        QCOMPARE(identity.setUnitName(QString(45, 'N')), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.unitName(), QString(45, 'N'));
        QCOMPARE(identity.setUnitName(""), StatusCode(VfStatusCodes::Success));
        QCOMPARE(read(UnitName), QByteArray());
        identity.refresh();
        QCOMPARE(identity.unitName(), QString(""));
        QCOMPARE(calls().size(), 6);
        QCOMPARE(reports().size(), 0);
    }
    void setModel()
    {
        qputenv("VF_WATCH", QFile::encodeName(Data + "/identity/model"));
        write(Data + "/identity/options", "TRACKINGGENERATOR,BOGUS,,PREAMP");
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(identity.options(), QStringList({"TRACKINGGENERATOR", "PREAMP"}));
        QPointer<QObject> data = identity.getModelDependentData();
        QCOMPARE(identity.setModel("spa", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(calls(), QStringList());
        identity.setIsModelForced(true);
        QCOMPARE(identity.setModel("spa", true), StatusCode(VfStatusCodes::Success));
        QVERIFY(data.isNull());
        QCOMPARE(identity.options(), QStringList());
        QCOMPARE(read(Data + "/identity/options"), QByteArray());
        QCOMPARE(identity.setModel("Vna", false), StatusCode(VfStatusCodes::Success));
        QCOMPARE(calls(), QStringList({Rw + " | SPA", "sync | SPA", Ro + " | SPA", Rw + " | SPA", "sync | SPA", Ro + " | SPA"}));
        QCOMPARE(modelOf(identity), QStringLiteral("VNA"));
        identity.refresh();
        QCOMPARE(identity.model(), QStringLiteral("SPA"));
        QCOMPARE(identity.setModel("Vna", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(read(Data + "/identity/model"), QByteArray("VNA"));
        qputenv("VF_RW", "2");
        QCOMPARE(identity.setModel("spa", true), StatusCode(VfStatusCodes::FileSystemMountFailed));
        QCOMPARE(identity.model() + modelOf(identity), QStringLiteral("VNAVNA"));
    }
    void fileIoDisabled()
    {
        VfSystemIdentity identity(true, nullptr);
        QCOMPARE(identity.model() + identity.unitName() + modelOf(identity), QStringLiteral("UNKNOWNDEFAULTMODEL"));
        QCOMPARE(identity.setFirmwareVersion("2.0") + identity.setModel("vna", true) + identity.setInternalSerialNumber("I9")
                     + identity.setLock(3),
                 StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.firmwareVersion() + identity.model() + identity.internalSerialNumber(), QStringLiteral("2.0VNAI9"));
        QCOMPARE(read(Data + "/identity/model") + read(Data + "/version/firmware"), QByteArray("SPA1.0.0"));
        QCOMPARE(calls(), QStringList());
        QCOMPARE(identity.createFile(Data + "/other/never"), StatusCode(VfStatusCodes::Success));
        QVERIFY(!QFile::exists(Data + "/other"));
        // The unit name does not ask the switch: it is written all the same.
        QCOMPARE(identity.setUnitName("LAB"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(read(UnitName), QByteArray("LAB"));
        identity.refresh();
        QCOMPARE(identity.model() + identity.firmwareVersion() + identity.unitName(), QStringLiteral("UNKNOWNUNKNOWN"));
    }
    void validateFileUpdate_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("valid");
        QTest::newRow("equal after a line end") << QByteArray("ABC\n") << "ABC" << true;
        QTest::newRow("different") << QByteArray("ABD") << "ABC" << false;
        QTest::newRow("empty file, empty value") << QByteArray() << "" << true;
        QTest::newRow("empty file, a value") << QByteArray() << "X" << false;
        QTest::newRow("no file, empty value") << QByteArray("<missing>") << "" << true;
    }
    void validateFileUpdate()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, value);
        QFETCH(bool, valid);
        if (content != "<missing>")
            write(Data + "/scratch/v", content);
        QCOMPARE(VfSystemIdentity(true, nullptr).validateFileUpdate(value, Data + "/scratch/v"),
                 StatusCode(valid ? VfStatusCodes::Success : VfStatusCodes::IoWriteFailed));
    }
    void optionsLockAndSerials()
    {
        VfSystemIdentity identity(false, nullptr);
        QStringList seen;
        identity.dispatcher().addHandler([&](const QString& model, const QStringList& options) { seen << "1" + model + options.join(','); });
        identity.dispatcher().addHandler([&](const QString&, const QStringList& options) { seen << "2" + options.join(','); });
        QCOMPARE(identity.setOptions({"BIASTEE"}), StatusCode(VfStatusCodes::InputInvalid));
        qputenv("VF_RW", "1");
        QCOMPARE(identity.setOptions({"PREAMP"}), StatusCode(VfStatusCodes::FileSystemMountFailed));
        qputenv("VF_RW", "0");
        QCOMPARE(identity.setOptions({"PREAMP", "TRACKINGGENERATOR", "PREAMP"}), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.unsetOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
        QCOMPARE(seen, QStringList({"1SPAPREAMP,TRACKINGGENERATOR", "2PREAMP,TRACKINGGENERATOR"}));
        QCOMPARE(read(Data + "/identity/options"), QByteArray("TRACKINGGENERATOR"));
        QCOMPARE(identity.setLock(3) + identity.setExternalSerialNumber("EXT-2"), StatusCode(VfStatusCodes::Success));
        write(Data + "/identity/options", "TIMEDOMAIN,TRACKINGGENERATOR");
        identity.refresh();
        QCOMPARE(identity.options(), QStringList{"TRACKINGGENERATOR"});
        QCOMPARE(QList<bool>({identity.isLevelLocked(0), identity.isLevelLocked(1), identity.isLevelLocked(3), identity.isLevelLocked(4)}),
                 QList<bool>({false, true, true, false}));
        QCOMPARE(identity.externalSerialNumber() + read(Data + "/identity/locklevel"), QStringLiteral("EXT-23"));
        write(Data + "/identity/locklevel", "300");
        identity.refresh();
        QCOMPARE(identity.lockLevel(), quint8(0));
        identity.dispatcher().addHandler(nullptr);
        QVERIFY_EXCEPTION_THROWN(identity.setOptions({}), std::bad_function_call);
    }
    void dispatcherDestroysHandlersInOrder()
    {
        QStringList destroyed;
        struct Marker { QStringList* log; QString name; ~Marker() { *log << name; } };
        auto dispatcher = std::make_unique<EventDispatcherT<int>>();
        for (const char* name : {"a", "b", "c"}) {
            auto marker = std::make_shared<Marker>(Marker{&destroyed, name});
            dispatcher->addHandler([marker](int) {});
        }
        destroyed.clear(); // the temporaries
        dispatcher.reset();
        QCOMPARE(destroyed, QStringList({"a", "b", "c"}));
    }
    void serviceAccessObject()
    {
        VfCrosscuttingManagerPlaceholder* manager = VfCrosscuttingManagerPlaceholder::instance();
        VfSystemIdentity* identity = manager->systemIdentity();
        QCOMPARE(manager->systemIdentity(), identity);
        QCOMPARE(identity->model(), QStringLiteral("SPA"));
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
