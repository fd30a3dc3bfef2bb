// Child program for tst_vfplatforminfo and tst_vfstorageinfo: what depends on where the
// executable lies, or on the user the process runs as, is observed from a separate process.
//   vfplatformhelper root               prints rootApplicationPath()
//   vfplatformhelper root-create-demo   prints it, creates a "demo" beside the executable's
//                                       directory, prints it again from the same object and
//                                       from a new one
//   vfplatformhelper volumes-as-nobody  drops to the user nobody, prints "uid N", then one
//                                       "alias<TAB>root" line per mounted volume
#include "vfplatforminfo.h"
#include "vfstorageinfo.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <grp.h>
#include <unistd.h>

using namespace Crosscutting;

namespace {

void printLine(const QString& line)
{
    std::printf("%s\n", line.toLocal8Bit().constData());
}

const uid_t s_nobody = 65534;

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
    if (mode == QLatin1String("volumes-as-nobody")) {
        if (setgroups(0, nullptr) != 0 || setgid(s_nobody) != 0 || setuid(s_nobody) != 0)
            return 3;
        printLine(QStringLiteral("uid %1").arg(geteuid()));
        const QList<VfStorageInfo> volumes = VfStorageInfo::mountedVolumes();
        for (const VfStorageInfo& volume : volumes)
            printLine(volume.aliasName() + QLatin1Char('\t') + volume.rootPath());
        return 0;
    }
    return 1;
}
