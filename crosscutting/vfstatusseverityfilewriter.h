#ifndef VFSTATUSSEVERITYFILEWRITER_H
#define VFSTATUSSEVERITYFILEWRITER_H

#include "vfcrosscutting_export.h"
#include "vffilewriter.h"
#include "vfstaticstatusinfo.h"

namespace Crosscutting {

/// Black-box file writer: holds the last few entries of any severity in a ring and writes them
/// out, with the entry that caused it, when an entry of high enough severity arrives. The file
/// shows what led up to each failure and stays small. The log manager's timer leaves it alone.
class VFCROSSCUTTING_EXPORT VfStatusSeverityFileWriter : public VfFileWriter
{
    Q_OBJECT
public:
    /// A VfFileWriter that keeps at most maxQueuedEntries (at least 1) and writes them when an entry
    /// of flushSeverity or above arrives. Cannot fail; any thread.
    VfStatusSeverityFileWriter(QDir const& logDirectory, QString const& logName,
                               VfDisplayable::DisplayFormat displayFormat, bool sizeLimited,
                               unsigned long long maxFileSize, unsigned int maxQueuedEntries,
                               VfStaticStatusInfo::VfStatusSeverity flushSeverity,
                               QSharedPointer<VfErrorRateHandler> const& errorRateHandler, QObject* parent);
    /// Writes whatever the ring holds and closes the file. The thread that owns it.
    ~VfStatusSeverityFileWriter() override;

    /// False: the writer saves on its own, when a severe entry arrives. Any thread.
    bool isTimedSaveEnabled() const override;
    /// Adds the entry to the ring, dropping the oldest when it is full; an entry of the flush
    /// severity or above takes a token of the rate handler and writes the ring out, on this thread.
    /// Cannot fail. Under the writer's mutex, as writeToLog() calls it.
    void addToLogQueue(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

private:
    quint32 m_maxQueuedEntries;
    VfStaticStatusInfo::VfStatusSeverity m_flushSeverity;
};

} // namespace Crosscutting

#endif // VFSTATUSSEVERITYFILEWRITER_H
