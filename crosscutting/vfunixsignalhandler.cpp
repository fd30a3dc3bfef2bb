#include "vfunixsignalhandler.h"

#include "vfutilities.h"

#include <QSocketNotifier>

#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Crosscutting {

int VfUnixSignalHandler::m_signalFd[2] = {-1, -1};

VfUnixSignalHandler::VfUnixSignalHandler(QMap<int, std::function<void (int)>> signalCallbacks, QObject* parent)
    : QObject(parent)
    , m_signalCallbacks(std::move(signalCallbacks))
{
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, m_signalFd) != 0)
        return;

    // Flags stay 0 (no SA_RESTART): a caught signal makes blocking calls fail with EINTR.
    struct sigaction action = {};
    action.sa_handler = &VfUnixSignalHandler::signalHandler;
    for (auto it = m_signalCallbacks.constBegin(); it != m_signalCallbacks.constEnd(); ++it)
        sigaction(it.key(), &action, nullptr);

    m_notifier = new QSocketNotifier(m_signalFd[1], QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), this, SLOT(handleSignal(int)));
}

// Part 7.1: restores no disposition and closes no descriptor: a listed signal still reaches
// signalHandler, whose bytes nobody reads.
VfUnixSignalHandler::~VfUnixSignalHandler()
{
    if (m_notifier != nullptr)
        delete m_notifier;
}

void VfUnixSignalHandler::signalHandler(int sig)
{
    // Signal context: one system call and nothing else; a full socket loses the signal.
    ssize_t written = write(m_signalFd[0], &sig, sizeof(sig));
    (void)written;
}

void VfUnixSignalHandler::handleSignal(int)
{
    int sig = 0;
    ssize_t got = read(m_signalFd[1], &sig, sizeof(sig));
    (void)got;
    if (!m_signalCallbacks.contains(sig))
        return;
    std::function<void (int)> callback = m_signalCallbacks.value(sig);
    callback(sig);
}

void linuxGeneralSignalHandler(unsigned int, sigcontext)
{
    VfUtilities::logBackTraceNoDemangle("/etc/tarvion/logs/backTrace");
    int result = system("demangle_backtrace /etc/tarvion/logs/backTrace /etc/tarvion/logs/backTraceDemangled");
    (void)result;
    // Part 7.1: kept as specified: a crash ends with exit(0), not _exit and not a re-raise.
    exit(0);
}

} // namespace Crosscutting
