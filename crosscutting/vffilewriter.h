#ifndef VFFILEWRITER_H
#define VFFILEWRITER_H

#include "vfabstractlogwriter.h"
#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"
#include "vferrorratehandler.h"
#include "vflogentry.h"
#include "vfrecursivemutex.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QTextStream>

namespace Crosscutting {

/// Keeps a log in a text file of bounded size with one ".bak" backup. A logging thread only
/// appends to a queue; flush(), which the log manager's timer calls, formats the queue, rotates
/// the file when it would pass its limit, and syncs the disk.
///
/// A record is the context text in the writer's DisplayFormat, one blank and the message; the
/// writer adds no line end. A file that cannot be made or opened is retried at each use, and what
/// is written meanwhile is lost; a write that fails drops what did not land, never half a record,
/// and a file removed or replaced behind the writer's back is reopened. Logging never reports its
/// own failures. Every operation may run
/// on any thread; a recursive mutex with a wait of 120000 ms guards queue, stream and file.
class VFCROSSCUTTING_EXPORT VfFileWriter : public VfAbstractLogWriter
{
    Q_OBJECT
public:
    /// A writer of the file logName in logDirectory, opened on first use. When sizeLimited, the file
    /// is moved to its ".bak" backup before it would pass maxFileSize bytes. errorRateHandler, if not
    /// null, may refuse entries. Cannot fail; any thread.
    VfFileWriter(QDir const& logDirectory, QString const& logName, VfDisplayable::DisplayFormat displayFormat,
                 bool sizeLimited, unsigned long long maxFileSize,
                 QSharedPointer<VfErrorRateHandler> const& errorRateHandler, QObject* parent);
    /// Flushes the queue and closes the file. The thread that owns it.
    ~VfFileWriter() override;

    /// Writes the queue to the file, rotating as needed, then syncs the disk. Failures are silent. Any thread.
    void flush() override;
    /// Empties the file, the queue and the backup. False when the file could not be emptied or the backup removed. Any thread.
    bool clearLog() override;
    /// True: the file can be read and copied. Any thread.
    bool isCopyable() const override;
    /// Flushes, then copies the file to directory.absolutePath(), which names the target file. With a
    /// backup, the target receives the backup alone: the current file is read through the writer's
    /// own write-only device, which gives nothing. False, with FileCannotCopy reported, when the copy
    /// fails; an existing target is never overwritten. Any thread.
    bool copyLogTo(QDir const& directory) override;
    /// True: the log manager's timer flushes this writer. Any thread.
    bool isTimedSaveEnabled() const override;
    /// The backup's text followed by the file's, without what is still queued. Reports FileNotFound
    /// or FileCannotOpen and leaves that part empty when a file cannot be read. Any thread.
    QString readLog() override;

    /// The directory of the file. Cannot fail; any thread.
    QDir pathName() const;
    /// Makes the directory and opens the file for appending, if it is not open yet. Always true: a
    /// failed open is retried at the next use. Any thread; the writer's own operations call it under its mutex.
    bool isOutputPathValid();
    /// The stream to write size more characters to: the current one, or, when the file would pass
    /// its limit, the stream of a fresh file after the old one became the backup (backupLogFileCreated()).
    /// Failures of the rotation are silent. Under the writer's mutex, as flush() calls it.
    QTextStream& getCurrentStream(unsigned long long size);
    /// The text of the file path. Reports FileNotFound or FileCannotOpen and returns an empty string
    /// when it cannot be read. Any thread.
    const QString readLogFile(QString const& path) const;

public slots:
    /// Queues the entry for the next flush(). False when the rate handler refuses it. The thread
    /// that logged.
    bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

public:
    /// Appends the entry to the queue and emits errorAddedToOutstandingLogEntries(). Cannot fail.
    /// Under the writer's mutex, as writeToLog() calls it.
    virtual void addToLogQueue(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

signals:
    /// Emitted after each rotation, on the thread that flushed.
    void backupLogFileCreated();
    /// Emitted for each entry queued, on the thread that logged; the rate handler takes a token
    /// for it.
    void errorAddedToOutstandingLogEntries(const QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

protected:
    /// Directory of the file.
    QDir m_logDirectory;
    /// Form of the context text of each record.
    VfDisplayable::DisplayFormat m_displayFormat;
    /// Absolute path of the backup; empty when the file has no size limit.
    QString m_backupFileName;
    /// The log file.
    QFile m_logFile;
    /// Stream on m_logFile.
    QTextStream m_logStream;
    /// Entries accepted and not yet written.
    QList<QSharedPointer<const VfLogEntry>> m_logQueue;
    /// Guards queue, stream and file; recursive, since a report of the rate handler comes back into this writer.
    VfRecursiveMutex m_writerMutex;
    /// Whether the file rotates at m_maxFileSize.
    bool m_sizeLimited;
    /// Size limit in bytes.
    quint64 m_maxFileSize;
    /// The rate handler; may be null.
    QSharedPointer<VfErrorRateHandler> m_errorRateHandler;

private:
    // Reopens the file when its name no longer leads to the open file; the open file's size, or -1 when closed.
    qint64 reopenIfReplaced();
    // Moves the live file over the backup and starts an empty one.
    void rotate();
};

} // namespace Crosscutting

#endif // VFFILEWRITER_H
