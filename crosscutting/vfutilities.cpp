#include "vfutilities.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QDateTime>
#include <QDirIterator>
#include <QDomNode>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonParseError>
#include <QProcess>
#include <QRegularExpression>
#include <QXmlStreamWriter>

#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

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

StatusCode VfUtilities::createJsonDocumentFromFile(QString const& path, QJsonDocument* document, bool reportFailure)
{
    if (!document) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::InputNull, QStringLiteral("jsonDocument"));
        return VfStatusCodes::InputNull;
    }
    if (!QFile::exists(path)) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::FileNotFound, path);
        return VfStatusCodes::FileNotFound;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::FileCannotOpen, path);
        return VfStatusCodes::FileCannotOpen;
    }
    QJsonParseError parseError;
    // Part 8.4: assigned whether or not the parse succeeded, so a failure empties the document.
    *document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (reportFailure)
            return REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, path, parseError.errorString());
        return VfStatusCodes::ConfigurationDataInvalid;
    }
    return VfStatusCodes::Success;
}


} // namespace Crosscutting
