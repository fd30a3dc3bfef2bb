// A source file whose name begins with "q": Part 4.7 gives its messages the label of their type.
#include <QDebug>

void qBridgeEmit(int type)
{
    switch (type) {
    case 0: qDebug("from q file"); break;
    case 1: qWarning("from q file"); break;
    case 2: qCritical("from q file"); break;
    case 4: qInfo("from q file"); break;
    }
}
