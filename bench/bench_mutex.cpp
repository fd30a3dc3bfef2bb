// The lock paths against bare Qt mutexes: a timed tryLock, two empty hooks and one
// QThread::currentThreadId() are all that VfMutexLocker may add.
#include "vfmutex.h"
#include "vfmutexlocker.h"
#include "vfrecursivemutex.h"

#include <QMutex>
#include <QMutexLocker>
#include <QRecursiveMutex>

#include <benchmark/benchmark.h>

using namespace Crosscutting;

static void BM_Peer_QMutexLocker(benchmark::State& state)
{
    QMutex mutex;
    for (auto _ : state) {
        QMutexLocker locker(&mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Peer_QMutexLocker);

static void BM_Vf_MutexLocker(benchmark::State& state)
{
    VfMutex mutex(120000);
    for (auto _ : state) {
        VfMutexLocker<VfMutex> locker(mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Vf_MutexLocker);

static void BM_Peer_QRecursiveMutexLocker(benchmark::State& state)
{
    QRecursiveMutex mutex;
    for (auto _ : state) {
        QMutexLocker locker(&mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Peer_QRecursiveMutexLocker);

static void BM_Vf_RecursiveMutexLocker(benchmark::State& state)
{
    VfRecursiveMutex mutex(120000);
    for (auto _ : state) {
        VfMutexLocker<VfRecursiveMutex> locker(mutex);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Vf_RecursiveMutexLocker);

static void BM_Vf_MutexConstruction(benchmark::State& state)
{
    for (auto _ : state) {
        VfMutex mutex(120000);
        benchmark::DoNotOptimize(mutex.mutexId());
    }
}
BENCHMARK(BM_Vf_MutexConstruction);
