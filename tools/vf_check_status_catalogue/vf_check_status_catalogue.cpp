// vf_check_status_catalogue: checks an application's status catalogue against the C++ enumeration
// of its codes before the two are built into a program, so that a record that
// loadApplicationStatusCodes would refuse at start-up, and what it cannot see (an enumerator
// without a record), fails the build instead. Values are left to the load: the header is read as
// text, and an enumerator's value may be any constant expression.

#include <vfstatusreporter.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <cstdio>

using namespace Crosscutting;

namespace {

const char usageText[] =
    "Usage: vf_check_status_catalogue [--without-record NAME]... [--output COPY] CATALOGUE HEADER [OWNER::]ENUM\n"
    "\n"
    "Checks the status catalogue CATALOGUE (JSON) against the enumeration ENUM of the class, struct\n"
    "or namespace OWNER declared in HEADER. Every record must be loadable by\n"
    "VfStatusReporter::loadApplicationStatusCodes: an object with the string members name, title,\n"
    "description, severity and category; a known severity and category; place markers %1 to %n,\n"
    "each once; a name that is an enumerator of ENUM and no other record's. Every enumerator must\n"
    "have a record, but those named with --without-record. ENUM must be published with Q_ENUM or\n"
    "Q_ENUM_NS. Each disagreement is printed as \"FILE: record N (\"NAME\"): reason\".\n"
    "With --output, a checked copy of CATALOGUE is written there, and removed when the check fails.\n"
    "\n"
    "Exit status: 0 when they agree, 1 when they do not, 2 when a file cannot be read.\n";

QByteArray readFile(const QString& path, bool* ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly);
    return *ok ? file.readAll() : QByteArray();
}

// The enumerator names of enum `enumName`, searched after the declaration of `owner` (anywhere
// when owner is empty). A textual reading: enough for the plain enumerations that code lists are.
QStringList enumerators(const QString& header, const QString& owner, const QString& enumName, QString* error)
{
    QString text = header;
    text.remove(QRegularExpression(QStringLiteral("/\\*.*?\\*/"), QRegularExpression::DotMatchesEverythingOption));
    text.remove(QRegularExpression(QStringLiteral("//[^\\n]*")));

    int from = 0;
    if (!owner.isEmpty()) {
        const QRegularExpressionMatch ownerMatch =
            QRegularExpression(QStringLiteral("\\b(class|struct|namespace)\\s+(\\w+\\s+)*%1\\b[^;{]*\\{")
                                   .arg(QRegularExpression::escape(owner)))
                .match(text);
        if (!ownerMatch.hasMatch()) {
            *error = QStringLiteral("declares no class, struct or namespace %1").arg(owner);
            return {};
        }
        from = ownerMatch.capturedEnd();
    }
    const QRegularExpressionMatch enumMatch =
        QRegularExpression(QStringLiteral("\\benum\\s+((class|struct)\\s+)?%1\\s*(:[^{;]*)?\\{")
                               .arg(QRegularExpression::escape(enumName)))
            .match(text, from);
    const int end = enumMatch.hasMatch() ? text.indexOf(QLatin1Char('}'), enumMatch.capturedEnd()) : -1;
    if (end < 0) {
        *error = QStringLiteral("declares no enum %1").arg(enumName);
        return {};
    }
    if (!QRegularExpression(QStringLiteral("\\bQ_ENUM(_NS)?\\s*\\(\\s*%1\\s*\\)").arg(QRegularExpression::escape(enumName)))
             .match(text, from)
             .hasMatch()) {
        *error = QStringLiteral("does not publish enum %1 with Q_ENUM or Q_ENUM_NS, so it cannot be loaded").arg(enumName);
        return {};
    }
    QStringList names;
    const QString body = text.mid(enumMatch.capturedEnd(), end - enumMatch.capturedEnd());
    const QRegularExpression nameExpression(QStringLiteral("^\\s*([A-Za-z_]\\w*)"));
    for (const QString& item : body.split(QLatin1Char(','))) {
        const QRegularExpressionMatch nameMatch = nameExpression.match(item);
        if (nameMatch.hasMatch())
            names.append(nameMatch.captured(1));
    }
    return names;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    QSet<QString> withoutRecord;
    QString outputPath;
    while (arguments.size() >= 2 && arguments.first().startsWith(QLatin1String("--"))) {
        const QString option = arguments.takeFirst();
        if (option == QLatin1String("--without-record"))
            withoutRecord.insert(arguments.takeFirst());
        else if (option == QLatin1String("--output"))
            outputPath = arguments.takeFirst();
        else
            arguments.clear();
    }
    if (arguments.size() == 1 && (arguments.first() == QLatin1String("-h") || arguments.first() == QLatin1String("--help"))) {
        std::fputs(usageText, stdout);
        return 0;
    }
    if (arguments.size() != 3) {
        std::fputs(usageText, stderr);
        return 2;
    }
    const QString cataloguePath = arguments.at(0);
    const QString headerPath = arguments.at(1);
    const QString owner = arguments.at(2).section(QStringLiteral("::"), -2, -2);
    const QString enumName = arguments.at(2).section(QStringLiteral("::"), -1);
    if (!outputPath.isEmpty())
        QFile::remove(outputPath);

    bool readable = false;
    const QByteArray catalogueText = readFile(cataloguePath, &readable);
    if (!readable) {
        std::fprintf(stderr, "%s: cannot be read\n", qPrintable(cataloguePath));
        return 2;
    }
    const QByteArray headerText = readFile(headerPath, &readable);
    if (!readable) {
        std::fprintf(stderr, "%s: cannot be read\n", qPrintable(headerPath));
        return 2;
    }

    QStringList problems;
    const auto problem = [&](const QString& path, const QString& text) { problems.append(path + QStringLiteral(": ") + text); };
    QString headerError;
    const QStringList names = enumerators(QString::fromUtf8(headerText), owner, enumName, &headerError);
    if (!headerError.isEmpty())
        problem(headerPath, headerError);

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(catalogueText, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        problem(cataloguePath, QStringLiteral("%1 at byte %2").arg(parseError.errorString()).arg(parseError.offset));
    else if (!document.isArray())
        problem(cataloguePath, QStringLiteral("its root is not an array"));

    const QString enumText = owner.isEmpty() ? enumName : owner + QStringLiteral("::") + enumName;
    QHash<QString, int> recordOfName;
    const QJsonArray records = document.array();
    for (int i = 0; i < records.size(); ++i) {
        const QString name = records.at(i).toObject().value(QStringLiteral("name")).toString();
        const QString label = QStringLiteral("record %1 (\"%2\"): ").arg(i + 1).arg(name);
        const QString reason = VfStatusReporter::checkStatusRecord(records.at(i));
        if (!reason.isEmpty())
            problem(cataloguePath, label + reason);
        else if (headerError.isEmpty() && !names.contains(name))
            problem(cataloguePath, label + QStringLiteral("\"%1\" is no enumerator of %2 in %3").arg(name, enumText, headerPath));
        else if (recordOfName.contains(name))
            problem(cataloguePath, label + QStringLiteral("a second record for \"%1\", after record %2").arg(name).arg(recordOfName.value(name)));
        recordOfName.insert(name, recordOfName.value(name, i + 1));
    }
    for (const QString& name : names) {
        if (document.isArray() && !recordOfName.contains(name) && !withoutRecord.contains(name))
            problem(cataloguePath, QStringLiteral("no record for the enumerator \"%1\" of %2 in %3").arg(name, enumText, headerPath));
    }

    for (const QString& line : problems)
        std::fprintf(stderr, "%s\n", qPrintable(line));
    if (!problems.isEmpty())
        return 1;
    if (!outputPath.isEmpty()) {
        QFile output(outputPath);
        if (!output.open(QIODevice::WriteOnly) || output.write(catalogueText) != catalogueText.size()) {
            std::fprintf(stderr, "%s: cannot be written\n", qPrintable(outputPath));
            return 2;
        }
    }
    return 0;
}
