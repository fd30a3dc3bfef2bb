#ifndef VFUTILITIES_H
#define VFUTILITIES_H

#include "vfcrosscutting_export.h"
#include "vfstatuscodes.h"

#include <QByteArray>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QMetaObject>
#include <QString>
#include <QStringList>

class QDomNode;
class QXmlStreamWriter;

namespace Crosscutting {

/// Static operations only: enumeration texts, backtraces, external commands, files and paths,
/// XML and metadata, JSON documents.
///
/// None keeps state, so all may be called from any thread; the external commands block their
/// caller while they wait. Failures are reported through REPORT_STATUS where they are found, and
/// an operation that returns a StatusCode returns the reported code.
class VFCROSSCUTTING_EXPORT VfUtilities
{
public:
    /// Never instantiated.
    VfUtilities() = delete;

    /// The name of the value of the enumeration enumName that T publishes to the meta-object
    /// system: an empty string when T has no such enumeration, a null string when the value has no
    /// name. Any thread.
    template <typename T>
    static QString enumValueToString(const QString& enumName, int value)
    {
        const QMetaObject metaObject = T::staticMetaObject;
        const int index = metaObject.indexOfEnumerator(enumName.toLatin1().constData());
        if (index < 0)
            return QString(QLatin1String(""));
        return QString::fromLatin1(metaObject.enumerator(index).valueToKey(value));
    }

    /// Writes the raw frames of the calling thread to the file path, from its start, with nothing
    /// but system calls, so that a signal handler may call it. Failures are silent. Any thread,
    /// signal context included.
    static void logBackTraceNoDemangle(char const* path);
    /// Writes the calling thread's backtrace, demangled, to the file path, replacing it. A file that
    /// cannot be opened ends it silently. Any thread, but never in a signal handler.
    static void logBackTrace(QString path);

    /// Runs command with arguments and waits for it, without a limit. Returns Success for the exit
    /// code 0; otherwise reports and returns ExternalProcessFailed. Any thread.
    static StatusCode processCommand(QString const& command, QStringList const& arguments);
    /// Runs command through "sh -c" with its standard input closed, waits at most timeout ms (-1: no
    /// limit), and returns its standard output; exitCode, if not null, gets the exit code. A wait that
    /// runs out ends the shell with what it started, reports TimeoutExceeded with name and gives an
    /// empty result; an exit code above 0 reports CommandFailed with the error output. Any thread.
    static QByteArray shellHelper(char const* command, char const* name, int timeout, int* exitCode);
    /// Runs command (split at blanks) and waits for it without a limit, then hands back both output
    /// streams and, if exitCode is not null, the exit code. Returns Success for exit code 0 and
    /// ExternalProcessFailed otherwise, without a report; a program that cannot be started reports
    /// and returns CommandNotRecognized, leaving the arguments untouched. Any thread.
    static StatusCode outputOfCommand(QString const& command, QByteArray& standardOutput,
                                      QByteArray& standardError, qint32* exitCode);

    /// path without its last "/" and what follows; a path without "/" comes back unchanged. Cannot
    /// fail; any thread.
    static QString filePathOnly(QString const& path);
    /// The absolute paths of all files under directory, subdirectories included, unsorted; empty for
    /// a directory that does not exist. Cannot fail; any thread.
    static QStringList findAllFiles(QDir const& directory);
    /// Makes the directory path with its parents; with setPermissions, the directories it made get
    /// mode 0777. Returns Success, also when path exists; reports and returns DirectoryCannotCreate
    /// when it cannot be made. Any thread.
    static StatusCode makePath(QString const& path, bool setPermissions);
    /// Copies path to path + "." + suffix, replacing an older backup. Returns FileNotFound, without
    /// a report, when path does not exist; reports and returns FileCannotCopy when the copy fails.
    /// Any thread.
    static StatusCode makeBackupFile(QString const& path, QString const& suffix);

    /// Writes node, an element, text or document node with its children, to writer, and with
    /// followSiblings its following siblings too. A null node reports ObjectNull and another node type
    /// InputInvalid; nothing is written for it. writer must not be null. Any thread that has sole use
    /// of writer and tree.
    static void writeDomNode(QXmlStreamWriter* writer, QDomNode& node, bool followSiblings);
    /// The text of entry in object, read from the configuration file fileName. A missing entry
    /// reports ConfigurationDataInvalid and gives an empty string. Any thread.
    static QString retrieveMetaProperty(QString const& entry, QJsonObject const& object, QString const& fileName);
    /// Whether text holds a decimal digit of any script. Cannot fail; any thread.
    static bool containsDigit(QString const& text);
    /// Whether the two values are equal to about 12 significant digits, near zero too; false when
    /// either is NaN. Cannot fail; any thread.
    static bool fuzzyCompare(double const& first, double const& second);

    /// Reads and parses the JSON file path into *document. Returns Success, or InputNull for a null
    /// document, FileNotFound, FileCannotOpen or ConfigurationDataInvalid; these are reported only
    /// when reportFailure is true. Any thread.
    static StatusCode createJsonDocumentFromFile(QString const& path, QJsonDocument* document, bool reportFailure);
};

} // namespace Crosscutting

#endif // VFUTILITIES_H
