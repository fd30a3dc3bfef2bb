#ifndef VFUNIXSIGNALHANDLER_H
#define VFUNIXSIGNALHANDLER_H

#include "vfcrosscutting_export.h"

#include <QMap>
#include <QObject>

#include <functional>
#include <signal.h>

class QSocketNotifier;

namespace Crosscutting {

// Turns chosen Unix signals into callbacks run by the event loop, through a socket pair (Part 7.1).
class VFCROSSCUTTING_EXPORT VfUnixSignalHandler : public QObject
{
    Q_OBJECT
public:
    VfUnixSignalHandler(QMap<int, std::function<void (int)>> signalCallbacks, QObject* parent = nullptr);
    ~VfUnixSignalHandler() override;

    static void signalHandler(int sig);

public slots:
    void handleSignal(int);

private:
    QSocketNotifier* m_notifier = nullptr;
    QMap<int, std::function<void (int)>> m_signalCallbacks;

    // Static because a plain signal handler has no object: [0] is written by the handler,
    // [1] is read by the notifier.
    static int m_signalFd[2];
};

// The crash handler for SIGILL, SIGHUP and SIGFPE, installed as a one-argument handler (Part 7.1).
VFCROSSCUTTING_EXPORT void linuxGeneralSignalHandler(unsigned int, sigcontext);

// Once the crash handler runs: parks any other thread for good, and is true on the crashing thread, whose logging
// is dropped; false at once before a crash.
VFCROSSCUTTING_EXPORT bool stopForCrashExit();

} // namespace Crosscutting

#endif // VFUNIXSIGNALHANDLER_H
