// Part 9.1 Identity store, and the identity's place in the service access object (Part 1.1).
// Runs in tests/sandbox-run, so the identity files go to their real paths under an empty tmpfs
// over /opt/tarvion/data; "mount" and "sync" are fakes that record their command lines, and
// libmodel.so.1 is the tests' second library (tst_systemidentity.cmake), which also knows
// "UNCREATABLE".
#include "modelutilities.h"
#include "statuseventrecorder.h"
#include "systemidentity.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfplatforminfo.h"
#include "vftestsupport.h"

#include <QtTest>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <sys/stat.h>

using namespace Crosscutting;

namespace {

const QString Root = QStringLiteral("/opt/tarvion/data");
const QString IdentityDirectory = Root + QStringLiteral("/identity");
const QString ModelPath = Root + QStringLiteral("/identity/model");
const QString UnitNamePath = Root + QStringLiteral("/identity/unitname");
const QString FirmwarePath = Root + QStringLiteral("/version/firmware");
const QString InternalSerialPath = Root + QStringLiteral("/identity/internalserialnumber");
const QString ExternalSerialPath = Root + QStringLiteral("/identity/externalserialnumber");
const QString OptionsPath = Root + QStringLiteral("/identity/options");
const QString LockLevelPath = Root + QStringLiteral("/identity/locklevel");

const QString RemountRw = QStringLiteral("mount -o remount,rw /media/card");
const QString RemountRo = QStringLiteral("mount -o remount,ro /media/card");
const QString Sync = QStringLiteral("sync");
const QString Missing = QStringLiteral("<missing>");

// The code and the arguments of one report.
struct Report
{
    StatusCode code;
    QStringList arguments;
};

bool writeRaw(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const bool written = file.write(content) == content.size();
    file.close();
    return written;
}

QByteArray readRaw(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("<unreadable>");
    return file.readAll();
}

// The permission bits of a file, as stat gives them.
int modeOf(const QString& path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return int(status.st_mode & 07777);
}

// The error string that QFile gives for opening `path` in `mode`, as the store's reports carry it.
QString openError(const QString& path, QIODevice::OpenMode mode)
{
    QFile file(path);
    if (file.open(mode)) {
        file.close();
        return QStringLiteral("<opened>");
    }
    return file.errorString();
}

// All the files that refresh reads, except the model file, so that only the model file matters.
void writeOtherIdentityFiles()
{
    writeRaw(InternalSerialPath, "INT-1");
    writeRaw(ExternalSerialPath, "EXT-1");
    writeRaw(FirmwarePath, "1.0.0");
    writeRaw(UnitNamePath, "BENCH-1");
}

QString modelNameOf(const QObject* data)
{
    return data ? data->property("modelName").toString() : QStringLiteral("<null>");
}

} // namespace

class tst_SystemIdentity : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    // Data model and constants
    void constantsAndMetaObject();
    void constructionReadsEveryFile();

    // Edge cases worth testing (Part 9.1)
    void missingOrEmptyModelFile_data();
    void missingOrEmptyModelFile();
    void missingFilesReportOnlyFailedOpens();
    void lineEnds_data();
    void lineEnds();
    void onlyALineFeedReadsAsEmpty();
    void emptyUnitNameWritesEmptyFile();
    void unitNameLength_data();
    void unitNameLength();
    void setModelSameNameUnlessForced();
    void refreshDoesNotUpperCaseSetModelDoes();
    void fileIoDisabled();
    void fileIoDisabledUnitNameWithoutDirectory();
    void failedReadOnlyRemountReturnsReadBack_data();
    void failedReadOnlyRemountReturnsReadBack();
    void setModelWithoutPersistUntilRefresh();

    // Failure handling table (Part 9.1)
    void failureHandling_data();
    void failureHandling();

    // The remount sequence and the file mechanics
    void remountSequenceAroundTheWrite();
    void failingWritableRemountLeavesFileUntouched_data();
    void failingWritableRemountLeavesFileUntouched();
    void writeFileCreatesMissingFileAndDirectory();
    void validateFileUpdate_data();
    void validateFileUpdate();
    void createFile();
    void identityAndFirmwarePaths();

    // Operations
    void setUnitNameCaseOnlyChangeIsNotStored();
    void setUnitNameFailedWriteKeepsName();
    void setFirmwareVersionWrites();
    void setModelPersists();
    void setModelFailedWriteKeepsModel();
    void refreshInstanceNotCreatedKeepsData();
    void refreshWithFileIoDisabledResets();

    // Serial numbers, options, lock level (named by role in Part 9.1)
    void serialNumbers();
    void optionsLoadedThroughTheModel();
    void setAndUnsetOptions();
    void lockLevel();

    // Dispatcher
    void setOptionsCallsHandlersInOrder();
    void onlySetOptionsCallsHandlers();
    void emptyHandlerThrows();
    void dispatcherDestroysHandlersInOrder();

    // Part 1.1
    void systemIdentityIsBuiltOnce();
    void dropDeletesIdentityFirst();

private:
    QStringList fakeLog() const;
    QStringList fakeCommands() const;
    QStringList fakeStates() const;
    void resetFakes();
    void watch(const QString& path);
    QList<Report> reports() const;

    QTemporaryDir m_fakes;
    QString m_logPath;
    QScopedPointer<StatusEventRecorder> m_recorder;
};

void tst_SystemIdentity::initTestCase()
{
    if (!VfTest::isSandboxed())
        QSKIP("needs tests/sandbox-run: the identity files live under /opt/tarvion/data");
    qRegisterMetaType<VfStatusChangeEvent>();
    QVERIFY(m_fakes.isValid());
    QVERIFY2(Model::ModelUtilities::modelMetaObject(QStringLiteral("UNCREATABLE")),
             "libmodel.so.1 is not the tests' second library " VF_MODEL_VARIANT_FILE);

    // Each fake records "<command line> | <content of the watched file, or <missing>>".
    const QString state = QStringLiteral("state=$(cat \"$VF_FAKE_WATCH\" 2>/dev/null || printf '%s' '<missing>')\n");
    m_logPath = m_fakes.filePath(QStringLiteral("commands.log"));
    VfTest::writeFakeProgram(m_fakes.path(), QStringLiteral("mount"),
                             state
                                 + QStringLiteral("printf '%s | %s\\n' \"mount $*\" \"$state\" >> \"$VF_FAKE_LOG\"\n"
                                                  "case \"$*\" in\n"
                                                  "  *remount,rw*) exit \"${VF_FAKE_RW_RESULT:-0}\" ;;\n"
                                                  "  *remount,ro*) exit \"${VF_FAKE_RO_RESULT:-0}\" ;;\n"
                                                  "esac\n"
                                                  "exit 0\n"));
    VfTest::writeFakeProgram(m_fakes.path(), QStringLiteral("sync"),
                             state
                                 + QStringLiteral("if [ $# -gt 0 ]; then line=\"sync $*\"; else line=sync; fi\n"
                                                  "printf '%s | %s\\n' \"$line\" \"$state\" >> \"$VF_FAKE_LOG\"\n"
                                                  "if [ -n \"$VF_FAKE_SYNC_CLOBBER\" ]; then\n"
                                                  "  printf '%s' \"$VF_FAKE_SYNC_CLOBBER\" > \"$VF_FAKE_WATCH\"\n"
                                                  "fi\n"
                                                  "exit 0\n"));
    VfTest::prependToPath(m_fakes.path());
    qputenv("VF_FAKE_LOG", QFile::encodeName(m_logPath));
}

void tst_SystemIdentity::init()
{
    VfCrosscuttingManagerPlaceholder::drop();
    QDir(IdentityDirectory).removeRecursively();
    QFile::remove(IdentityDirectory); // a test may have put a plain file there
    QDir(Root + QStringLiteral("/version")).removeRecursively();
    QDir(Root + QStringLiteral("/scratch")).removeRecursively();
    resetFakes();
    m_recorder.reset(new StatusEventRecorder);
    m_recorder->attach();
}

void tst_SystemIdentity::cleanup()
{
    m_recorder.reset();
    VfCrosscuttingManagerPlaceholder::drop();
}

QStringList tst_SystemIdentity::fakeLog() const
{
    QFile file(m_logPath);
    if (!file.open(QIODevice::ReadOnly))
        return QStringList();
    QStringList lines = QString::fromLocal8Bit(file.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

QStringList tst_SystemIdentity::fakeCommands() const
{
    QStringList commands;
    for (const QString& line : fakeLog())
        commands.append(line.section(QStringLiteral(" | "), 0, 0));
    return commands;
}

QStringList tst_SystemIdentity::fakeStates() const
{
    QStringList states;
    for (const QString& line : fakeLog())
        states.append(line.section(QStringLiteral(" | "), 1));
    return states;
}

void tst_SystemIdentity::resetFakes()
{
    QFile::remove(m_logPath);
    qunsetenv("VF_FAKE_RW_RESULT");
    qunsetenv("VF_FAKE_RO_RESULT");
    qunsetenv("VF_FAKE_SYNC_CLOBBER");
    qunsetenv("VF_FAKE_WATCH");
}

void tst_SystemIdentity::watch(const QString& path)
{
    qputenv("VF_FAKE_WATCH", QFile::encodeName(path));
}

QList<Report> tst_SystemIdentity::reports() const
{
    QList<Report> result;
    for (const VfStatusChangeEvent& event : m_recorder->events)
        result.append(Report{event.statusCode(), event.sourceContext()->additionalInfo()});
    return result;
}

// ---------------------------------------------------------------------------------------------
// Data model and constants

void tst_SystemIdentity::constantsAndMetaObject()
{
    QCOMPARE(ModelFile, QStringLiteral("/identity/model"));
    // A meta-object of its own, with nothing beyond QObject's.
    const QMetaObject& meta = VfSystemIdentity::staticMetaObject;
    QCOMPARE(QString::fromLatin1(meta.className()), QStringLiteral("Crosscutting::VfSystemIdentity"));
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount(), QObject::staticMetaObject.methodCount());
    QCOMPARE(meta.propertyCount(), QObject::staticMetaObject.propertyCount());
    QCOMPARE(meta.enumeratorCount(), QObject::staticMetaObject.enumeratorCount());
    QCOMPARE(meta.constructorCount(), 0);
}

void tst_SystemIdentity::constructionReadsEveryFile()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "VNA");
    QObject parent;
    VfSystemIdentity* identity = new VfSystemIdentity(false, &parent);
    QCOMPARE(identity->parent(), &parent);
    QCOMPARE(identity->model(), QStringLiteral("VNA"));
    QCOMPARE(identity->unitName(), QStringLiteral("BENCH-1"));
    QCOMPARE(identity->firmwareVersion(), QStringLiteral("1.0.0"));
    QCOMPARE(identity->internalSerialNumber(), QStringLiteral("INT-1"));
    QCOMPARE(identity->externalSerialNumber(), QStringLiteral("EXT-1"));
    QCOMPARE(modelNameOf(identity->getModelDependentData()), QStringLiteral("VNA"));
    QVERIFY(!identity->getModelDependentData()->parent());
    QCOMPARE(reports().size(), 0);
    QCOMPARE(fakeLog(), QStringList()); // reading remounts nothing
}

// ---------------------------------------------------------------------------------------------
// Edge cases worth testing

void tst_SystemIdentity::missingOrEmptyModelFile_data()
{
    QTest::addColumn<bool>("missing");
    QTest::newRow("missing") << true;
    QTest::newRow("empty") << false;
}

// A missing or empty model file leaves the model at "UNKNOWN", gives a model-dependent object
// made from "DEFAULTMODEL", and reports only a failed open in the missing case.
void tst_SystemIdentity::missingOrEmptyModelFile()
{
    QFETCH(bool, missing);
    writeOtherIdentityFiles();
    if (!missing)
        QVERIFY(writeRaw(ModelPath, QByteArray()));

    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
    QVERIFY(identity.getModelDependentData());
    QCOMPARE(QString::fromLatin1(identity.getModelDependentData()->metaObject()->className()),
             QStringLiteral("Model::DefaultModel"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("DEFAULTMODEL"));

    const QList<Report> seen = reports();
    if (missing) {
        QCOMPARE(seen.size(), 1);
        QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileCannotOpen));
        QCOMPARE(seen.at(0).arguments,
                 QStringList{ModelPath + QStringLiteral(", ") + openError(ModelPath, QIODevice::ReadOnly | QIODevice::Text)});
    } else {
        QCOMPARE(seen.size(), 0);
    }
}

// With no identity file at all, every report of the construction is a failed open.
void tst_SystemIdentity::missingFilesReportOnlyFailedOpens()
{
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.unitName(), QString(""));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("UNKNOWN"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("DEFAULTMODEL"));
    const QList<Report> seen = reports();
    QStringList paths;
    for (const Report& report : seen) {
        QCOMPARE(report.code, StatusCode(VfStatusCodes::FileCannotOpen));
        paths.append(report.arguments.value(0).section(QStringLiteral(", "), 0, 0));
    }
    // Part 9.1 refresh step 2, then the model file.
    QCOMPARE(paths, (QStringList{InternalSerialPath, ExternalSerialPath, FirmwarePath, UnitNamePath, ModelPath}));
}

void tst_SystemIdentity::lineEnds_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("model");
    QTest::addColumn<bool>("parseError");
    QTest::newRow("SPA and one line feed") << QByteArray("SPA\n") << "SPA" << false;
    QTest::newRow("SPA without line end") << QByteArray("SPA") << "SPA" << false;
    QTest::newRow("line feed in the middle") << QByteArray("SP\nA") << "UNKNOWN" << true;
    QTest::newRow("two line feeds at the end") << QByteArray("SPA\n\n") << "UNKNOWN" << true;
}

// "SPA" and one line feed reads as SPA; a line feed in the middle, or two at the end, reads as
// "UNKNOWN" and reports StringParseError.
void tst_SystemIdentity::lineEnds()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, model);
    QFETCH(bool, parseError);
    writeOtherIdentityFiles();
    QVERIFY(writeRaw(ModelPath, content));
    if (parseError) {
        // The content has no marker left to fill: Qt says so, once at construction, once below.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^QString::arg: Argument missing")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^QString::arg: Argument missing")));
    }

    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.model(), model);
    QCOMPARE(modelNameOf(identity.getModelDependentData()),
             model == QLatin1String("UNKNOWN") ? QStringLiteral("DEFAULTMODEL") : model);

    m_recorder->events.clear();
    QCOMPARE(identity.readFile(ModelPath), model);
    const QList<Report> seen = reports();
    if (!parseError) {
        QCOMPARE(seen.size(), 0);
        return;
    }
    // Part 9.1: kept as specified: the path and the content for a one-marker text, so
    // ReportStatusInvalidArgCount ("69", 2 given, 1 expected) comes first.
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::ReportStatusInvalidArgCount));
    QCOMPARE(seen.at(0).arguments, (QStringList{"69", "2", "1"}));
    QCOMPARE(seen.at(1).code, StatusCode(VfStatusCodes::StringParseError));
    QCOMPARE(seen.at(1).arguments, (QStringList{ModelPath, QString::fromLatin1(content)}));
}

// A file that holds only a line feed reads as an empty string and not as "UNKNOWN".
void tst_SystemIdentity::onlyALineFeedReadsAsEmpty()
{
    writeOtherIdentityFiles();
    QVERIFY(writeRaw(FirmwarePath, "\n"));
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.firmwareVersion(), QString(""));
    QVERIFY(!identity.firmwareVersion().isNull());

    m_recorder->events.clear();
    const QString text = identity.readFile(FirmwarePath);
    QCOMPARE(text, QString(""));
    QVERIFY(text != QLatin1String("UNKNOWN"));
    QCOMPARE(reports().size(), 0);
    // An empty file, by contrast, reads as "UNKNOWN".
    QVERIFY(writeRaw(FirmwarePath, QByteArray()));
    QCOMPARE(identity.readFile(FirmwarePath), QStringLiteral("UNKNOWN"));
}

// setUnitName with an empty name on a unit that has a name writes an empty file and succeeds,
// since the read-back "UNKNOWN" with an empty value counts as equal. After the next refresh the
// unit name is an empty string.
void tst_SystemIdentity::emptyUnitNameWritesEmptyFile()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.unitName(), QStringLiteral("BENCH-1"));

    watch(UnitNamePath);
    QCOMPARE(identity.setUnitName(QString()), StatusCode(VfStatusCodes::Success));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    QCOMPARE(readRaw(UnitNamePath), QByteArray());
    QCOMPARE(modeOf(UnitNamePath), 0444);
    QCOMPARE(identity.unitName(), QString(""));
    QCOMPARE(reports().size(), 0);

    identity.refresh();
    QCOMPARE(identity.unitName(), QString(""));
    VfSystemIdentity rebuilt(false, nullptr);
    QCOMPARE(rebuilt.unitName(), QString(""));
    QCOMPARE(reports().size(), 0);
}

void tst_SystemIdentity::unitNameLength_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<StatusCode>("status");
    QTest::newRow("45 characters") << 45 << StatusCode(VfStatusCodes::Success);
    QTest::newRow("46 characters") << 46 << StatusCode(VfStatusCodes::DataSizeInvalid);
}

// setUnitName with 45 characters is written; with 46 it returns DataSizeInvalid, with no report.
void tst_SystemIdentity::unitNameLength()
{
    QFETCH(int, length);
    QFETCH(StatusCode, status);
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    m_recorder->events.clear();

    const QString name(length, QLatin1Char('N'));
    QCOMPARE(identity.setUnitName(name), status);
    QCOMPARE(reports().size(), 0);
    if (status == VfStatusCodes::Success) {
        QCOMPARE(readRaw(UnitNamePath), name.toLatin1());
        QCOMPARE(identity.unitName(), name);
        QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    } else {
        QCOMPARE(readRaw(UnitNamePath), QByteArray("BENCH-1"));
        QCOMPARE(identity.unitName(), QStringLiteral("BENCH-1"));
        QCOMPARE(fakeLog(), QStringList());
    }
}

// setModel with spa when the stored model is SPA returns Success and changes nothing, unless
// the model forced flag is set: then it rebuilds the model-dependent data and clears the options.
void tst_SystemIdentity::setModelSameNameUnlessForced()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    writeRaw(OptionsPath, "PREAMP");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
    QCOMPARE(identity.options(), QStringList{"PREAMP"});
    QPointer<QObject> before = identity.getModelDependentData();
    QVERIFY(before);

    QCOMPARE(identity.setModel(QStringLiteral("spa"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.getModelDependentData(), before.data());
    QCOMPARE(identity.options(), QStringList{"PREAMP"});
    QCOMPARE(fakeLog(), QStringList());
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));

    identity.setIsModelForced(true);
    watch(ModelPath);
    QCOMPARE(identity.setModel(QStringLiteral("spa"), true), StatusCode(VfStatusCodes::Success));
    QVERIFY(before.isNull()); // the previous data was deleted
    QVERIFY(identity.getModelDependentData());
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("SPA"));
    QCOMPARE(identity.getModelDependentData()->property("options").toStringList(), QStringList());
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
    QCOMPARE(identity.options(), QStringList());
    // The model file is written again; the cleared options reach their file too.
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo, RemountRw, Sync, RemountRo}));
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));
    QCOMPARE(readRaw(OptionsPath), QByteArray());
}

// refresh does not upper-case what it reads, while setModel does: a file holding spa is passed
// to modelMetaObject as it stands.
void tst_SystemIdentity::refreshDoesNotUpperCaseSetModelDoes()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "spa");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("DEFAULTMODEL"));
    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::ConfigurationDataInvalid));
    QCOMPARE(seen.at(0).arguments, (QStringList{"/identity/model", "invalid model spa"}));

    QCOMPARE(identity.setModel(QStringLiteral("spa"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));
    identity.refresh();
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
}

// With file I/O disabled, setFirmwareVersion changes only memory and setModel writes nothing,
// while setUnitName still runs the full writeFile sequence, in which createFile then does nothing.
void tst_SystemIdentity::fileIoDisabled()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(true, nullptr);
    QCOMPARE(reports().size(), 0);
    QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.unitName(), QString(""));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("UNKNOWN"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("DEFAULTMODEL"));

    QCOMPARE(identity.setFirmwareVersion(QStringLiteral("2.0.0")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("2.0.0"));
    QCOMPARE(readRaw(FirmwarePath), QByteArray("1.0.0"));

    QCOMPARE(identity.setModel(QStringLiteral("vna"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.model(), QStringLiteral("VNA"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("VNA"));
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));
    QCOMPARE(fakeLog(), QStringList());

    // Part 9.1: setUnitName does not look at the switch. The file is missing: FileNotFound, then
    // createFile does nothing, and the open creates the file in the existing directory.
    QFile::remove(UnitNamePath);
    watch(UnitNamePath);
    QCOMPARE(identity.setUnitName(QStringLiteral("LAB")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    QCOMPARE(fakeStates(), (QStringList{Missing, "LAB", "LAB"}));
    QCOMPARE(readRaw(UnitNamePath), QByteArray("LAB"));
    QCOMPARE(identity.unitName(), QStringLiteral("LAB"));
    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileNotFound));
}

// With file I/O disabled createFile makes no directory, so the open of the write fails.
void tst_SystemIdentity::fileIoDisabledUnitNameWithoutDirectory()
{
    VfSystemIdentity identity(true, nullptr);
    QVERIFY(!QFileInfo::exists(IdentityDirectory));
    const QString error = openError(UnitNamePath, QIODevice::WriteOnly | QIODevice::Text);

    QCOMPARE(identity.setUnitName(QStringLiteral("LAB")), StatusCode(VfStatusCodes::FileCannotOpen));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    QVERIFY(!QFileInfo::exists(IdentityDirectory));
    QCOMPARE(identity.unitName(), QString(""));
    QCOMPARE(identity.createFile(UnitNamePath), StatusCode(VfStatusCodes::Success));
    QVERIFY(!QFileInfo::exists(IdentityDirectory));

    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileNotFound));
    QCOMPARE(seen.at(1).code, StatusCode(VfStatusCodes::FileCannotOpen));
    QCOMPARE(seen.at(1).arguments, QStringList{UnitNamePath + QStringLiteral(", ") + error});
}

void tst_SystemIdentity::failedReadOnlyRemountReturnsReadBack_data()
{
    QTest::addColumn<QString>("clobber");
    QTest::addColumn<StatusCode>("status");
    QTest::newRow("read-back equal") << QString() << StatusCode(VfStatusCodes::Success);
    QTest::newRow("read-back differs") << "CHANGED" << StatusCode(VfStatusCodes::IoWriteFailed);
}

// A failed read-only remount after a good write still returns the result of the read-back.
void tst_SystemIdentity::failedReadOnlyRemountReturnsReadBack()
{
    QFETCH(QString, clobber);
    QFETCH(StatusCode, status);
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    m_recorder->events.clear();

    watch(UnitNamePath);
    qputenv("VF_FAKE_RO_RESULT", "4");
    if (!clobber.isEmpty())
        qputenv("VF_FAKE_SYNC_CLOBBER", clobber.toLatin1()); // the fake sync changes the file
    QCOMPARE(identity.writeIdentityFile(QStringLiteral("/identity/unitname"), QStringLiteral("NEW")), status);
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(seen.at(0).arguments, (QStringList{"rootfs", "read-only", "4"}));
}

// setModel with persist false changes the model until the next refresh, which restores what the
// file says.
void tst_SystemIdentity::setModelWithoutPersistUntilRefresh()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.setModel(QStringLiteral("vna"), false), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.model(), QStringLiteral("VNA"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("VNA"));
    QCOMPARE(fakeLog(), QStringList());
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));

    identity.refresh();
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("SPA"));
}

// ---------------------------------------------------------------------------------------------
// Failure handling table

namespace {
enum Scenario {
    ReadFileOpenFailed,
    ReadFileMoreThanOneLine,
    WriteFileWritableRemountFailed,
    WriteFileFileMissing,
    WriteFileOpenFailed,
    WriteFileReadOnlyRemountFailed,
    CreateFileDirectoryCannotBeMade,
    CreateFileOpenFailed,
    RefreshModelNameNotKnown,
    RefreshInstanceNotCreated,
    SetModelModelNameNotKnown,
    SetModelInstanceNotCreated
};
} // namespace

void tst_SystemIdentity::failureHandling_data()
{
    // Operation and condition, the status reported, its arguments ({path}, {error}, {content},
    // {name} and {class} are filled in by the scenario), and the result (-1: none to return).
    QTest::addColumn<int>("scenario");
    QTest::addColumn<StatusCode>("status");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<qint64>("result");

    QTest::newRow("readFile: open failed") << int(ReadFileOpenFailed) << StatusCode(VfStatusCodes::FileCannotOpen)
                                           << QStringList{"{path}, {error}"} << qint64(-1);
    QTest::newRow("readFile: more than one line")
        << int(ReadFileMoreThanOneLine) << StatusCode(VfStatusCodes::StringParseError)
        << QStringList{"{path}", "{content}"} << qint64(-1);
    QTest::newRow("writeFile: writable remount failed")
        << int(WriteFileWritableRemountFailed) << StatusCode(VfStatusCodes::FileSystemMountFailed)
        << QStringList{"rootfs", "read-write", "3"} << qint64(VfStatusCodes::FileSystemMountFailed);
    QTest::newRow("writeFile: file missing")
        << int(WriteFileFileMissing) << StatusCode(VfStatusCodes::FileNotFound)
        << QStringList{"Failed to open the file {path}, creating a new file"} << qint64(VfStatusCodes::Success);
    QTest::newRow("writeFile: open failed") << int(WriteFileOpenFailed) << StatusCode(VfStatusCodes::FileCannotOpen)
                                            << QStringList{"{path}, {error}"} << qint64(VfStatusCodes::FileCannotOpen);
    QTest::newRow("writeFile: read-only remount failed")
        << int(WriteFileReadOnlyRemountFailed) << StatusCode(VfStatusCodes::FileSystemMountFailed)
        << QStringList{"rootfs", "read-only", "4"} << qint64(VfStatusCodes::Success);
    QTest::newRow("createFile: directory cannot be made")
        << int(CreateFileDirectoryCannotBeMade) << StatusCode(VfStatusCodes::DirectoryNotFound)
        << QStringList{"{path}"} << qint64(VfStatusCodes::DirectoryNotFound);
    QTest::newRow("createFile: open failed") << int(CreateFileOpenFailed) << StatusCode(VfStatusCodes::FileCannotOpen)
                                             << QStringList{"{path}, {error}"} << qint64(VfStatusCodes::FileCannotOpen);
    QTest::newRow("refresh: model name not known")
        << int(RefreshModelNameNotKnown) << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
        << QStringList{"/identity/model", "invalid model {name}"} << qint64(-1);
    QTest::newRow("refresh: instance not created")
        << int(RefreshInstanceNotCreated) << StatusCode(VfStatusCodes::MetaObjectInstantiationError)
        << QStringList{"{class}"} << qint64(-1);
    QTest::newRow("setModel: model name not known")
        << int(SetModelModelNameNotKnown) << StatusCode(VfStatusCodes::InputInvalid) << QStringList{"model({name})"}
        << qint64(VfStatusCodes::InputInvalid);
    QTest::newRow("setModel: instance not created")
        << int(SetModelInstanceNotCreated) << StatusCode(VfStatusCodes::MetaObjectInstantiationError)
        << QStringList{"{class}"} << qint64(VfStatusCodes::MetaObjectInstantiationError);
}

void tst_SystemIdentity::failureHandling()
{
    QFETCH(int, scenario);
    QFETCH(StatusCode, status);
    QFETCH(QStringList, arguments);
    QFETCH(qint64, result);

    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(reports().size(), 0);

    QHash<QString, QString> fill;
    qint64 returned = -1;
    switch (Scenario(scenario)) {
    case ReadFileOpenFailed: {
        const QString path = Root + QStringLiteral("/identity/none");
        fill["{path}"] = path;
        fill["{error}"] = openError(path, QIODevice::ReadOnly | QIODevice::Text);
        QCOMPARE(identity.readFile(path), QStringLiteral("UNKNOWN"));
        break;
    }
    case ReadFileMoreThanOneLine: {
        const QString path = Root + QStringLiteral("/scratch/lines");
        writeRaw(path, "ONE\nTWO\n");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^QString::arg: Argument missing")));
        fill["{path}"] = path;
        fill["{content}"] = QStringLiteral("ONE\nTWO\n");
        QCOMPARE(identity.readFile(path), QStringLiteral("UNKNOWN"));
        break;
    }
    case WriteFileWritableRemountFailed:
        qputenv("VF_FAKE_RW_RESULT", "3");
        returned = qint64(identity.writeFile(UnitNamePath, QStringLiteral("NEW")));
        QCOMPARE(readRaw(UnitNamePath), QByteArray("BENCH-1"));
        break;
    case WriteFileFileMissing: {
        const QString path = Root + QStringLiteral("/scratch/new");
        fill["{path}"] = path;
        returned = qint64(identity.writeFile(path, QStringLiteral("NEW")));
        QCOMPARE(readRaw(path), QByteArray("NEW"));
        break;
    }
    case WriteFileOpenFailed: {
        const QString path = Root + QStringLiteral("/scratch/adirectory");
        QVERIFY(QDir().mkpath(path));
        fill["{path}"] = path;
        fill["{error}"] = openError(path, QIODevice::WriteOnly | QIODevice::Text);
        returned = qint64(identity.writeFile(path, QStringLiteral("NEW")));
        QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
        break;
    }
    case WriteFileReadOnlyRemountFailed:
        qputenv("VF_FAKE_RO_RESULT", "4");
        returned = qint64(identity.writeFile(UnitNamePath, QStringLiteral("NEW")));
        QCOMPARE(readRaw(UnitNamePath), QByteArray("NEW"));
        break;
    case CreateFileDirectoryCannotBeMade: {
        const QString path = Root + QStringLiteral("/scratch/plainfile/child");
        writeRaw(Root + QStringLiteral("/scratch/plainfile"), "not a directory");
        fill["{path}"] = path;
        returned = qint64(identity.createFile(path));
        break;
    }
    case CreateFileOpenFailed: {
        // A name longer than the file system allows: even root cannot open it.
        const QString path = Root + QStringLiteral("/scratch/") + QString(300, QLatin1Char('x'));
        QDir().mkpath(Root + QStringLiteral("/scratch"));
        fill["{path}"] = path;
        fill["{error}"] = openError(path, QIODevice::ReadWrite | QIODevice::Text);
        returned = qint64(identity.createFile(path));
        break;
    }
    case RefreshModelNameNotKnown:
        writeRaw(ModelPath, "XYZ");
        fill["{name}"] = QStringLiteral("XYZ");
        identity.refresh();
        QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
        break;
    case RefreshInstanceNotCreated: {
        writeRaw(OptionsPath, "PREAMP");
        identity.refresh();
        QCOMPARE(identity.options(), QStringList{"PREAMP"});
        QObject* dataBefore = identity.getModelDependentData();
        const QStringList optionsBefore = identity.options();
        writeRaw(ModelPath, "UNCREATABLE");
        fill["{class}"] = QStringLiteral("Model::UncreatableModel");
        identity.refresh();
        // The model is set; the data, and the options it was made with, stay as they were.
        QCOMPARE(identity.model(), QStringLiteral("UNCREATABLE"));
        QCOMPARE(identity.getModelDependentData(), dataBefore);
        QCOMPARE(identity.options(), optionsBefore);
        break;
    }
    case SetModelModelNameNotKnown:
        fill["{name}"] = QStringLiteral("XYZ");
        returned = qint64(identity.setModel(QStringLiteral("xyz"), true));
        QCOMPARE(identity.model(), QStringLiteral("SPA"));
        QCOMPARE(fakeLog(), QStringList());
        break;
    case SetModelInstanceNotCreated:
        fill["{class}"] = QStringLiteral("Model::UncreatableModel");
        returned = qint64(identity.setModel(QStringLiteral("uncreatable"), true));
        QCOMPARE(identity.model(), QStringLiteral("SPA"));
        QCOMPARE(fakeLog(), QStringList());
        break;
    }

    QCOMPARE(returned, result);
    QStringList expected;
    for (QString argument : arguments) {
        for (auto it = fill.cbegin(); it != fill.cend(); ++it)
            argument.replace(it.key(), it.value());
        expected.append(argument);
    }
    QList<Report> matching;
    for (const Report& report : reports()) {
        if (report.code == status)
            matching.append(report);
    }
    QCOMPARE(matching.size(), 1);
    QCOMPARE(matching.at(0).arguments, expected);
}

// ---------------------------------------------------------------------------------------------
// The remount sequence and the file mechanics

void tst_SystemIdentity::remountSequenceAroundTheWrite()
{
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    QFile::setPermissions(UnitNamePath, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    m_recorder->events.clear();

    watch(UnitNamePath);
    QCOMPARE(identity.setUnitName(QStringLiteral("BENCH-2")), StatusCode(VfStatusCodes::Success));
    // Exact command lines, in order; the file changes between the writable remount and "sync".
    QCOMPARE(fakeCommands(), (QStringList{"mount -o remount,rw /media/card", "sync", "mount -o remount,ro /media/card"}));
    QCOMPARE(fakeStates(), (QStringList{"BENCH-1", "BENCH-2", "BENCH-2"}));
    // The value exactly, with no line end, and read-only for all.
    QCOMPARE(readRaw(UnitNamePath), QByteArray("BENCH-2"));
    QCOMPARE(modeOf(UnitNamePath), 0444);
    QCOMPARE(identity.unitName(), QStringLiteral("BENCH-2"));
    QCOMPARE(reports().size(), 0);
}

void tst_SystemIdentity::failingWritableRemountLeavesFileUntouched_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("existing file") << true;
    QTest::newRow("missing file") << false;
}

void tst_SystemIdentity::failingWritableRemountLeavesFileUntouched()
{
    QFETCH(bool, exists);
    VfSystemIdentity identity(false, nullptr);
    if (exists) {
        writeRaw(UnitNamePath, "BENCH-1");
        QFile::setPermissions(UnitNamePath, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    }
    m_recorder->events.clear();

    qputenv("VF_FAKE_RW_RESULT", "32");
    QCOMPARE(identity.setUnitName(QStringLiteral("BENCH-2")), StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(fakeCommands(), QStringList{RemountRw}); // no write, no "sync", no read-only remount
    if (exists) {
        QCOMPARE(readRaw(UnitNamePath), QByteArray("BENCH-1"));
        QCOMPARE(modeOf(UnitNamePath), 0444);
    } else {
        QVERIFY(!QFileInfo::exists(IdentityDirectory));
    }
    QCOMPARE(identity.unitName(), QString(""));
    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(seen.at(0).arguments, (QStringList{"rootfs", "read-write", "32"}));
}

void tst_SystemIdentity::writeFileCreatesMissingFileAndDirectory()
{
    VfSystemIdentity identity(false, nullptr);
    m_recorder->events.clear();
    QVERIFY(!QFileInfo::exists(IdentityDirectory));

    watch(UnitNamePath);
    QCOMPARE(identity.setUnitName(QStringLiteral("LAB")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    QCOMPARE(fakeStates(), (QStringList{Missing, "LAB", "LAB"}));
    QVERIFY(QFileInfo(IdentityDirectory).isDir());
    QCOMPARE(readRaw(UnitNamePath), QByteArray("LAB"));
    QCOMPARE(modeOf(UnitNamePath), 0444);
    const QList<Report> seen = reports();
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).code, StatusCode(VfStatusCodes::FileNotFound));
    QCOMPARE(seen.at(0).arguments,
             QStringList{QStringLiteral("Failed to open the file %1, creating a new file").arg(UnitNamePath)});
}

void tst_SystemIdentity::validateFileUpdate_data()
{
    QTest::addColumn<QByteArray>("content"); // "<none>": no file
    QTest::addColumn<QString>("value");
    QTest::addColumn<StatusCode>("status");
    QTest::addColumn<int>("reportCount");
    QTest::newRow("equal") << QByteArray("ABC") << "ABC" << StatusCode(VfStatusCodes::Success) << 0;
    QTest::newRow("equal after one line end") << QByteArray("ABC\n") << "ABC" << StatusCode(VfStatusCodes::Success) << 0;
    QTest::newRow("different") << QByteArray("ABD") << "ABC" << StatusCode(VfStatusCodes::IoWriteFailed) << 0;
    QTest::newRow("empty file, empty value") << QByteArray() << "" << StatusCode(VfStatusCodes::Success) << 0;
    QTest::newRow("empty file, value UNKNOWN") << QByteArray() << "UNKNOWN" << StatusCode(VfStatusCodes::Success) << 0;
    QTest::newRow("file UNKNOWN, empty value") << QByteArray("UNKNOWN") << "" << StatusCode(VfStatusCodes::Success) << 0;
    QTest::newRow("empty file, other value") << QByteArray() << "X" << StatusCode(VfStatusCodes::IoWriteFailed) << 0;
    // The read's own report is the only one.
    QTest::newRow("no file, empty value") << QByteArray("<none>") << "" << StatusCode(VfStatusCodes::Success) << 1;
    QTest::newRow("no file, a value") << QByteArray("<none>") << "X" << StatusCode(VfStatusCodes::IoWriteFailed) << 1;
}

void tst_SystemIdentity::validateFileUpdate()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, value);
    QFETCH(StatusCode, status);
    QFETCH(int, reportCount);
    VfSystemIdentity identity(true, nullptr);
    const QString path = Root + QStringLiteral("/scratch/validate");
    if (content != "<none>")
        writeRaw(path, content);
    QCOMPARE(identity.validateFileUpdate(value, path), status);
    QCOMPARE(reports().size(), reportCount);
}

void tst_SystemIdentity::createFile()
{
    VfSystemIdentity identity(false, nullptr);
    m_recorder->events.clear();

    // A new file in a new directory: made empty and read-only for all.
    const QString path = Root + QStringLiteral("/scratch/deeper/created");
    QCOMPARE(identity.createFile(path), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(path), QByteArray());
    QCOMPARE(modeOf(path), 0444);

    // An existing file keeps its content and becomes read-only for all.
    const QString existing = Root + QStringLiteral("/scratch/existing");
    writeRaw(existing, "KEEP");
    QFile::setPermissions(existing, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                                        | QFileDevice::WriteGroup | QFileDevice::ReadOther | QFileDevice::WriteOther);
    QCOMPARE(identity.createFile(existing), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(existing), QByteArray("KEEP"));
    QCOMPARE(modeOf(existing), 0444);
    QCOMPARE(reports().size(), 0);
    QCOMPARE(fakeLog(), QStringList()); // createFile does not remount

    // With file I/O disabled it does nothing at all.
    VfSystemIdentity disabled(true, nullptr);
    const QString untouched = Root + QStringLiteral("/scratch/other/never");
    QCOMPARE(disabled.createFile(untouched), StatusCode(VfStatusCodes::Success));
    QVERIFY(!QFileInfo::exists(Root + QStringLiteral("/scratch/other")));
}

void tst_SystemIdentity::identityAndFirmwarePaths()
{
    VfSystemIdentity identity(true, nullptr);
    writeRaw(UnitNamePath, "U");
    writeRaw(ModelPath, "M");
    writeRaw(FirmwarePath, "F");
    QCOMPARE(identity.readIdentityFile(QStringLiteral("/identity/unitname")), QStringLiteral("U"));
    QCOMPARE(identity.readIdentityFile(ModelFile), QStringLiteral("M"));
    QCOMPARE(identity.readFWVersionFile(), QStringLiteral("F"));

    QCOMPARE(identity.writeIdentityFile(ModelFile, QStringLiteral("M2")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(ModelPath), QByteArray("M2"));
    QCOMPARE(identity.writeFWVersionFile(QStringLiteral("F2")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(FirmwarePath), QByteArray("F2"));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo, RemountRw, Sync, RemountRo}));
}

// ---------------------------------------------------------------------------------------------
// Operations

void tst_SystemIdentity::setUnitNameCaseOnlyChangeIsNotStored()
{
    writeOtherIdentityFiles();
    writeRaw(UnitNamePath, "Lab-1");
    VfSystemIdentity identity(false, nullptr);
    // Part 9.1: kept as specified: a change only of letter case is not stored.
    QCOMPARE(identity.setUnitName(QStringLiteral("LAB-1")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.unitName(), QStringLiteral("Lab-1"));
    QCOMPARE(readRaw(UnitNamePath), QByteArray("Lab-1"));
    QCOMPARE(fakeLog(), QStringList());
    // Any other change is stored exactly as written.
    QCOMPARE(identity.setUnitName(QStringLiteral("Lab-2")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.unitName(), QStringLiteral("Lab-2"));
    QCOMPARE(readRaw(UnitNamePath), QByteArray("Lab-2"));
}

void tst_SystemIdentity::setUnitNameFailedWriteKeepsName()
{
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    qputenv("VF_FAKE_SYNC_CLOBBER", "GARBLED");
    watch(UnitNamePath);
    QCOMPARE(identity.setUnitName(QStringLiteral("BENCH-2")), StatusCode(VfStatusCodes::IoWriteFailed));
    QCOMPARE(identity.unitName(), QStringLiteral("BENCH-1"));
}

void tst_SystemIdentity::setFirmwareVersionWrites()
{
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    watch(FirmwarePath);
    QCOMPARE(identity.setFirmwareVersion(QStringLiteral("2.1.0")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(fakeStates(), (QStringList{"1.0.0", "2.1.0", "2.1.0"}));
    QCOMPARE(readRaw(FirmwarePath), QByteArray("2.1.0"));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("2.1.0"));

    // A failed write returns its status at once and keeps the stored value.
    qputenv("VF_FAKE_RW_RESULT", "1");
    QCOMPARE(identity.setFirmwareVersion(QStringLiteral("3.0.0")), StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("2.1.0"));
    QCOMPARE(readRaw(FirmwarePath), QByteArray("2.1.0"));
}

void tst_SystemIdentity::setModelPersists()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QPointer<QObject> before = identity.getModelDependentData();
    m_recorder->events.clear();

    watch(ModelPath);
    QCOMPARE(identity.setModel(QStringLiteral("Vna"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(fakeCommands(), (QStringList{RemountRw, Sync, RemountRo}));
    QCOMPARE(fakeStates(), (QStringList{"SPA", "VNA", "VNA"}));
    QCOMPARE(readRaw(ModelPath), QByteArray("VNA"));
    QCOMPARE(modeOf(ModelPath), 0444);
    QCOMPARE(identity.model(), QStringLiteral("VNA"));
    QVERIFY(before.isNull());
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("VNA"));
    QCOMPARE(reports().size(), 0);
}

void tst_SystemIdentity::setModelFailedWriteKeepsModel()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QObject* before = identity.getModelDependentData();

    qputenv("VF_FAKE_RW_RESULT", "2");
    QCOMPARE(identity.setModel(QStringLiteral("VNA"), true), StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(identity.model(), QStringLiteral("SPA"));
    QCOMPARE(identity.getModelDependentData(), before);
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("SPA"));
    QCOMPARE(readRaw(ModelPath), QByteArray("SPA"));
}

// refresh step 6: when the first instance cannot be made, the model stays set and the
// model-dependent data stays as it was (null, on the very first refresh).
void tst_SystemIdentity::refreshInstanceNotCreatedKeepsData()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QObject* before = identity.getModelDependentData();
    QVERIFY(before);

    writeRaw(ModelPath, "UNCREATABLE");
    identity.refresh();
    QCOMPARE(identity.model(), QStringLiteral("UNCREATABLE"));
    QCOMPARE(identity.getModelDependentData(), before);
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("SPA"));

    VfSystemIdentity fresh(false, nullptr);
    QCOMPARE(fresh.model(), QStringLiteral("UNCREATABLE"));
    QCOMPARE(fresh.getModelDependentData(), static_cast<QObject*>(nullptr));
}

void tst_SystemIdentity::refreshWithFileIoDisabledResets()
{
    VfSystemIdentity identity(true, nullptr);
    QCOMPARE(identity.setModel(QStringLiteral("SPA"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.setFirmwareVersion(QStringLiteral("9")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.setInternalSerialNumber(QStringLiteral("I9")), StatusCode(VfStatusCodes::Success));
    identity.refresh();
    QCOMPARE(identity.model(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.firmwareVersion(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.internalSerialNumber(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.externalSerialNumber(), QStringLiteral("UNKNOWN"));
    QCOMPARE(identity.unitName(), QString(""));
    QCOMPARE(modelNameOf(identity.getModelDependentData()), QStringLiteral("DEFAULTMODEL"));
    QCOMPARE(reports().size(), 0);
    QCOMPARE(fakeLog(), QStringList());
}

// ---------------------------------------------------------------------------------------------
// Serial numbers, options, lock level

void tst_SystemIdentity::serialNumbers()
{
    writeOtherIdentityFiles();
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.internalSerialNumber(), QStringLiteral("INT-1"));
    QCOMPARE(identity.externalSerialNumber(), QStringLiteral("EXT-1"));

    QCOMPARE(identity.setInternalSerialNumber(QStringLiteral("INT-2")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.setExternalSerialNumber(QStringLiteral("EXT-2")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(InternalSerialPath), QByteArray("INT-2"));
    QCOMPARE(readRaw(ExternalSerialPath), QByteArray("EXT-2"));
    QCOMPARE(fakeCommands().count(RemountRw), 2);

    qputenv("VF_FAKE_RW_RESULT", "1");
    QCOMPARE(identity.setInternalSerialNumber(QStringLiteral("INT-3")), StatusCode(VfStatusCodes::FileSystemMountFailed));
    QCOMPARE(identity.internalSerialNumber(), QStringLiteral("INT-2"));
    qunsetenv("VF_FAKE_RW_RESULT");

    identity.refresh();
    QCOMPARE(identity.internalSerialNumber(), QStringLiteral("INT-2"));
    QCOMPARE(identity.externalSerialNumber(), QStringLiteral("EXT-2"));

    // With file I/O disabled, memory only.
    VfSystemIdentity disabled(true, nullptr);
    resetFakes();
    QCOMPARE(disabled.setExternalSerialNumber(QStringLiteral("EXT-9")), StatusCode(VfStatusCodes::Success));
    QCOMPARE(disabled.externalSerialNumber(), QStringLiteral("EXT-9"));
    QCOMPARE(readRaw(ExternalSerialPath), QByteArray("EXT-2"));
    QCOMPARE(fakeLog(), QStringList());
}

void tst_SystemIdentity::optionsLoadedThroughTheModel()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    writeRaw(OptionsPath, "TRACKINGGENERATOR,BOGUS,,PREAMP,TIMEDOMAIN");
    VfSystemIdentity identity(false, nullptr);
    // Only what the model accepts, in the file's order; the data is made with them.
    QCOMPARE(identity.options(), (QStringList{"TRACKINGGENERATOR", "PREAMP"}));
    QCOMPARE(identity.getModelDependentData()->property("options").toStringList(),
             (QStringList{"TRACKINGGENERATOR", "PREAMP"}));
    QVERIFY(identity.validateOption(QStringLiteral("PREAMP")));
    QVERIFY(!identity.validateOption(QStringLiteral("TIMEDOMAIN")));
    QCOMPARE(reports().size(), 0);

    writeRaw(ModelPath, "VNA");
    identity.refresh();
    QCOMPARE(identity.options(), QStringList{"TIMEDOMAIN"});

    // No model, no options; a missing options file is no failure.
    QFile::remove(OptionsPath);
    identity.refreshOptions();
    QCOMPARE(identity.options(), QStringList());
    writeRaw(ModelPath, QByteArray());
    writeRaw(OptionsPath, "TIMEDOMAIN");
    identity.refresh();
    QCOMPARE(identity.options(), QStringList());
    QCOMPARE(reports().size(), 0);
}

void tst_SystemIdentity::setAndUnsetOptions()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.options(), QStringList());

    QCOMPARE(identity.setOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.setOptions({"TRACKINGGENERATOR", "PREAMP"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.options(), (QStringList{"PREAMP", "TRACKINGGENERATOR"}));
    QCOMPARE(readRaw(OptionsPath), QByteArray("PREAMP,TRACKINGGENERATOR"));

    m_recorder->events.clear();
    resetFakes();
    QCOMPARE(identity.setOptions({"BIASTEE"}), StatusCode(VfStatusCodes::InputInvalid));
    QCOMPARE(reports().size(), 1);
    QCOMPARE(reports().at(0).arguments, QStringList{"option(BIASTEE)"});
    QCOMPARE(identity.options(), (QStringList{"PREAMP", "TRACKINGGENERATOR"}));
    QCOMPARE(fakeLog(), QStringList());

    QCOMPARE(identity.unsetOptions({"TIMEDOMAIN"}), StatusCode(VfStatusCodes::Success)); // nothing to remove
    QCOMPARE(fakeLog(), QStringList());
    QCOMPARE(identity.unsetOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.options(), QStringList{"TRACKINGGENERATOR"});
    QCOMPARE(readRaw(OptionsPath), QByteArray("TRACKINGGENERATOR"));

    identity.refresh();
    QCOMPARE(identity.options(), QStringList{"TRACKINGGENERATOR"});

    // setModel clears them, in the file as well when it persists.
    QCOMPARE(identity.setModel(QStringLiteral("VNA"), true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(identity.options(), QStringList());
    QCOMPARE(readRaw(OptionsPath), QByteArray());
}

void tst_SystemIdentity::lockLevel()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QCOMPARE(identity.lockLevel(), quint8(0));
    QVERIFY(!identity.isLevelLocked(1));

    QCOMPARE(identity.setLock(3), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readRaw(LockLevelPath), QByteArray("3"));
    m_recorder->events.clear(); // the new file's FileNotFound
    QCOMPARE(identity.lockLevel(), quint8(3));
    QVERIFY(!identity.isLevelLocked(0));
    QVERIFY(identity.isLevelLocked(1));
    QVERIFY(identity.isLevelLocked(3));
    QVERIFY(!identity.isLevelLocked(4));

    writeRaw(LockLevelPath, "7");
    identity.refresh();
    QCOMPARE(identity.lockLevel(), quint8(7));
    writeRaw(LockLevelPath, "300");
    identity.refresh();
    QCOMPARE(identity.lockLevel(), quint8(0));
    QCOMPARE(reports().size(), 0);
}

// ---------------------------------------------------------------------------------------------
// Dispatcher

void tst_SystemIdentity::setOptionsCallsHandlersInOrder()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    QStringList calls;
    identity.dispatcher().addHandler([&calls](const QString& model, const QStringList& options) {
        calls.append(QStringLiteral("first %1 %2").arg(model, options.join(QLatin1Char(','))));
    });
    identity.dispatcher().addHandler([&calls](const QString& model, const QStringList& options) {
        calls.append(QStringLiteral("second %1 %2").arg(model, options.join(QLatin1Char(','))));
    });

    QCOMPARE(identity.setOptions({"TRACKINGGENERATOR"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(calls, (QStringList{"first SPA TRACKINGGENERATOR", "second SPA TRACKINGGENERATOR"}));

    // Copies: a handler that changes the store sees its own arguments unchanged.
    calls.clear();
    VfSystemIdentity* store = &identity;
    QString seenModel;
    identity.dispatcher().addHandler([store, &seenModel](const QString& model, const QStringList&) {
        store->setModel(QStringLiteral("VNA"), false);
        seenModel = model;
    });
    QCOMPARE(identity.setOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(seenModel, QStringLiteral("SPA"));
    QCOMPARE(identity.model(), QStringLiteral("VNA"));
}

void tst_SystemIdentity::onlySetOptionsCallsHandlers()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfSystemIdentity identity(false, nullptr);
    int calls = 0;
    identity.dispatcher().addHandler([&calls](const QString&, const QStringList&) { ++calls; });

    QCOMPARE(identity.setOptions({"BOGUS"}), StatusCode(VfStatusCodes::InputInvalid));
    qputenv("VF_FAKE_RW_RESULT", "1");
    QCOMPARE(identity.setOptions({"PREAMP"}), StatusCode(VfStatusCodes::FileSystemMountFailed));
    qunsetenv("VF_FAKE_RW_RESULT");
    QCOMPARE(calls, 0);

    QCOMPARE(identity.setOptions({"PREAMP"}), StatusCode(VfStatusCodes::Success));
    QCOMPARE(calls, 1);
    identity.unsetOptions({"PREAMP"});
    identity.setModel(QStringLiteral("VNA"), true);
    identity.setUnitName(QStringLiteral("X"));
    identity.setFirmwareVersion(QStringLiteral("Y"));
    identity.refresh();
    identity.refreshOptions();
    QCOMPARE(calls, 1);
}

void tst_SystemIdentity::emptyHandlerThrows()
{
    VfSystemIdentity identity(true, nullptr);
    identity.dispatcher().addHandler(nullptr);
    QCOMPARE(identity.dispatcher().handlerCount(), std::size_t(1));
    // Part 9.1: the one exception of the class.
    QVERIFY_EXCEPTION_THROWN(identity.setOptions(QStringList()), std::bad_function_call);
}

void tst_SystemIdentity::dispatcherDestroysHandlersInOrder()
{
    struct Marker
    {
        QStringList* log;
        QString name;
        ~Marker() { log->append(name); }
    };
    QStringList destroyed;
    {
        EventDispatcherT<QString const&, QStringList const&> dispatcher;
        for (const QString& name : {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}) {
            std::shared_ptr<Marker> marker(new Marker{&destroyed, name});
            dispatcher.addHandler([marker](const QString&, const QStringList&) {});
        }
        QCOMPARE(destroyed, QStringList());
    }
    QCOMPARE(destroyed, (QStringList{"a", "b", "c"}));

    // Through the base class's virtual destructor as well.
    destroyed.clear();
    struct Derived : EventDispatcherT<int>
    {
    };
    std::unique_ptr<EventDispatcherT<int>> owner(new Derived);
    for (const QString& name : {QStringLiteral("x"), QStringLiteral("y")}) {
        std::shared_ptr<Marker> marker(new Marker{&destroyed, name});
        owner->addHandler([marker](int) {});
    }
    owner.reset();
    QCOMPARE(destroyed, (QStringList{"x", "y"}));
}

// ---------------------------------------------------------------------------------------------
// Part 1.1

// systemIdentity() called twice returns the same pointer; it is built with
// VfPlatformInfo::isIdentityFileIODisabled() (false here: it reads the files) and no parent.
void tst_SystemIdentity::systemIdentityIsBuiltOnce()
{
    QVERIFY(!VfPlatformInfo::isIdentityFileIODisabled());
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "VNA");
    VfCrosscuttingManagerPlaceholder* manager = VfCrosscuttingManagerPlaceholder::instance();
    VfSystemIdentity* first = manager->systemIdentity();
    QVERIFY(first);
    QCOMPARE(manager->systemIdentity(), first);
    QVERIFY(!first->parent());
    QCOMPARE(first->model(), QStringLiteral("VNA"));
    QCOMPARE(first->unitName(), QStringLiteral("BENCH-1"));

    // A later instance builds a new one, which reads the files again.
    writeRaw(ModelPath, "SPA");
    QCOMPARE(manager->systemIdentity()->model(), QStringLiteral("VNA"));
    VfCrosscuttingManagerPlaceholder::drop();
    QCOMPARE(VfCrosscuttingManagerPlaceholder::instance()->systemIdentity()->model(), QStringLiteral("SPA"));
}

// drop() deletes the identity first, with its model-dependent data, then the platform
// information and the status reporter.
void tst_SystemIdentity::dropDeletesIdentityFirst()
{
    writeOtherIdentityFiles();
    writeRaw(ModelPath, "SPA");
    VfCrosscuttingManagerPlaceholder* manager = VfCrosscuttingManagerPlaceholder::instance();
    VfSystemIdentity* identity = manager->systemIdentity();
    QPointer<QObject> data = identity->getModelDependentData();
    QVERIFY(data);

    QStringList order;
    connect(identity, &QObject::destroyed, [&order] { order.append(QStringLiteral("identity")); });
    connect(data.data(), &QObject::destroyed, [&order] { order.append(QStringLiteral("model data")); });
    connect(manager->platformInfo(), &QObject::destroyed, [&order] { order.append(QStringLiteral("platform")); });
    connect(manager->statusReporter(), &QObject::destroyed, [&order] { order.append(QStringLiteral("reporter")); });

    m_recorder.reset();
    VfCrosscuttingManagerPlaceholder::drop();
    // QObject::destroyed comes from ~QObject, after the identity's own members are gone.
    QCOMPARE(order, (QStringList{"model data", "identity", "platform", "reporter"}));
    QVERIFY(data.isNull());
}

QTEST_GUILESS_MAIN(tst_SystemIdentity)
#include "tst_systemidentity.moc"
