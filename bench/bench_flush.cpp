// One flush of 100,000 queued entries into a velmar.log-like file, beside spdlog's synchronous
// basic_file_sink formatting and writing records of the same fields (time, file, line, thread,
// function, message) and the same text. Bytes per second of the file each one writes; the files
// live in the sandbox's tmpfs and are emptied between iterations, outside the timing.
#include "vffilewriter.h"
#include "vflogentry.h"
#include "vfsourcecontext.h"

#include <benchmark/benchmark.h>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Crosscutting;

namespace {

const int kFlushEntries = 100000;
const char* const kFlushDirectory = "/etc/tarvion/benchflush";
const char* const kFunction = "StatusCode Crosscutting::VfBenchSite::report(const QString&)";
const char* const kArgument = "/opt/tarvion/data/x";
// The filled status text of one record, with the line end that the library's messages carry.
const char* const kMessage =
    "[File not found, The file '/opt/tarvion/data/x' could not be found. Please ensure the file exists., "
    "CriticalError, Internal]\n";

} // namespace

static void BM_Flush_FileWriter(benchmark::State& state)
{
    QDir().mkpath(QString::fromLatin1(kFlushDirectory));
    // Size limited as velmar.log is, with a limit that this flush does not reach.
    VfFileWriter writer(QDir(QString::fromLatin1(kFlushDirectory)), QStringLiteral("flush.log"),
                        VfDisplayable::SingleLineLongForm, true, 1ULL << 40, QSharedPointer<VfErrorRateHandler>(),
                        nullptr);
    // Contexts made at the site, as REPORT_STATUS makes them; a thousand, shared by the queued entries.
    std::vector<QSharedPointer<const VfLogEntry>> entries;
    for (int i = 0; i < 1000; ++i) {
        QSharedPointer<VfSourceContext> context(&createSourceContext(QString(), QStringLiteral("vfbenchsite.cpp"),
                                                                     42, QString::fromLatin1(kFunction),
                                                                     {QString::fromLatin1(kArgument)}));
        entries.emplace_back(new VfLogEntry(context, VfStaticStatusInfo::VfStatusSeverity::CriticalError,
                                            QString::fromLatin1(kMessage)));
    }
    const QString path = QString::fromLatin1(kFlushDirectory) + QStringLiteral("/flush.log");
    qint64 bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        writer.clearLog();
        for (int i = 0; i < kFlushEntries; ++i)
            writer.writeToLog(entries[static_cast<size_t>(i) % entries.size()]);
        state.ResumeTiming();
        writer.flush();
        state.PauseTiming();
        bytes += QFileInfo(path).size();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(bytes);
    writer.clearLog();
}
BENCHMARK(BM_Flush_FileWriter)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_Flush_Peer_SpdlogBasicFileSink(benchmark::State& state)
{
    QDir().mkpath(QString::fromLatin1(kFlushDirectory));
    const std::string path = std::string(kFlushDirectory) + "/spdlog.log";
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    spdlog::logger logger("flush", sink);
    // The fields of a velmar.log record, in its order; spdlog adds the line end that the library's message carries.
    logger.set_pattern("[%m-%d-%y %I:%M:%S.%e %p, %s, %#, %t, %!] %v");
    const spdlog::source_loc site{"vfbenchsite.cpp", 42, kFunction};
    const char* const format =
        "[File not found, The file '{}' could not be found. Please ensure the file exists., CriticalError, Internal]";
    qint64 bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        ::truncate(path.c_str(), 0);
        state.ResumeTiming();
        for (int i = 0; i < kFlushEntries; ++i)
            logger.log(site, spdlog::level::info, format, kArgument);
        logger.flush();
        state.PauseTiming();
        bytes += QFileInfo(QString::fromStdString(path)).size();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(bytes);
    ::truncate(path.c_str(), 0);
}
BENCHMARK(BM_Flush_Peer_SpdlogBasicFileSink)->Unit(benchmark::kMillisecond)->UseRealTime();
