#include "vfplatforminfo.h"
#include "vfstorageinfo.h"
#include "vftestsupport.h"
#include "vftimer.h"

#include <QtTest>
#include <sys/mount.h>

using namespace Crosscutting;

class tst_Platform : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    const QByteArray m_path = qgetenv("PATH");
    void fakeDf(const QString& output)
    {
        VfTest::writeFakeProgram(m_dir.path(), "df", output);
        VfTest::prependToPath(m_dir.path());
    }
private slots:
    void cleanup()
    {
        qputenv("PATH", m_path);
    }
    void paths()
    {
        const VfPlatformInfo info;
        const QStringList found{VfPlatformInfo::applicationSettingsPath("SPA"),
                                info.applicationConfigurationFilePath("MiXed").remove(info.rootApplicationPath()),
                                info.applicationRequiredFiles("SPA", false, VfPlatformInfo::FrontendFiles).value(0)};
        QCOMPARE(found, QStringList({"/etc/tarvion/settings/spasettings/", "mixed/mixed_configuration.qml", "lib/libSpaProxy.so"}));
        qputenv("LD_LIBRARY_PATH", "/usr/lib::/opt/x:/opt/x");
        QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), QStringList({"/usr/lib", "", "/opt/x", "/lib"}));
        // A sibling whose name starts with the root's passes: instruments rely on the bare prefix test.
        const VfStorageInfo stick("/media/usb/stick/", "stick");
        QCOMPARE(QStringList({stick.resolvePath("a/../b"), stick.resolvePath("../stick2/x"), stick.resolvePath("../other") + "<null>"}),
                 QStringList({"/media/usb/stick/b", "/media/usb/stick2/x", "<null>"}));
    }
    void readOnlyVolume()
    {
        if (!VfTest::isSandboxed())
            QSKIP("mounts a tmpfs under /media/usb: run through tests/sandbox-run");
        QVERIFY(QDir().mkpath("/media/usb/ro") && mount("ro", "/media/usb/ro", "tmpfs", MS_RDONLY, nullptr) == 0);
        // Left mounted: the sandbox's mount namespace ends with this program.
        QVERIFY(VfStorageInfo("/media/usb/ro", "ro").isReadOnly() && !VfStorageInfo("/media/usb", "usb").isReadOnly());
    }
    void dfOutput_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("sizes"); // device, total, free
        QTest::newRow("six columns, size column unused") << "echo h; echo '/dev/sda1 1000 200 700 23% /m'" << "/dev/sda1 921600 716800";
        QTest::newRow("crashes after printing") << "echo h; echo 'd 1 4 5 1% /m'; kill -SEGV $$" << "d 9216 5120";
        QTest::newRow("overflow saturates") << "echo h; echo 'd 0 9223372036854775807 1 1% /m'" << "d 9223372036854775807 1024";
    }
    void dfOutput()
    {
        QFETCH(QString, output);
        fakeDf(output);
        const VfStorageInfo volume("/mnt/usrroot", "Internal");
        QTEST(QStringLiteral("%1 %2 %3").arg(volume.device()).arg(volume.bytesTotal()).arg(volume.bytesFree()), "sizes");
    }
    void dfThatHangsOrCannotStartKeepsValues()
    {
        fakeDf("echo h; echo 'seed 10 1 2 3% /m'; [ -e " + m_dir.filePath("hang") + " ] && exec sleep 60");
        const VfStorageInfo volume("/mnt/usrroot", "Internal");
        QCOMPARE(volume.device(), QStringLiteral("seed"));
        QFile(m_dir.filePath("hang")).open(QIODevice::WriteOnly);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(volume.bytesFree(), qint64(2048));
        QVERIFY2(clock.elapsed() >= 9000, "df is given ten seconds");
        qputenv("PATH", "/nonexistent");
        QCOMPARE(volume.bytesTotal(), qint64(3072));
    }
    void timer()
    {
        VfTimer timer;
        timer.start();
        QTest::qSleep(20);
        timer.stop();
        QVERIFY2(timer.elapsedTime() >= 20 && timer.elapsedTime() < 10000, qPrintable(QString::number(timer.elapsedTime())));
    }
};

QTEST_GUILESS_MAIN(tst_Platform)
#include "tst_platform.moc"
