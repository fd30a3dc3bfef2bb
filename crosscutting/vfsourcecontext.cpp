#include "vfsourcecontext.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>

namespace Crosscutting {

const QString MainThread = QStringLiteral("MainThread");
const QString TaskProcessor = QStringLiteral("TaskProcessor");

VfSourceContext::VfSourceContext(const QString& sourceModule, const QString& sourceFilename,
                                 const QString& sourceNamespace, const QString& sourceClass,
                                 const QString& sourceFunction, unsigned long long sourceLineNumber,
                                 QString sourceThread, const QStringList& additionalInfo)
    : m_timestamp(QDateTime::currentDateTime())
    , m_sourceModule(sourceModule)
    , m_sourceFilename(sourceFilename)
    , m_sourceNamespace(sourceNamespace)
    , m_sourceClass(sourceClass)
    , m_sourceFunction(sourceFunction)
    , m_sourceLineNumber(sourceLineNumber)
    , m_sourceThread(std::move(sourceThread))
    , m_additionalInfo(additionalInfo)
{
}

VfSourceContext::~VfSourceContext() = default;

QString VfSourceContext::sourceModule() const { return m_sourceModule; }
QString VfSourceContext::sourceFilename() const { return m_sourceFilename; }
QString VfSourceContext::sourceNamespace() const { return m_sourceNamespace; }
QString VfSourceContext::sourceClass() const { return m_sourceClass; }
QString VfSourceContext::sourceFunction() const { return m_sourceFunction; }
QString VfSourceContext::sourceThread() const { return m_sourceThread; }
unsigned long long VfSourceContext::sourceLineNumber() const { return m_sourceLineNumber; }
QStringList VfSourceContext::additionalInfo() const { return m_additionalInfo; }
QDateTime VfSourceContext::timestamp() const { return m_timestamp; }

QString VfSourceContext::timeText() const
{
    // Part 3.2: deliberately not ISO; month first, 12-hour clock.
    return timestamp().toString(QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP"));
}

QString VfSourceContext::toString(DisplayFormat format) const
{
    switch (format) {
    case ShortForm:
        return formatSingleLineShortFormString(false);
    case ShortFormWithTimestamp:
        return formatSingleLineShortFormString(true);
    case SingleLineLongForm: {
        QStringList fields{timeText(),        sourceModule(),    sourceFilename(),
                           QString::number(sourceLineNumber()), sourceThread(),
                           sourceNamespace(), sourceClass(),     sourceFunction()};
        fields.append(additionalInfo());
        return formatSingleLineLongFormString(fields);
    }
    case MultiLineLongForm: {
        QHash<QString, QString> fields;
        fields.insert(QStringLiteral("Timestamp"), timeText());
        fields.insert(QStringLiteral("Module"), sourceModule());
        fields.insert(QStringLiteral("Filename"), sourceFilename());
        fields.insert(QStringLiteral("Namespace"), sourceNamespace());
        fields.insert(QStringLiteral("Class"), sourceClass());
        fields.insert(QStringLiteral("Function"), sourceFunction());
        fields.insert(QStringLiteral("Line #"), QString::number(sourceLineNumber()));
        fields.insert(QStringLiteral("Thread"), sourceThread());
        const QStringList info = additionalInfo();
        if (!info.isEmpty()) {
            fields.insert(QStringLiteral("Text Args"), info.first());
            // Part 3.2: every later item goes to the one empty key, each replacing the one before.
            for (int i = 1; i < info.size(); ++i)
                fields.insert(QString(), info.at(i));
        }
        return formatMultiLineLongFormString(fields);
    }
    }
    return QString();
}

QString VfSourceContext::formatSingleLineShortFormString(bool includeTimestamp) const
{
    // split's defaults keep empty parts and are case-sensitive, on every Qt from 5.10 on.
    const QStringList parts = sourceFilename().split(QLatin1Char('/'));
    if (parts.isEmpty()) {
        // Part 3.2: a guard that cannot fire, since a split always gives one part.
        REPORT_STATUS(VfStatusCodes::StringParseError, sourceFilename());
        return QString();
    }
    const QString timePrefix = includeTimestamp ? timeText() + QLatin1Char(' ') : QString();
    if (!sourceModule().isEmpty()) {
        return QStringLiteral("[%4%1:%2:%3]")
            .arg(parts.last())
            .arg(QString::number(sourceLineNumber()))
            .arg(sourceModule())
            .arg(timePrefix);
    }
    return QStringLiteral("[%3%1:%2]").arg(parts.last()).arg(QString::number(sourceLineNumber())).arg(timePrefix);
}

VfSourceContext& createSourceContext(const QString& sourceModule, const QString& sourceFile,
                                     unsigned long long lineNumber, const QString& functionSignature,
                                     const QStringList& additionalInfo)
{
    // Compiled once per process (Part 3.1): this runs for every report and every routed Qt message.
    static const QRegularExpression signatureExpression(QStringLiteral(
        "(?<returnType>.+)\\s(?|(?<namespace>\\w+)::(?<class>\\w+)::|(?<namespace>)(?<class>\\w+)::|)(?<function>\\w+\\(.*\\))"));

    const QRegularExpressionMatch match = signatureExpression.match(functionSignature);
    const QString function = match.captured(QStringLiteral("function"));
    const QString sourceNamespace = match.captured(QStringLiteral("namespace"));
    const QString sourceClass = match.captured(QStringLiteral("class"));

    QString sourceFunction;
    if (function.isNull())
        sourceFunction = QStringLiteral("Unavailable: %1").arg(functionSignature);
    else
        sourceFunction = QStringLiteral("%1 %2").arg(match.captured(QStringLiteral("returnType"))).arg(function);

    QString module = sourceModule;
    if (module.isEmpty()) {
        module = sourceClass.startsWith(QLatin1String("Vf"), Qt::CaseSensitive) ? QStringLiteral("Velmar Framework")
                                                                                 : QStringLiteral("Velmar Application");
    }

    return *new VfSourceContext(module, QFileInfo(sourceFile).fileName(), sourceNamespace, sourceClass,
                                sourceFunction, lineNumber, QThread::currentThread()->objectName(), additionalInfo);
}

QDebug operator<<(QDebug debug, const VfSourceContext& context)
{
    debug << context.toString(VfSourceContext::MultiLineLongForm);
    return debug.maybeSpace();
}

VfSourceContext* createSourceContextFromGdbBacktrace(const QString& backtraceLine)
{
    // Built anew on each call (Part 3.3); nothing in the library calls this on a hot path.
    // The branches take, in order: "name () from library", "name (args) at file:line", "name (args)".
    const QRegularExpression frameExpression(QStringLiteral(
        "#\\d+.+\\sin\\s(?|(?<functionInfo>.+)\\s\\(\\)\\sfrom\\s(?<filename>.+)(?<linenumber>)"
        "|(?<functionInfo>.+)\\sat\\s(?<filename>.+):(?<linenumber>\\d+)"
        "|(?<functionInfo>.+)(?<filename>)(?<linenumber>))"));
    const QRegularExpressionMatch match = frameExpression.match(backtraceLine);
    if (!match.hasMatch()) {
        REPORT_STATUS(VfStatusCodes::StringParseError, backtraceLine);
        return nullptr;
    }
    // Without its blanks, the frame's text has just the one blank that the signature expression
    // of Part 3.1 splits at: the one after the stand-in return type that a frame line lacks.
    QString functionInfo = match.captured(QStringLiteral("functionInfo"));
    functionInfo.replace(QStringLiteral(" "), QString(), Qt::CaseSensitive);
    functionInfo.insert(0, QStringLiteral("unknownReturnType "));
    const unsigned long long lineNumber = match.captured(QStringLiteral("linenumber")).toULongLong(nullptr, 10);
    return &createSourceContext(QString(), match.captured(QStringLiteral("filename")), lineNumber, functionInfo,
                                QStringList());
}

} // namespace Crosscutting
