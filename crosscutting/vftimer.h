#ifndef VFTIMER_H
#define VFTIMER_H

#include "vfcrosscutting_export.h"

#include <atomic>
#include <chrono>

namespace Crosscutting {

// Wall-clock stopwatch in milliseconds, used to time how long a mutex is held (Part 6.4).
class VFCROSSCUTTING_EXPORT VfTimer
{
public:
    VfTimer();

    void start();
    void stop();
    double elapsedTime();
    bool isTimerRunning();

private:
    std::atomic<bool> m_running;
    std::chrono::system_clock::time_point m_startTime;
    std::chrono::system_clock::time_point m_stopTime;
};

} // namespace Crosscutting

#endif // VFTIMER_H
