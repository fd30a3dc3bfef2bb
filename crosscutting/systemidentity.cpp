#include "systemidentity.h"

#include "modelutilities.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfplatforminfo.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QProcess>
#include <QTextStream>

namespace Crosscutting {

const QString ModelFile = QStringLiteral("/identity/model");

namespace {

const QString UnitNameFile = QStringLiteral("/identity/unitname");
const QString FirmwareVersionFile = QStringLiteral("/version/firmware");
// The directory of the firmware version file. No operation uses it on its own.
const QString VersionDirectory = QStringLiteral("/version");
const QString UnknownValue = QStringLiteral("UNKNOWN");
const QString DefaultModel = QStringLiteral("DEFAULTMODEL");
const QString RemountReadWriteCommand = QStringLiteral("mount -o remount,rw /media/card");
const QString RemountReadOnlyCommand = QStringLiteral("mount -o remount,ro /media/card");
const QString SyncCommand = QStringLiteral("sync");

// Serial numbers, options and lock level: the instrument's licence-style checks.
const QString InternalSerialNumberFile = QStringLiteral("/identity/internalserialnumber");
const QString ExternalSerialNumberFile = QStringLiteral("/identity/externalserialnumber");
const QString OptionsFile = QStringLiteral("/identity/options");
const QString LockLevelFile = QStringLiteral("/identity/locklevel");
const QChar OptionSeparator = QLatin1Char(',');
const QString ValidOptionsProperty = QStringLiteral("validOptions");

const int MaximumUnitNameLength = 45;

const QFileDevice::Permissions ReadWriteForOwner = QFileDevice::ReadOwner | QFileDevice::WriteOwner
    | QFileDevice::ReadUser | QFileDevice::ReadGroup | QFileDevice::ReadOther;
const QFileDevice::Permissions ReadOnlyForAll =
    QFileDevice::ReadOwner | QFileDevice::ReadUser | QFileDevice::ReadGroup | QFileDevice::ReadOther;

// QProcess::execute on a whole command line, without its deprecated one-string overload. The
// command lines here have no quoting, so splitting at blanks is what that overload would do.
int executeCommandLine(const QString& commandLine)
{
    QStringList arguments = commandLine.split(QLatin1Char(' '));
    const QString program = arguments.takeFirst();
    return QProcess::execute(program, arguments);
}

QObject* newModelInstance(const QMetaObject* metaObject, const QStringList& options)
{
    return metaObject->newInstance(Q_ARG(const QStringList&, options), Q_ARG(QObject*, nullptr));
}

QStringList validOptionsOf(const QObject* modelInstance)
{
    if (!modelInstance)
        return QStringList();
    return modelInstance->property(ValidOptionsProperty.toLatin1().constData()).toStringList();
}

} // namespace

VfSystemIdentity::VfSystemIdentity(bool fileIoDisabled, QObject* parent)
    : QObject(parent)
    , m_model(UnknownValue)
    , m_internalSerialNumber(UnknownValue)
    , m_externalSerialNumber(UnknownValue)
    , m_firmwareVersion(UnknownValue)
    , m_lockLevel(0)
    , m_identityRoot(VfPlatformInfo::staticDataRootPath())
    , m_fileIoDisabled(fileIoDisabled)
    , m_isModelForced(false)
{
    refresh();
}

// The handlers, strings and lists go first; m_modelDependentData, the first field, goes last.
VfSystemIdentity::~VfSystemIdentity() = default;

void VfSystemIdentity::refresh()
{
    if (m_fileIoDisabled) {
        m_internalSerialNumber = UnknownValue;
        m_externalSerialNumber = UnknownValue;
        m_firmwareVersion = UnknownValue;
        m_model = UnknownValue;
        m_unitName.clear();
        m_options.clear();
        m_lockLevel = 0;
    } else {
        m_internalSerialNumber = readIdentityFile(InternalSerialNumberFile);
        m_externalSerialNumber = readIdentityFile(ExternalSerialNumberFile);
        m_firmwareVersion = readFWVersionFile();
        m_unitName = readIdentityFile(UnitNameFile);
        if (m_unitName == UnknownValue)
            m_unitName.clear();
        m_lockLevel = loadLockLevel();

        m_model = UnknownValue;
        // Passed to the model library exactly as read: only setModel upper-cases a name, so a
        // file written by hand in lower case is not silently taken for the upper-case model.
        const QString modelName = readIdentityFile(ModelFile);
        if (modelName == UnknownValue) {
            m_options.clear(); // no model, no options
        } else {
            const QMetaObject* metaObject = Model::ModelUtilities::modelMetaObject(modelName);
            if (!metaObject) {
                m_options.clear();
                REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, ModelFile,
                              QStringLiteral("invalid model %1").arg(modelName));
            } else {
                m_model = modelName;
                QScopedPointer<QObject> first(newModelInstance(metaObject, QStringList()));
                if (!first) {
                    // The model stays set, and the model-dependent data stays as it was together
                    // with the options it was made with: the instrument runs on with what it had.
                    REPORT_STATUS(VfStatusCodes::MetaObjectInstantiationError,
                                  QString::fromLatin1(metaObject->className()));
                    return;
                }
                m_options = loadOptions(first.data());
                QObject* second = newModelInstance(metaObject, m_options);
                if (!second) {
                    // Not reached when the first instance was made; handled like a failed first one.
                    REPORT_STATUS(VfStatusCodes::MetaObjectInstantiationError,
                                  QString::fromLatin1(metaObject->className()));
                    return;
                }
                m_modelDependentData.reset(second);
                first.reset();
            }
        }
    }

    if (m_model != UnknownValue)
        return;
    // Deliberately not tested for null: every libmodel.so.1 knows "DEFAULTMODEL", and without it
    // the instrument has no model data to run on at all.
    const QMetaObject* defaultMetaObject = Model::ModelUtilities::modelMetaObject(DefaultModel);
    m_modelDependentData.reset(newModelInstance(defaultMetaObject, QStringList()));
}

QString VfSystemIdentity::model() const
{
    return m_model;
}

QString VfSystemIdentity::unitName() const
{
    return m_unitName;
}

QString VfSystemIdentity::firmwareVersion() const
{
    return m_firmwareVersion;
}

QObject* VfSystemIdentity::getModelDependentData() const
{
    return m_modelDependentData.data();
}

void VfSystemIdentity::setIsModelForced(bool isModelForced)
{
    m_isModelForced = isModelForced;
}

StatusCode VfSystemIdentity::setModel(const QString& model, const bool& persist)
{
    const QString name = model.toUpper();
    if (!m_isModelForced && name == m_model)
        return VfStatusCodes::Success;

    const QMetaObject* metaObject = Model::ModelUtilities::modelMetaObject(name);
    if (!metaObject)
        return REPORT_STATUS(VfStatusCodes::InputInvalid, QStringLiteral("model(%1)").arg(name));

    QScopedPointer<QObject> instance(newModelInstance(metaObject, QStringList()));
    if (!instance)
        return REPORT_STATUS(VfStatusCodes::MetaObjectInstantiationError, QString::fromLatin1(metaObject->className()));

    if (!m_fileIoDisabled && persist) {
        const StatusCode written = writeIdentityFile(ModelFile, name);
        if (written != VfStatusCodes::Success)
            return written;
    }

    m_model = name;
    const QStringList previousOptions = m_options;
    const StatusCode result = unsetOptions(previousOptions, persist);
    m_modelDependentData.reset(instance.take());
    return result;
}

StatusCode VfSystemIdentity::setUnitName(const QString& unitName)
{
    // Deliberately compared without regard to case: a change only of letter case is not written,
    // which spares the card a remount for a name that reads the same.
    if (unitName.toUpper() == m_unitName.toUpper())
        return VfStatusCodes::Success;
    if (unitName.size() > MaximumUnitNameLength)
        return VfStatusCodes::DataSizeInvalid;

    // Deliberately written even with file I/O disabled, unlike the model and the firmware version:
    // existing instruments rely on it.
    const StatusCode result = writeIdentityFile(UnitNameFile, unitName);
    if (result == VfStatusCodes::Success)
        m_unitName = unitName;
    return result;
}

StatusCode VfSystemIdentity::setFirmwareVersion(const QString& version)
{
    if (!m_fileIoDisabled) {
        const StatusCode written = writeFWVersionFile(version);
        if (written != VfStatusCodes::Success)
            return written;
    }
    m_firmwareVersion = version;
    return VfStatusCodes::Success;
}

QString VfSystemIdentity::readFile(const QString& path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        REPORT_STATUS(VfStatusCodes::FileCannotOpen, QStringLiteral("%1, %2").arg(path, file.errorString()));
        return UnknownValue;
    }

    QTextStream stream(&file);
    QString content = stream.readAll();
    if (content.isEmpty()) {
        file.close();
        return UnknownValue;
    }

    const int lineFeeds = content.count(QLatin1Char('\n'));
    if (lineFeeds == 0 || (lineFeeds == 1 && content.endsWith(QLatin1Char('\n')))) {
        content.remove(QLatin1Char('\n'));
        file.close();
        return content;
    }

    // Deliberately two arguments for the catalogue's one marker: the text names the path, the
    // content travels in the report's context, and ReportStatusInvalidArgCount goes out first.
    REPORT_STATUS(VfStatusCodes::StringParseError, path, content);
    file.close();
    return UnknownValue;
}

StatusCode VfSystemIdentity::writeFile(const QString& path, const QString& value) const
{
    const int readWriteResult = executeCommandLine(RemountReadWriteCommand);
    if (readWriteResult != 0)
        return REPORT_STATUS(VfStatusCodes::FileSystemMountFailed, QStringLiteral("rootfs"), QStringLiteral("read-write"),
                             QString::number(readWriteResult));

    if (!QFile::exists(path)) {
        REPORT_STATUS(VfStatusCodes::FileNotFound,
                      QStringLiteral("Failed to open the file %1, creating a new file").arg(path));
        // Its status is not looked at: the open below makes the file or reports why it cannot.
        createFile(path);
    }

    QFile::setPermissions(path, ReadWriteForOwner);
    StatusCode result = VfStatusCodes::Success;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        result = REPORT_STATUS(VfStatusCodes::FileCannotOpen, QStringLiteral("%1, %2").arg(path, file.errorString()));
    } else {
        QTextStream stream(&file);
        stream << value;
        stream.flush();
        file.close();
        QFile::setPermissions(path, ReadOnlyForAll);
    }

    executeCommandLine(SyncCommand);

    const int readOnlyResult = executeCommandLine(RemountReadOnlyCommand);
    if (readOnlyResult != 0) {
        // Reported, but a volume left writable does not fail the write: the value is on the card,
        // and the read-back below decides.
        REPORT_STATUS(VfStatusCodes::FileSystemMountFailed, QStringLiteral("rootfs"), QStringLiteral("read-only"),
                      QString::number(readOnlyResult));
    }

    if (result == VfStatusCodes::Success)
        return validateFileUpdate(value, path);
    return result;
}

StatusCode VfSystemIdentity::createFile(const QString& path) const
{
    if (m_fileIoDisabled)
        return VfStatusCodes::Success;

    const QString directory = QFileInfo(path).absolutePath();
    if (!QDir(directory).exists() && !QDir().mkpath(directory))
        return REPORT_STATUS(VfStatusCodes::DirectoryNotFound, path);

    QFile file(path);
    if (file.exists() || file.open(QIODevice::ReadWrite | QIODevice::Text)) {
        file.setPermissions(ReadOnlyForAll);
        file.close();
        return VfStatusCodes::Success;
    }
    return REPORT_STATUS(VfStatusCodes::FileCannotOpen, QStringLiteral("%1, %2").arg(path, file.errorString()));
}

StatusCode VfSystemIdentity::validateFileUpdate(const QString& value, const QString& path) const
{
    const QString text = readFile(path);
    // An empty file reads as "UNKNOWN", so that counts as the empty value.
    if (text == value || (text == UnknownValue && value.isEmpty()))
        return VfStatusCodes::Success;
    return VfStatusCodes::IoWriteFailed;
}

QString VfSystemIdentity::readIdentityFile(const QString& name) const
{
    return readFile(m_identityRoot + name);
}

StatusCode VfSystemIdentity::writeIdentityFile(const QString& name, const QString& value) const
{
    return writeFile(m_identityRoot + name, value);
}

QString VfSystemIdentity::readFWVersionFile() const
{
    return readFile(VfPlatformInfo::staticDataRootPath() + FirmwareVersionFile);
}

StatusCode VfSystemIdentity::writeFWVersionFile(const QString& version) const
{
    return writeFile(VfPlatformInfo::staticDataRootPath() + FirmwareVersionFile, version);
}

QString VfSystemIdentity::internalSerialNumber() const
{
    return m_internalSerialNumber;
}

QString VfSystemIdentity::externalSerialNumber() const
{
    return m_externalSerialNumber;
}

StatusCode VfSystemIdentity::setInternalSerialNumber(const QString& serialNumber)
{
    if (!m_fileIoDisabled) {
        const StatusCode written = writeIdentityFile(InternalSerialNumberFile, serialNumber);
        if (written != VfStatusCodes::Success)
            return written;
    }
    m_internalSerialNumber = serialNumber;
    return VfStatusCodes::Success;
}

StatusCode VfSystemIdentity::setExternalSerialNumber(const QString& serialNumber)
{
    if (!m_fileIoDisabled) {
        const StatusCode written = writeIdentityFile(ExternalSerialNumberFile, serialNumber);
        if (written != VfStatusCodes::Success)
            return written;
    }
    m_externalSerialNumber = serialNumber;
    return VfStatusCodes::Success;
}

QStringList VfSystemIdentity::options() const
{
    return m_options;
}

StatusCode VfSystemIdentity::setOptions(const QStringList& options)
{
    QStringList merged = m_options;
    for (const QString& option : options) {
        if (!validateOption(option))
            return REPORT_STATUS(VfStatusCodes::InputInvalid, QStringLiteral("option(%1)").arg(option));
        if (!merged.contains(option))
            merged.append(option);
    }

    const StatusCode stored = storeOptions(merged, true);
    if (stored != VfStatusCodes::Success)
        return stored;

    // Every handler, in order, gets its own copy of the model and the options, so a handler that
    // changes the identity does not change what the next one sees.
    const QString model = m_model;
    const QStringList currentOptions = m_options;
    m_dispatcher.dispatch(model, currentOptions);
    return VfStatusCodes::Success;
}

StatusCode VfSystemIdentity::unsetOptions(const QStringList& options, bool persist)
{
    QStringList remaining = m_options;
    for (const QString& option : options)
        remaining.removeAll(option);
    if (remaining == m_options)
        return VfStatusCodes::Success;
    return storeOptions(remaining, persist);
}

void VfSystemIdentity::refreshOptions()
{
    m_options = loadOptions(m_modelDependentData.data());
}

bool VfSystemIdentity::validateOption(const QString& option) const
{
    return validOptionsOf(m_modelDependentData.data()).contains(option);
}

StatusCode VfSystemIdentity::setLock(quint8 level)
{
    if (!m_fileIoDisabled) {
        const StatusCode written = writeIdentityFile(LockLevelFile, QString::number(level));
        if (written != VfStatusCodes::Success)
            return written;
    }
    m_lockLevel = level;
    return VfStatusCodes::Success;
}

bool VfSystemIdentity::isLevelLocked(quint8 level) const
{
    return level != 0 && level <= m_lockLevel;
}

quint8 VfSystemIdentity::lockLevel() const
{
    return m_lockLevel;
}

VfSystemIdentity::ChangeDispatcher& VfSystemIdentity::dispatcher()
{
    return m_dispatcher;
}

QStringList VfSystemIdentity::loadOptions(const QObject* modelInstance) const
{
    // A missing file is an instrument without options, not a failure: nothing is reported.
    if (m_fileIoDisabled || !modelInstance || !QFile::exists(m_identityRoot + OptionsFile))
        return QStringList();
    const QString text = readIdentityFile(OptionsFile);
    if (text == UnknownValue)
        return QStringList();

    const QStringList valid = validOptionsOf(modelInstance);
    QStringList result;
    for (const QString& option : text.split(OptionSeparator)) {
        if (!option.isEmpty() && valid.contains(option) && !result.contains(option))
            result.append(option);
    }
    return result;
}

quint8 VfSystemIdentity::loadLockLevel() const
{
    if (m_fileIoDisabled || !QFile::exists(m_identityRoot + LockLevelFile))
        return 0;
    bool ok = false;
    const uint level = readIdentityFile(LockLevelFile).toUInt(&ok);
    return (ok && level <= 255) ? quint8(level) : quint8(0);
}

StatusCode VfSystemIdentity::storeOptions(const QStringList& options, bool persist)
{
    if (!m_fileIoDisabled && persist) {
        const StatusCode written = writeIdentityFile(OptionsFile, options.join(OptionSeparator));
        if (written != VfStatusCodes::Success)
            return written;
    }
    m_options = options;
    return VfStatusCodes::Success;
}

} // namespace Crosscutting
