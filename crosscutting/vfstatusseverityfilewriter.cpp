#include "vfstatusseverityfilewriter.h"

namespace Crosscutting {

VfStatusSeverityFileWriter::VfStatusSeverityFileWriter(QDir const& logDirectory, QString const& logName,
                                                       VfDisplayable::DisplayFormat displayFormat, bool sizeLimited,
                                                       unsigned long long maxFileSize, unsigned int maxQueuedEntries,
                                                       VfStaticStatusInfo::VfStatusSeverity flushSeverity,
                                                       QSharedPointer<VfErrorRateHandler> const& errorRateHandler,
                                                       QObject* parent)
    : VfFileWriter(logDirectory, logName, displayFormat, sizeLimited, maxFileSize, errorRateHandler, parent)
    , m_maxQueuedEntries(maxQueuedEntries)
    , m_flushSeverity(flushSeverity)
{
}

VfStatusSeverityFileWriter::~VfStatusSeverityFileWriter()
{
    // Deliberately a separate walk for CriticalError (not m_flushSeverity), although the base
    // destructor's unconditional flush follows: on a clean shutdown it changes nothing.
    for (int index = 0; index < m_logQueue.size(); ++index) {
        if (m_logQueue.at(index)->severity() == VfStaticStatusInfo::VfStatusSeverity::CriticalError) {
            flush();
            break;
        }
    }
}

bool VfStatusSeverityFileWriter::isTimedSaveEnabled() const
{
    return false;
}

void VfStatusSeverityFileWriter::addToLogQueue(QSharedPointer<const VfLogEntry> logEntry)
{
    // A capacity of 0 is not supported: removeFirst on an empty ring.
    if (static_cast<quint32>(m_logQueue.size()) == m_maxQueuedEntries)
        m_logQueue.removeFirst();
    m_logQueue.append(logEntry);
    if (static_cast<int>(logEntry->severity()) < static_cast<int>(m_flushSeverity))
        return;
    // The token is taken, and any ErrorRateTooHigh reported, before the disk is touched.
    emit errorAddedToOutstandingLogEntries(logEntry);
    flush();
}

} // namespace Crosscutting
