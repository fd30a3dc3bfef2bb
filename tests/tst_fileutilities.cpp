#include "vfutilities.h"

#include <QtTest>

using namespace Crosscutting;

// Part 8.2: filePathOnly and findAllFiles (makePath and makeBackupFile come with status reporting).
class tst_FileUtilities : public QObject
{
    Q_OBJECT
private slots:
    void filePathOnly_data();
    void filePathOnly();
    void filePathOnlyLeavesInputAlone();

    void findAllFilesListsEveryLevel();
    void findAllFilesOfRelativeDirectoryIsAbsolute();
    void findAllFilesDoesNotFollowDirectoryLinks();
    void findAllFilesOfMissingDirectoryIsEmpty();
    void findAllFilesOfEmptyTreeIsEmpty();

private:
    static bool writeFile(const QString& path);
};

bool tst_FileUtilities::writeFile(const QString& path)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("x") == 1;
}

void tst_FileUtilities::filePathOnly_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");

    QTest::newRow("/a/b.txt") << "/a/b.txt" << "/a";
    QTest::newRow("/a/ drops only the slash") << "/a/" << "/a";
    QTest::newRow("/b directly under the root") << "/b" << "";
    QTest::newRow("bare name stays") << "b" << "b";
    QTest::newRow("empty stays empty") << "" << "";
    QTest::newRow("relative path") << "spa/lib/libSpaProxy.so" << "spa/lib";
    QTest::newRow("root alone") << "/" << "";
    QTest::newRow("doubled slash: only the last goes") << "a//b" << "a/";
    QTest::newRow("dots are plain text") << "a/../b" << "a/..";
    QTest::newRow("no extension") << "/x/y/z" << "/x/y";
}

void tst_FileUtilities::filePathOnly()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QCOMPARE(VfUtilities::filePathOnly(path), expected);
}

void tst_FileUtilities::filePathOnlyLeavesInputAlone()
{
    const QString path = QStringLiteral("/a/b/c.txt");
    QString copy = path;
    QCOMPARE(VfUtilities::filePathOnly(copy), QStringLiteral("/a/b"));
    QCOMPARE(copy, path);
}

void tst_FileUtilities::findAllFilesListsEveryLevel()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString root = QDir(temporary.path()).canonicalPath() + "/tree";
    const QStringList files{root + "/top.txt", root + "/one/a", root + "/one/two/b.bin",
                            root + "/one/two/three/c", root + "/other/d"};
    for (const QString& file : files)
        QVERIFY(writeFile(file));
    QVERIFY(QDir().mkpath(root + "/empty"));
    QVERIFY(QDir().mkpath(root + "/one/empty/deeper"));

    QStringList found = VfUtilities::findAllFiles(QDir(root));
    found.sort();
    QStringList expected = files;
    expected.sort();
    QCOMPARE(found, expected);
}

void tst_FileUtilities::findAllFilesOfRelativeDirectoryIsAbsolute()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString base = QDir(temporary.path()).canonicalPath();
    QVERIFY(writeFile(base + "/rel/sub/f"));
    QVERIFY(writeFile(base + "/rel/g"));

    const QString savedCurrent = QDir::currentPath();
    QVERIFY(QDir::setCurrent(base));
    QStringList found = VfUtilities::findAllFiles(QDir("rel"));
    QDir::setCurrent(savedCurrent);
    found.sort();
    QCOMPARE(found, (QStringList{base + "/rel/g", base + "/rel/sub/f"}));
}

void tst_FileUtilities::findAllFilesDoesNotFollowDirectoryLinks()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString base = QDir(temporary.path()).canonicalPath();
    QVERIFY(writeFile(base + "/outside/hidden-behind-link"));
    QVERIFY(writeFile(base + "/tree/real"));
    QVERIFY(QFile::link(base + "/outside", base + "/tree/dirlink"));
    QVERIFY(QFile::link(base + "/tree/real", base + "/tree/filelink"));

    QStringList found = VfUtilities::findAllFiles(QDir(base + "/tree"));
    found.sort();
    // The link to a directory is a directory: neither listed nor entered. A link to a file is a file.
    QCOMPARE(found, (QStringList{base + "/tree/filelink", base + "/tree/real"}));
}

void tst_FileUtilities::findAllFilesOfMissingDirectoryIsEmpty()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    QVERIFY(VfUtilities::findAllFiles(QDir(temporary.path() + "/missing")).isEmpty());
}

void tst_FileUtilities::findAllFilesOfEmptyTreeIsEmpty()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    QVERIFY(QDir().mkpath(temporary.path() + "/a/b/c"));
    QVERIFY(QDir().mkpath(temporary.path() + "/d"));
    QVERIFY(VfUtilities::findAllFiles(QDir(temporary.path())).isEmpty());
}

QTEST_GUILESS_MAIN(tst_FileUtilities)
#include "tst_fileutilities.moc"
