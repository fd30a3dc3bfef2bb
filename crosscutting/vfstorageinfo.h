#ifndef VFSTORAGEINFO_H
#define VFSTORAGEINFO_H

#include "vfcrosscutting_export.h"

#include <QList>
#include <QString>

namespace Crosscutting {

/// A storage volume an application may write to: the internal user data area ("Internal") or a
/// USB stick under "/media/usb/", with its sizes taken from df on every request.
///
/// A plain value: nothing is reported. The size operations write the object they are called on,
/// even through a const reference, so share copies between threads, not one object.
class VFCROSSCUTTING_EXPORT VfStorageInfo
{
public:
    /// An invalid volume. Cannot fail; any thread.
    VfStorageInfo();
    /// The volume at rootPath (cleaned, without trailing slash) named aliasName. Cannot fail; any thread.
    VfStorageInfo(const QString& rootPath, const QString& aliasName);

    /// Whether the root is set and exists. Any thread.
    bool isValid() const;
    /// Whether this process may not write to the root directory. Any thread.
    bool isReadOnly() const;
    /// The root path. Any thread.
    QString rootPath() const;
    /// The alias, such as "Internal" or a stick's directory name. Any thread.
    const QString& aliasName() const;
    /// relativePath made absolute under the root and cleaned; a null string when it would leave the
    /// volume, as "../x" does. Any thread.
    QString resolvePath(const QString& relativePath) const;

    /// Runs "df" on the root, waiting at most 10000 ms, and takes device and sizes from it. A df that
    /// fails keeps the old values; output that cannot be read gives an empty device and zero sizes.
    /// The thread that owns the object.
    void refresh() const;
    /// refresh(), then the bytes available to this process; 0 when unknown. The thread that owns the object.
    qint64 bytesFree() const;
    /// refresh(), then used plus available bytes; 0 when unknown. The thread that owns the object.
    qint64 bytesTotal() const;
    /// refresh(), then the device of the volume; empty when unknown. The thread that owns the object.
    const QString& device() const;

    /// The internal volume, always first, then each readable directory under "/media/usb/" by name.
    /// Never empty. Any thread.
    static QList<VfStorageInfo> mountedVolumes();
    /// The first of mountedVolumes() with that alias, or an invalid volume. Any thread.
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
