#include "systemidentity.h"
#include "vftestsupport.h"

#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;

static const QString Data = QStringLiteral("/opt/tarvion/data");
static const QString UnitName = Data + "/identity/unitname";
static const QString Rw = QStringLiteral("mount -o remount,rw /media/card");
static const QString Ro = QStringLiteral("mount -o remount,ro /media/card");

class tst_Identity : public QObject
{
    Q_OBJECT
    QTemporaryDir m_fakes;
    // What mount and sync were called with, each with the content of the watched file at the time.
    QStringList calls()
    {
        const QStringList lines = QString(VfTest::readFile(m_fakes.filePath("log"))).split('\n', Qt::SkipEmptyParts);
        QFile::remove(m_fakes.filePath("log"));
        return lines.value(0) == "<missing>" ? QStringList() : lines;
    }
private slots:
    void initTestCase()
    {
        if (!VfTest::isSandboxed())
            QSKIP("the identity files live under /opt/tarvion/data: run through tests/sandbox-run");
        const QString fake = "state=$(cat \"$VF_WATCH\" 2>/dev/null || echo '<missing>')\n"
                             "echo \"${0##*/}${*:+ $*} | $state\" >> " + m_fakes.filePath("log") + "\n"
                             "case \"$*\" in *rw*) exit ${VF_RW:-0};; esac\n"
                             "[ -z \"$VF_CLOBBER\" ] || printf %s \"$VF_CLOBBER\" > \"$VF_WATCH\"\n";
        VfTest::writeFakeProgram(m_fakes.path(), "mount", fake);
        VfTest::writeFakeProgram(m_fakes.path(), "sync", fake);
        VfTest::prependToPath(m_fakes.path());
        qputenv("VF_WATCH", UnitName.toUtf8());
    }
    void init()
    {
        QDir(Data).removeRecursively();
        qunsetenv("VF_RW");
        qunsetenv("VF_CLOBBER");
        VfTest::writeFile(UnitName, "uni-1");
        VfTest::writeFile(Data + "/identity/model", "SPA");
        calls();
    }
    void remountSequence_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("rw");
        QTest::addColumn<QStringList>("calls");
        QTest::newRow("existing file") << true << QByteArray("0") << QStringList{Rw + " | uni-1", "sync | BENCH-2", Ro + " | BENCH-2"};
        QTest::newRow("missing file") << false << QByteArray("0") << QStringList{Rw + " | <missing>", "sync | BENCH-2", Ro + " | BENCH-2"};
        QTest::newRow("writable remount failed") << true << QByteArray("32") << QStringList{Rw + " | uni-1"};
    }
    void remountSequence()
    {
        QFETCH(bool, exists);
        QFETCH(QByteArray, rw);
        if (!exists)
            QDir(Data + "/identity").removeRecursively();
        qputenv("VF_RW", rw);
        VfSystemIdentity identity(false, nullptr);
        QFile::setPermissions(UnitName, QFile::ReadOwner);
        QCOMPARE(identity.setUnitName("BENCH-2"), StatusCode(rw == "0" ? VfStatusCodes::Success : VfStatusCodes::FileSystemMountFailed));
        QTEST(calls(), "calls");
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(UnitName).constData(), &status) == 0 ? status.st_mode & 0777 : 0, rw == "0" ? 0444u : 0400u);
        // A read-back that differs, as after a write that did not reach the card: "UNKNOWN" matches only an empty name.
        qputenv("VF_RW", "0");
        qputenv("VF_CLOBBER", "UNKNOWN");
        QCOMPARE(identity.setUnitName("BENCH-3"), StatusCode(VfStatusCodes::IoWriteFailed));
        QCOMPARE(identity.unitName(), QString(rw == "0" ? "BENCH-2" : "uni-1"));
    }
    void unitName()
    {
        VfSystemIdentity identity(false, nullptr);
        QCOMPARE(identity.setUnitName(QString(46, 'N')), StatusCode(VfStatusCodes::DataSizeInvalid));
        QCOMPARE(identity.setUnitName("UNI-1") + identity.setUnitName(QString(45, 'N')), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.unitName() + QString::number(calls().size()), QString(45, 'N') + "3"); // a change of case only is not written
    }
    void optionsLockAndModel()
    {
        VfSystemIdentity identity(false, nullptr);
        QStringList seen;
        identity.dispatcher().addHandler([&](const QString& model, const QStringList& options) { seen << model + options.join(','); });
        QCOMPARE(identity.setOptions({"PREAMP"}) + identity.setLock(3), StatusCode(VfStatusCodes::Success));
        QCOMPARE(seen, QStringList({"SPAPREAMP"}));
        QCOMPARE(QList<bool>({identity.isLevelLocked(0), identity.isLevelLocked(3), identity.isLevelLocked(4)}), QList<bool>({false, true, false}));
        // A new model starts without the options of the one before.
        QCOMPARE(identity.setModel("vna", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(identity.options(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_Identity)
#include "tst_identity.moc"
