#include "vfabstractlogmanager.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfmutex.h"
#include "vfmutexlocker.h"
#include "vfunixsignalhandler.h"

#include <QFileInfo>

#include <cstdlib>

namespace Crosscutting {

VfAbstractLogManager::VfAbstractLogManager(QObject* parent)
    : QObject(parent)
{
}

VfAbstractLogManager::~VfAbstractLogManager() = default;

} // namespace Crosscutting


namespace {
// Source files of the framework and of Qt have lower-case names.
const QRegularExpression s_frameworkFileExpression(QStringLiteral("^vf.*"));
const QRegularExpression s_qtFileExpression(QStringLiteral("^q.*"));
} // namespace

QString moduleForFilename(QString const& fileName, QString const& qtModule, QString const& frameworkModule)
{
    const QString baseName = QFileInfo(fileName).fileName();
    if (s_frameworkFileExpression.match(baseName).hasMatch())
        return frameworkModule;
    if (s_qtFileExpression.match(baseName).hasMatch())
        return qtModule;
    return QStringLiteral("appDebug");
}

namespace Crosscutting {

void logMessageHandler(QtMsgType type, QMessageLogContext const& context, QString const& message)
{
    // Once the crash handler runs, nothing goes further: exit(0) is tearing down what the rest would touch.
    if (stopForCrashExit())
        return;
    static VfMutex s_messageHandlerMutex(120000);
    // Qt messages are handled one at a time. VfMutex is not recursive: a message raised inside
    // the handler on the same thread waits out the 120000 ms and goes on without the lock.
    VfMutexLocker<VfMutex> locker(s_messageHandlerMutex);

    QString label;
    VfStaticStatusInfo::VfStatusSeverity severity;
    switch (type) {
    case QtDebugMsg:
    case QtInfoMsg:
        label = QStringLiteral("QDEBUG");
        severity = VfStaticStatusInfo::VfStatusSeverity::Notification;
        break;
    case QtWarningMsg:
        label = QStringLiteral("QWARNING");
        severity = VfStaticStatusInfo::VfStatusSeverity::Warning;
        break;
    case QtCriticalMsg:
        label = QStringLiteral("QCRITICAL");
        severity = VfStaticStatusInfo::VfStatusSeverity::CriticalError;
        break;
    case QtFatalMsg:
        label = QStringLiteral("QFATAL");
        severity = VfStaticStatusInfo::VfStatusSeverity::CriticalError;
        break;
    default:
        return;
    }

    // A null context.file (release builds of Qt) gives a null string.
    const QString file = context.file ? QString::fromLatin1(context.file) : QString();
    const QString module = moduleForFilename(file, label, QStringLiteral("VfDebug"));
    QSharedPointer<VfSourceContext> sourceContext(
        &createSourceContext(module, file, static_cast<unsigned long long>(static_cast<long long>(context.line)),
                             QString(context.function), QStringList()));
    const QString text = message.trimmed() + QLatin1Char('\n');

    VfAbstractLogManager* logManager = VfCrosscuttingManagerPlaceholder::instance()->logManager();
    logManager->addLogEntry(sourceContext, severity, text, DebugLog);
    if (type == QtFatalMsg) {
        // The last chance for queued entries; the mutex stays locked, which no longer matters.
        logManager->forceFlushAllLogs();
        std::abort();
    }
}

} // namespace Crosscutting
