#include "vfcrosscuttingmanagerplaceholder.h"

#include "systemidentity.h"

#include "vfabstractlogmanager.h"
#include "vflogmanager.h"
#include "vfmutexlocker.h"
#include "vfplatforminfo.h"
#include "vfstatusreporter.h"
#include "vfunixsignalhandler.h"

#include <QAtomicPointer>

#include <csignal>
#include <cstring>

namespace Crosscutting {

VfCrosscuttingManagerPlaceholder* VfCrosscuttingManagerPlaceholder::s_instance = nullptr;
VfRecursiveMutex VfCrosscuttingManagerPlaceholder::s_mutex(120000);

namespace {

// The instance once it is complete, for the callers that only read it: every report takes this
// path twice, so it takes no lock. s_mutex still orders construction and drop().
QAtomicPointer<VfCrosscuttingManagerPlaceholder> s_published;

} // namespace

VfCrosscuttingManagerPlaceholder* VfCrosscuttingManagerPlaceholder::instance()
{
    if (VfCrosscuttingManagerPlaceholder* published = s_published.loadAcquire())
        return published;
    VfMutexLocker<VfRecursiveMutex> locker(s_mutex);
    if (!s_instance) {
        s_instance = new VfCrosscuttingManagerPlaceholder();
        s_published.storeRelease(s_instance);
    }
    return s_instance;
}

void VfCrosscuttingManagerPlaceholder::drop()
{
    VfMutexLocker<VfRecursiveMutex> locker(s_mutex);
    s_published.storeRelease(nullptr);
    delete s_instance;
    s_instance = nullptr;
}

VfCrosscuttingManagerPlaceholder::VfCrosscuttingManagerPlaceholder()
{
    // The catalogue is complete before any other service exists.
    m_statusReporter.reset(new VfStatusReporter(nullptr));
    m_logManager.reset(new VfLogManager(nullptr));
    m_platformInfo.reset(new VfPlatformInfo(nullptr));
    // The virtual slot, so an override runs; queued across threads once the application registers
    // VfStatusChangeEvent. The handle is not kept.
    QObject::connect(m_statusReporter.data(), &VfAbstractStatusReporter::statusChangeOccurred, m_logManager.data(),
                     &VfAbstractLogManager::logStatusChange, Qt::AutoConnection);
}

VfCrosscuttingManagerPlaceholder::~VfCrosscuttingManagerPlaceholder()
{
    // Reverse of construction; the log manager goes before the reporter, ending the connection.
    m_systemIdentity.reset();
    m_platformInfo.reset();
    m_logManager.reset();
    m_statusReporter.reset();
}

VfAbstractStatusReporter* VfCrosscuttingManagerPlaceholder::statusReporter() const
{
    return m_statusReporter.data();
}

VfAbstractLogManager* VfCrosscuttingManagerPlaceholder::logManager() const
{
    return m_logManager.data();
}

VfPlatformInfo* VfCrosscuttingManagerPlaceholder::platformInfo() const
{
    return m_platformInfo.data();
}

VfSystemIdentity* VfCrosscuttingManagerPlaceholder::systemIdentity() const
{
    // Built on first use, without a lock: the first call must not race with another.
    if (!m_systemIdentity)
        m_systemIdentity.reset(new VfSystemIdentity(VfPlatformInfo::isIdentityFileIODisabled(), nullptr));
    return m_systemIdentity.data();
}

void VfCrosscuttingManagerPlaceholder::initializePlatformSpecificFunctionality() const
{
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    // The handler takes (unsigned int, sigcontext) but is installed as a plain one-argument handler
    // and reads neither argument.
    // The detour through void (*)() is the sanctioned way to change a function pointer's type.
    action.sa_handler = reinterpret_cast<void (*)(int)>(reinterpret_cast<void (*)()>(&linuxGeneralSignalHandler));
    // SIGILL, SIGHUP and SIGFPE only, SIGHUP deliberately; results ignored.
    sigaction(SIGILL, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    sigaction(SIGFPE, &action, nullptr);
}

} // namespace Crosscutting
