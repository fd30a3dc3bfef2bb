#ifndef VFSTATUSSEVERITYERRORRATEHANDLER_H
#define VFSTATUSSEVERITYERRORRATEHANDLER_H

#include "vfcrosscutting_export.h"
#include "vferrorratehandler.h"
#include "vfstaticstatusinfo.h"

namespace Crosscutting {

/// A rate handler that counts only entries at or above a severity.
class VFCROSSCUTTING_EXPORT VfStatusSeverityErrorRateHandler : public VfErrorRateHandler
{
    Q_OBJECT
public:
    /// A bucket as VfErrorRateHandler's, for entries of severity or above. Cannot fail; any thread.
    VfStatusSeverityErrorRateHandler(VfStaticStatusInfo::VfStatusSeverity severity, unsigned long long maxErrors,
                                     unsigned long long timeInterval, QObject* parent);
    /// Destroys the handler. Any thread, once no writer holds it.
    ~VfStatusSeverityErrorRateHandler() override;

    /// True when the entry's severity is not below the handler's. Any thread.
    bool errorRateCheckEnabled(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

private:
    VfStaticStatusInfo::VfStatusSeverity m_severity;
};

} // namespace Crosscutting

#endif // VFSTATUSSEVERITYERRORRATEHANDLER_H
