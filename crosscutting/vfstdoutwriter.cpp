#include "vfstdoutwriter.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QRegularExpression>

#include <cstdio>

namespace {

// Case-sensitive: the class name's capital decides (Part 4.3).
const QRegularExpression s_frameworkClassExpression(QStringLiteral("^Vf.*"));
const QRegularExpression s_qtClassExpression(QStringLiteral("^Q.*"));

} // namespace

Crosscutting::MessageSource sourceForLogEntry(QSharedPointer<const Crosscutting::VfLogEntry> logEntry)
{
    using namespace Crosscutting;
    const QSharedPointer<VfSourceContext> context = logEntry->sourceContext();
    const QString module = context->sourceModule();
    const QString sourceClass = context->sourceClass();
    if (s_frameworkClassExpression.match(sourceClass).hasMatch())
        return module == QLatin1String("VfDebug") ? FrameworkDebugSource : FrameworkSource;
    if (s_qtClassExpression.match(sourceClass).hasMatch())
        return QtSource;
    return module == QLatin1String("appDebug") ? ApplicationDebugSource : ApplicationSource;
}

namespace Crosscutting {

VfStdOutWriter::VfStdOutWriter(QString const& logName, QObject* parent)
    : VfAbstractLogWriter(logName, parent)
{
}

VfStdOutWriter::~VfStdOutWriter() = default;

void VfStdOutWriter::flush()
{
    // Every entry is flushed as it is written.
}

bool VfStdOutWriter::clearLog()
{
    return true;
}

bool VfStdOutWriter::copyLogTo(QDir const& directory)
{
    Q_UNUSED(directory)
    return false;
}

bool VfStdOutWriter::writeToLog(QSharedPointer<const VfLogEntry> logEntry)
{
    // A copy per entry, so the handler needs no lock (Part 4.3).
    const std::function<bool(MessageSource, char const*)> handler =
        VfCrosscuttingManagerPlaceholder::instance()->logManager()->ignoreHandler();
    const MessageSource source = sourceForLogEntry(logEntry);
    const QByteArray handlerText = logEntry->message().trimmed().toLatin1();
    if (handler(source, handlerText.constData()))
        return true;
    // No line end added: the message carries its own (Part 4.3).
    const QString line = logEntry->sourceContext()->toString(VfSourceContext::ShortForm) + QLatin1Char(' ')
        + logEntry->message();
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
    return true;
}

} // namespace Crosscutting
