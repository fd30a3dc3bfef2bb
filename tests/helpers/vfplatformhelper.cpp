// Child program for tst_vfplatforminfo: what depends on where the executable lies is
// observed from a separate process.
//   vfplatformhelper root               prints rootApplicationPath()
//   vfplatformhelper root-create-demo   prints it, creates a "demo" beside the executable's
//                                       directory, prints it again from the same object and
//                                       from a new one
#include "vfplatforminfo.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

using namespace Crosscutting;

namespace {

void printLine(const QString& line)
{
    std::printf("%s\n", line.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    const QString mode = arguments.value(1);

    if (mode == QLatin1String("root")) {
        printLine(VfPlatformInfo().rootApplicationPath());
        return 0;
    }
    if (mode == QLatin1String("root-create-demo")) {
        const VfPlatformInfo info;
        printLine(info.rootApplicationPath());
        if (!QDir(QCoreApplication::applicationDirPath() + QLatin1String("/..")).mkdir(QStringLiteral("demo")))
            return 2;
        printLine(info.rootApplicationPath());
        printLine(VfPlatformInfo().rootApplicationPath());
        return 0;
    }
    return 1;
}
