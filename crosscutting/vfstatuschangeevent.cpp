#include "vfstatuschangeevent.h"

namespace Crosscutting {

VfStatusChangeEvent::VfStatusChangeEvent()
    : m_statusCode(0)
{
}

VfStatusChangeEvent::VfStatusChangeEvent(StatusCode statusCode, const QSharedPointer<VfSourceContext>& sourceContext,
                                         const QSharedPointer<VfStaticStatusInfo>& statusInfo)
    : m_sourceContext(sourceContext)
    , m_statusInfo(statusInfo)
    , m_statusCode(statusCode)
{
}

VfStatusChangeEvent::~VfStatusChangeEvent() = default;

QString VfStatusChangeEvent::toString(DisplayFormat) const
{
    return QStringLiteral("Not Implemented");
}

QSharedPointer<VfSourceContext> VfStatusChangeEvent::sourceContext() const { return m_sourceContext; }
QSharedPointer<VfStaticStatusInfo> VfStatusChangeEvent::statusInfo() const { return m_statusInfo; }
StatusCode VfStatusChangeEvent::statusCode() const { return m_statusCode; }

} // namespace Crosscutting
