#include "vfstatusseverityerrorratehandler.h"

namespace Crosscutting {

VfStatusSeverityErrorRateHandler::VfStatusSeverityErrorRateHandler(VfStaticStatusInfo::VfStatusSeverity severity,
                                                                   unsigned long long maxErrors,
                                                                   unsigned long long timeInterval, QObject* parent)
    : VfErrorRateHandler(maxErrors, timeInterval, parent)
    , m_severity(severity)
{
}

VfStatusSeverityErrorRateHandler::~VfStatusSeverityErrorRateHandler() = default;

bool VfStatusSeverityErrorRateHandler::errorRateCheckEnabled(QSharedPointer<const VfLogEntry> logEntry)
{
    return static_cast<int>(logEntry->severity()) >= static_cast<int>(m_severity);
}

} // namespace Crosscutting
