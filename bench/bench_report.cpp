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
