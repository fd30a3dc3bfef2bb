#ifndef VFCROSSCUTTINGMANAGERPLACEHOLDER_H
#define VFCROSSCUTTINGMANAGERPLACEHOLDER_H

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

// The one process-wide object through which all code reaches the cross-cutting services.
class VFCROSSCUTTING_EXPORT VfCrosscuttingManagerPlaceholder
{
public:
    static VfCrosscuttingManagerPlaceholder* instance();
    static void drop();

    virtual ~VfCrosscuttingManagerPlaceholder();

    VfAbstractStatusReporter* statusReporter() const;
    VfAbstractLogManager* logManager() const;
    VfPlatformInfo* platformInfo() const;
    VfSystemIdentity* systemIdentity() const;

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

// The body of REPORT_STATUS for one reporting site: the reporter, the site's file and function
// texts, the arguments, a new context, and reportStatus, in that order.
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

// Reports a status code with any number of QString arguments and evaluates to the code:
// `return REPORT_STATUS(VfStatusCodes::FileNotFound, path);`
#define REPORT_STATUS(...) ::Crosscutting::reportStatusFromSite(__FILE__, __LINE__, Q_FUNC_INFO, __VA_ARGS__)

#endif // VFCROSSCUTTINGMANAGERPLACEHOLDER_H
