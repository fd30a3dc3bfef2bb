// The peers of the report road: spdlog's synchronous file sink and glog, each writing records of
// the same fields as velmar.log (time, file, line, thread, function, message) with the same text,
// in batches of kBatch that end with the logger's own flush. Like velmar.log, each keeps its file
// under 1 MiB, so that the sandbox's small tmpfs holds every run: spdlog's rotating sink with one
// backup, glog's file emptied between batches (glog opens it for appending).
#include "benchsite.h"

#include <benchmark/benchmark.h>

#include <glog/logging.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <QDir>

#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// The filled message of the library's record, which a peer formats from the same argument.
constexpr const char* kSpdlogMessage =
    "[File not found, The file '{}' could not be found. Please ensure the file exists., CriticalError, Internal]";

const std::string& argumentText()
{
    static const std::string text = benchArgument().toStdString();
    return text;
}

std::shared_ptr<spdlog::logger> makeSpdlogLogger(const std::string& name, bool withStdout)
{
    std::vector<spdlog::sink_ptr> sinks;
    if (withStdout)
        sinks.push_back(std::make_shared<spdlog::sinks::stdout_sink_mt>());
    sinks.push_back(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        std::string(kBenchRoot) + "/" + name + ".log", 1048576, 1));
    auto logger = std::make_shared<spdlog::logger>(name, sinks.begin(), sinks.end());
    // The fields of a velmar.log record, in its order; the message carries the line end there.
    logger->set_pattern("[%m-%d-%y %I:%M:%S.%e %p, %s, %#, %t, %!] %v");
    return logger;
}

void spdlogBatches(benchmark::State& state, spdlog::logger& logger)
{
    const spdlog::source_loc site{__FILE__, __LINE__, kBenchFunction};
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i)
            logger.log(site, spdlog::level::info, kSpdlogMessage, argumentText());
        logger.flush();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

const std::string& glogDirectory()
{
    static const std::string directory = std::string(kBenchRoot) + "/glog";
    return directory;
}

void glogBatches(benchmark::State& state)
{
    static const bool initialised = [] {
        ::mkdir(glogDirectory().c_str(), 0755);
        FLAGS_log_dir = glogDirectory();
        google::InitGoogleLogging("vf_benchmarks");
        return true;
    }();
    (void)initialised;
    for (auto _ : state) {
        state.PauseTiming();
        const QDir directory(QString::fromStdString(glogDirectory()));
        for (const QString& name : directory.entryList(QDir::Files | QDir::NoSymLinks))
            ::truncate(QFile::encodeName(directory.filePath(name)).constData(), 0);
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i) {
            LOG(INFO) << kBenchFunction << " [File not found, The file '" << argumentText()
                      << "' could not be found. Please ensure the file exists., CriticalError, Internal]";
        }
        google::FlushLogFiles(google::GLOG_INFO);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

} // namespace

static void BM_Peer_Spdlog_File(benchmark::State& state)
{
    auto logger = makeSpdlogLogger("spdlog_file", false);
    spdlogBatches(state, *logger);
}
BENCHMARK(BM_Peer_Spdlog_File)->Unit(benchmark::kMillisecond);

static void BM_Peer_Spdlog_StdoutAndFile(benchmark::State& state)
{
    DevNullRedirect quiet(STDOUT_FILENO);
    auto logger = makeSpdlogLogger("spdlog_stdout_file", true);
    spdlogBatches(state, *logger);
}
BENCHMARK(BM_Peer_Spdlog_StdoutAndFile)->Unit(benchmark::kMillisecond);

static void BM_Peer_Glog_File(benchmark::State& state)
{
    FLAGS_alsologtostderr = false;
    glogBatches(state);
}
BENCHMARK(BM_Peer_Glog_File)->Unit(benchmark::kMillisecond);

// glog's own copy to the console goes to standard error.
static void BM_Peer_Glog_StderrAndFile(benchmark::State& state)
{
    DevNullRedirect quiet(STDERR_FILENO);
    FLAGS_alsologtostderr = true;
    glogBatches(state);
    FLAGS_alsologtostderr = false;
}
BENCHMARK(BM_Peer_Glog_StderrAndFile)->Unit(benchmark::kMillisecond);
