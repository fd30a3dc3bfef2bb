#include "vffilewriter.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfmutexlocker.h"

#include <QSignalBlocker>

#include <unistd.h>

namespace Crosscutting {

VfFileWriter::VfFileWriter(QDir const& logDirectory, QString const& logName,
                           VfDisplayable::DisplayFormat displayFormat, bool sizeLimited,
                           unsigned long long maxFileSize, QSharedPointer<VfErrorRateHandler> const& errorRateHandler,
                           QObject* parent)
    : VfAbstractLogWriter(logName, parent)
    , m_logDirectory(logDirectory)
    , m_displayFormat(displayFormat)
    , m_logFile(logDirectory.absoluteFilePath(logName))
    , m_writerMutex(120000)
    , m_sizeLimited(sizeLimited)
    , m_maxFileSize(maxFileSize)
    , m_errorRateHandler(errorRateHandler)
{
    if (m_sizeLimited)
        m_backupFileName = m_logFile.fileName() + QStringLiteral(".bak");
    if (m_errorRateHandler) {
        connect(this, SIGNAL(errorAddedToOutstandingLogEntries(QSharedPointer<const Crosscutting::VfLogEntry>)),
                m_errorRateHandler.data(), SLOT(updateAllowedErrors()), Qt::DirectConnection);
    }
}

VfFileWriter::~VfFileWriter()
{
    flush();
}

QDir VfFileWriter::pathName() const
{
    return m_logDirectory;
}

bool VfFileWriter::isOutputPathValid()
{
    if (m_logFile.isOpen())
        return true;
    m_logDirectory.mkpath(m_logDirectory.path());
    m_logFile.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
    m_logStream.setDevice(&m_logFile);
    // Part 4.4: kept as specified: true in all cases; a failed open is retried at the next use.
    return true;
}

bool VfFileWriter::writeToLog(QSharedPointer<const VfLogEntry> logEntry)
{
    VfMutexLocker<VfRecursiveMutex> locker(m_writerMutex);
    if (!isOutputPathValid())
        return false;
    if (m_errorRateHandler && !m_errorRateHandler->canWrite(logEntry))
        return false;
    addToLogQueue(logEntry);
    return true;
}

void VfFileWriter::addToLogQueue(QSharedPointer<const VfLogEntry> logEntry)
{
    m_logQueue.append(logEntry);
    // Every entry, whatever its severity: the name keeps the severity writer's meaning (Part 4.4).
    emit errorAddedToOutstandingLogEntries(logEntry);
}

void VfFileWriter::flush()
{
    VfMutexLocker<VfRecursiveMutex> locker(m_writerMutex);
    if (!isOutputPathValid())
        return;
    // What the stream buffers since the last flush, which m_logFile.size() does not see yet.
    quint64 pendingSize = 0;
    while (!m_logQueue.isEmpty()) {
        const QSharedPointer<const VfLogEntry> logEntry = m_logQueue.takeFirst();
        const QString contextText = logEntry->sourceContext()->toString(m_displayFormat);
        const QString message = logEntry->message();
        if (!m_sizeLimited) {
            m_logStream << contextText << QLatin1Char(' ') << message;
            continue;
        }
        // Part 4.4: QString lengths, not bytes, and the space is not counted.
        const quint64 entrySize = static_cast<quint64>(contextText.length()) + static_cast<quint64>(message.length());
        pendingSize += entrySize;
        const quint64 predictedSize = static_cast<quint64>(m_logFile.size()) + pendingSize;
        getCurrentStream(pendingSize) << contextText << QLatin1Char(' ') << message;
        if (predictedSize > m_maxFileSize)
            pendingSize = entrySize; // rotated: the new file holds only this entry, in the buffer
    }
    m_logStream.flush();
    // Part 4.4: deliberate, also for an empty queue: flushed entries are on the medium.
    ::sync();
    m_logQueue = QList<QSharedPointer<const VfLogEntry>>();
}

QTextStream& VfFileWriter::getCurrentStream(unsigned long long size)
{
    // Equality does not rotate.
    if (static_cast<quint64>(m_logFile.size()) + size <= m_maxFileSize)
        return m_logStream;
    m_logStream.flush();
    {
        // The stream has just been flushed. Its own close notifier is a QObject of the thread that built this
        // writer: on a flush from another thread it would run queued there, outside m_writerMutex, racing
        // with the next writes. So the file's aboutToClose stays silent here.
        const QSignalBlocker silentClose(&m_logFile);
        m_logFile.close();
    }
    if (QFile::exists(m_backupFileName))
        QFile::remove(m_backupFileName);
    QFile::rename(m_logFile.fileName(), m_backupFileName);
    emit backupLogFileCreated();
    // Part 4.4: kept as specified: no results looked at; a failed rename means this open truncates the live log.
    m_logFile.open(QIODevice::WriteOnly | QIODevice::Text);
    return m_logStream;
}

QString VfFileWriter::readLog()
{
    QString text;
    if (m_sizeLimited && QFile::exists(m_backupFileName))
        text = readLogFile(m_backupFileName);
    text += readLogFile(m_logFile.fileName());
    return text;
}

const QString VfFileWriter::readLogFile(QString const& path) const
{
    QFile file(path);
    if (!file.exists()) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, path);
        return QString();
    }
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        REPORT_STATUS(VfStatusCodes::FileCannotOpen,
                      QStringLiteral("%1, %2").arg(file.fileName(), file.errorString()));
        return QString();
    }
    QTextStream stream(&file);
    const QString text = stream.readAll();
    file.close();
    return text;
}

bool VfFileWriter::copyLogTo(QDir const& directory)
{
    flush();
    VfMutexLocker<VfRecursiveMutex> locker(m_writerMutex);
    if (!isOutputPathValid())
        return false;
    // Part 4.4: the QDir's absolute path is the target file, not a folder to copy into.
    const QString target = directory.absolutePath();
    const QString backupPath = pathName().absoluteFilePath(m_backupFileName);
    if (m_sizeLimited && QFile::exists(backupPath)) {
        if (!QFile::copy(backupPath, target)) {
            REPORT_STATUS(VfStatusCodes::FileCannotCopy, backupPath, target);
            return false;
        }
        QFile targetFile(target);
        if (!targetFile.open(QIODevice::Append)) {
            REPORT_STATUS(VfStatusCodes::FileCannotOpen, targetFile.fileName());
        } else {
            // Part 4.4: kept as specified: read through the write-only log device, which gives nothing,
            // so the target holds the backup alone.
            const QByteArray current = m_logFile.readAll();
            if (targetFile.write(current) == -1)
                REPORT_STATUS(VfStatusCodes::FileIoError, targetFile.fileName(), QStringLiteral("write error"));
            targetFile.close();
        }
        return true;
    }
    const QString source = pathName().absoluteFilePath(logName());
    const bool copied = QFile::copy(source, target);
    if (!copied)
        REPORT_STATUS(VfStatusCodes::FileCannotCopy, source, target);
    return copied;
}

bool VfFileWriter::clearLog()
{
    VfMutexLocker<VfRecursiveMutex> locker(m_writerMutex);
    isOutputPathValid();
    bool result = false;
    const qint64 position = m_logStream.pos();
    if (m_logStream.seek(0)) {
        if (m_logFile.resize(0)) {
            m_logQueue = QList<QSharedPointer<const VfLogEntry>>();
            result = true;
        } else {
            m_logStream.seek(position);
        }
    }
    // m_backupFileName is empty without a size limit, and no such file exists.
    if (QFile::exists(m_backupFileName))
        result = QFile::remove(m_backupFileName) && result;
    return result;
}

bool VfFileWriter::isCopyable() const
{
    return true;
}

bool VfFileWriter::isTimedSaveEnabled() const
{
    return true;
}

} // namespace Crosscutting
