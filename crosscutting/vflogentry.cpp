#include "vflogentry.h"

namespace Crosscutting {

namespace {

bool isLatin1(const QString& text)
{
    for (const QChar character : text) {
        if (character.unicode() > 0xff)
            return false;
    }
    return true;
}

} // namespace

VfLogEntry::VfLogEntry(QSharedPointer<VfSourceContext> const& sourceContext,
                       VfStaticStatusInfo::VfStatusSeverity severity, QString const& message)
    : m_sourceContext(sourceContext)
    , m_severity(severity)
    , m_latin1(isLatin1(message))
    // Any other text keeps its UTF-16 code units as they are, lone surrogates included.
    , m_message(m_latin1 ? message.toLatin1()
                         : QByteArray(reinterpret_cast<const char*>(message.constData()), message.size() * 2))
{
    // A null message stays null.
    if (message.isNull())
        m_message = QByteArray();
}

VfLogEntry::~VfLogEntry() = default;

QSharedPointer<VfSourceContext> VfLogEntry::sourceContext() const
{
    return m_sourceContext;
}

VfStaticStatusInfo::VfStatusSeverity VfLogEntry::severity() const
{
    return m_severity;
}

QString VfLogEntry::message() const
{
    if (m_message.isNull())
        return QString();
    if (m_latin1)
        return QString::fromLatin1(m_message.constData(), m_message.size());
    return QString(reinterpret_cast<const QChar*>(m_message.constData()), m_message.size() / 2);
}

} // namespace Crosscutting
