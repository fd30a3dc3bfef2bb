#ifndef VFPLATFORMINFO_H
#define VFPLATFORMINFO_H

#include "vfcrosscutting_export.h"

#include <QObject>
#include <QString>
#include <QStringList>

namespace Crosscutting {

/// Where things live on the instrument, and which files an application consists of.
///
/// The paths are fixed: nothing is read from a configuration, no directory is checked or made,
/// and no operation fails or reports. After construction the object never changes, so every
/// operation may be called from any thread. Reached through VfCrosscuttingManagerPlaceholder::platformInfo().
class VFCROSSCUTTING_EXPORT VfPlatformInfo : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString rootApplicationPath READ rootApplicationPath CONSTANT)
    Q_PROPERTY(QString dynamicLibraryExtension READ dynamicLibraryExtension CONSTANT)
    Q_PROPERTY(QString dynamicLibraryPrefix READ dynamicLibraryPrefix CONSTANT)

public:
    /// Which side of an application a file set covers.
    // Plain enumeration, deliberately not published to the meta-object system.
    enum VfRequiredApplicationFiles {
        /// The proxy and frontend libraries and the QML user interface.
        FrontendFiles = 0,
        /// The backend library.
        BackendFiles = 1,
        /// Backend and frontend together.
        AllFiles = 2
    };

    /// Fixes the application root: the directory above the executable's, or its subdirectory "demo"
    /// when that exists. Needs the QCoreApplication. Cannot fail; any thread.
    explicit VfPlatformInfo(QObject* parent = nullptr);

    /// The application root, ending in "/". Any thread.
    QString rootApplicationPath() const;
    /// "so", or ".so" when withDot is true. Any thread.
    // The default argument lets the property read "so" through this very operation.
    QString dynamicLibraryExtension(bool withDot = false) const;
    /// "lib". Any thread.
    QString dynamicLibraryPrefix() const;
    /// The application root, then "<name>/<name>_configuration.qml" with the name in lower case.
    /// Any thread.
    QString applicationConfigurationFilePath(const QString& applicationName) const;

    /// The temporary area, QDir::tempPath(). Any thread.
    static QString tempDataRootPath();
    /// The read-only data, "/opt/tarvion/data", without a trailing slash. Any thread.
    static QString staticDataRootPath();
    /// The system configuration area, "/etc/tarvion", without a trailing slash; the logs lie in its "logs/". Any thread.
    static QString systemDataRootPath();
    /// "/etc/tarvion/settings/". Any thread.
    static QString settingsRootPath();
    /// The settings of an application, "/etc/tarvion/settings/<name>settings/" with the name in
    /// lower case and joined to "settings". Any thread.
    static QString applicationSettingsPath(const QString& applicationName);
    /// "/etc/tarvion/custom/". Any thread.
    static QString customDataPath();
    /// The user data area, "/mnt/usrroot/", with the trailing slash. Any thread.
    static QString userDataRootPath();
    /// Whether the identity store leaves its files alone; always false. Any thread.
    static bool isIdentityFileIODisabled();
    /// Where dynamic libraries are found: the parts of LD_LIBRARY_PATH in order, then "/lib" and
    /// "/usr/lib", without duplicates. Read afresh at each call. Any thread.
    static QStringList dynamicLibraryPaths();

    /// The file patterns of an application's set, with "%1/" in front when withApplicationDirectory;
    /// "%1" stands for the name, "%2" the capitalised name, "%3" "so", "%4" "lib". An unknown set gives
    /// an empty list. Any thread.
    QStringList requiredFilePatterns(bool withApplicationDirectory, VfRequiredApplicationFiles which) const;
    /// The files an application requires, relative paths in the set's order, such as
    /// "spa/lib/libSpaBackend.so" for "spa". An unknown set gives an empty list. Any thread.
    QStringList applicationRequiredFiles(const QString& applicationName, bool withApplicationDirectory,
                                         VfRequiredApplicationFiles which) const;
    /// The directories of applicationRequiredFiles(), each once, such as "spa/lib". An unknown set
    /// gives an empty list. Any thread.
    QStringList applicationRequiredDirectories(const QString& applicationName,
                                               VfRequiredApplicationFiles which) const;

private:
    QString m_rootApplicationPath;
};

} // namespace Crosscutting

#endif // VFPLATFORMINFO_H
