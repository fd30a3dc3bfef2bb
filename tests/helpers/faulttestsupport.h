#ifndef FAULTTESTSUPPORT_H
#define FAULTTESTSUPPORT_H

// Running the crash child and the demangling tool, and finding the "MARK:" lines of the child's source.
#include <QFile>
#include <QFileInfo>
#include <QProcess>

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

// pathPrefix, when given, goes first on the child's PATH, or is the whole PATH with replacePath.
inline Run run(const QString& program, const QStringList& arguments, const QString& pathPrefix = QString(),
               bool replacePath = false)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString path = environment.value(QStringLiteral("PATH"));
    if (!pathPrefix.isEmpty())
        environment.insert(QStringLiteral("PATH"), replacePath || path.isEmpty() ? pathPrefix : pathPrefix + ':' + path);
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
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The lines of a text, without the empty one after its last line end.
inline QList<QByteArray> lines(const QByteArray& text)
{
    QList<QByteArray> result = text.split('\n');
    if (result.last().isEmpty())
        result.removeLast();
    return result;
}

// The 1-based line of the child's source that ends in "// MARK:<name>", or 0.
inline int markLine(const char* name)
{
    const QList<QByteArray> source = lines(readAll(QStringLiteral(FAULT_HELPER_SOURCE)));
    for (int i = 0; i < source.size(); ++i)
        if (source.at(i).trimmed().endsWith(QByteArray("// MARK:") + name))
            return i + 1;
    return 0;
}

inline QByteArray markPlace(const char* name)
{
    return "faulthelper.cpp:" + QByteArray::number(markLine(name));
}

inline QString toolDirectory()
{
    return QFileInfo(QStringLiteral(DEMANGLE_BACKTRACE)).absolutePath();
}

// The first of lines that holds every one of needles, or an empty array.
inline QByteArray lineWith(const QList<QByteArray>& lines, const QList<QByteArray>& needles)
{
    for (const QByteArray& line : lines)
        if (std::all_of(needles.begin(), needles.end(), [&line](const QByteArray& n) { return line.contains(n); }))
            return line;
    return QByteArray();
}

} // namespace FaultTest

#endif // FAULTTESTSUPPORT_H
