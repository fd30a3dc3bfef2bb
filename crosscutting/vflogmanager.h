#ifndef VFLOGMANAGER_H
#define VFLOGMANAGER_H

#include "vfabstractlogmanager.h"
#include "vfabstractlogwriter.h"
#include "vfcrosscutting_export.h"
#include "vflog.h"

#include <QHash>
#include <QTimer>

#include <functional>

namespace Crosscutting {

/// The log manager: owns the three logs and the three writers ("Stdout", "velmar.log" and
/// "event.log" under the system data root's "logs/"), connects them and saves the files every
/// 5000 ms on the timer of the thread that made it, while that thread runs an event loop.
///
/// By default StatusLog and DebugLog go to standard output and "velmar.log", and EventLog goes to
/// "event.log"; each file is limited to 1048576 bytes with one ".bak" backup. The operations are
/// those of VfAbstractLogManager.
class VFCROSSCUTTING_EXPORT VfLogManager : public VfAbstractLogManager
{
    Q_OBJECT
public:
    /// Makes the logs and writers and starts the timer. The log directory is made on the first
    /// write. Cannot fail; the thread that makes it runs the timer.
    explicit VfLogManager(QObject* parent);
    /// Stops the timer, flushes all logs, then deletes the logs and the writers, which flush once
    /// more. The thread that owns it.
    ~VfLogManager() override;

    QList<VfLogType> logTypes() const override;
    void enableLog(VfLogType logType) override;
    void disableLog(VfLogType logType) override;
    bool isLogEnable(VfLogType logType) override;
    void setFlushInterval(unsigned int milliseconds) override;
    unsigned int flushInterval() const override;
    bool clearLog(VfLogType logType) override;
    void setNamespaceFilter(VfLogType logType, QRegularExpression const& filter) override;
    QRegularExpression namespaceFilter(VfLogType logType) const override;
    void setGlobalNamespaceFilter(QRegularExpression const& filter) override;
    void setLogDestination(VfLogType logType, unsigned int destinations) override;
    QStringList logFileName(VfLogType logType) const override;
    const QString readByLogFileName(VfLogType logType, QString const& fileName) const override;
    bool copyLogTo(VfLogType logType, QString const& fileName, QDir const& directory) override;
    void registerIgnoreHandler(std::function<bool(MessageSource, char const*)> handler) override;
    void deregisterIgnoreHandler() override;
    std::function<bool(MessageSource, char const*)> ignoreHandler() const override;

    /// The writers the log is connected to now, in no particular order; empty for an unknown log.
    /// The manager keeps ownership. Any thread.
    QList<VfAbstractLogWriter*> getLogWritersByLog(VfLogType logType) const;

public slots:
    void logStatusChange(const Crosscutting::VfStatusChangeEvent& statusChangeEvent) override;
    void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                     Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message,
                     Crosscutting::VfLogType logType) override;
    void forceFlushLog(Crosscutting::VfLogType logType) override;
    void forceFlushAllLogs() override;

protected:
    /// Connects (enable) or disconnects one writer of log and records it in the log's mask; the
    /// one place where connections change. Does nothing if the connection is already as asked.
    /// Cannot fail. At start-up, on one thread, before other threads log.
    void updateWriter(VfLog* log, VfLogType logType, VfLogDestination destination, bool enable);

private:

    QHash<VfLogType, VfLog*> m_logs;
    QHash<VfLogType, unsigned int> m_destinations;
    QHash<VfLogDestination, VfAbstractLogWriter*> m_writers;
    QTimer m_flushTimer;
    unsigned int m_flushInterval;
    std::function<bool(MessageSource, char const*)> m_ignoreHandler;

    static const std::function<bool(MessageSource, char const*)> s_defaultIgnoreHandler;
};

} // namespace Crosscutting

#endif // VFLOGMANAGER_H
