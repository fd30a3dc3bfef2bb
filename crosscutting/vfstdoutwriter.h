#ifndef VFSTDOUTWRITER_H
#define VFSTDOUTWRITER_H

#include "vfabstractlogmanager.h"
#include "vfabstractlogwriter.h"
#include "vfcrosscutting_export.h"
#include "vflogentry.h"

namespace Crosscutting {

// Prints each entry to standard output at once, unless the log manager's ignore handler mutes it (Part 4.3).
class VFCROSSCUTTING_EXPORT VfStdOutWriter : public VfAbstractLogWriter
{
    Q_OBJECT
public:
    VfStdOutWriter(QString const& logName, QObject* parent);
    ~VfStdOutWriter() override;

    void flush() override;
    bool clearLog() override;
    bool copyLogTo(QDir const& directory) override;

public slots:
    bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;
};

} // namespace Crosscutting

// Which kind of code an entry comes from, by its source class and module; the ignore handler's first argument.
VFCROSSCUTTING_EXPORT Crosscutting::MessageSource sourceForLogEntry(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

#endif // VFSTDOUTWRITER_H
