#include "vfplatforminfo.h"

#include "vfutilities.h"

#include <QCoreApplication>
#include <QDir>

namespace Crosscutting {

namespace {

// Placeholders: %1 the name as given, %2 the capitalised name, %3 the extension, %4 the prefix.
const QStringList s_frontendFilePatterns = {
    QStringLiteral("lib/%4%2Proxy.%3"),
    QStringLiteral("lib/%4%2Frontend.%3"),
    QStringLiteral("%1frontend/qml/ui/main_%1.qml"),
};

const QStringList s_backendFilePatterns = {
    QStringLiteral("lib/%4%2Backend.%3"),
};

} // namespace

VfPlatformInfo::VfPlatformInfo(QObject* parent)
    : QObject(parent)
{
    QDir directory(QCoreApplication::applicationDirPath());
    // The results are not looked at: without a "demo" directory, which is the normal case, the
    // failed cd leaves the parent as the root.
    directory.cdUp();
    directory.cd(QStringLiteral("demo"));
    m_rootApplicationPath = directory.path() + QLatin1Char('/');
}

QString VfPlatformInfo::rootApplicationPath() const
{
    return m_rootApplicationPath;
}

QString VfPlatformInfo::dynamicLibraryExtension(bool withDot) const
{
    return withDot ? QStringLiteral(".so") : QStringLiteral("so");
}

QString VfPlatformInfo::dynamicLibraryPrefix() const
{
    return QStringLiteral("lib");
}

QString VfPlatformInfo::applicationConfigurationFilePath(const QString& applicationName) const
{
    const QString name = applicationName.toLower();
    return rootApplicationPath() + name + QLatin1Char('/') + name + QStringLiteral("_configuration.qml");
}

QString VfPlatformInfo::tempDataRootPath()
{
    return QDir::tempPath();
}

QString VfPlatformInfo::staticDataRootPath()
{
    return QStringLiteral("/opt/tarvion/data");
}

QString VfPlatformInfo::systemDataRootPath()
{
    return QStringLiteral("/etc/tarvion");
}

QString VfPlatformInfo::settingsRootPath()
{
    return systemDataRootPath() + QStringLiteral("/settings/");
}

QString VfPlatformInfo::applicationSettingsPath(const QString& applicationName)
{
    // Deliberately no separator before "settings/" (spa gives .../spasettings/): instruments
    // already keep each application's settings there.
    return settingsRootPath() + applicationName.toLower() + QStringLiteral("settings/");
}

QString VfPlatformInfo::customDataPath()
{
    return systemDataRootPath() + QStringLiteral("/custom/");
}

QString VfPlatformInfo::userDataRootPath()
{
    return QStringLiteral("/mnt/usrroot/");
}

bool VfPlatformInfo::isIdentityFileIODisabled()
{
    return false;
}

QStringList VfPlatformInfo::dynamicLibraryPaths()
{
    // Empty parts are kept on purpose: an unset variable yields one empty entry, and existing
    // callers rely on the list as it stands.
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    const auto keepEmptyParts = Qt::KeepEmptyParts;
#else
    const auto keepEmptyParts = QString::KeepEmptyParts;
#endif
    QStringList paths = qEnvironmentVariable("LD_LIBRARY_PATH")
                            .split(QLatin1Char(':'), keepEmptyParts, Qt::CaseSensitive);
    paths.append(QStringLiteral("/lib"));
    paths.append(QStringLiteral("/usr/lib"));
    paths.removeDuplicates();
    return paths;
}

QStringList VfPlatformInfo::requiredFilePatterns(bool withApplicationDirectory,
                                                 VfRequiredApplicationFiles which) const
{
    const QString prefix = withApplicationDirectory ? QStringLiteral("%1/") : QString();
    QStringList patterns;
    switch (which) {
    case FrontendFiles:
        patterns = s_frontendFilePatterns;
        break;
    case BackendFiles:
        patterns = s_backendFilePatterns;
        break;
    case AllFiles:
        patterns = s_backendFilePatterns + s_frontendFilePatterns;
        patterns.removeDuplicates();
        break;
    }
    for (QString& pattern : patterns)
        pattern.insert(0, prefix);
    return patterns;
}

QStringList VfPlatformInfo::applicationRequiredFiles(const QString& applicationName,
                                                     bool withApplicationDirectory,
                                                     VfRequiredApplicationFiles which) const
{
    const QString capitalisedName = applicationName.mid(0, 1).toUpper()
                                    + applicationName.right(applicationName.size() - 1).toLower();
    const QString extension = dynamicLibraryExtension(false);
    const QString prefix = dynamicLibraryPrefix();

    QStringList files;
    const QStringList patterns = requiredFilePatterns(withApplicationDirectory, which);
    for (QString pattern : patterns) {
        // Plain substitution in sequence, not QString::arg: text brought in by %1 or %2 is
        // substituted again.
        pattern.replace(QStringLiteral("%1"), applicationName, Qt::CaseSensitive);
        pattern.replace(QStringLiteral("%2"), capitalisedName, Qt::CaseSensitive);
        pattern.replace(QStringLiteral("%3"), extension, Qt::CaseSensitive);
        pattern.replace(QStringLiteral("%4"), prefix, Qt::CaseSensitive);
        files.append(pattern);
    }
    return files;
}

QStringList VfPlatformInfo::applicationRequiredDirectories(const QString& applicationName,
                                                           VfRequiredApplicationFiles which) const
{
    QStringList directories;
    const QStringList files = applicationRequiredFiles(applicationName, true, which);
    for (const QString& file : files)
        directories.append(VfUtilities::filePathOnly(file));
    directories.removeDuplicates();
    return directories;
}

} // namespace Crosscutting
