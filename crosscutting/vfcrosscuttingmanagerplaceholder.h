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

// The one process-wide object through which all code reaches the cross-cutting services (Part 1.1).
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

} // namespace Crosscutting

// Reports `code` with any number of QString arguments and evaluates to the code (Part 2.3):
// `return REPORT_STATUS(VfStatusCodes::FileNotFound, path);`
#define REPORT_STATUS(code, ...)                                                                              \
    (::Crosscutting::VfCrosscuttingManagerPlaceholder::instance()->statusReporter()->reportStatus(            \
        (code), ::Crosscutting::createSourceContext(QString(), QFileInfo(QStringLiteral(__FILE__)).fileName(), \
                                                    __LINE__, QString::fromLatin1(Q_FUNC_INFO),               \
                                                    QStringList{__VA_ARGS__})))

#endif // VFCROSSCUTTINGMANAGERPLACEHOLDER_H
