#ifndef VFCROSSCUTTINGMANAGERPLACEHOLDER_H
#define VFCROSSCUTTINGMANAGERPLACEHOLDER_H

/// \file
/// The service access object and REPORT_STATUS.

#include "vfabstractstatusreporter.h"
#include "vfcrosscutting_export.h"
#include "vfrecursivemutex.h"
#include "vfsourcecontext.h"
#include "vfstatuscodes.h"

#include <QFileInfo>
#include <QScopedPointer>
#include <QString>
#include <QStringList>

namespace Crosscutting {

class VfAbstractLogManager;
class VfPlatformInfo;
class VfSystemIdentity;

/// The one process-wide object through which all code reaches the cross-cutting services:
/// the status reporter, the log manager, the platform information and the instrument identity.
///
/// The first instance() on any thread creates it, which loads the status catalogue and sets up the
/// logs; REPORT_STATUS goes through it at every reporting site. The library never calls drop()
/// itself: an application that wants an orderly end calls it once, last.
class VFCROSSCUTTING_EXPORT VfCrosscuttingManagerPlaceholder
{
public:
    /// The one instance, made on first use; never null. Creation runs under a recursive mutex with
    /// a wait of 120000 ms, so two threads that race for the first call get the same object; once
    /// made, the instance is read without a lock. Any thread.
    static VfCrosscuttingManagerPlaceholder* instance();
    /// Destroys the instance, if there is one: identity, platform information, log manager (which
    /// flushes every log) and status reporter, in that order. A later instance() starts afresh, and
    /// pointers fetched before dangle. Any thread, when no other thread uses the services.
    static void drop();

    /// Deletes the services; only drop() destroys the instance.
    virtual ~VfCrosscuttingManagerPlaceholder();

    /// The status reporter; never null. No lock; any thread.
    VfAbstractStatusReporter* statusReporter() const;
    /// The log manager; never null. No lock; any thread.
    VfAbstractLogManager* logManager() const;
    /// The platform information; never null. No lock; any thread.
    VfPlatformInfo* platformInfo() const;
    /// The instrument identity, made and read from its files on the first call; never null.
    /// No lock: make the first call on one thread before others use it.
    VfSystemIdentity* systemIdentity() const;

    /// Installs linuxGeneralSignalHandler() for SIGILL, SIGHUP and SIGFPE, which writes a backtrace
    /// file, runs demangle_backtrace on it and ends the process. The library never installs it by
    /// itself. Failures of sigaction are ignored. Any thread, normally once at start-up.
    void initializePlatformSpecificFunctionality() const;

private:
    VfCrosscuttingManagerPlaceholder();
    Q_DISABLE_COPY(VfCrosscuttingManagerPlaceholder)

    QScopedPointer<VfAbstractStatusReporter> m_statusReporter;
    QScopedPointer<VfAbstractLogManager> m_logManager;
    QScopedPointer<VfPlatformInfo> m_platformInfo;
    mutable QScopedPointer<VfSystemIdentity> m_systemIdentity;

    static VfCrosscuttingManagerPlaceholder* s_instance;
    static VfRecursiveMutex s_mutex;
};

/// The body of REPORT_STATUS for one reporting site: fetches the status reporter, makes the
/// context from the site's file, line, function signature and arguments, and reports. Returns
/// code unchanged. Any thread.
template <typename... Arguments>
StatusCode reportStatusFromSite(const char* file, unsigned long long line, const char* function, StatusCode code,
                                const Arguments&... arguments)
{
    VfAbstractStatusReporter* reporter = VfCrosscuttingManagerPlaceholder::instance()->statusReporter();
    const QString fileName = siteFileName(file);
    const QString functionText = siteFunctionText(function);
    const QStringList additionalInfo{QString(arguments)...};
    return reporter->reportStatus(code, createSourceContext(QString(), fileName, line, functionText, additionalInfo));
}

} // namespace Crosscutting

/// Reports a status code with any number of QString arguments and evaluates to the code, so
/// that a site reports a failure and returns it in one statement:
/// `return REPORT_STATUS(VfStatusCodes::FileNotFound, path);`
/// Numbers are passed as QString::number(value). Any thread.
#define REPORT_STATUS(...) ::Crosscutting::reportStatusFromSite(__FILE__, __LINE__, Q_FUNC_INFO, __VA_ARGS__)

#endif // VFCROSSCUTTINGMANAGERPLACEHOLDER_H
