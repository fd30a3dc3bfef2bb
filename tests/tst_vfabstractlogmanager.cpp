#include "vfabstractlogmanager.h"

#include <QtTest>

using namespace Crosscutting;

class tst_VfAbstractLogManager : public QObject
{
    Q_OBJECT
private slots:
    void enumerations_data();
    void enumerations();
    void slotsAndSignal_data();
    void slotsAndSignal();
};

void tst_VfAbstractLogManager::enumerations_data()
{
    QTest::addColumn<int>("actual");
    QTest::addColumn<int>("expected");
    QTest::newRow("StatusLog") << int(StatusLog) << 0;
    QTest::newRow("DebugLog") << int(DebugLog) << 1;
    QTest::newRow("EventLog") << int(EventLog) << 2;
    QTest::newRow("StdOutDestination") << int(StdOutDestination) << 1;
    QTest::newRow("LogFileDestination") << int(LogFileDestination) << 2;
    QTest::newRow("ReservedDestination") << int(ReservedDestination) << 4;
    QTest::newRow("EventFileDestination") << int(EventFileDestination) << 8;
    QTest::newRow("QtSource") << int(QtSource) << 0;
    QTest::newRow("FrameworkSource") << int(FrameworkSource) << 1;
    QTest::newRow("FrameworkDebugSource") << int(FrameworkDebugSource) << 2;
    QTest::newRow("ApplicationSource") << int(ApplicationSource) << 3;
    QTest::newRow("ApplicationDebugSource") << int(ApplicationDebugSource) << 4;
}

void tst_VfAbstractLogManager::enumerations()
{
    QFETCH(int, actual);
    QFETCH(int, expected);
    QCOMPARE(actual, expected);
}

void tst_VfAbstractLogManager::slotsAndSignal_data()
{
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<int>("type");
    QTest::newRow("logStatusChange") << QByteArray("logStatusChange(Crosscutting::VfStatusChangeEvent)") << int(QMetaMethod::Slot);
    QTest::newRow("addLogEntry")
        << QByteArray("addLogEntry(QSharedPointer<Crosscutting::VfSourceContext>,Crosscutting::VfStaticStatusInfo::VfStatusSeverity,QString,Crosscutting::VfLogType)")
        << int(QMetaMethod::Slot);
    QTest::newRow("forceFlushLog") << QByteArray("forceFlushLog(Crosscutting::VfLogType)") << int(QMetaMethod::Slot);
    QTest::newRow("forceFlushAllLogs") << QByteArray("forceFlushAllLogs()") << int(QMetaMethod::Slot);
    QTest::newRow("newLogEntryOccurred")
        << QByteArray("newLogEntryOccurred(QSharedPointer<Crosscutting::VfSourceContext>,QString,Crosscutting::VfStaticStatusInfo::VfStatusSeverity,Crosscutting::VfLogType)")
        << int(QMetaMethod::Signal);
}

void tst_VfAbstractLogManager::slotsAndSignal()
{
    QFETCH(QByteArray, signature);
    QFETCH(int, type);
    const QMetaObject& mo = VfAbstractLogManager::staticMetaObject;
    const int index = mo.indexOfMethod(QMetaObject::normalizedSignature(signature));
    QVERIFY2(index >= 0, signature);
    QCOMPARE(int(mo.method(index).methodType()), type);
}

QTEST_GUILESS_MAIN(tst_VfAbstractLogManager)
#include "tst_vfabstractlogmanager.moc"
