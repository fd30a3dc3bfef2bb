// The report road of Part 2.3: instance() under s_mutex, a context from the compiler's literals
// (one precompiled expression, Part 3.1), the lookup, the filled record and the emitted event.
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfsourcecontext.h"

#include <benchmark/benchmark.h>

using namespace Crosscutting;

static void BM_CreateSourceContext(benchmark::State& state)
{
    for (auto _ : state) {
        VfSourceContext* context = &createSourceContext(
            QString(), QStringLiteral("vfbench.cpp"), 42,
            QStringLiteral("virtual StatusCode Crosscutting::VfStatusReporter::reportStatus(StatusCode, Crosscutting::VfSourceContext&)"),
            {QStringLiteral("argument")});
        benchmark::DoNotOptimize(context);
        delete context;
    }
}
BENCHMARK(BM_CreateSourceContext);

static void BM_Instance(benchmark::State& state)
{
    VfCrosscuttingManagerPlaceholder::instance();
    for (auto _ : state)
        benchmark::DoNotOptimize(VfCrosscuttingManagerPlaceholder::instance());
}
BENCHMARK(BM_Instance);

static void BM_ShortFormText(benchmark::State& state)
{
    VfSourceContext context(QStringLiteral("Velmar Framework"), QStringLiteral("vfbench.cpp"), QStringLiteral("Crosscutting"),
                            QStringLiteral("VfBench"), QStringLiteral("void run()"), 42, QString(), {});
    for (auto _ : state)
        benchmark::DoNotOptimize(context.toString(VfSourceContext::ShortForm));
}
BENCHMARK(BM_ShortFormText);

#include "vfabstractlogmanager.h"
#include "vffilewriter.h"
#include "vflogentry.h"

#include <QDir>
#include <QTemporaryDir>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

// The whole road of one report with the default logs: standard output prints at once (sent to
// /dev/null here), velmar.log only queues. The flush is outside the measured loop.
static void BM_ReportStatusRoad(benchmark::State& state)
{
    std::fflush(stdout);
    const int savedStdout = ::dup(STDOUT_FILENO);
    const int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, STDOUT_FILENO);
    for (auto _ : state)
        benchmark::DoNotOptimize(REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("/opt/tarvion/data/x")));
    VfCrosscuttingManagerPlaceholder::instance()->logManager()->forceFlushAllLogs();
    std::fflush(stdout);
    ::dup2(savedStdout, STDOUT_FILENO);
    ::close(savedStdout);
    ::close(devNull);
}
BENCHMARK(BM_ReportStatusRoad);

// What a logging thread pays in a file writer: the lock and an append to the queue (Part 4.4).
static void BM_FileWriterWriteToLog(benchmark::State& state)
{
    QTemporaryDir dir;
    VfFileWriter writer(QDir(dir.path()), QStringLiteral("bench.log"), VfDisplayable::SingleLineLongForm, true, 1048576,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSharedPointer<VfSourceContext> context(&createSourceContext(
        QString(), QStringLiteral("vfbench.cpp"), 42, QStringLiteral("void Crosscutting::VfBench::run()"), {}));
    QSharedPointer<const VfLogEntry> entry(
        new VfLogEntry(context, VfStaticStatusInfo::VfStatusSeverity::Notification, QStringLiteral("benchmark entry\n")));
    int n = 0;
    for (auto _ : state) {
        writer.writeToLog(entry);
        if (++n == 10000) { // keep the queue bounded, outside the timing
            state.PauseTiming();
            writer.flush();
            n = 0;
            state.ResumeTiming();
        }
    }
}
BENCHMARK(BM_FileWriterWriteToLog);
