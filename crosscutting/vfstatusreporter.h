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
    /// Loads the catalogue from the library's resource ":/configuration/statuscodes_framework.json".
    /// Reports nothing: a catalogue that cannot be read leaves the tables empty. Runs on the thread
    /// that makes the service access object.
    explicit VfStatusReporter(QObject* parent);
    /// Frees the catalogue. The thread that drops the service access object.
    ~VfStatusReporter() override;

    /// Reports statusCode, as VfAbstractStatusReporter::reportStatus() says. A description whose
    /// "%1" markers do not match the number of arguments is reported first as
    /// ReportStatusInvalidArgCount, and the event goes out all the same. Returns statusCode; any thread.
    StatusCode reportStatus(StatusCode statusCode, Crosscutting::VfSourceContext& sourceContext) override;

    /// The event for one report: statusInfo's description filled with the context's arguments, in a
    /// new record. Reports ReportStatusInvalidArgCount when arguments and markers differ in number,
    /// and still returns the event, with the unfilled markers left in the text. Any thread.
    VfStatusChangeEvent createStatusChangeEvent(StatusCode statusCode,
                                                const QSharedPointer<VfSourceContext>& sourceContext,
                                                const VfStaticStatusInfo& statusInfo);

    /// Reads the catalogue into the framework table. Returns 0, or the failure code of the read
    /// (FileNotFound, FileCannotOpen, ConfigurationDataInvalid) without reporting it; the table then
    /// stays empty. Called by the constructor; not to be called while other threads report.
    StatusCode loadFrameworkStatusCodes();
    /// A new record, owned by the caller, from one catalogue object; its code goes to
    /// *statusCodeOut, which must not be null. An unknown name gives the code 0xFFFFFFFFFFFFFFFF,
    /// an unknown severity or category the value 255, a missing text an empty string. Any thread.
    VfStaticStatusInfo* createStaticStatusInfoObjectFromJsonObject(const QJsonObject& object,
                                                                   VfStatusCodes::VfStatusCode* statusCodeOut) const;
    /// object.value(key) as a string; a missing key or a member that is no string gives an empty string. Any thread.
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
    QHash<unsigned long long, VfStaticStatusInfo*> m_frameworkStatusCodes;
    // Application codes, consulted after the framework's. Replaced whole by each load and read
    // without a lock; earlier generations stay until the reporter goes, a reader may still hold one.
    struct ApplicationStatusCodes;
    QAtomicPointer<ApplicationStatusCodes> m_applicationStatusCodes;
    QString m_frameworkStatusCodesPath;
};

} // namespace Crosscutting

#endif // VFSTATUSREPORTER_H
