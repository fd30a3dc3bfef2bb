#include "vfutilities.h"

#include <QDirIterator>
#include <QRegularExpression>

namespace Crosscutting {

// ---- Part 7.2: backtrace capture --------------------------------------------------------


// ---- Part 8.1: external commands --------------------------------------------------------


// ---- Part 8.2: file and path utilities --------------------------------------------------

QString VfUtilities::filePathOnly(QString const& path)
{
    const QRegularExpression lastComponent(QStringLiteral("/[^/]*$"));
    // A bare file name is its own directory part, not an empty text.
    if (!path.contains(QLatin1Char('/')))
        return path;
    QString directory = path;
    return directory.replace(lastComponent, QString());
}

QStringList VfUtilities::findAllFiles(QDir const& directory)
{
    QStringList files;
    QDirIterator iterator(directory.absolutePath(), QDirIterator::Subdirectories);
    while (iterator.hasNext()) {
        iterator.next();
        if (iterator.fileInfo().isDir())
            continue;
        files.append(iterator.filePath());
    }
    return files;
}


// ---- Part 8.3: XML and metadata utilities -----------------------------------------------


// ---- Part 8.4: JSON documents -----------------------------------------------------------


} // namespace Crosscutting
