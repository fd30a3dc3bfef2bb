#ifndef VFABSTRACTLOGMANAGER_H
#define VFABSTRACTLOGMANAGER_H

/// \file
/// The log manager interface, its enumerations, and the Qt message bridge.

#include "vfcrosscutting_export.h"
#include "vfsourcecontext.h"
#include "vfstaticstatusinfo.h"
#include "vfstatuschangeevent.h"

#include <QDir>
#include <QtGlobal>
#include <QList>
#include <QObject>
#include <QRegularExpression>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <functional>

namespace Crosscutting {

/// The logical logs.
enum VfLogType {
    /// Fed by every reported status.
    StatusLog = 0,
    /// Fed by logMessageHandler() with the messages of qDebug(), qWarning() and their kin.
    DebugLog = 1,
    /// Fed only by callers of VfAbstractLogManager::addLogEntry(); goes to "event.log".
    EventLog = 2
};

/// The writers, as single bits combined into a log's destination mask.
enum VfLogDestination {
    /// Standard output (writer "Stdout").
    StdOutDestination = 1,
    /// The file "velmar.log".
    LogFileDestination = 2,
    /// Reserved: no writer exists for it, and a mask must not hold it.
    ReservedDestination = 4,
    /// The file "event.log".
    EventFileDestination = 8
};

/// Which kind of code an entry comes from: the first argument of the ignore handler.
enum MessageSource {
    /// A Qt class (the source class begins with "Q").
    QtSource = 0,
    /// A framework class (beginning with "Vf").
    FrameworkSource = 1,
    /// A framework class, with the module "VfDebug" of framework debug output.
    FrameworkDebugSource = 2,
    /// Any other class.
    ApplicationSource = 3,
    /// Any other class, with the module "appDebug" of application debug output.
    ApplicationDebugSource = 4
};

/// Decides whether the console skips an entry: called with the entry's source and its trimmed
/// message, it returns true to keep the entry off standard output. The files keep it all the same.
using VfIgnoreHandler = std::function<bool(MessageSource, char const*)>;

/// The interface through which the rest of the system logs: three logs (VfLogType), each
/// connected to some of the writers (VfLogDestination), and a timer that saves the files.
/// VfLogManager implements it; programs reach it through VfCrosscuttingManagerPlaceholder::logManager().
///
/// The manager has no lock. Entries may be added from any thread; configuration (destinations,
/// filters, the ignore handler) belongs to start-up, on one thread, before other threads log.
/// An operation given an unknown VfLogType does nothing and gives false, empty or true (clearLog()).
class VFCROSSCUTTING_EXPORT VfAbstractLogManager : public QObject
{
    Q_OBJECT
public:
    /// Passes the parent to QObject. Cannot fail; any thread.
    explicit VfAbstractLogManager(QObject* parent);
    /// Destroys the manager. The thread that owns it.
    ~VfAbstractLogManager() override;

    /// The logs the manager holds, in no particular order. Cannot fail; any thread.
    virtual QList<VfLogType> logTypes() const = 0;
    /// Lets entries of the log through again. Cannot fail. At start-up, on one thread, before other threads log.
    virtual void enableLog(VfLogType logType) = 0;
    /// Drops every entry of the log until enableLog(). Cannot fail. At start-up, on one thread, before other threads log.
    virtual void disableLog(VfLogType logType) = 0;
    /// Whether the log is enabled; false for an unknown log. Any thread.
    virtual bool isLogEnable(VfLogType logType) = 0;
    /// Saves the files every milliseconds from now on (5000 by default); the same value again does
    /// nothing. Cannot fail. The thread that owns the manager.
    virtual void setFlushInterval(unsigned int milliseconds) = 0;
    /// The interval of the periodic save, in milliseconds. Any thread.
    virtual unsigned int flushInterval() const = 0;
    /// Empties every writer of the log, file and backup. False if any writer failed; true with no
    /// writer. Any thread.
    virtual bool clearLog(VfLogType logType) = 0;
    /// The log accepts only entries whose source namespace matches filter, an unanchored search.
    /// Cannot fail; an invalid pattern drops every entry. At start-up, on one thread, before other threads log.
    virtual void setNamespaceFilter(VfLogType logType, QRegularExpression const& filter) = 0;
    /// The log's filter; an empty pattern for an unknown log. Any thread.
    virtual QRegularExpression namespaceFilter(VfLogType logType) const = 0;
    /// setNamespaceFilter() for every log. Cannot fail. At start-up, on one thread, before other threads log.
    virtual void setGlobalNamespaceFilter(QRegularExpression const& filter) = 0;
    /// Connects the log to the writers of StdOutDestination and LogFileDestination whose bits are
    /// set in destinations, and disconnects the others. EventFileDestination is never changed here:
    /// the event log keeps "event.log". ReservedDestination must not be set. Cannot fail. At start-up, on one thread, before other threads log.
    virtual void setLogDestination(VfLogType logType, unsigned int destinations) = 0;
    /// The file names of the log's writers that keep a file, such as "velmar.log"; empty for an
    /// unknown log. Any thread.
    virtual QStringList logFileName(VfLogType logType) const = 0;
    /// The text of the log's file fileName, backup first, without what is still queued. Reports
    /// FileNotFound and returns an empty string when the log has no such file. Any thread.
    virtual const QString readByLogFileName(VfLogType logType, QString const& fileName) const = 0;
    /// Flushes the log's file fileName and copies it to directory.absolutePath(), which names the
    /// target file itself. False, with a report, when the copy fails (an existing target is never
    /// overwritten); false without a report when the log has no such file. Any thread.
    virtual bool copyLogTo(VfLogType logType, QString const& fileName, QDir const& directory) = 0;
    /// Replaces the ignore handler (VfIgnoreHandler) that the console writer asks for each entry.
    /// handler must not be empty and must be safe to call from every logging thread. At start-up, on one thread, before other threads log.
    virtual void registerIgnoreHandler(std::function<bool(MessageSource, char const*)> handler) = 0;
    /// Back to the handler that ignores nothing. At start-up, on one thread, before other threads log.
    virtual void deregisterIgnoreHandler() = 0;
    /// A copy of the ignore handler. Any thread.
    virtual std::function<bool(MessageSource, char const*)> ignoreHandler() const = 0;

public slots:
    /// Logs a status change in the StatusLog: the record's SingleLineLongForm text and "\n", with
    /// its severity and context. Connected to the status reporter by the service access object.
    /// Cannot fail. Any thread; a queued delivery needs the event type registered with Qt.
    virtual void logStatusChange(const Crosscutting::VfStatusChangeEvent& statusChangeEvent) = 0;
    /// Adds an entry to the log logType, if that log is enabled and its filter matches. The message
    /// is written as it is: end it with "\n". sourceContext must not be null. Cannot fail; the
    /// writers run on the calling thread. Any thread.
    virtual void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                             Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message,
                             Crosscutting::VfLogType logType) = 0;
    /// Writes out the queues of the log's writers that save on the timer, and syncs the disk.
    /// Writers that save on their own (VfStatusSeverityFileWriter) are skipped. Cannot fail. Any thread.
    virtual void forceFlushLog(Crosscutting::VfLogType logType) = 0;
    /// forceFlushLog() for every log; the timer calls it. Cannot fail. Any thread.
    virtual void forceFlushAllLogs() = 0;

signals:
    /// Offered by the interface for other implementations; VfLogManager never emits it.
    void newLogEntryOccurred(QSharedPointer<Crosscutting::VfSourceContext> const& sourceContext,
                             QString const& message, Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity,
                             Crosscutting::VfLogType logType);
};

/// The Qt message bridge: routes qDebug(), qWarning() and their kin into the DebugLog, one
/// message at a time, each ending in exactly one "\n". The library never installs it: pass it
/// to qInstallMessageHandler(). A QtFatalMsg flushes all logs and then calls abort(). Cannot
/// fail. Any thread; a message raised inside the handler on the same thread waits 120000 ms.
VFCROSSCUTTING_EXPORT void logMessageHandler(QtMsgType type, QMessageLogContext const& context, QString const& message);

} // namespace Crosscutting

/// The module label of a Qt message by the base name of its source file: frameworkModule for
/// names beginning with "vf", qtModule for names beginning with "q", "appDebug" for the others.
/// Cannot fail; any thread.
VFCROSSCUTTING_EXPORT QString moduleForFilename(QString const& fileName, QString const& qtModule,
                                                QString const& frameworkModule);

#endif // VFABSTRACTLOGMANAGER_H
