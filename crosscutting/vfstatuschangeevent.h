#ifndef VFSTATUSCHANGEEVENT_H
#define VFSTATUSCHANGEEVENT_H

#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"
#include "vfsourcecontext.h"
#include "vfstaticstatusinfo.h"
#include "vfstatuscodes.h"

#include <QMetaType>
#include <QSharedPointer>

namespace Crosscutting {

/// Value type carried by VfAbstractStatusReporter::statusChangeOccurred: the code, where it
/// came from, and the catalogue record with its description filled. Copies share the two records.
/// Immutable, so copies may be read on any thread.
class VFCROSSCUTTING_EXPORT VfStatusChangeEvent : public VfDisplayable
{
public:
    /// Code 0 and two null pointers. Cannot fail; any thread.
    VfStatusChangeEvent();
    /// Stores the three values. Cannot fail; any thread.
    VfStatusChangeEvent(StatusCode statusCode, const QSharedPointer<VfSourceContext>& sourceContext,
                        const QSharedPointer<VfStaticStatusInfo>& statusInfo);
    /// Releases its share of the two records. Any thread.
    ~VfStatusChangeEvent() override;

    /// Always "Not Implemented", whatever the format: the event has no text of its own, and
    /// renderers go to sourceContext() and statusInfo(). Any thread.
    QString toString(DisplayFormat format) const override;

    /// Where the report was made; null for a default-constructed event. Any thread.
    QSharedPointer<VfSourceContext> sourceContext() const;
    /// The record of this occurrence, with the description filled; null for a default-constructed
    /// event. Any thread.
    QSharedPointer<VfStaticStatusInfo> statusInfo() const;
    /// The reported code. Cannot fail; any thread.
    StatusCode statusCode() const;

private:
    QSharedPointer<VfSourceContext> m_sourceContext;
    QSharedPointer<VfStaticStatusInfo> m_statusInfo;
    StatusCode m_statusCode;
};

} // namespace Crosscutting

// Declared to Qt's meta-type system; registering it (qRegisterMetaType) is the embedding
// application's job, before an event is delivered queued.
Q_DECLARE_METATYPE(Crosscutting::VfStatusChangeEvent)

#endif // VFSTATUSCHANGEEVENT_H
