#ifndef SYSTEMIDENTITY_H
#define SYSTEMIDENTITY_H

/// \file
/// The instrument identity.

#include "vfcrosscutting_export.h"
#include "vfstatuscodes.h"

#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace Crosscutting {

/// The model file, relative to the identity root: "/identity/model".
VFCROSSCUTTING_EXPORT extern const QString ModelFile;

/// An ordered list of handlers, all called with the same arguments. Not thread-safe: add
/// handlers and dispatch on one thread.
template <typename... Args>
class EventDispatcherT
{
public:
    /// One handler: any callable taking the dispatched arguments.
    using Handler = std::function<void(Args...)>;

    /// No handlers. Cannot fail.
    EventDispatcherT() = default;
    /// A copy of the handler list.
    EventDispatcherT(const EventDispatcherT&) = default;
    /// Replaces the handler list by a copy of another's.
    EventDispatcherT& operator=(const EventDispatcherT&) = default;

    /// Destroys the handlers in the order they were added, then the list.
    virtual ~EventDispatcherT()
    {
        // Deliberately one by one in the order they were added, before the vector frees them.
        for (Handler& handler : m_handlers)
            handler = nullptr;
    }

    /// Appends a handler. An empty one is kept, and raises std::bad_function_call when dispatched.
    /// Cannot fail.
    void addHandler(Handler handler) { m_handlers.push_back(std::move(handler)); }

    /// The number of handlers. Cannot fail.
    std::size_t handlerCount() const { return m_handlers.size(); }

    /// Calls every handler in the order in which it was added. Exceptions of a handler pass through.
    void dispatch(Args... args) const
    {
        for (std::size_t i = 0; i < m_handlers.size(); ++i)
            m_handlers[i](args...);
    }

private:
    std::vector<Handler> m_handlers;
};

/// What instrument this is: model, unit name, firmware version, serial numbers, options and lock
/// level, each kept in a one-line file on a volume that is remounted writable for each write.
///
/// Reached through VfCrosscuttingManagerPlaceholder::systemIdentity(). The identity files lie under
/// "/opt/tarvion/data/identity/"; the firmware version in "/opt/tarvion/data/version/firmware". A
/// file that cannot be read gives "UNKNOWN", and the instrument runs on with the data of the model
/// "DEFAULTMODEL". The class takes no lock: use it from one thread at a time, and expect each write
/// to block while "mount" and "sync" run.
///
/// - Serial numbers: "internalserialnumber" and "externalserialnumber".
/// - Options: "options", the options joined by ",". The model class publishes the options it
///   accepts as its property "validOptions". A missing options file means no options and is not
///   reported; a model that cannot be instantiated keeps the options, as it keeps the data made
///   with them. The model-dependent data sees the options it was made with until the next refresh().
/// - Lock level: "locklevel", a decimal 0..255 (0 when the file is missing). Level 0 locks
///   nothing; isLevelLocked(n) is true for 1 <= n <= lockLevel().
class VFCROSSCUTTING_EXPORT VfSystemIdentity : public QObject
{
    Q_OBJECT

public:
    /// Handlers called with the model and the options after each successful setOptions().
    using ChangeDispatcher = EventDispatcherT<QString const&, QStringList const&>;

    /// Reads every identity file (see refresh()). With fileIoDisabled, refresh() reads no file, the
    /// values are "UNKNOWN" and the setters only store (setUnitName() writes all the same). Failures
    /// are reported, never fatal. One thread.
    VfSystemIdentity(bool fileIoDisabled, QObject* parent);
    /// Destroys the handlers, then the model-dependent data. The thread that uses it.
    ~VfSystemIdentity() override;

    /// Reloads everything from the files and makes the model-dependent data anew. An unknown model
    /// name reports ConfigurationDataInvalid, a model class that cannot be instantiated
    /// MetaObjectInstantiationError; without a usable model the data of "DEFAULTMODEL" is used. One thread.
    void refresh();

    /// The model name in upper case, or "UNKNOWN". Cannot fail. One thread.
    QString model() const;
    /// The unit name; empty when unknown. Cannot fail. One thread.
    QString unitName() const;
    /// The firmware version, or "UNKNOWN". Cannot fail. One thread.
    QString firmwareVersion() const;
    /// The object that describes the model, made by the model library for the current options; the
    /// identity keeps ownership, and replaces it on refresh() and setModel(). Never null once built. One thread.
    QObject* getModelDependentData() const;
    /// When true, setModel() rebuilds the data even for the model already set. Cannot fail. One thread.
    void setIsModelForced(bool isModelForced);

    /// Makes model (upper-cased) the instrument's model, rebuilds the model-dependent data and clears
    /// the options; with persist and file I/O enabled, writes the model file first. Returns Success,
    /// InputInvalid for a name the model library does not know, MetaObjectInstantiationError, or the
    /// write's failure, all reported; nothing changes on failure. One thread.
    StatusCode setModel(const QString& model, const bool& persist);
    /// Writes and stores the unit name; a name equal to the current one but for case is not written.
    /// Returns Success, DataSizeInvalid (not reported) for more than 45 characters, or the write's
    /// reported failure. One thread.
    StatusCode setUnitName(const QString& unitName);
    /// Writes the firmware version file and stores the version. Returns Success or the write's
    /// reported failure, which leaves the stored version as it was. One thread.
    StatusCode setFirmwareVersion(const QString& version);

    /// The one line of text in path, without its line end. Gives "UNKNOWN" for an empty file, and,
    /// with a report, for a file that cannot be opened (FileCannotOpen) or holds more lines
    /// (StringParseError). One thread.
    QString readFile(const QString& path) const;
    /// Writes value as the whole content of path: remounts the volume writable, creates the file if
    /// needed, writes it read-only for all, syncs and remounts read-only, then reads it back. Returns
    /// Success, FileSystemMountFailed or FileCannotOpen (reported), or IoWriteFailed when the text
    /// read back differs. A failed read-only remount is reported but does not fail the write. One thread.
    StatusCode writeFile(const QString& path, const QString& value) const;
    /// Creates the empty file path, read-only for all, with its directory. Returns Success, or
    /// DirectoryNotFound or FileCannotOpen, reported. Does nothing with file I/O disabled. One thread.
    StatusCode createFile(const QString& path) const;
    /// Success when path reads back as value (an empty value as "UNKNOWN"); IoWriteFailed otherwise.
    /// One thread.
    StatusCode validateFileUpdate(const QString& value, const QString& path) const;
    /// readFile() of the identity file name, such as ModelFile. One thread.
    QString readIdentityFile(const QString& name) const;
    /// writeFile() of the identity file name. One thread.
    StatusCode writeIdentityFile(const QString& name, const QString& value) const;
    /// readFile() of the firmware version file. One thread.
    QString readFWVersionFile() const;
    /// writeFile() of the firmware version file. One thread.
    StatusCode writeFWVersionFile(const QString& version) const;

    /// The internal serial number, or "UNKNOWN". Cannot fail. One thread.
    QString internalSerialNumber() const;
    /// The external serial number, or "UNKNOWN". Cannot fail. One thread.
    QString externalSerialNumber() const;
    /// Writes the file (unless file I/O is disabled), then stores the number. Returns Success or the
    /// write's reported failure, which leaves the number as it was. One thread.
    StatusCode setInternalSerialNumber(const QString& serialNumber);
    /// Writes the file (unless file I/O is disabled), then stores the number. Returns Success or the
    /// write's reported failure, which leaves the number as it was. One thread.
    StatusCode setExternalSerialNumber(const QString& serialNumber);

    /// The instrument's options. Cannot fail. One thread.
    QStringList options() const;
    /// Adds options, stores the options file unless file I/O is disabled, then calls the
    /// dispatcher's handlers. Returns Success, InputInvalid (reported) for an option the model does not
    /// accept, or the write's failure; nothing changes on failure. One thread.
    StatusCode setOptions(const QStringList& options);
    /// Removes options, storing the file when persist and file I/O is enabled. Returns Success or the
    /// write's reported failure. One thread.
    StatusCode unsetOptions(const QStringList& options, bool persist = true);
    /// Reloads the options file, keeping the options the model accepts. Cannot fail. One thread.
    void refreshOptions();
    /// Whether the current model accepts option. Cannot fail. One thread.
    bool validateOption(const QString& option) const;

    /// Writes the lock level file (unless file I/O is disabled), then stores level. Returns Success
    /// or the write's reported failure. One thread.
    StatusCode setLock(quint8 level);
    /// True for 1 <= level <= lockLevel(). Cannot fail. One thread.
    bool isLevelLocked(quint8 level) const;
    /// The lock level; 0 locks nothing. Cannot fail. One thread.
    quint8 lockLevel() const;

    /// Where users add the handlers that a successful setOptions() calls. Cannot fail. One thread.
    ChangeDispatcher& dispatcher();

private:
    Q_DISABLE_COPY(VfSystemIdentity)

    QStringList loadOptions(const QObject* modelInstance) const;
    quint8 loadLockLevel() const;
    StatusCode storeOptions(const QStringList& options, bool persist);

    // First field, so destroyed last: the model-dependent data goes after the handlers, strings
    // and lists that may refer to it.
    QScopedPointer<QObject> m_modelDependentData;
    QString m_model;
    QString m_internalSerialNumber;
    QString m_externalSerialNumber;
    QString m_firmwareVersion;
    QStringList m_options;
    quint8 m_lockLevel;
    QString m_identityRoot;
    bool m_fileIoDisabled;
    QString m_unitName;
    bool m_isModelForced;
    ChangeDispatcher m_dispatcher;
};

} // namespace Crosscutting

#endif // SYSTEMIDENTITY_H
