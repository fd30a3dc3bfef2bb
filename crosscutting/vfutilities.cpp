#include "vfutilities.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QDateTime>
#include <QDirIterator>
#include <QDomNode>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonParseError>
#include <QProcess>
#include <QRegularExpression>
#include <QXmlStreamWriter>

#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace Crosscutting {

// ---- Part 7.2: backtrace capture --------------------------------------------------------

namespace {

// Part 7.2: the frame limit of both capture operations.
constexpr int backTraceFrameLimit = 100;

// Writes one frame string of backtrace_symbols as its line of logBackTrace. frame is split in
// place. nameBuffer/nameSize follow __cxa_demangle, which may enlarge the buffer.
void writeBackTraceFrame(QFile& file, char* frame, char*& nameBuffer, size_t& nameSize)
{
    char* nameMarker = nullptr;
    char* offsetMarker = nullptr;
    char* endMarker = nullptr;
    for (char* p = frame; *p != '\0'; ++p) {
        if (*p == '(') {
            nameMarker = p;
        } else if (*p == '+') {
            offsetMarker = p;
        } else if (*p == ')' && offsetMarker != nullptr) {
            endMarker = p;
            break;
        }
    }
    if (endMarker == nullptr || nameMarker == nullptr || nameMarker >= offsetMarker) {
        file.write(QString(QString::fromLatin1(frame) + QLatin1Char('\n')).toLatin1());
        return;
    }
    *nameMarker = '\0';
    *offsetMarker = '\0';
    *endMarker = '\0';
    const QString module = QString::fromLatin1(frame);
    const QString offset = QString::fromLatin1(offsetMarker + 1);

    int status = 0;
    char* demangled = abi::__cxa_demangle(nameMarker + 1, nameBuffer, &nameSize, &status);
    QString line;
    if (status == 0) {
        nameBuffer = demangled;
        line = QStringLiteral(" %1 : %2+%3\n").arg(module).arg(QString::fromLatin1(nameBuffer)).arg(offset);
    } else {
        line = QStringLiteral(" %1 : %2()+%3\n").arg(module).arg(QString::fromLatin1(nameMarker + 1)).arg(offset);
    }
    file.write(line.toLatin1());
}

} // namespace

void VfUtilities::logBackTraceNoDemangle(char const* path)
{
    // Signal context: system calls and the runtime's backtrace functions only.
    const int fd = open(path, O_WRONLY | O_CREAT, 0600);
    // Part 7.2: kept as specified: the test is against 0, not -1. A failed open goes on and
    // writes to no file; a descriptor of 0 returns with no backtrace and stays open.
    if (fd == 0)
        return;
    void* frames[backTraceFrameLimit];
    const int count = backtrace(frames, backTraceFrameLimit);
    backtrace_symbols_fd(frames, count, fd);
    close(fd);
    sync();
}

void VfUtilities::logBackTrace(QString path)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    if (!file.isOpen())
        return;

    const QString heading = QLatin1String("[")
        + QDateTime::currentDateTime().toString(QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP"))
        + QLatin1String("] Backtrace: \n");
    file.write(heading.toLatin1());

    void* frames[backTraceFrameLimit];
    const int count = backtrace(frames, backTraceFrameLimit);
    char** symbols = backtrace_symbols(frames, count);

    size_t nameSize = 256;
    char* nameBuffer = static_cast<char*>(malloc(nameSize));
    // Frame 0 is logBackTrace itself.
    for (int i = 1; i < count; ++i)
        writeBackTraceFrame(file, symbols[i], nameBuffer, nameSize);

    file.flush();
    file.close();
    sync();
    free(nameBuffer);
    free(symbols);
}


// ---- Part 8.1: external commands --------------------------------------------------------


// ---- Part 8.2: file and path utilities --------------------------------------------------

QString VfUtilities::filePathOnly(QString const& path)
{
    const QRegularExpression lastComponent(QStringLiteral("/[^/]*$"));
    // A bare file name is its own directory part, not an empty text.
    if (!path.contains(QLatin1Char('/')))
        return path;
    QString directory = path;
    return directory.replace(lastComponent, QString());
}

QStringList VfUtilities::findAllFiles(QDir const& directory)
{
    QStringList files;
    QDirIterator iterator(directory.absolutePath(), QDirIterator::Subdirectories);
    while (iterator.hasNext()) {
        iterator.next();
        if (iterator.fileInfo().isDir())
            continue;
        files.append(iterator.filePath());
    }
    return files;
}


// ---- Part 8.3: XML and metadata utilities -----------------------------------------------


// ---- Part 8.4: JSON documents -----------------------------------------------------------

StatusCode VfUtilities::createJsonDocumentFromFile(QString const& path, QJsonDocument* document, bool reportFailure)
{
    if (!document) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::InputNull, QStringLiteral("jsonDocument"));
        return VfStatusCodes::InputNull;
    }
    if (!QFile::exists(path)) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::FileNotFound, path);
        return VfStatusCodes::FileNotFound;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::FileCannotOpen, path);
        return VfStatusCodes::FileCannotOpen;
    }
    QJsonParseError parseError;
    // Part 8.4: assigned whether or not the parse succeeded, so a failure empties the document.
    *document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, path, parseError.errorString());
        return VfStatusCodes::ConfigurationDataInvalid;
    }
    return VfStatusCodes::Success;
}


} // namespace Crosscutting
