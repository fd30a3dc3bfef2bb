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

// Keeps a log in a text file of bounded size with one backup; logging threads only queue, flush() writes (Part 4.4).
class VFCROSSCUTTING_EXPORT VfFileWriter : public VfAbstractLogWriter
{
    Q_OBJECT
public:
    VfFileWriter(QDir const& logDirectory, QString const& logName, VfDisplayable::DisplayFormat displayFormat,
                 bool sizeLimited, unsigned long long maxFileSize,
                 QSharedPointer<VfErrorRateHandler> const& errorRateHandler, QObject* parent);
    ~VfFileWriter() override;

    void flush() override;
    bool clearLog() override;
    bool isCopyable() const override;
    bool copyLogTo(QDir const& directory) override;
    bool isTimedSaveEnabled() const override;
    QString readLog() override;

    QDir pathName() const;
    bool isOutputPathValid();
    QTextStream& getCurrentStream(unsigned long long size);
    const QString readLogFile(QString const& path) const;

public slots:
    bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) override;

public:
    virtual void addToLogQueue(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

signals:
    void backupLogFileCreated();
    void errorAddedToOutstandingLogEntries(const QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

protected:
    QDir m_logDirectory;
    VfDisplayable::DisplayFormat m_displayFormat;
    QString m_backupFileName;
    QFile m_logFile;
    QTextStream m_logStream;
    QList<QSharedPointer<const VfLogEntry>> m_logQueue;
    VfRecursiveMutex m_writerMutex;
    bool m_sizeLimited;
    quint64 m_maxFileSize;
    QSharedPointer<VfErrorRateHandler> m_errorRateHandler;

private:
    // Reopens the file when its name no longer leads to the open file; the open file's size, or -1 when closed.
    qint64 reopenIfReplaced();
    // Moves the live file over the backup and starts an empty one.
    void rotate();
};

} // namespace Crosscutting

#endif // VFFILEWRITER_H
