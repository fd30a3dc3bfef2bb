#ifndef VFUTILITIES_H
#define VFUTILITIES_H

#include "vfcrosscutting_export.h"
#include "vfstatuscodes.h"

#include <QByteArray>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QMetaObject>
#include <QString>
#include <QStringList>

class QDomNode;
class QXmlStreamWriter;

namespace Crosscutting {

// Static operations only: enum texts, backtraces (Part 7.2), external commands (Part 8.1),
// files and paths (Part 8.2), XML and metadata (Part 8.3), JSON documents (Part 8.4).
class VFCROSSCUTTING_EXPORT VfUtilities
{
public:
    VfUtilities() = delete;

    // Name of an enumerator of the enumeration enumName published by T (Part 2.2): the empty
    // string when T has no such enumeration, a null string when the value has no name.
    template <typename T>
    static QString enumValueToString(const QString& enumName, int value)
    {
        const QMetaObject metaObject = T::staticMetaObject;
        const int index = metaObject.indexOfEnumerator(enumName.toLatin1().constData());
        if (index < 0)
            return QString(QLatin1String(""));
        return QString::fromLatin1(metaObject.enumerator(index).valueToKey(value));
    }

    // Part 7.2
    static void logBackTraceNoDemangle(char const* path);
    static void logBackTrace(QString path);

    // Part 8.1
    static StatusCode processCommand(QString const& command, QStringList const& arguments);
    static QByteArray shellHelper(char const* command, char const* name, int timeout, int* exitCode);
    static StatusCode outputOfCommand(QString const& command, QByteArray& standardOutput,
                                      QByteArray& standardError, qint32* exitCode);

    // Part 8.2
    static QString filePathOnly(QString const& path);
    static QStringList findAllFiles(QDir const& directory);
    static StatusCode makePath(QString const& path, bool setPermissions);
    static StatusCode makeBackupFile(QString const& path, QString const& suffix);

    // Part 8.3
    static void writeDomNode(QXmlStreamWriter* writer, QDomNode& node, bool followSiblings);
    static QString retrieveMetaProperty(QString const& entry, QJsonObject const& object, QString const& fileName);
    static bool containsDigit(QString const& text);
    static bool fuzzyCompare(double const& first, double const& second);

    // Part 8.4
    static StatusCode createJsonDocumentFromFile(QString const& path, QJsonDocument* document, bool reportFailure);
};

} // namespace Crosscutting

#endif // VFUTILITIES_H
