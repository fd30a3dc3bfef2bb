// Child of tst_logmessagehandler: installs the bridge and calls qFatal (Part 4.7).
#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(Crosscutting::logMessageHandler);
    qDebug("before the fatal message");
    qFatal("fatal message for the test");
    return 0; // not reached: the handler aborts
}
