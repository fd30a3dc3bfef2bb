#ifndef VFTIMER_H
#define VFTIMER_H

#include "vfcrosscutting_export.h"

#include <atomic>
#include <chrono>

namespace Crosscutting {

/// Wall-clock stopwatch in milliseconds, used to time how long a mutex is held. Safe for one
/// thread that starts and stops it while others poll isTimerRunning().
class VFCROSSCUTTING_EXPORT VfTimer
{
public:
    /// A stopped timer. Cannot fail; any thread.
    VfTimer();

    /// Takes the start time; a second start() begins the measure afresh. Cannot fail. The timing thread.
    void start();
    /// Takes the stop time. Cannot fail. The timing thread.
    void stop();
    /// Milliseconds from start to now while running, from start to stop once stopped. Cannot fail.
    /// The timing thread.
    double elapsedTime();
    /// Whether the timer runs. Any thread.
    bool isTimerRunning();

private:
    std::atomic<bool> m_running;
    std::chrono::system_clock::time_point m_startTime;
    std::chrono::system_clock::time_point m_stopTime;
};

} // namespace Crosscutting

#endif // VFTIMER_H
