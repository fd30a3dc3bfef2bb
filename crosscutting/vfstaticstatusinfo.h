#ifndef VFSTATICSTATUSINFO_H
#define VFSTATICSTATUSINFO_H

#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"

#include <QObject>
#include <QString>

#include <atomic>

namespace Crosscutting {

/// One catalogue record: title, description, severity and category of a status.
///
/// Immutable once made, so any thread may read it. The status reporter makes a new record for
/// each reported event, with the description filled with the report's arguments.
// VfDisplayable is a private base written without an access specifier, which moc takes for public:
// so the meta-cast answers to "VfDisplayable" too, as callers that cast to it rely on.
class VFCROSSCUTTING_EXPORT VfStaticStatusInfo : public QObject, VfDisplayable
{
    Q_OBJECT
public:
    /// How bad a status is. The logs do not print it; it decides the route of an entry only
    /// where a rate handler or a severity file writer is used.
    enum class VfStatusSeverity : quint8 {
        Unassigned = 0,
        Notification = 1,
        Warning = 2,
        NonCriticalError = 3,
        CriticalError = 4
    };
    Q_ENUM(VfStatusSeverity)

    /// Whether a status concerns the instrument software itself or something outside it.
    enum class VfStatusCategory : quint8 {
        Unassigned = 0,
        Internal = 1,
        External = 2
    };
    Q_ENUM(VfStatusCategory)

    using VfDisplayable::DisplayFormat;
    using VfDisplayable::ShortForm;
    using VfDisplayable::ShortFormWithTimestamp;
    using VfDisplayable::SingleLineLongForm;
    using VfDisplayable::MultiLineLongForm;

    /// An empty record: no parent, empty title and description, both enumerations Unassigned.
    /// Cannot fail; any thread.
    VfStaticStatusInfo();
    /// Stores the four values; a record never changes afterwards. Cannot fail; any thread.
    VfStaticStatusInfo(const QString& title, const QString& description, VfStatusSeverity severity,
                       VfStatusCategory category, QObject* parent);

    /// The title. Cannot fail; any thread.
    QString title() const;
    /// The description: the catalogue's template with "%1" markers, or the filled text of an
    /// event. Cannot fail; any thread.
    QString description() const;
    /// The severity; 255 when the catalogue named none it knows. Cannot fail; any thread.
    VfStatusSeverity severity() const;
    /// The category; 255 when the catalogue named none it knows. Cannot fail; any thread.
    VfStatusCategory category() const;

    /// The description for ShortForm and ShortFormWithTimestamp; title, description, severity and
    /// category for the long forms, as in "[Invalid data, Invalid data 'x' received, NonCriticalError,
    /// Internal]". An unknown form gives an empty string. Cannot fail; any thread.
    QString toString(DisplayFormat format) const override;

private:
    friend class VfStatusReporter;
    // The number of place markers ("%" and one or two digits) in the description, counted once.
    int markerCount() const;

    QString m_title;
    QString m_description;
    VfStatusSeverity m_severity;
    VfStatusCategory m_category;
    mutable std::atomic<int> m_markerCount; // -1 until counted
};

} // namespace Crosscutting

#endif // VFSTATICSTATUSINFO_H
