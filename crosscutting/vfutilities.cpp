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

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace Crosscutting {

// Backtraces

namespace {

// At most this many frames, the innermost ones. The buffer lives on the stack, so the crash path
// allocates nothing of its own.
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
    // Deliberately tests against 0, not -1: existing instruments rely on it. A failed open goes on
    // and writes to no file; a descriptor of 0 returns with no backtrace and stays open.
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


// External commands

StatusCode VfUtilities::processCommand(QString const& command, QStringList const& arguments)
{
    // Every non-zero result counts alike: -2 (not started), -1 (crashed) and any exit code.
    if (QProcess::execute(command, arguments) == 0)
        return VfStatusCodes::Success;
    const QString commandText = command + QLatin1Char(' ') + arguments.join(QLatin1Char(','));
    // Deliberately no blank after "Failed to process", and one argument for a two-marker text, so
    // ReportStatusInvalidArgCount goes out with this report: existing instruments rely on the text.
    return REPORT_STATUS(VfStatusCodes::ExternalProcessFailed, QStringLiteral("Failed to process") + commandText);
}

namespace {

// The shell of shellHelper leads a process group of its own, so that ending it at the end of the
// call also ends what it forked: dash forks even a lone command, which would outlive the shell.
class ShellProcess : public QProcess
{
public:
    ~ShellProcess() override
    {
        if (state() != QProcess::NotRunning) {
            const pid_t pid = static_cast<pid_t>(processId());
            // Before the child has made its group (a wait that ran out while starting) only
            // the shell exists, and it alone is ended.
            if (::kill(-pid, SIGKILL) != 0)
                ::kill(pid, SIGKILL);
            waitForFinished(-1);
        }
    }

    // Makes the group from the parent's side as well, which closes the race with the child.
    void makeProcessGroup()
    {
        if (state() != QProcess::NotRunning)
            ::setpgid(static_cast<pid_t>(processId()), static_cast<pid_t>(processId()));
    }

protected:
    void setupChildProcess() override { ::setpgid(0, 0); }
};

} // namespace

QByteArray VfUtilities::shellHelper(char const* command, char const* name, int timeout, int* exitCode)
{
    ShellProcess process;
    QByteArray standardOutput;
    const QString commandText = QString::fromLocal8Bit(command);
    process.start(QStringLiteral("sh"), QStringList{QStringLiteral("-c"), commandText}, QIODevice::ReadWrite);
    process.makeProcessGroup();
    process.closeWriteChannel();
    // Also false when sh could not be started: that is reported as a timeout too.
    if (!process.waitForFinished(timeout))
        REPORT_STATUS(VfStatusCodes::TimeoutExceeded,
                      QStringLiteral("%1 timeout").arg(QString::fromLocal8Bit(name)));
    else
        standardOutput = process.readAllStandardOutput();
    if (exitCode)
        *exitCode = process.exitCode();
    // A negative exit code counts as success, as 0 does.
    if (process.exitCode() > 0)
        REPORT_STATUS(VfStatusCodes::CommandFailed, commandText, QString::fromLocal8Bit(process.readAllStandardError()));
    // The process ends with the scope, and with it a program that is still running: nothing the
    // call started outlives it.
    return standardOutput;
}

StatusCode VfUtilities::outputOfCommand(QString const& command, QByteArray& standardOutput, QByteArray& standardError,
                                        qint32* exitCode)
{
    QProcess process;
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    // What QProcess::start(const QString&, OpenMode) does, without its deprecation warning.
    QStringList arguments = QProcess::splitCommand(command);
    const QString program = arguments.isEmpty() ? QString() : arguments.takeFirst();
    process.start(program, arguments, QIODevice::ReadOnly);
#else
    process.start(command, QIODevice::ReadOnly);
#endif
    process.waitForFinished(-1);
    if (process.error() == QProcess::FailedToStart)
        return REPORT_STATUS(VfStatusCodes::CommandNotRecognized, command);
    standardOutput = process.readAllStandardOutput();
    standardError = process.readAllStandardError();
    if (exitCode)
        *exitCode = process.exitCode();
    // Not reported: the caller has both streams and decides.
    return process.exitCode() == 0 ? VfStatusCodes::Success : VfStatusCodes::ExternalProcessFailed;
}


// Files and paths

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

StatusCode VfUtilities::makePath(QString const& path, bool setPermissions)
{
    QDir directory(path);
    if (directory.exists())
        return VfStatusCodes::Success;

    // Which prefixes exist before mkpath, so that only directories made here are opened up.
    // Deliberately from the root, also for a relative path: callers pass absolute paths, and
    // existing instruments rely on it.
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts, Qt::CaseSensitive);
#else
    const QStringList parts = path.split(QLatin1Char('/'), QString::SkipEmptyParts, Qt::CaseSensitive);
#endif
    QHash<QString, bool> existedBefore;
    for (int index = 0; index < parts.size(); ++index) {
        QString prefix;
        for (int part = 0; part <= index; ++part)
            prefix += QLatin1Char('/') + parts.at(part);
        existedBefore.insert(prefix, QDir(prefix).exists());
    }

    if (!directory.mkpath(directory.absolutePath()))
        return REPORT_STATUS(VfStatusCodes::DirectoryCannotCreate, path);

    if (setPermissions) {
        for (auto entry = existedBefore.constBegin(); entry != existedBefore.constEnd(); ++entry) {
            // Only directories that this call created, so existing parents keep their modes. A
            // failed chmod is not reported: the directory is there, which is what the caller needs.
            if (!entry.value())
                chmod(entry.key().toLatin1().constData(), 0777);
        }
    }
    return VfStatusCodes::Success;
}

StatusCode VfUtilities::makeBackupFile(QString const& path, QString const& suffix)
{
    if (!QFile::exists(path))
        return VfStatusCodes::FileNotFound;
    const QString backupPath = path + QLatin1Char('.') + suffix;
    // A backup that cannot be removed is reported, and the copy below fails on it.
    if (QFile::exists(backupPath) && !QFile::remove(backupPath))
        REPORT_STATUS(VfStatusCodes::FileCannotRemove, backupPath);
    if (!QFile::copy(path, backupPath))
        return REPORT_STATUS(VfStatusCodes::FileCannotCopy, path, backupPath);
    return VfStatusCodes::Success;
}


// XML and metadata

} // namespace Crosscutting

// Private to this file, at global scope and not in a namespace, because their compiler
// signatures are part of the report texts: "void writeElement(QXmlStreamWriter*, QDomElement&, bool)".
static void writeElement(QXmlStreamWriter* writer, QDomElement& element, bool followSiblings);
static void writeDocument(QXmlStreamWriter* writer, QDomDocument& document, bool followSiblings);
static void writeText(QXmlStreamWriter* writer, QDomText& text);
static void writeAttributes(QXmlStreamWriter* writer, QDomElement& element);

static void writeText(QXmlStreamWriter* writer, QDomText& text)
{
    if (text.isNull()) {
        REPORT_STATUS(Crosscutting::VfStatusCodes::ObjectNull);
        return;
    }
    // Deliberately no sibling is visited, so the walk stops after a text node: existing
    // instruments rely on the output as it stands.
    writer->writeCharacters(text.data());
}

static void writeElement(QXmlStreamWriter* writer, QDomElement& element, bool followSiblings)
{
    if (element.isNull()) {
        REPORT_STATUS(Crosscutting::VfStatusCodes::ObjectNull);
        return;
    }
    writer->writeStartElement(element.tagName());
    writeAttributes(writer, element);
    // The children are the first child and its sibling chain, by recursion.
    QDomNode child = element.firstChild();
    if (!child.isNull())
        Crosscutting::VfUtilities::writeDomNode(writer, child, true);
    writer->writeEndElement();
    if (followSiblings) {
        QDomNode sibling = element.nextSibling();
        if (!sibling.isNull())
            Crosscutting::VfUtilities::writeDomNode(writer, sibling, true);
    }
}

static void writeDocument(QXmlStreamWriter* writer, QDomDocument& document, bool followSiblings)
{
    QDomElement root = document.documentElement();
    if (root.isNull()) {
        REPORT_STATUS(Crosscutting::VfStatusCodes::ObjectNull);
        return;
    }
    // No writeStartDocument or writeEndDocument: those are the caller's.
    writer->writeStartElement(root.tagName());
    writeAttributes(writer, root);
    if (followSiblings) {
        // Deliberately each child is visited by index and also follows its sibling chain, so later
        // element children come out repeatedly: existing instruments rely on the output as it stands.
        const QDomNodeList children = root.childNodes();
        for (int index = 0; index < children.length(); ++index) {
            QDomNode child = children.item(index);
            Crosscutting::VfUtilities::writeDomNode(writer, child, true);
        }
    }
    writer->writeEndElement();
}

static void writeAttributes(QXmlStreamWriter* writer, QDomElement& element)
{
    const QDomNamedNodeMap attributes = element.attributes();
    for (int index = 0; index < attributes.length(); ++index) {
        const QDomAttr attribute = attributes.item(index).toAttr();
        if (attribute.isNull())
            continue;
        writer->writeAttribute(attribute.name(), attribute.value());
    }
}

namespace Crosscutting {

void VfUtilities::writeDomNode(QXmlStreamWriter* writer, QDomNode& node, bool followSiblings)
{
    if (node.isNull()) {
        REPORT_STATUS(VfStatusCodes::ObjectNull);
        return;
    }
    switch (node.nodeType()) {
    case QDomNode::TextNode: {
        QDomText text = node.toText();
        writeText(writer, text);
        break;
    }
    case QDomNode::DocumentNode: {
        QDomDocument document = node.toDocument();
        writeDocument(writer, document, followSiblings);
        break;
    }
    case QDomNode::ElementNode: {
        QDomElement element = node.toElement();
        writeElement(writer, element, followSiblings);
        break;
    }
    default:
        // Comments, CDATA and the rest are reported and end the walk of this branch: the writer
        // knows documents, elements and text only.
        REPORT_STATUS(VfStatusCodes::InputInvalid,
                      QStringLiteral("Node Type %1").arg(QString::number(static_cast<int>(node.nodeType()))));
        break;
    }
}

QString VfUtilities::retrieveMetaProperty(QString const& entry, QJsonObject const& object, QString const& fileName)
{
    // An entry that is not a text gives the empty text, unreported.
    if (object.contains(entry))
        return object.value(entry).toString();
    // Deliberately two %1 markers and no %2, so the file name fills both and the entry name
    // appears nowhere; the empty quotes stay. Existing instruments rely on the text as it stands.
    const QString reason =
        QStringLiteral("Configuration file %1'' does not contain required entry for '%1'").arg(fileName, entry);
    REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, fileName, reason);
    return QString();
}

bool VfUtilities::containsDigit(QString const& text)
{
    for (const QChar character : text) {
        if (character.isDigit())
            return true;
    }
    return false;
}

bool VfUtilities::fuzzyCompare(double const& first, double const& second)
{
    if (qIsNaN(first) || qIsNaN(second))
        return false;
    // Move both values to the same side of zero and away from it, where qFuzzyCompare's rule holds.
    double offset;
    if (first > 0.0 && second >= 0.0)
        offset = 1.0;
    else if (first == 0.0 && second > 0.0)
        offset = 1.0;
    else if (first <= 0.0 && second <= 0.0)
        offset = -1.0;
    else if (first > 0.0 && second < 0.0)
        offset = 1.0 - second;
    else
        offset = 1.0 - first;
    const double x = first + offset;
    const double y = second + offset;
    return qAbs(x - y) * 1e12 <= qMin(qAbs(x), qAbs(y));
}


// JSON documents

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
    // Assigned whether or not the parse succeeded, so a failure never leaves a stale document behind.
    *document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, path, parseError.errorString());
        return VfStatusCodes::ConfigurationDataInvalid;
    }
    return VfStatusCodes::Success;
}


} // namespace Crosscutting
