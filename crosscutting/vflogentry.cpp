#include "vflogentry.h"

namespace Crosscutting {

VfLogEntry::VfLogEntry(QSharedPointer<VfSourceContext> const& sourceContext,
                       VfStaticStatusInfo::VfStatusSeverity severity, QString const& message)
    : m_sourceContext(sourceContext)
    , m_severity(severity)
    , m_message(message)
{
}

VfLogEntry::~VfLogEntry() = default;

QSharedPointer<VfSourceContext> VfLogEntry::sourceContext() const
{
    return m_sourceContext;
}

VfStaticStatusInfo::VfStatusSeverity VfLogEntry::severity() const
{
    return m_severity;
}

QString VfLogEntry::message() const
{
    return m_message;
}

} // namespace Crosscutting
