#ifndef VFLOG_H
#define VFLOG_H

#include "vfcrosscutting_export.h"
#include "vflogentry.h"
#include "vfsourcecontext.h"
#include "vfstaticstatusinfo.h"

#include <QObject>
#include <QRegularExpression>
#include <QSharedPointer>
#include <QString>

namespace Crosscutting {

/// One logical log: an on/off switch and a namespace filter that decide whether an entry exists.
/// Accepted entries go to the writers connected to logEntryReady(), on the thread that logged.
///
/// Switch and filter have no lock: set them at start-up, before other threads log.
class VFCROSSCUTTING_EXPORT VfLog : public QObject
{
    Q_OBJECT
public:
    /// An enabled log with a filter that matches everything. Cannot fail; any thread.
    explicit VfLog(QObject* parent);

    /// Lets entries through again. Cannot fail; any thread.
    void enable();
    /// Drops every entry until enable(); nothing is buffered. Cannot fail; any thread.
    void disable();
    /// Whether the log is enabled. Any thread.
    bool isLogEnable();
    /// Only entries whose source namespace matches namespaceFilter (an unanchored search) are
    /// accepted. An invalid pattern drops every entry. Before other threads log.
    void setNamespaceFilter(QRegularExpression const& namespaceFilter);
    /// A copy of the filter. Any thread.
    QRegularExpression namespaceFilter() const;
    /// Back to the filter that matches everything. Before other threads log.
    void resetNamespaceFilter();

public slots:
    /// Makes an entry and emits logEntryReady() if the log is enabled and the filter matches the
    /// context's namespace; otherwise does nothing. sourceContext must not be null. The writers run
    /// on the calling thread. Any thread.
    void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                     Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message);

signals:
    /// Emitted once for each accepted entry, on the thread that logged.
    void logEntryReady(const QSharedPointer<const Crosscutting::VfLogEntry>& logEntry);

private:
    bool m_enabled;
    QRegularExpression m_namespaceFilter;
    bool m_filterMatchesEverything; // the filter is the default one, which needs no match to pass

    static const QRegularExpression s_defaultNamespaceFilter;
};

} // namespace Crosscutting

#endif // VFLOG_H
