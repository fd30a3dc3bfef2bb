#ifndef VFPLATFORMINFO_H
#define VFPLATFORMINFO_H

#include "vfcrosscutting_export.h"

#include <QObject>
#include <QString>
#include <QStringList>

namespace Crosscutting {

// Where things live on the instrument (Part 6.1) and which files an application consists of (Part 6.2).
class VFCROSSCUTTING_EXPORT VfPlatformInfo : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString rootApplicationPath READ rootApplicationPath CONSTANT)
    Q_PROPERTY(QString dynamicLibraryExtension READ dynamicLibraryExtension CONSTANT)
    Q_PROPERTY(QString dynamicLibraryPrefix READ dynamicLibraryPrefix CONSTANT)

public:
    // Plain enumeration, deliberately not published to the meta-object system (Part 6.2).
    enum VfRequiredApplicationFiles {
        FrontendFiles = 0,
        BackendFiles = 1,
        AllFiles = 2
    };

    explicit VfPlatformInfo(QObject* parent = nullptr);

    QString rootApplicationPath() const;
    // The default argument lets the property read "so" through this very operation.
    QString dynamicLibraryExtension(bool withDot = false) const;
    QString dynamicLibraryPrefix() const;
    QString applicationConfigurationFilePath(const QString& applicationName) const;

    static QString tempDataRootPath();
    static QString staticDataRootPath();
    static QString systemDataRootPath();
    static QString settingsRootPath();
    static QString applicationSettingsPath(const QString& applicationName);
    static QString customDataPath();
    static QString userDataRootPath();
    static bool isIdentityFileIODisabled();
    static QStringList dynamicLibraryPaths();

    // Part 6.2
    QStringList requiredFilePatterns(bool withApplicationDirectory, VfRequiredApplicationFiles which) const;
    QStringList applicationRequiredFiles(const QString& applicationName, bool withApplicationDirectory,
                                         VfRequiredApplicationFiles which) const;
    QStringList applicationRequiredDirectories(const QString& applicationName,
                                               VfRequiredApplicationFiles which) const;

private:
    QString m_rootApplicationPath;
};

} // namespace Crosscutting

#endif // VFPLATFORMINFO_H
