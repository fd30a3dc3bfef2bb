// Child program of tst_logroad: one run of an application that reports through the default log manager.
// Usage: vflogroadhelper TAG COUNT. Reports Unknown COUNT times with "TAG-i", flushes once, drops the
// service object, and prints "rotations <after the first flush> <in all>".
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vflogmanager.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

using namespace Crosscutting;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    const QString tag = QString::fromLocal8Bit(argv[1]);
    const int count = std::atoi(argv[2]);
    auto* manager = qobject_cast<VfLogManager*>(VfCrosscuttingManagerPlaceholder::instance()->logManager());
    if (!manager)
        return 3;
    manager->setLogDestination(StatusLog, LogFileDestination); // velmar.log only, no console
    int rotations = 0;
    for (VfAbstractLogWriter* writer : manager->getLogWritersByLog(StatusLog)) {
        if (auto* fileWriter = qobject_cast<VfFileWriter*>(writer))
            QObject::connect(fileWriter, &VfFileWriter::backupLogFileCreated, [&rotations] { ++rotations; });
    }
    for (int i = 0; i < count; ++i)
        REPORT_STATUS(VfStatusCodes::Unknown, QStringLiteral("%1-%2").arg(tag).arg(i));
    manager->forceFlushAllLogs();
    const int afterFirstFlush = rotations;
    VfCrosscuttingManagerPlaceholder::drop();
    std::printf("rotations %d %d\n", afterFirstFlush, rotations);
    return 0;
}
