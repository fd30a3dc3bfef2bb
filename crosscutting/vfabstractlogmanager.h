#ifndef VFABSTRACTLOGMANAGER_H
#define VFABSTRACTLOGMANAGER_H

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

// The logical logs (Part 4.8).
enum VfLogType {
    StatusLog = 0,
    DebugLog = 1,
    EventLog = 2
};

// The writers; single bits, combined into a log's destination mask (Part 4.8).
enum VfLogDestination {
    StdOutDestination = 1,
    LogFileDestination = 2,
    ReservedDestination = 4, // no writer exists for it (Part 4.2)
    EventFileDestination = 8
};

// First argument of the ignore handler, computed by sourceForLogEntry (Part 4.3).
enum MessageSource {
    QtSource = 0,
    FrameworkSource = 1,
    FrameworkDebugSource = 2,
    ApplicationSource = 3,
    ApplicationDebugSource = 4
};

using VfIgnoreHandler = std::function<bool(MessageSource, char const*)>;

// The interface through which the rest of the system logs (Part 4.8); VfLogManager implements it.
class VFCROSSCUTTING_EXPORT VfAbstractLogManager : public QObject
{
    Q_OBJECT
public:
    explicit VfAbstractLogManager(QObject* parent);
    ~VfAbstractLogManager() override;

    virtual QList<VfLogType> logTypes() const = 0;
    virtual void enableLog(VfLogType logType) = 0;
    virtual void disableLog(VfLogType logType) = 0;
    virtual bool isLogEnable(VfLogType logType) = 0;
    virtual void setFlushInterval(unsigned int milliseconds) = 0;
    virtual unsigned int flushInterval() const = 0;
    virtual bool clearLog(VfLogType logType) = 0;
    virtual void setNamespaceFilter(VfLogType logType, QRegularExpression const& filter) = 0;
    virtual QRegularExpression namespaceFilter(VfLogType logType) const = 0;
    virtual void setGlobalNamespaceFilter(QRegularExpression const& filter) = 0;
    virtual void setLogDestination(VfLogType logType, unsigned int destinations) = 0;
    virtual QStringList logFileName(VfLogType logType) const = 0;
    virtual const QString readByLogFileName(VfLogType logType, QString const& fileName) const = 0;
    virtual bool copyLogTo(VfLogType logType, QString const& fileName, QDir const& directory) = 0;
    virtual void registerIgnoreHandler(std::function<bool(MessageSource, char const*)> handler) = 0;
    virtual void deregisterIgnoreHandler() = 0;
    virtual std::function<bool(MessageSource, char const*)> ignoreHandler() const = 0;

public slots:
    virtual void logStatusChange(const Crosscutting::VfStatusChangeEvent& statusChangeEvent) = 0;
    virtual void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                             Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message,
                             Crosscutting::VfLogType logType) = 0;
    virtual void forceFlushLog(Crosscutting::VfLogType logType) = 0;
    virtual void forceFlushAllLogs() = 0;

signals:
    // Part of the interface; VfLogManager never emits it.
    void newLogEntryOccurred(QSharedPointer<Crosscutting::VfSourceContext> const& sourceContext,
                             QString const& message, Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity,
                             Crosscutting::VfLogType logType);
};

// The Qt message bridge (Part 4.7): routes qDebug, qWarning and their kin into the DebugLog.
// The library never installs it; an application passes it to qInstallMessageHandler.
VFCROSSCUTTING_EXPORT void logMessageHandler(QtMsgType type, QMessageLogContext const& context, QString const& message);

} // namespace Crosscutting

// The module label of a Qt message by the base name of its source file (Part 4.7).
VFCROSSCUTTING_EXPORT QString moduleForFilename(QString const& fileName, QString const& qtModule,
                                                QString const& frameworkModule);

#endif // VFABSTRACTLOGMANAGER_H
