// A source file whose name begins with "vf": Part 4.7 gives its messages the framework's module.
#include <QDebug>

void vfBridgeEmit(int type)
{
    switch (type) {
    case 0: qDebug("from vf file"); break;
    case 1: qWarning("from vf file"); break;
    case 2: qCritical("from vf file"); break;
    case 4: qInfo("from vf file"); break;
    }
}
