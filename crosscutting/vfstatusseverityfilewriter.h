#ifndef VFSTATUSSEVERITYFILEWRITER_H
#define VFSTATUSSEVERITYFILEWRITER_H

#include "vfcrosscutting_export.h"
#include "vffilewriter.h"
#include "vfstaticstatusinfo.h"

namespace Crosscutting {

// Black-box file writer: holds the last few entries in a ring and writes them out when a severe one arrives (Part 4.6).
class VFCROSSCUTTING_EXPORT VfStatusSeverityFileWriter : public VfFileWriter
{
    Q_OBJECT
public:
    VfStatusSeverityFileWriter(QDir const& logDirectory, QString const& logName,
                               VfDisplayable::DisplayFormat displayFormat, bool sizeLimited,
                               unsigned long long maxFileSize, unsigned int maxQueuedEntries,
                               VfStaticStatusInfo::VfStatusSeverity flushSeverity,
                               QSharedPointer<VfErrorRateHandler> const& errorRateHandler, QObject* parent);
    ~VfStatusSeverityFileWriter() override;

    bool isTimedSaveEnabled() const override;
    void addToLogQueue(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

private:
    quint32 m_maxQueuedEntries;
    VfStaticStatusInfo::VfStatusSeverity m_flushSeverity;
};

} // namespace Crosscutting

#endif // VFSTATUSSEVERITYFILEWRITER_H
