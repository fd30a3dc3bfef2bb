// Child process of the fault-handling tests (Parts 7.1, 7.2, demangle_backtrace): crashes,
// captures backtraces and exercises VfUnixSignalHandler where the test process must not.
// Usage: faulthelper MODE [ARG]
//   crash HUP|FPE|ILL|SEGV   install the crash handler, raise the signal from a named function
//   crash FPE-divide         ... and divide by zero for real
//   crash ILL-trap           ... and execute an illegal instruction
//   capture RAW              logBackTraceNoDemangle(RAW) from named functions
//   capture-inlined RAW      the same through a function inlined into its caller
//   logbacktrace OUT         logBackTrace(OUT) from a named function
//   logbacktrace-anonymous OUT  the same with argv[0] emptied, so that the C library cannot
//                            name this program and gives its frames as "[0x...]"
//   stdin-closed RAW         close descriptor 0, then logBackTraceNoDemangle(RAW)
//   unix-destroyed           destroy a VfUnixSignalHandler, then send it its signals
// The lines that tests look for carry "MARK:" comments; tests find their numbers in this file.

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfunixsignalhandler.h"
#include "vfutilities.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

using Crosscutting::VfUtilities;

namespace {

// The crash handler as an embedding application installs it (Parts 1.1, 7.1).
void installCrashHandler()
{
    Crosscutting::VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
}

void announceExit()
{
    std::printf("atexit handler ran\n");
    std::fflush(stdout);
}

} // namespace

namespace FaultHelper {

class Crasher
{
public:
    static void raiseSignal(int sig);
    static void trap();
};

void Crasher::raiseSignal(int sig)
{
    raise(sig); // MARK:raise
}

void Crasher::trap()
{
    __builtin_trap(); // MARK:trap
}

int divide(int dividend, int divisor)
{
    return dividend / divisor; // MARK:divide
}

class Recorder
{
public:
    void record(const char* path);
    void recordInlined(const char* path);
    void report(const QString& path);
};

void innerCapture(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path); // MARK:capture
}

void Recorder::record(const char* path)
{
    innerCapture(path); // MARK:record
}

// Not static: addr2line names an inlined function without linkage name after its caller.
inline __attribute__((always_inline)) void inlinedCapture(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path); // MARK:inlined
}

void Recorder::recordInlined(const char* path)
{
    inlinedCapture(path); // MARK:recordInlined
}

void Recorder::report(const QString& path)
{
    VfUtilities::logBackTrace(path); // MARK:report
}

} // namespace FaultHelper

namespace {

int crash(int argc, char** argv, const char* what)
{
    // The service access object reads the application directory, so an application exists.
    QCoreApplication app(argc, argv);
    // A signal that keeps its default action must not leave a core file behind.
    struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::atexit(&announceExit);
    installCrashHandler();

    volatile int zero = 0;
    if (std::strcmp(what, "HUP") == 0)
        FaultHelper::Crasher::raiseSignal(SIGHUP);
    else if (std::strcmp(what, "FPE") == 0)
        FaultHelper::Crasher::raiseSignal(SIGFPE);
    else if (std::strcmp(what, "ILL") == 0)
        FaultHelper::Crasher::raiseSignal(SIGILL);
    else if (std::strcmp(what, "SEGV") == 0)
        FaultHelper::Crasher::raiseSignal(SIGSEGV);
    else if (std::strcmp(what, "FPE-divide") == 0)
        std::printf("%d\n", FaultHelper::divide(1, zero));
    else if (std::strcmp(what, "ILL-trap") == 0)
        FaultHelper::Crasher::trap();
    else
        return 2;
    std::printf("still running\n");
    return 3;
}

int unixDestroyed(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    auto callback = [](int sig) {
        std::printf("callback %d\n", sig);
        std::fflush(stdout);
    };
    auto* handler = new Crosscutting::VfUnixSignalHandler({{SIGUSR1, callback}, {SIGTERM, callback}}, nullptr);
    delete handler;

    raise(SIGUSR1);
    kill(getpid(), SIGTERM);
    QTimer::singleShot(300, &app, &QCoreApplication::quit);
    app.exec();

    struct sigaction current;
    sigaction(SIGUSR1, nullptr, &current);
    if (current.sa_handler == &Crosscutting::VfUnixSignalHandler::signalHandler)
        std::printf("SIGUSR1 still caught\n");
    std::printf("survived\n");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    const char* mode = argv[1];
    const char* argument = argc > 2 ? argv[2] : "";
    if (std::strcmp(mode, "crash") == 0)
        return crash(argc, argv, argument);
    if (std::strcmp(mode, "capture") == 0) {
        FaultHelper::Recorder().record(argument);
        return 0;
    }
    if (std::strcmp(mode, "capture-inlined") == 0) {
        FaultHelper::Recorder().recordInlined(argument);
        return 0;
    }
    if (std::strcmp(mode, "logbacktrace") == 0) {
        FaultHelper::Recorder().report(QString::fromLocal8Bit(argument));
        return 0;
    }
    if (std::strcmp(mode, "logbacktrace-anonymous") == 0) {
        // dladdr names the main program by the string that argv[0] points to.
        argv[0][0] = '\0';
        FaultHelper::Recorder().report(QString::fromLocal8Bit(argument));
        return 0;
    }
    if (std::strcmp(mode, "stdin-closed") == 0) {
        close(STDIN_FILENO);
        VfUtilities::logBackTraceNoDemangle(argument);
        if (fcntl(STDIN_FILENO, F_GETFD) != -1)
            std::printf("descriptor 0 open\n");
        return 0;
    }
    if (std::strcmp(mode, "unix-destroyed") == 0)
        return unixDestroyed(argc, argv);
    return 2;
}
