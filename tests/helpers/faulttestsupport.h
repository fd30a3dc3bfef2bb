#ifndef FAULTTESTSUPPORT_H
#define FAULTTESTSUPPORT_H

// Shared by the fault-handling tests: running the helper program and the tool, and finding the
// "MARK:" lines of the helper's source (tests/helpers/faulthelper.cpp).

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace FaultTest {

struct Run
{
    bool started = false;
    bool finished = false;
    QProcess::ExitStatus exitStatus = QProcess::NormalExit;
    int exitCode = -1; // the signal number when exitStatus is CrashExit
    QByteArray out;
    QByteArray err;
};

// Runs program with arguments; pathPrefix, when given, goes first on the child's PATH, and
// replacePath, when true, makes it the whole PATH.
inline Run run(const QString& program, const QStringList& arguments, const QString& pathPrefix = QString(),
               bool replacePath = false)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!pathPrefix.isEmpty()) {
        const QString path = environment.value(QStringLiteral("PATH"));
        environment.insert(QStringLiteral("PATH"),
                           replacePath || path.isEmpty() ? pathPrefix : pathPrefix + QLatin1Char(':') + path);
    }
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    Run result;
    result.started = process.waitForStarted(30000);
    result.finished = result.started && process.waitForFinished(120000);
    result.exitStatus = process.exitStatus();
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

inline QByteArray readAll(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

// The 1-based line of the helper source that carries "// MARK:<name>" at its end, or 0.
inline int markLine(const char* name)
{
    const QList<QByteArray> lines = readAll(QStringLiteral(FAULT_HELPER_SOURCE)).split('\n');
    const QByteArray mark = QByteArray("// MARK:") + name;
    for (int i = 0; i < lines.size(); ++i) {
        if (lines.at(i).trimmed().endsWith(mark))
            return i + 1;
    }
    return 0;
}

// "faulthelper.cpp:<line>" of a mark, as addr2line prints the place.
inline QByteArray markPlace(const char* name)
{
    return "faulthelper.cpp:" + QByteArray::number(markLine(name));
}

inline QString toolDirectory()
{
    return QFileInfo(QStringLiteral(DEMANGLE_BACKTRACE)).absolutePath();
}

// The numbered frame lines of demangle_backtrace's output, or of a raw file.
inline QList<QByteArray> lines(const QByteArray& text)
{
    QList<QByteArray> result = text.split('\n');
    if (!result.isEmpty() && result.last().isEmpty())
        result.removeLast();
    return result;
}

// The first line of lines that contains every one of needles, or an empty array.
inline QByteArray lineWith(const QList<QByteArray>& lines, const QList<QByteArray>& needles)
{
    for (const QByteArray& line : lines) {
        bool all = true;
        for (const QByteArray& needle : needles)
            all = all && line.contains(needle);
        if (all)
            return line;
    }
    return QByteArray();
}

} // namespace FaultTest

#endif // FAULTTESTSUPPORT_H
