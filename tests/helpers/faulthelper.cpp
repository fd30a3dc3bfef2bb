// A child of tst_faults and tst_demangle_backtrace: crashes through the crash handler and captures
// backtraces from functions whose names and lines the tests know. Lines that tests look for carry
// "MARK:" comments; the tests find their numbers in this file.
// Usage: faulthelper crash HUP|FPE|ILL|SEGV|FPE-divide|ILL-trap
//        faulthelper capture|capture-inlined RAW
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <signal.h>
#include <sys/resource.h>

using Crosscutting::VfUtilities;

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
};

void innerCapture(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path); // MARK:capture
}

void Recorder::record(const char* path)
{
    innerCapture(path); // MARK:record
}

// Not static: the debug information names an inlined function without linkage name after its caller.
inline __attribute__((always_inline)) void inlinedCapture(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path); // MARK:inlined
}

void Recorder::recordInlined(const char* path)
{
    inlinedCapture(path); // MARK:recordInlined
}

} // namespace FaultHelper

namespace {

int crash(int argc, char** argv, const char* what)
{
    QCoreApplication app(argc, argv); // the service access object reads the application directory
    struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore); // a signal left to its default action must leave no core file
    std::atexit([] { std::printf("atexit handler ran\n"); });
    Crosscutting::VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
    volatile int zero = 0;
    const struct { const char* name; int sig; } raised[] = {{"HUP", SIGHUP}, {"FPE", SIGFPE}, {"ILL", SIGILL}, {"SEGV", SIGSEGV}};
    for (const auto& r : raised)
        if (std::strcmp(what, r.name) == 0)
            FaultHelper::Crasher::raiseSignal(r.sig);
    if (std::strcmp(what, "FPE-divide") == 0)
        std::printf("%d\n", FaultHelper::divide(1, zero));
    if (std::strcmp(what, "ILL-trap") == 0)
        FaultHelper::Crasher::trap();
    std::printf("still running\n");
    return 3;
}

} // namespace

int main(int argc, char** argv)
{
    const char* mode = argc > 1 ? argv[1] : "";
    const char* argument = argc > 2 ? argv[2] : "";
    if (std::strcmp(mode, "crash") == 0)
        return crash(argc, argv, argument);
    if (std::strcmp(mode, "capture") == 0)
        FaultHelper::Recorder().record(argument);
    else if (std::strcmp(mode, "capture-inlined") == 0)
        FaultHelper::Recorder().recordInlined(argument);
    else
        return 2;
    return 0;
}
