// What every logger in the road benchmarks writes: one status with one argument, from a member
// function of a framework class, so that each record carries time, file, line, thread, function
// and message.
#ifndef BENCHSITE_H
#define BENCHSITE_H

#include <QString>

#include <cstddef>

// Runs in the sandbox: /etc/tarvion is an empty tmpfs there.
constexpr const char* kBenchRoot = "/etc/tarvion/bench";
// Records per measured batch; the batch ends with the logger's flush, which for this library
// includes the sync() that puts flushed entries on the medium.
constexpr int kBatch = 10000;

// The argument of every record.
inline const QString& benchArgument()
{
    static const QString argument = QStringLiteral("/opt/tarvion/data/x");
    return argument;
}

// The function text the peers write, the one the library takes from the compiler at its site.
constexpr const char* kBenchFunction = "StatusCode Crosscutting::VfBenchSite::report(const QString&)";

// Points standard output or standard error at /dev/null while it lives.
class DevNullRedirect
{
public:
    explicit DevNullRedirect(int fd);
    ~DevNullRedirect();

private:
    int m_fd;
    int m_saved;
};

#endif // BENCHSITE_H
