#ifndef VFTESTSUPPORT_H
#define VFTESTSUPPORT_H

#include <QDir>
#include <QFile>
#include <QFileInfo>

// Small helpers shared by the test programs (tests/README.md).
namespace VfTest {

// True when the program runs inside tests/sandbox-run, with tmpfs over the fixed roots.
inline bool isSandboxed()
{
    return qEnvironmentVariableIsSet("VF_SANDBOXED");
}

// Writes `content` to `path`, making its directory first.
inline bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// What `path` holds, or "<missing>" when it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Writes an executable shell script named `name` into `directory` and returns its path. Tests put
// such fakes first on PATH with prependToPath.
inline QString writeFakeProgram(const QString& directory, const QString& name, const QString& script)
{
    const QString path = QDir(directory).absoluteFilePath(name);
    const bool made = writeFile(path, "#!/bin/sh\n" + script.toLocal8Bit())
                      && QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    return made ? path : QString();
}

// Puts `directory` first on PATH of this process (and so of its children).
inline void prependToPath(const QString& directory)
{
    qputenv("PATH", QFile::encodeName(directory) + ':' + qgetenv("PATH"));
}

} // namespace VfTest

#endif // VFTESTSUPPORT_H
