#ifndef VFSTATUSSEVERITYERRORRATEHANDLER_H
#define VFSTATUSSEVERITYERRORRATEHANDLER_H

#include "vfcrosscutting_export.h"
#include "vferrorratehandler.h"
#include "vfstaticstatusinfo.h"

namespace Crosscutting {

// A rate handler that checks only entries at or above a severity (Part 4.5).
class VFCROSSCUTTING_EXPORT VfStatusSeverityErrorRateHandler : public VfErrorRateHandler
{
    Q_OBJECT
public:
    VfStatusSeverityErrorRateHandler(VfStaticStatusInfo::VfStatusSeverity severity, unsigned long long maxErrors,
                                     unsigned long long timeInterval, QObject* parent);
    ~VfStatusSeverityErrorRateHandler() override;

    bool errorRateCheckEnabled(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

private:
    VfStaticStatusInfo::VfStatusSeverity m_severity;
};

} // namespace Crosscutting

#endif // VFSTATUSSEVERITYERRORRATEHANDLER_H
