#include "vftimer.h"

#include <QtTest>

#include <atomic>
#include <chrono>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

using namespace Crosscutting;

namespace {
// Wall-clock time that this program's CLOCK_REALTIME reports, in nanoseconds since the epoch;
// -1 lets the real clock through. Changing the machine's clock is no option for a test.
std::atomic<long long> g_fakeRealtimeNs{-1};

constexpr long long nsPerMs = 1000000LL;
constexpr long long nsPerSecond = 1000000000LL;

void setFakeClock(long long nanoseconds)
{
    g_fakeRealtimeNs.store(nanoseconds);
}
}

// Interposes the C library's clock_gettime for the whole process, libstdc++'s system_clock
// (and so the library's VfTimer) included, so that the wall clock can be set and turned back.
extern "C" int clock_gettime(clockid_t clockId, struct timespec* time) noexcept
{
    const long long fake = g_fakeRealtimeNs.load();
    if (clockId == CLOCK_REALTIME && fake >= 0) {
        time->tv_sec = static_cast<time_t>(fake / nsPerSecond);
        time->tv_nsec = static_cast<long>(fake % nsPerSecond);
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clockId, time));
}

class tst_VfTimer : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();
    void fakeClockReachesTheLibrary();
    void freshTimerIsZeroAndStopped();
    void growsWhileRunningAndFreezesAfterStop();
    void growsWhileRunningOnTheRealClock();
    void fractionOfAMillisecondIsKept();
    void restartCoversOnlyTheLastInterval();
    void stopWithoutStartGivesTimeSinceEpoch();
    void stopWithoutStartOnTheRealClock();
    void wallClockChangeShowsUp_data();
    void wallClockChangeShowsUp();
    void runningFlagSeenFromAnotherThread();
};

void tst_VfTimer::cleanup()
{
    setFakeClock(-1);
}

void tst_VfTimer::fakeClockReachesTheLibrary()
{
    // Without this, every fake-clock test below would measure the real clock.
    setFakeClock(42 * nsPerSecond);
    VfTimer timer;
    timer.stop();
    QCOMPARE(timer.elapsedTime(), 42000.0);
}

void tst_VfTimer::freshTimerIsZeroAndStopped()
{
    VfTimer timer;
    QCOMPARE(timer.isTimerRunning(), false);
    QVERIFY(timer.elapsedTime() == 0.0);
    // Still zero when asked again later: both time points are zero.
    QTest::qWait(5);
    QVERIFY(timer.elapsedTime() == 0.0);
}

void tst_VfTimer::growsWhileRunningAndFreezesAfterStop()
{
    const long long t0 = 1700000000LL * nsPerSecond;
    VfTimer timer;
    setFakeClock(t0);
    timer.start();
    QVERIFY(timer.isTimerRunning());
    setFakeClock(t0 + 1500000);
    QCOMPARE(timer.elapsedTime(), 1.5);
    setFakeClock(t0 + 3250000);
    QCOMPARE(timer.elapsedTime(), 3.25);
    setFakeClock(t0 + 4 * nsPerMs);
    timer.stop();
    QCOMPARE(timer.isTimerRunning(), false);
    setFakeClock(t0 + 10 * nsPerMs);
    QCOMPARE(timer.elapsedTime(), 4.0);
    setFakeClock(t0 + 500 * nsPerMs);
    QCOMPARE(timer.elapsedTime(), 4.0);
}

void tst_VfTimer::growsWhileRunningOnTheRealClock()
{
    VfTimer timer;
    timer.start();
    const double first = timer.elapsedTime();
    QTest::qSleep(5);
    const double second = timer.elapsedTime();
    QVERIFY2(second > first, qPrintable(QString("%1 then %2").arg(first).arg(second)));
    timer.stop();
    const double frozen = timer.elapsedTime();
    QVERIFY(frozen >= second);
    QTest::qSleep(5);
    QVERIFY(timer.elapsedTime() == frozen);
}

void tst_VfTimer::fractionOfAMillisecondIsKept()
{
    const long long t0 = 1000 * nsPerSecond;
    VfTimer timer;
    setFakeClock(t0);
    timer.start();
    setFakeClock(t0 + 1234567);
    timer.stop();
    QVERIFY(timer.elapsedTime() == 1234567 / 1000000.0);
    QVERIFY(timer.elapsedTime() != 1.0);
}

void tst_VfTimer::restartCoversOnlyTheLastInterval()
{
    const long long t0 = 2000 * nsPerSecond;
    VfTimer timer;
    setFakeClock(t0);
    timer.start();
    setFakeClock(t0 + 5 * nsPerMs);
    timer.stop();
    QCOMPARE(timer.elapsedTime(), 5.0);
    setFakeClock(t0 + 100 * nsPerMs);
    timer.start();
    setFakeClock(t0 + 102 * nsPerMs);
    timer.stop();
    QCOMPARE(timer.elapsedTime(), 2.0);
}

void tst_VfTimer::stopWithoutStartGivesTimeSinceEpoch()
{
    setFakeClock(1234 * nsPerSecond + 500000);
    VfTimer timer;
    timer.stop();
    QCOMPARE(timer.isTimerRunning(), false);
    QCOMPARE(timer.elapsedTime(), 1234000.5);
}

void tst_VfTimer::stopWithoutStartOnTheRealClock()
{
    using namespace std::chrono;
    auto nowMs = [] {
        return static_cast<double>(duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count())
               / 1000000.0;
    };
    const double before = nowMs();
    VfTimer timer;
    timer.stop();
    const double after = nowMs();
    const double elapsed = timer.elapsedTime();
    QVERIFY2(elapsed >= before && elapsed <= after,
             qPrintable(QString::number(elapsed, 'f', 6) + " not within the call"));
}

void tst_VfTimer::wallClockChangeShowsUp_data()
{
    QTest::addColumn<long long>("shiftNs");
    QTest::addColumn<double>("expected");
    QTest::newRow("clock set back 5 s: negative") << -5 * nsPerSecond << -5000.0;
    QTest::newRow("clock set back 1 ms: negative") << -nsPerMs << -1.0;
    QTest::newRow("clock set forward 1 h") << 3600 * nsPerSecond << 3600000.0;
}

void tst_VfTimer::wallClockChangeShowsUp()
{
    QFETCH(long long, shiftNs);
    QFETCH(double, expected);
    const long long t0 = 1700000000LL * nsPerSecond;
    VfTimer timer;
    setFakeClock(t0);
    timer.start();
    setFakeClock(t0 + shiftNs);
    QCOMPARE(timer.elapsedTime(), expected);
    timer.stop();
    setFakeClock(t0);
    QCOMPARE(timer.elapsedTime(), expected);
}

void tst_VfTimer::runningFlagSeenFromAnotherThread()
{
    VfTimer timer;
    std::atomic<int> phase{0};
    QScopedPointer<QThread> poller(QThread::create([&] {
        while (!timer.isTimerRunning())
            QThread::yieldCurrentThread();
        phase.store(1);
        while (timer.isTimerRunning())
            QThread::yieldCurrentThread();
        phase.store(2);
    }));
    poller->start();
    timer.start();
    QTRY_COMPARE_WITH_TIMEOUT(phase.load(), 1, 10000);
    timer.stop();
    QTRY_COMPARE_WITH_TIMEOUT(phase.load(), 2, 10000);
    QVERIFY(poller->wait(10000));
}

QTEST_GUILESS_MAIN(tst_VfTimer)
#include "tst_vftimer.moc"
