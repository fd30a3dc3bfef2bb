#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfplatforminfo.h"
#include "vfstatusreporter.h"
#include "vfunixsignalhandler.h"

#include <QtTest>

#include <csignal>

using namespace Crosscutting;

class tst_VfCrosscuttingManagerPlaceholder : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void instanceIsCreatedOnce();
    void accessorsGiveTheServices();
    void dropWithoutInstance();
    void dropThenInstanceStartsAfresh();
    void instanceFromManyThreadsCreatesOne();
    void crashHandlerInstalledForThreeSignals();
};

void tst_VfCrosscuttingManagerPlaceholder::initTestCase()
{
    qRegisterMetaType<VfStatusChangeEvent>();
}

void tst_VfCrosscuttingManagerPlaceholder::cleanup()
{
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_VfCrosscuttingManagerPlaceholder::instanceIsCreatedOnce()
{
    VfCrosscuttingManagerPlaceholder* first = VfCrosscuttingManagerPlaceholder::instance();
    QVERIFY(first);
    QCOMPARE(VfCrosscuttingManagerPlaceholder::instance(), first);
}

void tst_VfCrosscuttingManagerPlaceholder::accessorsGiveTheServices()
{
    auto* manager = VfCrosscuttingManagerPlaceholder::instance();
    QVERIFY(qobject_cast<VfStatusReporter*>(manager->statusReporter()));
    QVERIFY(manager->platformInfo());
    // No service has a parent (Part 1.1).
    QVERIFY(!manager->statusReporter()->parent());
    QVERIFY(!manager->platformInfo()->parent());
}

void tst_VfCrosscuttingManagerPlaceholder::dropWithoutInstance()
{
    VfCrosscuttingManagerPlaceholder::drop();
    VfCrosscuttingManagerPlaceholder::drop();
    QVERIFY(VfCrosscuttingManagerPlaceholder::instance());
}

void tst_VfCrosscuttingManagerPlaceholder::dropThenInstanceStartsAfresh()
{
    QPointer<VfAbstractStatusReporter> oldReporter = VfCrosscuttingManagerPlaceholder::instance()->statusReporter();
    VfCrosscuttingManagerPlaceholder::drop();
    QVERIFY(oldReporter.isNull()); // deleted with the instance

    StatusEventRecorder recorder;
    recorder.attach();
    VfAbstractStatusReporter* fresh = VfCrosscuttingManagerPlaceholder::instance()->statusReporter();
    QVERIFY(fresh);
    // A freshly loaded catalogue: a known code fills its text, an unknown one nests through 61.
    QCOMPARE(REPORT_STATUS(VfStatusCodes::DirectoryNotFound, QStringLiteral("/x")), StatusCode(23));
    QCOMPARE(REPORT_STATUS(500), StatusCode(500));
    QCOMPARE(recorder.codes(), (QList<StatusCode>{23, 61}));
    QCOMPARE(recorder.descriptions().first(), QString("The /x directory was not found"));
}

void tst_VfCrosscuttingManagerPlaceholder::instanceFromManyThreadsCreatesOne()
{
    VfCrosscuttingManagerPlaceholder::drop();
    constexpr int threadCount = 8;
    QVector<VfCrosscuttingManagerPlaceholder*> seen(threadCount, nullptr);
    QVector<VfAbstractStatusReporter*> reporters(threadCount, nullptr);
    QSemaphore ready, go;
    QList<QThread*> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.append(QThread::create([&, i] {
            ready.release();
            go.acquire();
            seen[i] = VfCrosscuttingManagerPlaceholder::instance();
            reporters[i] = seen[i]->statusReporter();
        }));
        threads.last()->start();
    }
    ready.acquire(threadCount);
    go.release(threadCount);
    for (QThread* t : threads) {
        QVERIFY(t->wait(30000));
        delete t;
    }
    for (int i = 1; i < threadCount; ++i) {
        QCOMPARE(seen[i], seen[0]);
        QCOMPARE(reporters[i], reporters[0]);
    }
    QCOMPARE(VfCrosscuttingManagerPlaceholder::instance(), seen[0]);
}

void tst_VfCrosscuttingManagerPlaceholder::crashHandlerInstalledForThreeSignals()
{
    struct sigaction before[4];
    const int signals_[4] = {SIGILL, SIGHUP, SIGFPE, SIGSEGV};
    for (int i = 0; i < 4; ++i)
        sigaction(signals_[i], nullptr, &before[i]);

    VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();

    auto expected = reinterpret_cast<void (*)(int)>(reinterpret_cast<void (*)()>(&linuxGeneralSignalHandler));
    for (int i = 0; i < 3; ++i) {
        struct sigaction now;
        sigaction(signals_[i], nullptr, &now);
        QVERIFY(now.sa_handler == expected);
        QCOMPARE(now.sa_flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_RESETHAND), 0);
    }
    struct sigaction segv;
    sigaction(SIGSEGV, nullptr, &segv);
    QVERIFY(segv.sa_handler == before[3].sa_handler); // SIGSEGV is not touched
    for (int i = 0; i < 4; ++i)
        sigaction(signals_[i], &before[i], nullptr);
}

QTEST_GUILESS_MAIN(tst_VfCrosscuttingManagerPlaceholder)
#include "tst_vfcrosscuttingmanagerplaceholder.moc"
