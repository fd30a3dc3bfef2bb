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

// One logical log: an on/off switch and a namespace filter that decide whether an entry exists.
class VFCROSSCUTTING_EXPORT VfLog : public QObject
{
    Q_OBJECT
public:
    explicit VfLog(QObject* parent);

    void enable();
    void disable();
    bool isLogEnable();
    void setNamespaceFilter(QRegularExpression const& namespaceFilter);
    QRegularExpression namespaceFilter() const;
    void resetNamespaceFilter();

public slots:
    void addLogEntry(const QSharedPointer<Crosscutting::VfSourceContext>& sourceContext,
                     Crosscutting::VfStaticStatusInfo::VfStatusSeverity severity, const QString& message);

signals:
    void logEntryReady(const QSharedPointer<const Crosscutting::VfLogEntry>& logEntry);

private:
    bool m_enabled;
    QRegularExpression m_namespaceFilter;
    bool m_filterMatchesEverything; // the filter is the default one, which needs no match to pass

    static const QRegularExpression s_defaultNamespaceFilter;
};

} // namespace Crosscutting

#endif // VFLOG_H
