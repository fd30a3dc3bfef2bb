#ifndef VFSTDOUTWRITER_H
#define VFSTDOUTWRITER_H

/// \file
/// The console writer and sourceForLogEntry().

#include "vfabstractlogmanager.h"
#include "vfabstractlogwriter.h"
#include "vfcrosscutting_export.h"
#include "vflogentry.h"

namespace Crosscutting {

/// Prints each entry to standard output at once, unless the log manager's ignore handler
/// mutes it: the context's ShortForm, one blank and the message, in the local 8-bit encoding.
/// Runs on the thread that logged, with no lock of its own.
class VFCROSSCUTTING_EXPORT VfStdOutWriter : public VfAbstractLogWriter
{
    Q_OBJECT
public:
    /// A console writer named logName. Cannot fail; any thread.
    VfStdOutWriter(QString const& logName, QObject* parent);
    /// Destroys the writer. The thread that owns it.
    ~VfStdOutWriter() override;

    /// Does nothing: every entry is flushed as it is written. Any thread.
    void flush() override;
    /// Does nothing and returns true. Any thread.
    bool clearLog() override;
    /// Does nothing and returns false: standard output cannot be copied. Any thread.
    bool copyLogTo(QDir const& directory) override;

public slots:
    /// Prints the entry and flushes standard output, or skips it when the ignore handler returns
    /// true. Always true; a failing write goes unnoticed. The thread that logged.
    bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;
};

} // namespace Crosscutting

/// Which kind of code an entry comes from, by its source class and module: the ignore handler's
/// first argument. Cannot fail; any thread.
VFCROSSCUTTING_EXPORT Crosscutting::MessageSource sourceForLogEntry(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

#endif // VFSTDOUTWRITER_H
