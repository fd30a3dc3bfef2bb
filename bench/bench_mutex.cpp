// The lock path of Part 5.1 against a bare QMutex: a timed tryLock, two empty hooks and one
// QThread::currentThreadId() are all that VfMutexLocker may add.
#include "vfmutex.h"
#include "vfmutexlocker.h"
#include "vfrecursivemutex.h"

#include <QMutex>
#include <QMutexLocker>

#include <benchmark/benchmark.h>

using namespace Crosscutting;

static void BM_QMutexLocker(benchmark::State& state)
{
    QMutex mutex;
    for (auto _ : state) {
        QMutexLocker locker(&mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_QMutexLocker);

static void BM_VfMutexLocker(benchmark::State& state)
{
    VfMutex mutex(120000);
    for (auto _ : state) {
        VfMutexLocker<VfMutex> locker(mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_VfMutexLocker);

static void BM_VfRecursiveMutexLocker(benchmark::State& state)
{
    VfRecursiveMutex mutex(120000);
    for (auto _ : state) {
        VfMutexLocker<VfRecursiveMutex> locker(mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_VfRecursiveMutexLocker);

static void BM_VfMutexConstruction(benchmark::State& state)
{
    for (auto _ : state) {
        VfMutex mutex(120000);
        benchmark::DoNotOptimize(mutex.mutexId());
    }
}
BENCHMARK(BM_VfMutexConstruction);
