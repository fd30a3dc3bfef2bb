#include "vfutilities.h"

// Part 7.2
#include <QDateTime>
#include <QFile>
#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

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


// ---- Part 8.3: XML and metadata utilities -----------------------------------------------


// ---- Part 8.4: JSON documents -----------------------------------------------------------


} // namespace Crosscutting
