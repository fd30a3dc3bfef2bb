#ifndef VFSTATICSTATUSINFO_H
#define VFSTATICSTATUSINFO_H

#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"

#include <QObject>
#include <QString>

#include <atomic>

namespace Crosscutting {

// One catalogue record: title, description, severity and category of a status.
// VfDisplayable is a private base written without an access specifier, which moc takes for public:
// so the meta-cast answers to "VfDisplayable" too, as callers that cast to it rely on.
class VFCROSSCUTTING_EXPORT VfStaticStatusInfo : public QObject, VfDisplayable
{
    Q_OBJECT
public:
    enum class VfStatusSeverity : quint8 {
        Unassigned = 0,
        Notification = 1,
        Warning = 2,
        NonCriticalError = 3,
        CriticalError = 4
    };
    Q_ENUM(VfStatusSeverity)

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

    VfStaticStatusInfo();
    VfStaticStatusInfo(const QString& title, const QString& description, VfStatusSeverity severity,
                       VfStatusCategory category, QObject* parent);

    QString title() const;
    QString description() const;
    VfStatusSeverity severity() const;
    VfStatusCategory category() const;

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
