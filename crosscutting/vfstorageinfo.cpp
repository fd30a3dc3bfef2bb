#include "vfstorageinfo.h"

#include "vfplatforminfo.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegExp>
#include <QStringList>
#include <QTextStream>

#include <limits>

namespace Crosscutting {

namespace {

const QString s_internalAliasName = QStringLiteral("Internal");

const int s_dfTimeoutMs = 10000;
const qint64 s_dfBlockSize = 1024;

qint64 saturated(qint64 sign)
{
    return sign < 0 ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
}

// blocks * 1024, or the largest qint64 when that does not fit: df of a huge volume must not overflow.
qint64 blocksToBytes(qint64 blocks)
{
    qint64 bytes = 0;
    return __builtin_mul_overflow(blocks, s_dfBlockSize, &bytes) ? saturated(blocks) : bytes;
}

} // namespace

VfStorageInfo::VfStorageInfo() = default;

VfStorageInfo::VfStorageInfo(const QString& rootPath, const QString& aliasName)
    : m_rootPath(QDir::cleanPath(rootPath))
    , m_aliasName(aliasName)
{
}

bool VfStorageInfo::isValid() const
{
    if (m_rootPath.isEmpty())
        return false;
    return QDir(m_rootPath).exists();
}

bool VfStorageInfo::isReadOnly() const
{
    return !QFileInfo(m_rootPath).isWritable();
}

QString VfStorageInfo::rootPath() const
{
    return m_rootPath;
}

const QString& VfStorageInfo::aliasName() const
{
    return m_aliasName;
}

QString VfStorageInfo::resolvePath(const QString& relativePath) const
{
    const QString path = QDir::cleanPath(m_rootPath + QLatin1Char('/') + relativePath);
    // A bare prefix test, deliberately: applications rely on it, though a sibling named like the root passes.
    if (path.startsWith(m_rootPath, Qt::CaseSensitive))
        return path;
    return QString();
}

void VfStorageInfo::refresh() const
{
    QProcess process;
    process.start(QStringLiteral("df"), QStringList() << m_rootPath + QLatin1Char('/'), QIODevice::ReadWrite);
    if (!process.waitForFinished(s_dfTimeoutMs)) {
        // Ended here so that QProcess's destructor has no warning to emit: a volume's size is never logged.
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
        return;
    }

    // The exit code is not looked at: whatever df printed is read as it stands.
    QTextStream stream(&process);
    stream.readLine();
    const QStringList parts = stream.readLine().split(QRegExp(QStringLiteral("\\s+")));
    if (parts.size() < 6) {
        m_device = QLatin1String("");
        m_bytesFree = 0;
        m_bytesTotal = 0;
        return;
    }
    // Column 1, the size df prints, is left out on purpose: reserved blocks do not count.
    m_device = parts.at(0);
    const qint64 used = parts.at(2).toLongLong(nullptr, 10);
    const qint64 available = parts.at(3).toLongLong(nullptr, 10);
    qint64 blocks = 0;
    m_bytesTotal = __builtin_add_overflow(used, available, &blocks) ? saturated(used) : blocksToBytes(blocks);
    m_bytesFree = blocksToBytes(available);
}

qint64 VfStorageInfo::bytesFree() const
{
    refresh();
    return m_bytesFree;
}

qint64 VfStorageInfo::bytesTotal() const
{
    refresh();
    return m_bytesTotal;
}

const QString& VfStorageInfo::device() const
{
    refresh();
    return m_device;
}

QList<VfStorageInfo> VfStorageInfo::mountedVolumes()
{
    QList<VfStorageInfo> volumes;
    volumes.append(VfStorageInfo(VfPlatformInfo::userDataRootPath(), s_internalAliasName));

    // No explicit sort: a fresh QDir sorts by name, ignoring case.
    const QFileInfoList entries = QDir(QStringLiteral("/media/usb/"))
                                      .entryInfoList(QDir::AllDirs | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (!entry.exists() || !entry.isReadable())
            continue;
        volumes.append(VfStorageInfo(entry.filePath(), entry.fileName()));
    }
    return volumes;
}

VfStorageInfo VfStorageInfo::mountedVolume(const QString& aliasName)
{
    const QList<VfStorageInfo> volumes = mountedVolumes();
    for (const VfStorageInfo& volume : volumes) {
        if (volume.aliasName() == aliasName)
            return volume;
    }
    return VfStorageInfo();
}

} // namespace Crosscutting
