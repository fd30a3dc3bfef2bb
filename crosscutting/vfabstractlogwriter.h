#ifndef VFABSTRACTLOGWRITER_H
#define VFABSTRACTLOGWRITER_H

#include "vfcrosscutting_export.h"
#include "vflogentry.h"

#include <QDir>
#include <QObject>
#include <QSharedPointer>
#include <QString>

namespace Crosscutting {

/// A named sink that a VfLog is connected to. writeToLog() runs on the thread that logged,
/// since the log manager connects logs and writers directly.
class VFCROSSCUTTING_EXPORT VfAbstractLogWriter : public QObject
{
    Q_OBJECT
public:
    /// A writer named logName. Cannot fail; any thread.
    VfAbstractLogWriter(QString const& logName, QObject* parent);
    /// Destroys the writer. The thread that owns it, once no log is connected.
    ~VfAbstractLogWriter() override;

    /// Writes out what the writer holds. Failures are silent. Any thread.
    virtual void flush() = 0;
    /// Empties the log. False when it could not be emptied. Any thread.
    virtual bool clearLog() = 0;
    /// Whether the writer keeps a file that copyLogTo() and readLog() can reach; false here. Any thread.
    virtual bool isCopyable() const;
    /// Copies the log to the file directory.absolutePath(). False when it could not. Any thread.
    virtual bool copyLogTo(QDir const& directory) = 0;
    /// Whether the log manager's timer and VfAbstractLogManager::forceFlushLog() flush this writer;
    /// true here. Any thread.
    virtual bool isTimedSaveEnabled() const;
    /// The text the writer has written; empty here. Any thread.
    virtual QString readLog();

    /// The name given at construction, such as "velmar.log". Cannot fail; any thread.
    QString logName() const;

public slots:
    /// Takes one entry. False when the entry was refused or could not be written. The thread that
    /// logged.
    virtual bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) = 0;

private:
    QString m_logName;
};

} // namespace Crosscutting

#endif // VFABSTRACTLOGWRITER_H
