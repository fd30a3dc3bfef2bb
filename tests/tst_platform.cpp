#include "vfplatforminfo.h"
#include "vfstorageinfo.h"
#include "vftestsupport.h"
#include "vftimer.h"

#include <QtTest>
#include <grp.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace Crosscutting;

static QString run(const QString& program, const QString& mode)
{
    QProcess child;
    child.start(program, {mode});
    child.waitForFinished();
    return child.readAllStandardOutput();
}

class tst_Platform : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    const QByteArray m_path = qgetenv("PATH");
    // A df that prints `output`, after recording its arguments.
    void fakeDf(const QString& output)
    {
        VfTest::writeFakeProgram(m_dir.filePath("bin"), "df", "echo \"$#:$1\" >> " + m_dir.filePath("calls") + "\n" + output);
        VfTest::prependToPath(m_dir.filePath("bin"));
    }
private slots:
    void initTestCase()
    {
        if (!VfTest::isSandboxed())
            QSKIP("writes under /media/usb and /mnt/usrroot: run through tests/sandbox-run");
    }
    void cleanup()
    {
        qputenv("PATH", m_path);
        QFile::remove(m_dir.filePath("calls"));
        umount2("/media/usb/ro", MNT_DETACH);
        QDir("/media/usb").removeRecursively();
    }
    void pathsAndRequiredFiles()
    {
        const VfPlatformInfo info;
        QCOMPARE(QStringList({VfPlatformInfo::customDataPath(), VfPlatformInfo::applicationSettingsPath("SPA"),
                              info.applicationConfigurationFilePath("MiXed").remove(info.rootApplicationPath())}),
                 QStringList({"/etc/tarvion/custom/", "/etc/tarvion/settings/spasettings/", "mixed/mixed_configuration.qml"}));
        qputenv("LD_LIBRARY_PATH", "/usr/lib::/opt/x:/opt/x");
        QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), QStringList({"/usr/lib", "", "/opt/x", "/lib"}));
        qunsetenv("LD_LIBRARY_PATH");
        QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), QStringList({"", "/lib", "/usr/lib"}));
        QCOMPARE(info.applicationRequiredFiles("SPA", true, VfPlatformInfo::AllFiles),
                 QStringList({"SPA/lib/libSpaBackend.so", "SPA/lib/libSpaProxy.so", "SPA/lib/libSpaFrontend.so", "SPA/SPAfrontend/qml/ui/main_SPA.qml"}));
        QCOMPARE(info.applicationRequiredFiles("vna", false, VfPlatformInfo::FrontendFiles),
                 QStringList({"lib/libVnaProxy.so", "lib/libVnaFrontend.so", "vnafrontend/qml/ui/main_vna.qml"}));
        QCOMPARE(info.applicationRequiredDirectories("SPA", VfPlatformInfo::AllFiles), QStringList({"SPA/lib", "SPA/SPAfrontend/qml/ui"}));
    }
    void rootFromLayout()
    {
        // The root follows where the executable lies: a copy of this program is run from a layout.
        for (const char* made : {"app/bin/demo", "app/Demo", "app/demo"}) {
            QTemporaryDir layout;
            QVERIFY(QDir(layout.path()).mkpath(made) && QDir(layout.path()).mkpath("app/bin"));
            QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), layout.filePath("app/bin/child")));
            const QString root = QDir(layout.path()).canonicalPath() + (QByteArray(made) == "app/demo" ? "/app/demo/\n" : "/app/\n");
            QCOMPARE(run(layout.filePath("app/bin/child"), "root"), root);
        }
    }
    void volumesAndResolvedPaths()
    {
        for (const char* name : {"beta", "Delta", "alpha", ".hidden", "closed"})
            QVERIFY(QDir().mkpath(QStringLiteral("/media/usb/") + name));
        QFile("/media/usb/afile").open(QIODevice::WriteOnly);
        QFile::setPermissions("/media/usb/closed", QFile::ReadOwner | QFile::ExeOwner);
        QStringList volumes;
        for (const VfStorageInfo& volume : VfStorageInfo::mountedVolumes())
            volumes << volume.aliasName() + '=' + volume.rootPath();
        QCOMPARE(volumes, QStringList({"Internal=/mnt/usrroot", "alpha=/media/usb/alpha", "beta=/media/usb/beta", "closed=/media/usb/closed",
                                       "Delta=/media/usb/Delta"}));
        // Root reads every directory: only another user finds the closed stick unreadable.
        QCOMPARE(run(QCoreApplication::applicationFilePath(), "nobody"), QStringLiteral("Internal,alpha,beta,Delta\n"));
        QCOMPARE(VfStorageInfo::mountedVolume("beta").rootPath() + VfStorageInfo::mountedVolume("Beta").rootPath(), QStringLiteral("/media/usb/beta"));
        QVERIFY(VfStorageInfo::mountedVolume("Internal").isValid() && !VfStorageInfo("/media/usb/afile", "f").isValid());
        QVERIFY(QDir().mkpath("/media/usb/ro") && mount("ro", "/media/usb/ro", "tmpfs", MS_RDONLY, nullptr) == 0);
        QVERIFY(VfStorageInfo("/media/usb/ro", "ro").isReadOnly() && !VfStorageInfo("/media/usb/beta/", "b").isReadOnly());
        const VfStorageInfo stick("/media/usb/stick/", "stick");
        QCOMPARE(QStringList({stick.resolvePath("a//b/"), stick.resolvePath(""), stick.resolvePath("a/../b"), stick.resolvePath("../stick2/x")}),
                 QStringList({"/media/usb/stick/a/b", "/media/usb/stick", "/media/usb/stick/b", "/media/usb/stick2/x"}));
        // A sibling whose name starts with the root's passes, as above: instruments rely on the bare prefix test.
        QVERIFY(stick.resolvePath("../other").isNull() && stick.resolvePath("../STICK/x").isNull());
    }
    void dfOutput_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("sizes"); // device, total, free
        QTest::newRow("size column unused") << "echo h; echo '/dev/sda1 1000 200 700 23% /m'" << "/dev/sda1 921600 716800";
        QTest::newRow("tabs, second line only") << "printf 'h\\nd\\t10\\t1\\t2\\t3%%\\t/m\\nx 1 5 5 5%% /n\\n'" << "d 3072 2048";
        QTest::newRow("wrapped: no sizes") << "printf 'h\\n/dev/mapper/long\\n  1000 200 700 23%% /m\\n'" << " 0 0";
        QTest::newRow("five columns: no sizes") << "echo h; echo 'd 1000 200 700 23%'" << " 0 0";
        QTest::newRow("overflow saturates") << "echo h; echo 'd 0 9223372036854775807 1 1% /m'" << "d 9223372036854775807 1024";
        QTest::newRow("crashes after printing") << "echo h; echo 'd 1 4 5 1% /m'; kill -SEGV $$" << "d 9216 5120";
    }
    void dfOutput()
    {
        QFETCH(QString, output);
        fakeDf(output);
        const VfStorageInfo volume("/mnt/usrroot", "Internal");
        QTEST(QStringLiteral("%1 %2 %3").arg(volume.device()).arg(volume.bytesTotal()).arg(volume.bytesFree()), "sizes");
        QCOMPARE(VfTest::readFile(m_dir.filePath("calls")), QByteArray("1:/mnt/usrroot/\n").repeated(3));
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
        const double running = timer.elapsedTime();
        timer.stop();
        const double stopped = timer.elapsedTime();
        QTest::qSleep(5);
        QVERIFY(timer.elapsedTime() == stopped && stopped != qRound(stopped)); // fractions are kept
        QVERIFY2(running >= 20 && stopped >= running && stopped < 10000, qPrintable(QString::number(stopped)));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QByteArray mode = argc > 1 ? argv[1] : "";
    if (mode == "root")
        return printf("%s\n", qPrintable(VfPlatformInfo().rootApplicationPath())) < 0;
    if (mode == "nobody") {
        QStringList names;
        if (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0)
            for (const VfStorageInfo& volume : VfStorageInfo::mountedVolumes())
                names << volume.aliasName();
        return printf("%s\n", qPrintable(names.join(','))) < 0;
    }
    tst_Platform test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform.moc"
