#ifndef VFSTORAGEINFO_H
#define VFSTORAGEINFO_H

#include "vfcrosscutting_export.h"

#include <QList>
#include <QString>

namespace Crosscutting {

// A storage volume an application may write to (the internal user data area or a USB stick),
// with its sizes taken from df on every request (Part 6.3).
class VFCROSSCUTTING_EXPORT VfStorageInfo
{
public:
    VfStorageInfo();
    VfStorageInfo(const QString& rootPath, const QString& aliasName);

    bool isValid() const;
    bool isReadOnly() const;
    QString rootPath() const;
    const QString& aliasName() const;
    QString resolvePath(const QString& relativePath) const;

    void refresh() const;
    qint64 bytesFree() const;
    qint64 bytesTotal() const;
    const QString& device() const;

    static QList<VfStorageInfo> mountedVolumes();
    static VfStorageInfo mountedVolume(const QString& aliasName);

private:
    QString m_rootPath;
    QString m_reserved;
    mutable QString m_device;
    mutable qint64 m_bytesFree = 0;
    mutable qint64 m_bytesTotal = 0;
    QString m_aliasName;
};

} // namespace Crosscutting

#endif // VFSTORAGEINFO_H
