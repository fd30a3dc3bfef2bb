#include "vftimer.h"

namespace Crosscutting {

VfTimer::VfTimer()
    : m_running(false)
    , m_startTime()
    , m_stopTime()
{
}

void VfTimer::start()
{
    // The time point is written before the flag, so that a reader who sees the flag sees it too.
    m_startTime = std::chrono::system_clock::now();
    m_running.store(true, std::memory_order_seq_cst);
}

void VfTimer::stop()
{
    m_stopTime = std::chrono::system_clock::now();
    m_running.store(false, std::memory_order_seq_cst);
}

double VfTimer::elapsedTime()
{
    const std::chrono::system_clock::time_point startTime = m_startTime;
    const bool running = m_running.load(std::memory_order_seq_cst);
    const std::chrono::system_clock::time_point endTime = running ? std::chrono::system_clock::now() : m_stopTime;
    const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(endTime - startTime).count();
    return static_cast<double>(ticks) / 1000000.0;
}

bool VfTimer::isTimerRunning()
{
    return m_running.load(std::memory_order_seq_cst);
}

} // namespace Crosscutting
