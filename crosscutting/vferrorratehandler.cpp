#include "vferrorratehandler.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QDateTime>

#include <limits>

namespace Crosscutting {

namespace {

// Seconds since the epoch as 32-bit unsigned: the bucket's arithmetic depends on that width.
quint32 currentSeconds()
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    return QDateTime::currentDateTime().toTime_t();
    QT_WARNING_POP
}

// Truncation toward zero, with the target's results made explicit where C++ leaves them open:
// not-a-number (infinity times zero) gives 0 tokens, infinity fills the bucket.
quint64 truncateToUnsigned(float sum)
{
    if (!(sum > 0.0f))
        return 0;
    if (sum >= 18446744073709551616.0f)
        return std::numeric_limits<quint64>::max();
    return static_cast<quint64>(sum);
}

} // namespace

VfErrorRateHandler::VfErrorRateHandler(unsigned long long maxErrors, unsigned long long timeInterval,
                                       QObject* parent)
    : QObject(parent)
    , m_lastUpdateTime(currentSeconds())
    , m_maxErrors(maxErrors)
    , m_timeInterval(timeInterval)
    , m_allowedErrors(maxErrors)
{
}

VfErrorRateHandler::~VfErrorRateHandler() = default;

bool VfErrorRateHandler::errorRateCheckEnabled(QSharedPointer<const VfLogEntry> logEntry)
{
    Q_UNUSED(logEntry)
    return true;
}

bool VfErrorRateHandler::canWrite(QSharedPointer<const VfLogEntry> logEntry)
{
    if (!errorRateCheckEnabled(logEntry))
        return true;
    // Deliberately stores the time even when no whole token was gained, so fractions are lost:
    // existing instruments rely on the rate as it stands.
    const quint32 now = currentSeconds();
    const quint32 elapsed = now - m_lastUpdateTime;
    m_lastUpdateTime = now;
    const float rate = static_cast<float>(m_maxErrors) / static_cast<float>(m_timeInterval);
    const float gain = rate * static_cast<float>(elapsed);
    const float sum = gain + static_cast<float>(m_allowedErrors);
    const quint64 tokens = truncateToUnsigned(sum);
    m_allowedErrors = qMin(tokens, m_maxErrors);
    return static_cast<double>(m_allowedErrors) >= 1.0;
}

void VfErrorRateHandler::updateAllowedErrors()
{
    const double remaining = static_cast<double>(m_allowedErrors) - 1.0;
    // A bucket at 0 stays at 0.
    m_allowedErrors = remaining > 0.0 ? static_cast<quint64>(remaining) : 0;
    // Reported below 2, not 1: the last token pays for the report itself, so the file shows one
    // ErrorRateTooHigh entry saying why entries stop.
    if (static_cast<double>(m_allowedErrors) < 2.0)
        REPORT_STATUS(VfStatusCodes::ErrorRateTooHigh, QStringLiteral("critical"));
}

} // namespace Crosscutting
