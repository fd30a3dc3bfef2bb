#include "benchsite.h"

#include <QCoreApplication>
#include <QDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

DevNullRedirect::DevNullRedirect(int fd)
    : m_fd(fd)
    , m_saved(::dup(fd))
{
    std::fflush(stdout);
    std::fflush(stderr);
    const int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, fd);
    ::close(devNull);
}

DevNullRedirect::~DevNullRedirect()
{
    std::fflush(stdout);
    std::fflush(stderr);
    ::dup2(m_saved, m_fd);
    ::close(m_saved);
}

// A QCoreApplication exists, as in the instrument, for the services that need one.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QDir().mkpath(QString::fromLatin1(kBenchRoot));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
