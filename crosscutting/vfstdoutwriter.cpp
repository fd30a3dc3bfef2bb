#include "vfstdoutwriter.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <cstdio>

// The class name's first letters decide, case-sensitively: "^Vf.*" and "^Q.*" match exactly the
// names that begin with "Vf" and "Q", so a prefix test gives their answer without a match.
Crosscutting::MessageSource sourceForLogEntry(QSharedPointer<const Crosscutting::VfLogEntry> logEntry)
{
    using namespace Crosscutting;
    const QSharedPointer<VfSourceContext> context = logEntry->sourceContext();
    const QString module = context->sourceModule();
    const QString sourceClass = context->sourceClass();
    if (sourceClass.startsWith(QLatin1String("Vf"), Qt::CaseSensitive))
        return module == QLatin1String("VfDebug") ? FrameworkDebugSource : FrameworkSource;
    if (sourceClass.startsWith(QLatin1Char('Q'), Qt::CaseSensitive))
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
    // A copy per entry, so the handler needs no lock.
    const std::function<bool(MessageSource, char const*)> handler =
        VfCrosscuttingManagerPlaceholder::instance()->logManager()->ignoreHandler();
    const MessageSource source = sourceForLogEntry(logEntry);
    // The handler sees the message trimmed, in Latin-1; the trim is a view, so only the bytes are made.
    const QString message = logEntry->message();
    const QByteArray handlerText = message.midRef(0).trimmed().toLatin1();
    if (handler(source, handlerText.constData()))
        return true;
    // No line end added: the message carries its own.
    QString line = logEntry->sourceContext()->toString(VfSourceContext::ShortForm);
    line.reserve(line.size() + 1 + message.size());
    line += QLatin1Char(' ');
    line += message;
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
    return true;
}

} // namespace Crosscutting
