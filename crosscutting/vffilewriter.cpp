#include "vffilewriter.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfmutexlocker.h"
#include "vfunixsignalhandler.h"

#include <QSignalBlocker>
#include <QTextCodec>

#include <cerrno>
#ifdef __SSE2__
#include <emmintrin.h>
#endif
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Crosscutting {

namespace {

// The text of a flush goes to the file in pieces of about this size: one write each, and a queue of any length
// needs no more memory than this for its text.
const int s_writeChunkBytes = 256 * 1024;

// The records of one flush, encoded as the stream's codec would encode them, with the end of each record, so that a
// write that fails halfway can be cut back to whole records.
class RecordBuffer
{
public:
    RecordBuffer(QTextCodec* codec, int records)
        : m_codec(codec)
        // Most records are ASCII text, which UTF-8 and Latin-1 store byte for byte.
        , m_asciiAsIs(codec == nullptr || codec->mibEnum() == 106 || codec->mibEnum() == 4)
    {
        // As the stream writes: no byte order mark.
        m_state.flags |= QTextCodec::IgnoreHeader;
        // Room for a few hundred bytes a record, up to one piece: most flushes then allocate once.
        m_text.reserve(static_cast<int>(qMin<qint64>(qint64(records) * 512, s_writeChunkBytes + 4096)));
    }

    void append(const QString& text)
    {
        const QChar* characters = text.constData();
        int length = text.size();
        if (m_asciiAsIs && m_state.remainingChars == 0) {
            const int start = m_text.size();
            m_text.resize(start + length);
            char* out = m_text.data() + start;
            const ushort* in = reinterpret_cast<const ushort*>(characters);
            int done = 0;
#ifdef __SSE2__
            // Sixteen characters at a time while they are all ASCII.
            const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xff80));
            for (; done + 16 <= length; done += 16) {
                const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + done));
                const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + done + 8));
                const __m128i beyond = _mm_and_si128(_mm_or_si128(low, high), nonAscii);
                if (_mm_movemask_epi8(_mm_cmpeq_epi16(beyond, _mm_setzero_si128())) != 0xffff)
                    break;
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done), _mm_packus_epi16(low, high));
            }
#endif
            while (done < length && in[done] < 0x80) {
                out[done] = static_cast<char>(in[done]);
                ++done;
            }
            m_text.resize(start + done);
            characters += done;
            length -= done;
        }
        if (length > 0)
            m_text += m_codec ? m_codec->fromUnicode(characters, length, &m_state)
                              : QString(characters, length).toLatin1();
    }

    void append(char character)
    {
        if (m_asciiAsIs && m_state.remainingChars == 0)
            m_text += character;
        else
            append(QString(QLatin1Char(character)));
    }
    void endRecord() { m_recordEnds.push_back(m_text.size()); }
    bool isFull() const { return m_text.size() >= s_writeChunkBytes; }

    // Writes what is buffered to fd and empties the buffer. True when all of it landed. Otherwise the file is cut
    // back to the last whole record that landed, the rest is dropped, and fileSize follows the file.
    bool writeTo(QFile& file, qint64& fileSize)
    {
        if (!file.isOpen()) {
            // Through the device, which says that it is not open, as it always has; the text is dropped.
            const bool complete = m_text.isEmpty() || file.write(m_text) == m_text.size();
            m_text.resize(0);
            m_recordEnds.clear();
            return complete;
        }
        const int fd = file.handle();
        qint64 written = 0;
        while (written < m_text.size()) {
            const ssize_t result = ::write(fd, m_text.constData() + written, static_cast<size_t>(m_text.size() - written));
            if (result > 0)
                written += result;
            else if (result < 0 && errno == EINTR)
                continue;
            else
                break;
        }
        const bool complete = written == m_text.size();
        if (!complete) {
            qint64 whole = 0;
            for (int end : m_recordEnds) {
                if (end > written)
                    break;
                whole = end;
            }
            if (written > whole) {
                const off_t position = ::lseek(fd, 0, SEEK_CUR);
                const off_t cut = position - static_cast<off_t>(written - whole);
                if (position >= 0 && ::ftruncate(fd, cut) == 0)
                    ::lseek(fd, cut, SEEK_SET);
            }
            written = whole;
        }
        fileSize += written;
        m_text.resize(0);
        m_recordEnds.clear();
        return complete;
    }

private:
    QTextCodec* m_codec;
    bool m_asciiAsIs;
    QTextCodec::ConverterState m_state;
    QByteArray m_text;
    std::vector<int> m_recordEnds;
};

} // namespace

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
    // Once is enough: each setDevice adds a connection to the file, which a writer retrying for hours would pile up.
    if (m_logStream.device() != &m_logFile)
        m_logStream.setDevice(&m_logFile);
    // True in all cases, the failed open included: callers go on, and the next use tries again.
    return true;
}

bool VfFileWriter::writeToLog(QSharedPointer<const VfLogEntry> logEntry)
{
    if (stopForCrashExit())
        return false;
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
    // Every entry, whatever its severity: the name keeps the meaning it has in the severity writer.
    emit errorAddedToOutstandingLogEntries(logEntry);
}

qint64 VfFileWriter::reopenIfReplaced()
{
    if (!m_logFile.isOpen())
        return -1;
    struct stat opened = {};
    struct stat named = {};
    if (::fstat(m_logFile.handle(), &opened) == 0 && ::stat(QFile::encodeName(m_logFile.fileName()).constData(), &named) == 0
        && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino)
        return opened.st_size;
    // Renamed, removed or replaced behind the writer's back: text written to the old file would be lost.
    {
        const QSignalBlocker silentClose(&m_logFile);
        m_logFile.close();
    }
    isOutputPathValid();
    return m_logFile.isOpen() ? m_logFile.size() : -1;
}

void VfFileWriter::flush()
{
    // A crash does not flush the logs: what is queued is lost.
    if (stopForCrashExit())
        return;
    VfMutexLocker<VfRecursiveMutex> locker(m_writerMutex);
    if (!isOutputPathValid())
        return;
    // Text that reached the stream through getCurrentStream goes first; a stream that failed once may write again.
    m_logStream.flush();
    m_logStream.resetStatus();
    qint64 fileSize = reopenIfReplaced();
    // The queue is emptied whatever happens: what cannot be written now is dropped, not kept, so memory stays
    // bounded while the file system is full, read-only or gone.
    const QList<QSharedPointer<const VfLogEntry>> queue = m_logQueue;
    m_logQueue = QList<QSharedPointer<const VfLogEntry>>();

    RecordBuffer buffer(m_logStream.codec(), queue.size());
    // The size the limit is checked against: the file's bytes at the start, or 0 after a rotation, plus the
    // characters of the records since. QString characters, not bytes, and the separating space is not counted, so
    // a file may pass the limit by those; equality does not rotate.
    quint64 countedSize = fileSize < 0 ? 0 : static_cast<quint64>(fileSize);
    // False once text meant for the live file did not land in it.
    bool complete = true;
    for (const QSharedPointer<const VfLogEntry>& logEntry : queue) {
        if (stopForCrashExit())
            return;
        const QString contextText = logEntry->sourceContext()->toString(m_displayFormat);
        const QString& message = logEntry->message();
        if (m_sizeLimited) {
            const quint64 entrySize = static_cast<quint64>(contextText.length()) + static_cast<quint64>(message.length());
            if (countedSize + entrySize > m_maxFileSize && m_logFile.isOpen()) {
                // The records before this one belong to the live file, and only a file that really holds them
                // is moved over the backup: after a failed write, the decision is taken again on what it holds.
                complete = buffer.writeTo(m_logFile, fileSize) && complete;
                if (!complete) {
                    countedSize = fileSize < 0 ? 0 : static_cast<quint64>(fileSize);
                    complete = true;
                }
                if (countedSize + entrySize > m_maxFileSize) {
                    rotate();
                    fileSize = m_logFile.isOpen() ? 0 : -1;
                    countedSize = 0;
                }
            }
            countedSize += entrySize;
        }
        buffer.append(contextText);
        buffer.append(' ');
        buffer.append(message);
        buffer.endRecord();
        if (buffer.isFull())
            complete = buffer.writeTo(m_logFile, fileSize) && complete;
    }
    buffer.writeTo(m_logFile, fileSize);
    // Deliberate, also for an empty queue: entries that have been flushed are on the medium.
    ::sync();
}

QTextStream& VfFileWriter::getCurrentStream(unsigned long long size)
{
    // Equality does not rotate.
    if (static_cast<quint64>(m_logFile.size()) + size > m_maxFileSize)
        rotate();
    return m_logStream;
}

void VfFileWriter::rotate()
{
    m_logStream.flush();
    m_logStream.resetStatus();
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
    // No result is looked at: when the rename failed, this open truncates the live log and its text is gone.
    // One backup at most, and the log never stops for it.
    m_logFile.open(QIODevice::WriteOnly | QIODevice::Text);
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
    // The QDir's absolute path is the target file, not a folder to copy into: callers pass the file's path.
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
            // Read through the write-only log device, which gives nothing, so the target holds the backup alone.
            // Deliberately so: the copy is the backup as it was, and the current file is not read by another route.
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
    // The records go to the file by its descriptor, so the descriptor knows where writing stands, not the stream.
    const qint64 position = m_logFile.isOpen() ? static_cast<qint64>(::lseek(m_logFile.handle(), 0, SEEK_CUR)) : 0;
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
