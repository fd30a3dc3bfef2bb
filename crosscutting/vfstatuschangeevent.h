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

// Value type carried by statusChangeOccurred: the code, where it came from and the filled record (Part 2.3).
class VFCROSSCUTTING_EXPORT VfStatusChangeEvent : public VfDisplayable
{
public:
    VfStatusChangeEvent();
    VfStatusChangeEvent(StatusCode statusCode, const QSharedPointer<VfSourceContext>& sourceContext,
                        const QSharedPointer<VfStaticStatusInfo>& statusInfo);
    ~VfStatusChangeEvent() override;

    // Part 2.3: deliberately "Not Implemented" for every format; renderers go to the two records.
    QString toString(DisplayFormat format) const override;

    QSharedPointer<VfSourceContext> sourceContext() const;
    QSharedPointer<VfStaticStatusInfo> statusInfo() const;
    StatusCode statusCode() const;

private:
    QSharedPointer<VfSourceContext> m_sourceContext;
    QSharedPointer<VfStaticStatusInfo> m_statusInfo;
    StatusCode m_statusCode;
};

} // namespace Crosscutting

// Declared to Qt's meta-type system; registering it (qRegisterMetaType) is the embedding application's job.
Q_DECLARE_METATYPE(Crosscutting::VfStatusChangeEvent)

#endif // VFSTATUSCHANGEEVENT_H
