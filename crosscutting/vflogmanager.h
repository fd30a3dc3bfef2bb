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

// Owns the three logs and three writers, connects them and saves the file writers periodically.
class VFCROSSCUTTING_EXPORT VfLogManager : public VfAbstractLogManager
{
    Q_OBJECT
public:
    explicit VfLogManager(QObject* parent);
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

    QList<VfAbstractLogWriter*> getLogWritersByLog(VfLogType logType) const;

public slots:
    void logStatusChange(const Crosscutting::VfStatusChangeEvent& statusChangeEvent) override;
    void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                     Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message,
                     Crosscutting::VfLogType logType) override;
    void forceFlushLog(Crosscutting::VfLogType logType) override;
    void forceFlushAllLogs() override;

protected:
    // The one place where connections between logs and writers change.
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
