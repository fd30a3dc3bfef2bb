#ifndef SYSTEMIDENTITY_H
#define SYSTEMIDENTITY_H

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

// The model file, relative to the identity root (Part 9.1).
VFCROSSCUTTING_EXPORT extern const QString ModelFile;

// An ordered list of handlers, all called with the same arguments (Part 9.1).
template <typename... Args>
class EventDispatcherT
{
public:
    using Handler = std::function<void(Args...)>;

    EventDispatcherT() = default;
    EventDispatcherT(const EventDispatcherT&) = default;
    EventDispatcherT& operator=(const EventDispatcherT&) = default;

    virtual ~EventDispatcherT()
    {
        // Part 9.1: the handlers are destroyed in order, then the vector is freed.
        for (Handler& handler : m_handlers)
            handler = nullptr;
    }

    // Appends a handler; an empty one is kept and raises std::bad_function_call when called.
    void addHandler(Handler handler) { m_handlers.push_back(std::move(handler)); }

    std::size_t handlerCount() const { return m_handlers.size(); }

    // Calls every handler in the order in which it was added.
    void dispatch(Args... args) const
    {
        for (std::size_t i = 0; i < m_handlers.size(); ++i)
            m_handlers[i](args...);
    }

private:
    std::vector<Handler> m_handlers;
};

// What instrument this is: model, unit name and firmware version, kept in small files on a
// volume that is remounted writable for each write (Part 9.1).
//
// Not specified by the Part, and built here minimal (files under the identity root, written and
// read back through writeIdentityFile and readIdentityFile like the unit name):
// - Serial numbers: "/identity/internalserialnumber" and "/identity/externalserialnumber", read
//   by refresh; the setters behave as setFirmwareVersion (file first, unless file I/O is disabled).
// - Options: "/identity/options", the options joined by ",". The model class publishes the
//   options it accepts as its property "validOptions"; validateOption checks against the
//   model-dependent data, and refresh loads the file through the model's first instance, keeping
//   the valid options only. A missing options file means no options and is not reported; no
//   usable model name means no options, and a model that cannot be instantiated keeps the
//   options, as it keeps the data made with them.
//   setOptions adds options, unsetOptions removes them; both store the file unless file I/O is
//   disabled (or persist is false), and only a successful setOptions calls the dispatcher. The
//   model-dependent data sees the options it was made with until the next refresh.
// - Lock level: "/identity/locklevel", a decimal 0..255, read by refresh when the file exists
//   (0 otherwise). Level 0 locks nothing; isLevelLocked(n) is true for 1 <= n <= lockLevel().
class VFCROSSCUTTING_EXPORT VfSystemIdentity : public QObject
{
    Q_OBJECT

public:
    using ChangeDispatcher = EventDispatcherT<QString const&, QStringList const&>;

    VfSystemIdentity(bool fileIoDisabled, QObject* parent);
    ~VfSystemIdentity() override;

    void refresh();

    QString model() const;
    QString unitName() const;
    QString firmwareVersion() const;
    QObject* getModelDependentData() const;
    void setIsModelForced(bool isModelForced);

    StatusCode setModel(const QString& model, const bool& persist);
    StatusCode setUnitName(const QString& unitName);
    StatusCode setFirmwareVersion(const QString& version);

    QString readFile(const QString& path) const;
    StatusCode writeFile(const QString& path, const QString& value) const;
    StatusCode createFile(const QString& path) const;
    StatusCode validateFileUpdate(const QString& value, const QString& path) const;
    QString readIdentityFile(const QString& name) const;
    StatusCode writeIdentityFile(const QString& name, const QString& value) const;
    QString readFWVersionFile() const;
    StatusCode writeFWVersionFile(const QString& version) const;

    // Serial numbers (see above).
    QString internalSerialNumber() const;
    QString externalSerialNumber() const;
    StatusCode setInternalSerialNumber(const QString& serialNumber);
    StatusCode setExternalSerialNumber(const QString& serialNumber);

    // Options (see above).
    QStringList options() const;
    StatusCode setOptions(const QStringList& options);
    StatusCode unsetOptions(const QStringList& options, bool persist = true);
    void refreshOptions();
    bool validateOption(const QString& option) const;

    // Lock level (see above).
    StatusCode setLock(quint8 level);
    bool isLevelLocked(quint8 level) const;
    quint8 lockLevel() const;

    // Where users add the handlers that a successful setOptions calls.
    ChangeDispatcher& dispatcher();

private:
    Q_DISABLE_COPY(VfSystemIdentity)

    QStringList loadOptions(const QObject* modelInstance) const;
    quint8 loadLockLevel() const;
    StatusCode storeOptions(const QStringList& options, bool persist);

    // First field, so destroyed last: the model-dependent data goes after the handlers,
    // strings and lists (Part 9.1).
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
