#include "vfplatforminfo.h"

#include <QtTest>

using namespace Crosscutting;

namespace {

using Files = VfPlatformInfo::VfRequiredApplicationFiles;

// Runs a copy of the helper program from <layout>/<binDirectory>/ and returns its output lines.
QStringList runHelperCopy(const QString& layout, const QString& binDirectory, const QString& mode)
{
    const QString directory = layout + QLatin1Char('/') + binDirectory;
    if (!QDir().mkpath(directory))
        return {QStringLiteral("mkpath failed")};
    const QString program = directory + QStringLiteral("/vfplatformhelper");
    if (!QFile::copy(QStringLiteral(VF_PLATFORM_HELPER), program))
        return {QStringLiteral("copy failed")};
    QProcess process;
    process.start(program, {mode});
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        return {QStringLiteral("helper failed: ") + QString::fromLocal8Bit(process.readAllStandardError())};
    return QString::fromLocal8Bit(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace

class tst_VfPlatformInfo : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    // Part 6.1
    void metaObjectShape();
    void propertiesRead();
    void paths_data();
    void paths();
    void tempDataRootPathIsQtsTempPath();
    void identityFileIONeverDisabled();
    void dynamicLibraryPaths_data();
    void dynamicLibraryPaths();
    void dynamicLibraryPathsReadAfreshEachCall();
    void rootOfThisProgram();
    void rootFromLayout_data();
    void rootFromLayout();
    void rootFixedAtConstruction();

    // Part 6.2
    void enumerationIsPlain();
    void spaTable_data();
    void spaTable();
    void requiredFilePatterns_data();
    void requiredFilePatterns();
    void requiredFilePatternsKeepsTablesIntact();
    void applicationRequiredFiles_data();
    void applicationRequiredFiles();
    void applicationRequiredDirectories_data();
    void applicationRequiredDirectories();
    void allFilesPutsBackendFirst();
    void whichOutOfRange_data();
    void whichOutOfRange();

private:
    QByteArray m_savedLibraryPath;
    bool m_libraryPathWasSet = false;
    QByteArray m_savedTmpDir;
    bool m_tmpDirWasSet = false;
};

void tst_VfPlatformInfo::init()
{
    m_libraryPathWasSet = qEnvironmentVariableIsSet("LD_LIBRARY_PATH");
    m_savedLibraryPath = qgetenv("LD_LIBRARY_PATH");
    m_tmpDirWasSet = qEnvironmentVariableIsSet("TMPDIR");
    m_savedTmpDir = qgetenv("TMPDIR");
}

void tst_VfPlatformInfo::cleanup()
{
    if (m_libraryPathWasSet)
        qputenv("LD_LIBRARY_PATH", m_savedLibraryPath);
    else
        qunsetenv("LD_LIBRARY_PATH");
    if (m_tmpDirWasSet)
        qputenv("TMPDIR", m_savedTmpDir);
    else
        qunsetenv("TMPDIR");
}

void tst_VfPlatformInfo::metaObjectShape()
{
    const QMetaObject& meta = VfPlatformInfo::staticMetaObject;
    QCOMPARE(meta.className(), "Crosscutting::VfPlatformInfo");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    // No signals, slots, invokables or enumerations of its own.
    QCOMPARE(meta.methodCount(), meta.methodOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());

    const QStringList expectedNames{"rootApplicationPath", "dynamicLibraryExtension", "dynamicLibraryPrefix"};
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), expectedNames.size());
    for (int i = 0; i < expectedNames.size(); ++i) {
        const QMetaProperty property = meta.property(meta.propertyOffset() + i);
        QCOMPARE(QString::fromLatin1(property.name()), expectedNames.at(i));
        QCOMPARE(property.type(), QVariant::String);
        QVERIFY(property.isReadable());
        QVERIFY(!property.isWritable());
        QVERIFY(property.isConstant());
        QVERIFY(!property.hasNotifySignal());
        QVERIFY(property.isStored());
        QVERIFY(property.isScriptable());
        QVERIFY(property.isDesignable());
    }
}

void tst_VfPlatformInfo::propertiesRead()
{
    const VfPlatformInfo info;
    QCOMPARE(info.property("rootApplicationPath").toString(), info.rootApplicationPath());
    // Part 6.1: the property reads the extension without the dot, the operation gives it on request.
    QCOMPARE(info.property("dynamicLibraryExtension").toString(), QStringLiteral("so"));
    QCOMPARE(info.dynamicLibraryExtension(true), QStringLiteral(".so"));
    QCOMPARE(info.dynamicLibraryExtension(false), QStringLiteral("so"));
    QCOMPARE(info.property("dynamicLibraryPrefix").toString(), QStringLiteral("lib"));
}

void tst_VfPlatformInfo::paths_data()
{
    const VfPlatformInfo info;
    const QString root = info.rootApplicationPath();

    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("endsWithSlash");

    QTest::newRow("staticDataRootPath") << VfPlatformInfo::staticDataRootPath() << "/opt/tarvion/data" << false;
    QTest::newRow("systemDataRootPath") << VfPlatformInfo::systemDataRootPath() << "/etc/tarvion" << false;
    QTest::newRow("settingsRootPath") << VfPlatformInfo::settingsRootPath() << "/etc/tarvion/settings/" << true;
    QTest::newRow("customDataPath") << VfPlatformInfo::customDataPath() << "/etc/tarvion/custom/" << true;
    QTest::newRow("userDataRootPath") << VfPlatformInfo::userDataRootPath() << "/mnt/usrroot/" << true;
    // Part 6.1: name and "settings/" are joined with no separator, on purpose.
    QTest::newRow("applicationSettingsPath(SPA)") << VfPlatformInfo::applicationSettingsPath("SPA")
                                                  << "/etc/tarvion/settings/spasettings/" << true;
    QTest::newRow("applicationSettingsPath(spa)") << VfPlatformInfo::applicationSettingsPath("spa")
                                                  << "/etc/tarvion/settings/spasettings/" << true;
    QTest::newRow("applicationSettingsPath(empty)") << VfPlatformInfo::applicationSettingsPath("")
                                                    << VfPlatformInfo::settingsRootPath() + "settings/" << true;
    QTest::newRow("applicationSettingsPath(empty) literal") << VfPlatformInfo::applicationSettingsPath("")
                                                            << "/etc/tarvion/settings/settings/" << true;
    QTest::newRow("dynamicLibraryExtension(false)") << info.dynamicLibraryExtension(false) << "so" << false;
    QTest::newRow("dynamicLibraryExtension(true)") << info.dynamicLibraryExtension(true) << ".so" << false;
    QTest::newRow("dynamicLibraryPrefix") << info.dynamicLibraryPrefix() << "lib" << false;
    QTest::newRow("rootApplicationPath") << root << root << true;
    QTest::newRow("applicationConfigurationFilePath(VNA)") << info.applicationConfigurationFilePath("VNA")
                                                           << root + "vna/vna_configuration.qml" << false;
    QTest::newRow("applicationConfigurationFilePath(MiXed)") << info.applicationConfigurationFilePath("MiXed")
                                                             << root + "mixed/mixed_configuration.qml" << false;
    QTest::newRow("applicationConfigurationFilePath(empty)") << info.applicationConfigurationFilePath("")
                                                             << root + "/_configuration.qml" << false;
}

void tst_VfPlatformInfo::paths()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QFETCH(bool, endsWithSlash);
    QCOMPARE(actual, expected);
    QCOMPARE(actual.endsWith(QLatin1Char('/')), endsWithSlash);
}

void tst_VfPlatformInfo::tempDataRootPathIsQtsTempPath()
{
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    qputenv("TMPDIR", QFile::encodeName(directory.path()));
    QCOMPARE(VfPlatformInfo::tempDataRootPath(), QDir::tempPath());
    QCOMPARE(VfPlatformInfo::tempDataRootPath(), QDir::cleanPath(directory.path()));
}

void tst_VfPlatformInfo::identityFileIONeverDisabled()
{
    QCOMPARE(VfPlatformInfo::isIdentityFileIODisabled(), false);
}

void tst_VfPlatformInfo::dynamicLibraryPaths_data()
{
    QTest::addColumn<bool>("set");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QStringList>("expected");

    // Part 6.1: kept as specified: an unset or empty variable yields an empty first entry.
    QTest::newRow("unset") << false << QByteArray() << QStringList{"", "/lib", "/usr/lib"};
    QTest::newRow("empty") << true << QByteArray("") << QStringList{"", "/lib", "/usr/lib"};
    QTest::newRow("a::b:a") << true << QByteArray("a::b:a") << QStringList{"a", "", "b", "/lib", "/usr/lib"};
    QTest::newRow("/usr/lib keeps its place") << true << QByteArray("/usr/lib:/opt/x")
                                              << QStringList{"/usr/lib", "/opt/x", "/lib"};
    QTest::newRow("both system directories given") << true << QByteArray("/usr/lib:/lib")
                                                   << QStringList{"/usr/lib", "/lib"};
    QTest::newRow("trailing colon") << true << QByteArray("/opt/x:")
                                    << QStringList{"/opt/x", "", "/lib", "/usr/lib"};
    QTest::newRow("case-sensitive") << true << QByteArray("/LIB") << QStringList{"/LIB", "/lib", "/usr/lib"};
    QTest::newRow("no normalisation") << true << QByteArray("/lib/") << QStringList{"/lib/", "/lib", "/usr/lib"};
}

void tst_VfPlatformInfo::dynamicLibraryPaths()
{
    QFETCH(bool, set);
    QFETCH(QByteArray, value);
    QFETCH(QStringList, expected);
    if (set)
        qputenv("LD_LIBRARY_PATH", value);
    else
        qunsetenv("LD_LIBRARY_PATH");
    QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), expected);
}

void tst_VfPlatformInfo::dynamicLibraryPathsReadAfreshEachCall()
{
    qputenv("LD_LIBRARY_PATH", "/first");
    QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), (QStringList{"/first", "/lib", "/usr/lib"}));
    qputenv("LD_LIBRARY_PATH", "/second");
    QCOMPARE(VfPlatformInfo::dynamicLibraryPaths(), (QStringList{"/second", "/lib", "/usr/lib"}));
}

void tst_VfPlatformInfo::rootOfThisProgram()
{
    QDir parent(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    const QString expected = parent.exists(QStringLiteral("demo"))
                                 ? QDir::cleanPath(parent.absoluteFilePath(QStringLiteral("demo"))) + "/"
                                 : QDir::cleanPath(parent.absolutePath()) + "/";
    QCOMPARE(VfPlatformInfo().rootApplicationPath(), expected);
}

void tst_VfPlatformInfo::rootFromLayout_data()
{
    QTest::addColumn<QString>("binDirectory");
    QTest::addColumn<QStringList>("directories");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expectedRelativeRoot");

    QTest::newRow("no demo: the parent") << "app/bin" << QStringList() << QString() << "app/";
    QTest::newRow("sibling demo") << "app/bin" << QStringList{"app/demo"} << QString() << "app/demo/";
    QTest::newRow("demo inside the executable's directory is not looked at")
        << "app/bin" << QStringList{"app/bin/demo"} << QString() << "app/";
    QTest::newRow("demo is a file: cd fails, the parent stays") << "app/bin" << QStringList() << "app/demo"
                                                                << "app/";
    QTest::newRow("Demo is not demo") << "app/bin" << QStringList{"app/Demo"} << QString() << "app/";
    QTest::newRow("demo's own content is not looked at")
        << "app/bin" << QStringList{"app/demo/bin", "app/demo/demo"} << QString() << "app/demo/";
}

void tst_VfPlatformInfo::rootFromLayout()
{
    QFETCH(QString, binDirectory);
    QFETCH(QStringList, directories);
    QFETCH(QString, file);
    QFETCH(QString, expectedRelativeRoot);

    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString layout = QDir(temporary.path()).canonicalPath();
    for (const QString& directory : directories)
        QVERIFY(QDir(layout).mkpath(directory));
    if (!file.isEmpty()) {
        QFile plain(layout + "/" + file);
        QVERIFY(QDir().mkpath(QFileInfo(plain).absolutePath()));
        QVERIFY(plain.open(QIODevice::WriteOnly));
    }
    const QStringList output = runHelperCopy(layout, binDirectory, QStringLiteral("root"));
    QCOMPARE(output, QStringList{layout + "/" + expectedRelativeRoot});
}

void tst_VfPlatformInfo::rootFixedAtConstruction()
{
    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString layout = QDir(temporary.path()).canonicalPath();
    const QStringList output = runHelperCopy(layout, QStringLiteral("app/bin"), QStringLiteral("root-create-demo"));
    // Before, after creating demo (same object), then a new object.
    QCOMPARE(output, (QStringList{layout + "/app/", layout + "/app/", layout + "/app/demo/"}));
}

void tst_VfPlatformInfo::enumerationIsPlain()
{
    QCOMPARE(int(VfPlatformInfo::FrontendFiles), 0);
    QCOMPARE(int(VfPlatformInfo::BackendFiles), 1);
    QCOMPARE(int(VfPlatformInfo::AllFiles), 2);
    QCOMPARE(VfPlatformInfo::staticMetaObject.indexOfEnumerator("VfRequiredApplicationFiles"), -1);
}

void tst_VfPlatformInfo::spaTable_data()
{
    QTest::addColumn<int>("which");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("directories");

    QTest::newRow("FrontendFiles")
        << int(VfPlatformInfo::FrontendFiles)
        << QStringList{"spa/lib/libSpaProxy.so", "spa/lib/libSpaFrontend.so", "spa/spafrontend/qml/ui/main_spa.qml"}
        << QStringList{"spa/lib", "spa/spafrontend/qml/ui"};
    QTest::newRow("BackendFiles") << int(VfPlatformInfo::BackendFiles) << QStringList{"spa/lib/libSpaBackend.so"}
                                  << QStringList{"spa/lib"};
    QTest::newRow("AllFiles") << int(VfPlatformInfo::AllFiles)
                              << QStringList{"spa/lib/libSpaBackend.so", "spa/lib/libSpaProxy.so",
                                             "spa/lib/libSpaFrontend.so", "spa/spafrontend/qml/ui/main_spa.qml"}
                              << QStringList{"spa/lib", "spa/spafrontend/qml/ui"};
}

void tst_VfPlatformInfo::spaTable()
{
    QFETCH(int, which);
    QFETCH(QStringList, files);
    QFETCH(QStringList, directories);
    const VfPlatformInfo info;
    QCOMPARE(info.applicationRequiredFiles("spa", true, Files(which)), files);
    QCOMPARE(info.applicationRequiredDirectories("spa", Files(which)), directories);
}

void tst_VfPlatformInfo::requiredFilePatterns_data()
{
    QTest::addColumn<bool>("withDirectory");
    QTest::addColumn<int>("which");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("frontend, bare") << false << int(VfPlatformInfo::FrontendFiles)
                                    << QStringList{"lib/%4%2Proxy.%3", "lib/%4%2Frontend.%3",
                                                   "%1frontend/qml/ui/main_%1.qml"};
    QTest::newRow("frontend, with directory") << true << int(VfPlatformInfo::FrontendFiles)
                                              << QStringList{"%1/lib/%4%2Proxy.%3", "%1/lib/%4%2Frontend.%3",
                                                             "%1/%1frontend/qml/ui/main_%1.qml"};
    QTest::newRow("backend, bare") << false << int(VfPlatformInfo::BackendFiles)
                                   << QStringList{"lib/%4%2Backend.%3"};
    QTest::newRow("backend, with directory") << true << int(VfPlatformInfo::BackendFiles)
                                             << QStringList{"%1/lib/%4%2Backend.%3"};
    QTest::newRow("all, bare") << false << int(VfPlatformInfo::AllFiles)
                               << QStringList{"lib/%4%2Backend.%3", "lib/%4%2Proxy.%3", "lib/%4%2Frontend.%3",
                                              "%1frontend/qml/ui/main_%1.qml"};
    QTest::newRow("all, with directory") << true << int(VfPlatformInfo::AllFiles)
                                         << QStringList{"%1/lib/%4%2Backend.%3", "%1/lib/%4%2Proxy.%3",
                                                        "%1/lib/%4%2Frontend.%3", "%1/%1frontend/qml/ui/main_%1.qml"};
}

void tst_VfPlatformInfo::requiredFilePatterns()
{
    QFETCH(bool, withDirectory);
    QFETCH(int, which);
    QFETCH(QStringList, expected);
    QCOMPARE(VfPlatformInfo().requiredFilePatterns(withDirectory, Files(which)), expected);
}

void tst_VfPlatformInfo::requiredFilePatternsKeepsTablesIntact()
{
    const VfPlatformInfo info;
    info.requiredFilePatterns(true, VfPlatformInfo::AllFiles);
    info.requiredFilePatterns(true, VfPlatformInfo::FrontendFiles);
    QCOMPARE(info.requiredFilePatterns(false, VfPlatformInfo::BackendFiles), QStringList{"lib/%4%2Backend.%3"});
    QCOMPARE(info.requiredFilePatterns(false, VfPlatformInfo::FrontendFiles).first(),
             QStringLiteral("lib/%4%2Proxy.%3"));
}

void tst_VfPlatformInfo::applicationRequiredFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("withDirectory");
    QTest::addColumn<int>("which");
    QTest::addColumn<QStringList>("expected");

    const int frontend = VfPlatformInfo::FrontendFiles;
    const int backend = VfPlatformInfo::BackendFiles;

    QTest::newRow("spa, bare") << "spa" << false << frontend
                               << QStringList{"lib/libSpaProxy.so", "lib/libSpaFrontend.so",
                                              "spafrontend/qml/ui/main_spa.qml"};
    // Part 6.2: %1 keeps the caller's spelling, only %2 is capitalised.
    QTest::newRow("SPA keeps its case in directories") << "SPA" << true << frontend
                                                       << QStringList{"SPA/lib/libSpaProxy.so",
                                                                      "SPA/lib/libSpaFrontend.so",
                                                                      "SPA/SPAfrontend/qml/ui/main_SPA.qml"};
    QTest::newRow("sPa capitalises to Spa") << "sPa" << true << backend << QStringList{"sPa/lib/libSpaBackend.so"};
    QTest::newRow("empty name, with directory") << "" << true << frontend
                                                << QStringList{"/lib/libProxy.so", "/lib/libFrontend.so",
                                                               "/frontend/qml/ui/main_.qml"};
    QTest::newRow("empty name, bare") << "" << false << frontend
                                      << QStringList{"lib/libProxy.so", "lib/libFrontend.so",
                                                     "frontend/qml/ui/main_.qml"};
    QTest::newRow("one letter") << "v" << false << backend << QStringList{"lib/libVBackend.so"};
    // Substitution runs in sequence: placeholders brought in by the name are filled by later steps.
    QTest::newRow("name holding %3") << "a%3" << true << frontend
                                     << QStringList{"aso/lib/libAsoProxy.so", "aso/lib/libAsoFrontend.so",
                                                    "aso/asofrontend/qml/ui/main_aso.qml"};
    QTest::newRow("name holding %4") << "x%4" << false << frontend
                                     << QStringList{"lib/libXlibProxy.so", "lib/libXlibFrontend.so",
                                                    "xlibfrontend/qml/ui/main_xlib.qml"};
    QTest::newRow("name holding %2") << "n%2" << false << frontend
                                     << QStringList{"lib/libN%2Proxy.so", "lib/libN%2Frontend.so",
                                                    "nN%2frontend/qml/ui/main_nN%2.qml"};
}

void tst_VfPlatformInfo::applicationRequiredFiles()
{
    QFETCH(QString, name);
    QFETCH(bool, withDirectory);
    QFETCH(int, which);
    QFETCH(QStringList, expected);
    QCOMPARE(VfPlatformInfo().applicationRequiredFiles(name, withDirectory, Files(which)), expected);
}

void tst_VfPlatformInfo::applicationRequiredDirectories_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("which");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("SPA") << "SPA" << int(VfPlatformInfo::AllFiles) << QStringList{"SPA/lib", "SPA/SPAfrontend/qml/ui"};
    QTest::newRow("empty name, frontend") << "" << int(VfPlatformInfo::FrontendFiles)
                                          << QStringList{"/lib", "/frontend/qml/ui"};
    QTest::newRow("empty name, backend") << "" << int(VfPlatformInfo::BackendFiles) << QStringList{"/lib"};
}

void tst_VfPlatformInfo::applicationRequiredDirectories()
{
    QFETCH(QString, name);
    QFETCH(int, which);
    QFETCH(QStringList, expected);
    QCOMPARE(VfPlatformInfo().applicationRequiredDirectories(name, Files(which)), expected);
}

void tst_VfPlatformInfo::allFilesPutsBackendFirst()
{
    const VfPlatformInfo info;
    const QStringList all = info.applicationRequiredFiles("spa", false, VfPlatformInfo::AllFiles);
    QCOMPARE(all.size(), 4);
    QCOMPARE(all.first(), QStringLiteral("lib/libSpaBackend.so"));
    QCOMPARE(all.mid(1), info.applicationRequiredFiles("spa", false, VfPlatformInfo::FrontendFiles));
}

void tst_VfPlatformInfo::whichOutOfRange_data()
{
    QTest::addColumn<int>("which");
    QTest::newRow("3") << 3;
    QTest::newRow("-1") << -1;
    QTest::newRow("100") << 100;
}

void tst_VfPlatformInfo::whichOutOfRange()
{
    QFETCH(int, which);
    const VfPlatformInfo info;
    QVERIFY(info.requiredFilePatterns(true, Files(which)).isEmpty());
    QVERIFY(info.requiredFilePatterns(false, Files(which)).isEmpty());
    QVERIFY(info.applicationRequiredFiles("spa", true, Files(which)).isEmpty());
    QVERIFY(info.applicationRequiredFiles("spa", false, Files(which)).isEmpty());
    QVERIFY(info.applicationRequiredDirectories("spa", Files(which)).isEmpty());
}

QTEST_GUILESS_MAIN(tst_VfPlatformInfo)
#include "tst_vfplatforminfo.moc"
