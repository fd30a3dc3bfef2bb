#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QtTest>

#include <sys/stat.h>

using namespace Crosscutting;

namespace {
// Permission bits of a path, or -1 when it cannot be read.
int modeOf(const QString& path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return static_cast<int>(status.st_mode & 07777);
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// Sets the umask for the life of the object.
class UmaskGuard
{
public:
    explicit UmaskGuard(mode_t mask) : m_saved(::umask(mask)) {}
    ~UmaskGuard() { ::umask(m_saved); }

private:
    mode_t m_saved;
};
} // namespace

// Part 8.2: makePath and makeBackupFile (filePathOnly and findAllFiles: tst_fileutilities).
class tst_PathUtilities : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void makePathExistingDirectoryKeepsMode();
    void makePathOpensOnlyNewDirectories();
    void makePathWithoutPermissionsKeepsUmaskModes();
    void makePathBelowRegularFile();
    void makePathIgnoresRepeatedSlashes();
    void makePathRelativeLooksUpPrefixesFromRoot();

    void makeBackupFileWritesSuffixedCopy();
    void makeBackupFileSecondCallReplaces();
    void makeBackupFileMissingSourceLeavesBackup();
    void makeBackupFileAddsTheDot();
    void makeBackupFileUnremovableBackup();
    void makeBackupFileSourceIsDirectory();

private:
    StatusEventRecorder* m_recorder = nullptr;
};

void tst_PathUtilities::initTestCase()
{
    qRegisterMetaType<VfStatusChangeEvent>();
}

void tst_PathUtilities::init()
{
    m_recorder = new StatusEventRecorder;
    m_recorder->attach();
}

void tst_PathUtilities::cleanup()
{
    delete m_recorder;
    m_recorder = nullptr;
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_PathUtilities::makePathExistingDirectoryKeepsMode()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("existing");
    QVERIFY(QDir().mkdir(path));
    QVERIFY(::chmod(QFile::encodeName(path).constData(), 0700) == 0);

    QCOMPARE(VfUtilities::makePath(path, true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(modeOf(path), 0700);
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_PathUtilities::makePathOpensOnlyNewDirectories()
{
    UmaskGuard umaskGuard(022);
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString base = temporary.path();
    QVERIFY(::chmod(QFile::encodeName(base).constData(), 0750) == 0);
    const QString parentOfBase = QFileInfo(base).absolutePath();
    const int parentMode = modeOf(parentOfBase);

    QCOMPARE(VfUtilities::makePath(base + "/x/y/z", true), StatusCode(VfStatusCodes::Success));
    // Part 8.2: only the directories that the call created are opened up.
    QCOMPARE(modeOf(base + "/x"), 0777);
    QCOMPARE(modeOf(base + "/x/y"), 0777);
    QCOMPARE(modeOf(base + "/x/y/z"), 0777);
    QCOMPARE(modeOf(base), 0750);
    QCOMPARE(modeOf(parentOfBase), parentMode);
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_PathUtilities::makePathWithoutPermissionsKeepsUmaskModes()
{
    UmaskGuard umaskGuard(027);
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString base = temporary.path();

    QCOMPARE(VfUtilities::makePath(base + "/p/q", false), StatusCode(VfStatusCodes::Success));
    QCOMPARE(modeOf(base + "/p"), 0750);
    QCOMPARE(modeOf(base + "/p/q"), 0750);
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_PathUtilities::makePathBelowRegularFile()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString file = temporary.filePath("plain");
    QVERIFY(writeFile(file, "x"));
    const QString path = file + "/sub/dir";

    QCOMPARE(VfUtilities::makePath(path, true), StatusCode(VfStatusCodes::DirectoryCannotCreate));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::DirectoryCannotCreate});
    QCOMPARE(m_recorder->events.at(0).sourceContext()->additionalInfo(), QStringList{path});
    QCOMPARE(m_recorder->descriptions().at(0), QStringLiteral("The directory %1 cannot be created").arg(path));
    QVERIFY(QFileInfo(file).isFile());
}

void tst_PathUtilities::makePathIgnoresRepeatedSlashes()
{
    UmaskGuard umaskGuard(022);
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString base = temporary.path();

    QCOMPARE(VfUtilities::makePath(base + "//m///n/", true), StatusCode(VfStatusCodes::Success));
    QCOMPARE(modeOf(base + "/m"), 0777);
    QCOMPARE(modeOf(base + "/m/n"), 0777);
}

void tst_PathUtilities::makePathRelativeLooksUpPrefixesFromRoot()
{
    UmaskGuard umaskGuard(022);
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString savedCurrent = QDir::currentPath();
    QVERIFY(QDir::setCurrent(temporary.path()));
    const StatusCode result = VfUtilities::makePath("vf-relative/inner", true);
    QDir::setCurrent(savedCurrent);

    QCOMPARE(result, StatusCode(VfStatusCodes::Success));
    // Part 8.2: kept as specified: the prefixes are looked up (and chmod'ed) from the root, as
    // "/vf-relative/inner", so the directories made under the current directory keep the umask's mode.
    QCOMPARE(modeOf(temporary.filePath("vf-relative")), 0755);
    QCOMPARE(modeOf(temporary.filePath("vf-relative/inner")), 0755);
    QVERIFY(!QFileInfo::exists("/vf-relative"));
}

void tst_PathUtilities::makeBackupFileWritesSuffixedCopy()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    QVERIFY(QDir().mkpath(temporary.filePath("a")));
    const QString path = temporary.filePath("a/b");
    QVERIFY(writeFile(path, "first"));

    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readFile(temporary.filePath("a/b.old")), QByteArray("first"));
    QCOMPARE(readFile(path), QByteArray("first")); // the source stays
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_PathUtilities::makeBackupFileSecondCallReplaces()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("b");
    QVERIFY(writeFile(path, "first"));
    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::Success));
    QVERIFY(writeFile(path, "second, longer"));

    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::Success));
    QCOMPARE(readFile(path + ".old"), QByteArray("second, longer"));
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_PathUtilities::makeBackupFileMissingSourceLeavesBackup()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("gone");
    QVERIFY(writeFile(path + ".old", "earlier backup"));

    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::FileNotFound));
    QCOMPARE(readFile(path + ".old"), QByteArray("earlier backup"));
    QVERIFY(m_recorder->events.isEmpty()); // returned, not reported
}

void tst_PathUtilities::makeBackupFileAddsTheDot()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("c");
    QVERIFY(writeFile(path, "x"));

    QCOMPARE(VfUtilities::makeBackupFile(path, ".bak"), StatusCode(VfStatusCodes::Success));
    QVERIFY(QFileInfo::exists(path + "..bak"));
    QVERIFY(!QFileInfo::exists(path + ".bak"));
}

void tst_PathUtilities::makeBackupFileUnremovableBackup()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("d");
    QVERIFY(writeFile(path, "x"));
    const QString backup = path + ".old";
    QVERIFY(QDir().mkdir(backup)); // QFile::remove cannot remove a directory, even as root

    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::FileCannotCopy));
    // Part 8.2: the failed removal is reported and the operation goes on to the copy, which fails.
    QCOMPARE(m_recorder->codes(),
             (QList<StatusCode>{VfStatusCodes::FileCannotRemove, VfStatusCodes::FileCannotCopy}));
    QCOMPARE(m_recorder->descriptions().at(0), backup);
    QCOMPARE(m_recorder->events.at(1).sourceContext()->additionalInfo(), (QStringList{path, backup}));
    QCOMPARE(m_recorder->descriptions().at(1),
             QStringLiteral("An attempt to copy file %1 to %2 failed.").arg(path, backup));
    QVERIFY(QFileInfo(backup).isDir());
}

void tst_PathUtilities::makeBackupFileSourceIsDirectory()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath("dir");
    QVERIFY(QDir().mkdir(path));

    QCOMPARE(VfUtilities::makeBackupFile(path, "old"), StatusCode(VfStatusCodes::FileCannotCopy));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
    QVERIFY(!QFileInfo::exists(path + ".old"));
}

QTEST_GUILESS_MAIN(tst_PathUtilities)
#include "tst_pathutilities.moc"
