#ifndef VFSTATUSREPORTER_H
#define VFSTATUSREPORTER_H

#include "vfabstractstatusreporter.h"
#include "vfcrosscutting_export.h"
#include "vfstaticstatusinfo.h"
#include "vfstatuscodes.h"

#include <QAtomicPointer>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QSharedPointer>

namespace Crosscutting {

/// Turns a code into an event: looks the code up in the catalogue, fills the record's
/// description with the report's arguments and emits statusChangeOccurred.
///
/// The framework's catalogue is loaded once, by the constructor; an application's codes are
/// added whole by loadApplicationStatusCodes(). Reporting takes no lock, on any thread.
class VFCROSSCUTTING_EXPORT VfStatusReporter : public VfAbstractStatusReporter
{
    Q_OBJECT
public:
    explicit VfStatusReporter(QObject* parent);
    ~VfStatusReporter() override;

    StatusCode reportStatus(StatusCode statusCode, Crosscutting::VfSourceContext& sourceContext) override;

    VfStatusChangeEvent createStatusChangeEvent(StatusCode statusCode,
                                                const QSharedPointer<VfSourceContext>& sourceContext,
                                                const VfStaticStatusInfo& statusInfo);

    StatusCode loadFrameworkStatusCodes();
    VfStaticStatusInfo* createStaticStatusInfoObjectFromJsonObject(const QJsonObject& object,
                                                                   VfStatusCodes::VfStatusCode* statusCodeOut) const;
    QString extractStatusCodeStringValue(const QJsonObject& object, const QString& key) const;

    /// Adds an application's catalogue, "<AppName>statuscodes.json" in the form of the framework's,
    /// read from a file or a Qt resource (":/..."). Each record's name is an enumerator of the
    /// enumeration enumName, which enumOwner publishes with Q_ENUM or Q_ENUM_NS, and its value is
    /// the record's code; afterwards REPORT_STATUS(thatEnumerator, ...) reports it as a framework code.
    /// All or nothing: on failure nothing is added, the failure is reported and its code returned:
    /// FileNotFound, FileCannotOpen, ConfigurationDataInvalid with the reason (an unreadable text, a
    /// root that is no array, a record that checkStatusRecord() refuses, a name that is no enumerator,
    /// a value of the framework's or of an earlier record), InputNull or InputInvalid for enumName.
    /// Any thread, also while others report: the table is replaced whole, never changed in place.
    StatusCode loadApplicationStatusCodes(const QString& path, const QMetaObject& enumOwner,
                                          const char* enumName) override;

    /// Why record cannot be a catalogue record, its name aside: it is no object, a member is missing
    /// or no string, the severity or category is none of VfStaticStatusInfo's, or the description's
    /// place markers are not numbered from `%1` up without a gap, each once. Empty when it can be. Any thread.
    static QString checkStatusRecord(const QJsonValue& record);

private:
    friend class VfStatusReporterTestAccess;

    QHash<unsigned long long, VfStaticStatusInfo*> m_frameworkStatusCodes;
    // Application codes, consulted after the framework's. Replaced whole by each load and read
    // without a lock; earlier generations stay until the reporter goes, a reader may still hold one.
    struct ApplicationStatusCodes;
    QAtomicPointer<ApplicationStatusCodes> m_applicationStatusCodes;
    QString m_frameworkStatusCodesPath;
};

} // namespace Crosscutting

#endif // VFSTATUSREPORTER_H
