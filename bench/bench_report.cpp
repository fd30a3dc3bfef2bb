// The report road: instance() under s_mutex, a context from the compiler's literals, the lookup,
// the filled record, the emitted event, the log entry, and the writers: standard output at once,
// velmar.log at its flush. Run with TZ unset, as on the instrument.
#include "benchsite.h"

#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vflogentry.h"
#include "vfsourcecontext.h"

#include <QDir>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <string_view>
#include <unistd.h>

namespace Crosscutting {

// A reporting site in a framework class, as the library's own sites are.
class VfBenchSite
{
public:
    StatusCode report(const QString& path);
};

StatusCode VfBenchSite::report(const QString& path)
{
    return REPORT_STATUS(VfStatusCodes::FileNotFound, path);
}

} // namespace Crosscutting

using namespace Crosscutting;

namespace {

// Routes the status log for the life of the object, and empties the queues on both ends.
class StatusLogRoute
{
public:
    explicit StatusLogRoute(unsigned int destinations)
        : m_manager(VfCrosscuttingManagerPlaceholder::instance()->logManager())
    {
        m_manager->setLogDestination(StatusLog, destinations);
        m_manager->forceFlushAllLogs();
    }
    ~StatusLogRoute()
    {
        m_manager->forceFlushAllLogs();
        m_manager->setLogDestination(StatusLog, StdOutDestination | LogFileDestination);
    }
    VfAbstractLogManager* manager() const { return m_manager; }

private:
    VfAbstractLogManager* m_manager;
};

void reportBatches(benchmark::State& state, VfAbstractLogManager* manager)
{
    VfBenchSite site;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i)
            benchmark::DoNotOptimize(site.report(benchArgument()));
        manager->forceFlushLog(StatusLog);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

} // namespace

// REPORT_STATUS into velmar.log alone, its flush included.
static void BM_Vf_Report_VelmarLog(benchmark::State& state)
{
    StatusLogRoute route(LogFileDestination);
    reportBatches(state, route.manager());
}
BENCHMARK(BM_Vf_Report_VelmarLog)->Unit(benchmark::kMillisecond);

// The default road: standard output (to /dev/null) at once, and velmar.log with its flush.
static void BM_Vf_Report_StdoutAndVelmarLog(benchmark::State& state)
{
    DevNullRedirect quiet(STDOUT_FILENO);
    StatusLogRoute route(StdOutDestination | LogFileDestination);
    reportBatches(state, route.manager());
}
BENCHMARK(BM_Vf_Report_StdoutAndVelmarLog)->Unit(benchmark::kMillisecond);

// What the heap holds for each entry that waits in velmar.log's queue for the flush.
static void BM_Vf_HeapPerQueuedEntry(benchmark::State& state)
{
    StatusLogRoute route(LogFileDestination);
    VfBenchSite site;
    double bytesPerEntry = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        for (int i = 0; i < kBatch; ++i)
            benchmark::DoNotOptimize(site.report(benchArgument()));
        const size_t after = mallinfo2().uordblks;
        bytesPerEntry = double(after - before) / kBatch;
        state.PauseTiming();
        route.manager()->forceFlushLog(StatusLog);
        state.ResumeTiming();
    }
    state.counters["heap_B_per_entry"] = bytesPerEntry;
}
BENCHMARK(BM_Vf_HeapPerQueuedEntry)->Iterations(3)->Unit(benchmark::kMillisecond);

static void BM_Vf_CreateSourceContext(benchmark::State& state)
{
    const QString file = QStringLiteral("vfbench.cpp");
    const QString signature = QString::fromLatin1(kBenchFunction);
    const QStringList arguments{benchArgument()};
    for (auto _ : state) {
        VfSourceContext* context = &createSourceContext(QString(), file, 42, signature, arguments);
        benchmark::DoNotOptimize(context);
        delete context;
    }
}
BENCHMARK(BM_Vf_CreateSourceContext);

// The floor for taking a signature apart: return type, namespace, class and function by hand.
static void BM_Peer_StringViewSignatureParse(benchmark::State& state)
{
    for (auto _ : state) {
        std::string_view signature(kBenchFunction);
        benchmark::DoNotOptimize(signature);
        const size_t open = signature.find('(');
        const size_t blank = signature.rfind(' ', open);
        std::string_view returnType = signature.substr(0, blank);
        std::string_view name = signature.substr(blank + 1, open - blank - 1);
        const size_t last = name.rfind("::");
        std::string_view function = name.substr(last + 2);
        std::string_view qualifier = name.substr(0, last);
        const size_t middle = qualifier.rfind("::");
        std::string_view sourceClass = qualifier.substr(middle + 2);
        std::string_view sourceNamespace = qualifier.substr(0, middle);
        benchmark::DoNotOptimize(returnType);
        benchmark::DoNotOptimize(function);
        benchmark::DoNotOptimize(sourceClass);
        benchmark::DoNotOptimize(sourceNamespace);
    }
}
BENCHMARK(BM_Peer_StringViewSignatureParse);

static void BM_Vf_Instance(benchmark::State& state)
{
    VfCrosscuttingManagerPlaceholder::instance();
    for (auto _ : state)
        benchmark::DoNotOptimize(VfCrosscuttingManagerPlaceholder::instance());
}
BENCHMARK(BM_Vf_Instance);

// The context text of one velmar.log record, which the file writer makes at its flush.
static void BM_Vf_LongFormText(benchmark::State& state)
{
    QSharedPointer<VfSourceContext> context(&createSourceContext(QString(), QStringLiteral("vfbench.cpp"), 42,
                                                                 QString::fromLatin1(kBenchFunction), {benchArgument()}));
    for (auto _ : state)
        benchmark::DoNotOptimize(context->toString(VfSourceContext::SingleLineLongForm));
}
BENCHMARK(BM_Vf_LongFormText);

// What a logging thread pays in a file writer: the lock and an append to the queue.
static void BM_Vf_FileWriterWriteToLog(benchmark::State& state)
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
BENCHMARK(BM_Vf_FileWriterWriteToLog);
