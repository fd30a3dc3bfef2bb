#include "vflog.h"

#include "vfunixsignalhandler.h"

namespace Crosscutting {

// Matches every string, the empty one included.
const QRegularExpression VfLog::s_defaultNamespaceFilter(QStringLiteral("[\\s\\S]?"));

namespace {

// True for the default filter's pattern, whatever its options: it matches every string.
bool matchesEverything(const QRegularExpression& filter)
{
    return filter.pattern() == QLatin1String("[\\s\\S]?");
}

} // namespace

VfLog::VfLog(QObject* parent)
    : QObject(parent)
    , m_enabled(true)
    , m_namespaceFilter(s_defaultNamespaceFilter)
    , m_filterMatchesEverything(true)
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
    m_filterMatchesEverything = matchesEverything(namespaceFilter);
}

QRegularExpression VfLog::namespaceFilter() const
{
    return m_namespaceFilter;
}

void VfLog::resetNamespaceFilter()
{
    m_namespaceFilter = s_defaultNamespaceFilter;
    m_filterMatchesEverything = true;
}

void VfLog::addLogEntry(const QSharedPointer<VfSourceContext>& sourceContext,
                        VfStaticStatusInfo::VfStatusSeverity severity, const QString& message)
{
    // Once the crash handler runs, nothing goes further: exit(0) is tearing down what the rest would touch.
    if (stopForCrashExit())
        return;
    if (!m_enabled)
        return;
    // The filter sees the namespace only, unanchored. The default filter passes everything, so its
    // match is left out.
    if (!m_filterMatchesEverything
        && !m_namespaceFilter
                .match(sourceContext->sourceNamespace(), 0, QRegularExpression::NormalMatch,
                       QRegularExpression::NoMatchOption)
                .hasMatch())
        return;
    // One allocation for the entry and its reference count.
    const QSharedPointer<const VfLogEntry> logEntry =
        QSharedPointer<const VfLogEntry>::create(sourceContext, severity, message);
    emit logEntryReady(logEntry);
}

} // namespace Crosscutting
