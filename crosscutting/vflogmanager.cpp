#include "vflogmanager.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vfplatforminfo.h"
#include "vfstdoutwriter.h"
#include "vfunixsignalhandler.h"

namespace Crosscutting {

// Ignores nothing: every message reaches standard output until an application registers its own handler.
const std::function<bool(MessageSource, char const*)> VfLogManager::s_defaultIgnoreHandler =
    [](MessageSource, char const*) { return false; };

VfLogManager::VfLogManager(QObject* parent)
    : VfAbstractLogManager(parent)
    , m_flushInterval(5000)
    , m_ignoreHandler(s_defaultIgnoreHandler)
{
    m_logs.insert(StatusLog, new VfLog(nullptr));
    m_logs.insert(DebugLog, new VfLog(nullptr));
    m_logs.insert(EventLog, new VfLog(nullptr));

    // Not created here: the file writer makes it on first use.
    const QDir logDirectory(VfPlatformInfo::systemDataRootPath() + QStringLiteral("/logs/"));
    const unsigned long long maxFileSize = 1048576;
    m_writers.insert(StdOutDestination, new VfStdOutWriter(QStringLiteral("Stdout"), nullptr));
    m_writers.insert(LogFileDestination,
                     new VfFileWriter(logDirectory, QStringLiteral("velmar.log"), VfDisplayable::SingleLineLongForm,
                                      true, maxFileSize, QSharedPointer<VfErrorRateHandler>(), nullptr));
    m_writers.insert(EventFileDestination,
                     new VfFileWriter(logDirectory, QStringLiteral("event.log"),
                                      VfDisplayable::ShortFormWithTimestamp, true, maxFileSize,
                                      QSharedPointer<VfErrorRateHandler>(), nullptr));

    // Obtained and never read: nothing of the logs lives in the temporary data root.
    const QDir tempDirectory(VfPlatformInfo::tempDataRootPath());
    Q_UNUSED(tempDirectory)

    setLogDestination(StatusLog, StdOutDestination | LogFileDestination);
    setLogDestination(DebugLog, StdOutDestination | LogFileDestination);
    setLogDestination(EventLog, EventFileDestination);
    // setLogDestination never touches bit 8, so the event file is connected here, once.
    updateWriter(m_logs.value(EventLog), EventLog, EventFileDestination, true);

    connect(&m_flushTimer, &QTimer::timeout, this, &VfAbstractLogManager::forceFlushAllLogs);
    m_flushTimer.start(static_cast<int>(m_flushInterval));
}

VfLogManager::~VfLogManager()
{
    m_flushTimer.stop();
    forceFlushAllLogs();
    // Logs before writers, so nothing reaches a writer during its destruction.
    qDeleteAll(m_logs);
    m_logs.clear();
    m_destinations.clear();
    qDeleteAll(m_writers);
    m_writers.clear();
}

QList<VfLogType> VfLogManager::logTypes() const
{
    return m_logs.keys();
}

void VfLogManager::enableLog(VfLogType logType)
{
    if (VfLog* log = m_logs.value(logType))
        log->enable();
}

void VfLogManager::disableLog(VfLogType logType)
{
    if (VfLog* log = m_logs.value(logType))
        log->disable();
}

bool VfLogManager::isLogEnable(VfLogType logType)
{
    VfLog* log = m_logs.value(logType);
    return log ? log->isLogEnable() : false;
}

void VfLogManager::setFlushInterval(unsigned int milliseconds)
{
    if (milliseconds == m_flushInterval)
        return;
    m_flushInterval = milliseconds;
    m_flushTimer.start(static_cast<int>(milliseconds));
}

unsigned int VfLogManager::flushInterval() const
{
    return m_flushInterval;
}

bool VfLogManager::clearLog(VfLogType logType)
{
    bool result = true;
    // Every writer is cleared, also after a failure.
    for (VfAbstractLogWriter* writer : getLogWritersByLog(logType))
        result = writer->clearLog() && result;
    return result;
}

void VfLogManager::setNamespaceFilter(VfLogType logType, QRegularExpression const& filter)
{
    if (VfLog* log = m_logs.value(logType))
        log->setNamespaceFilter(filter);
}

QRegularExpression VfLogManager::namespaceFilter(VfLogType logType) const
{
    VfLog* log = m_logs.value(logType);
    return log ? log->namespaceFilter() : QRegularExpression();
}

void VfLogManager::setGlobalNamespaceFilter(QRegularExpression const& filter)
{
    for (VfLog* log : qAsConst(m_logs))
        log->setNamespaceFilter(filter);
}

void VfLogManager::setLogDestination(VfLogType logType, unsigned int destinations)
{
    VfLog* log = m_logs.value(logType);
    if (!log)
        return;
    updateWriter(log, logType, StdOutDestination, (destinations & StdOutDestination) != 0);
    updateWriter(log, logType, LogFileDestination, (destinations & LogFileDestination) != 0);
    updateWriter(log, logType, ReservedDestination, (destinations & ReservedDestination) != 0);
    // Bit 8 is neither set nor cleared here, deliberately: the event file is connected once, by the constructor,
    // and no mask given later can take it away.
}

void VfLogManager::updateWriter(VfLog* log, VfLogType logType, VfLogDestination destination, bool enable)
{
    const unsigned int mask = m_destinations.value(logType, 0);
    const bool connected = (mask & destination) != 0;
    if (connected == enable)
        return;
    // operator[] on purpose: for ReservedDestination it enters a null writer, which is why that bit stays unused.
    VfAbstractLogWriter* writer = m_writers[destination];
    if (enable) {
        connect(log, &VfLog::logEntryReady, writer, &VfAbstractLogWriter::writeToLog, Qt::DirectConnection);
        m_destinations.insert(logType, mask | destination);
    } else {
        disconnect(log, &VfLog::logEntryReady, writer, &VfAbstractLogWriter::writeToLog);
        m_destinations.insert(logType, mask & ~static_cast<unsigned int>(destination));
    }
}

QList<VfAbstractLogWriter*> VfLogManager::getLogWritersByLog(VfLogType logType) const
{
    const unsigned int mask = m_destinations.value(logType, 0);
    QList<VfAbstractLogWriter*> writers;
    const QList<VfLogDestination> destinations = m_writers.keys();
    for (VfLogDestination destination : destinations) {
        if (destination & mask)
            writers.append(m_writers.value(destination));
    }
    return writers;
}

QStringList VfLogManager::logFileName(VfLogType logType) const
{
    QStringList names;
    for (VfAbstractLogWriter* writer : getLogWritersByLog(logType)) {
        if (writer->isCopyable())
            names.append(writer->logName());
    }
    return names;
}

const QString VfLogManager::readByLogFileName(VfLogType logType, QString const& fileName) const
{
    for (VfAbstractLogWriter* writer : getLogWritersByLog(logType)) {
        if (writer->isCopyable() && writer->logName() == fileName)
            return writer->readLog();
    }
    REPORT_STATUS(VfStatusCodes::FileNotFound, fileName);
    return QString();
}

bool VfLogManager::copyLogTo(VfLogType logType, QString const& fileName, QDir const& directory)
{
    for (VfAbstractLogWriter* writer : getLogWritersByLog(logType)) {
        if (writer->isCopyable() && writer->logName() == fileName)
            return writer->copyLogTo(directory);
    }
    return false;
}

void VfLogManager::registerIgnoreHandler(std::function<bool(MessageSource, char const*)> handler)
{
    m_ignoreHandler = std::move(handler);
}

void VfLogManager::deregisterIgnoreHandler()
{
    m_ignoreHandler = s_defaultIgnoreHandler;
}

std::function<bool(MessageSource, char const*)> VfLogManager::ignoreHandler() const
{
    return m_ignoreHandler;
}

void VfLogManager::logStatusChange(const VfStatusChangeEvent& statusChangeEvent)
{
    // Once the crash handler runs, nothing goes further: exit(0) is tearing down what the rest would touch.
    if (stopForCrashExit())
        return;
    const QSharedPointer<VfStaticStatusInfo> statusInfo = statusChangeEvent.statusInfo();
    // The only line end the entry gets, appended in place: the text has room for it, so the queued
    // entry holds no spare capacity.
    QString text = statusInfo->toString(VfStaticStatusInfo::SingleLineLongForm);
    text += QLatin1Char('\n');
    addLogEntry(statusChangeEvent.sourceContext(), statusInfo->severity(), text, StatusLog);
}

void VfLogManager::addLogEntry(const QSharedPointer<VfSourceContext>& sourceContext,
                               VfStaticStatusInfo::VfStatusSeverity severity, const QString& message,
                               VfLogType logType)
{
    if (VfLog* log = m_logs.value(logType))
        log->addLogEntry(sourceContext, severity, message);
}

void VfLogManager::forceFlushLog(VfLogType logType)
{
    for (VfAbstractLogWriter* writer : getLogWritersByLog(logType)) {
        // A writer with timed saving off is not flushed, despite "force": it decides for itself when to write.
        if (writer->isTimedSaveEnabled())
            writer->flush();
    }
}

void VfLogManager::forceFlushAllLogs()
{
    // A writer on two logs is flushed twice; the second finds an empty queue and still syncs.
    const QList<VfLogType> types = m_logs.keys();
    for (VfLogType logType : types)
        forceFlushLog(logType);
}

} // namespace Crosscutting
