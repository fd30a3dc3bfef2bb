#include "vflog.h"

#include "vfunixsignalhandler.h"

namespace Crosscutting {

// Matches every string, the empty one included (Part 4.1).
const QRegularExpression VfLog::s_defaultNamespaceFilter(QStringLiteral("[\\s\\S]?"));

VfLog::VfLog(QObject* parent)
    : QObject(parent)
    , m_enabled(true)
    , m_namespaceFilter(s_defaultNamespaceFilter)
{
}

void VfLog::enable()
{
    m_enabled = true;
}

void VfLog::disable()
{
    m_enabled = false;
}

bool VfLog::isLogEnable()
{
    return m_enabled;
}

void VfLog::setNamespaceFilter(QRegularExpression const& namespaceFilter)
{
    m_namespaceFilter = namespaceFilter;
}

QRegularExpression VfLog::namespaceFilter() const
{
    return m_namespaceFilter;
}

void VfLog::resetNamespaceFilter()
{
    m_namespaceFilter = s_defaultNamespaceFilter;
}

void VfLog::addLogEntry(const QSharedPointer<VfSourceContext>& sourceContext,
                        VfStaticStatusInfo::VfStatusSeverity severity, const QString& message)
{
    // Once the crash handler runs, nothing goes further: exit(0) is tearing down what the rest would touch.
    if (stopForCrashExit())
        return;
    if (!m_enabled)
        return;
    // The filter sees the namespace only, unanchored (Part 4.1).
    if (!m_namespaceFilter.match(sourceContext->sourceNamespace(), 0, QRegularExpression::NormalMatch,
                                 QRegularExpression::NoMatchOption)
             .hasMatch())
        return;
    QSharedPointer<const VfLogEntry> logEntry(new VfLogEntry(sourceContext, severity, message));
    emit logEntryReady(logEntry);
}

} // namespace Crosscutting
