#include "vftestsupport.h"

#include <QDir>
#include <QFile>

namespace VfTest {

bool isSandboxed()
{
    return qEnvironmentVariableIsSet("VF_SANDBOXED");
}

QString writeFakeProgram(const QString& directory, const QString& name, const QString& script)
{
    QDir().mkpath(directory);
    const QString path = QDir(directory).absoluteFilePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    file.write("#!/bin/sh\n");
    file.write(script.toLocal8Bit());
    file.close();
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                        | QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther
                        | QFileDevice::ExeOther);
    return path;
}

void prependToPath(const QString& directory)
{
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(directory) + (path.isEmpty() ? QByteArray() : ":" + path));
}

} // namespace VfTest
