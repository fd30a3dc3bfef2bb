#include "vfunixsignalhandler.h"

#include "vfutilities.h"

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Crosscutting {

namespace {

// The kernel id of the thread that runs the crash handler; 0 until a crash.
std::atomic<pid_t> s_crashingThread{0};
// Set just before exit(0); from then on a parked thread counts the time that exit takes.
std::atomic<bool> s_exitRunning{false};

// What a thread that was inside the library when the crash came needs to reach a place where it parks: a report
// or a routed message takes microseconds, so this is ample, and the crash only ends that much later.
const long s_graceMilliseconds = 100;
// How long exit(0) may take before a parked thread ends the process itself, with the same status.
const long s_exitLimitMilliseconds = 5000;
const long s_parkSliceMilliseconds = 10;

long monotonicMilliseconds()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void sleepFor(long milliseconds)
{
    struct timespec remaining = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

// Sleeps until exit(0) on the crashing thread ends the process. A parked thread may hold a lock of the logging
// roads, which the crashing thread no longer takes (stopForCrashExit is true there); should exit still not end
// (a destructor or atexit handler of the application waiting for something this thread holds), the process
// ends here once the limit has passed.
// Only nanosleep, clock_gettime and _exit: this also runs inside a signal handler.
[[noreturn]] void park()
{
    long exitWaited = 0;
    for (;;) {
        sleepFor(s_parkSliceMilliseconds);
        if (s_exitRunning.load())
            exitWaited += s_parkSliceMilliseconds;
        if (exitWaited >= s_exitLimitMilliseconds)
            _exit(0);
    }
}

} // namespace

bool stopForCrashExit()
{
    const pid_t crashing = s_crashingThread.load(std::memory_order_relaxed);
    if (crashing == 0)
        return false;
    if (crashing != gettid())
        park();
    // The crashing thread itself: what exit's destructors say (a mutex destroyed while a parked thread holds it)
    // must not wait for that mutex, and the crash writes no log entry anyway.
    return true;
}

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

// Restores no disposition and closes no descriptor: a listed signal still reaches signalHandler,
// whose bytes nobody reads, so the handler stays valid for the life of the process.
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
    // From here on, every other thread that enters the library's logging roads parks there, so that none of them
    // touches what exit's static destructors tear down. A crash on a second thread waits for the first to end.
    const pid_t self = gettid();
    pid_t first = 0;
    if (!s_crashingThread.compare_exchange_strong(first, self) && first != self)
        park();
    const long raised = monotonicMilliseconds();

    VfUtilities::logBackTraceNoDemangle("/etc/tarvion/logs/backTrace");
    int result = system("demangle_backtrace /etc/tarvion/logs/backTrace /etc/tarvion/logs/backTraceDemangled");
    (void)result;

    // Threads that were halfway through a report when the crash came finish it or park, within the grace.
    const long waited = monotonicMilliseconds() - raised;
    if (waited >= 0 && waited < s_graceMilliseconds)
        sleepFor(s_graceMilliseconds - waited);
    s_exitRunning.store(true);
    // exit(0), not _exit and not a re-raise: atexit handlers and static destructors run, the process reports
    // success and leaves no core file. Instruments in the field rely on exactly that end.
    exit(0);
}

} // namespace Crosscutting
