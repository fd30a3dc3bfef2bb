#ifndef VFUNIXSIGNALHANDLER_H
#define VFUNIXSIGNALHANDLER_H

/// \file
/// Unix signals in the event loop, and the crash handler.

#include "vfcrosscutting_export.h"

#include <QMap>
#include <QObject>

#include <functional>
#include <signal.h>

class QSocketNotifier;

namespace Crosscutting {

/// Turns chosen Unix signals into callbacks that the event loop runs: the signal handler only
/// writes to a socket pair, and handleSignal() calls the callback on the object's thread.
///
/// A caught signal interrupts blocking system calls on the thread it lands on (EINTR).
class VFCROSSCUTTING_EXPORT VfUnixSignalHandler : public QObject
{
    Q_OBJECT
public:
    /// Installs signalHandler() for every signal in signalCallbacks. If the socket pair cannot be
    /// made, the object stays inert, silently; a signal that cannot be caught is skipped. The thread
    /// whose event loop is to run the callbacks.
    VfUnixSignalHandler(QMap<int, std::function<void (int)>> signalCallbacks, QObject* parent = nullptr);
    /// Stops listening. The thread that owns the object.
    ~VfUnixSignalHandler() override;

    /// The handler installed for each signal: passes sig on to the event loop. Any thread, in signal context.
    static void signalHandler(int sig);

public slots:
    /// Runs the callback of the signal that arrived. An empty callback throws std::bad_function_call
    /// into the event loop. The thread that owns the object.
    void handleSignal(int);

private:
    QSocketNotifier* m_notifier = nullptr;
    QMap<int, std::function<void (int)>> m_signalCallbacks;

    // Static because a plain signal handler has no object: [0] is written by the handler,
    // [1] is read by the notifier.
    static int m_signalFd[2];
};

/// The crash handler for SIGILL, SIGHUP and SIGFPE, which
/// VfCrosscuttingManagerPlaceholder::initializePlatformSpecificFunctionality() installs: writes the
/// raw frames to "/etc/tarvion/logs/backTrace", runs demangle_backtrace on it and ends the process
/// with exit(0). It writes no log entry, and what the file writers still queue is lost. Has no
/// failure path. Any thread, in signal context.
VFCROSSCUTTING_EXPORT void linuxGeneralSignalHandler(unsigned int, sigcontext);

/// Whether the process is ending after a crash. False at once before a crash. Once the crash
/// handler runs, it is true on the crashing thread, whose logging is then dropped, and any other
/// thread that calls it is parked for good. Any thread.
VFCROSSCUTTING_EXPORT bool stopForCrashExit();

} // namespace Crosscutting

#endif // VFUNIXSIGNALHANDLER_H
