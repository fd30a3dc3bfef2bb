#ifndef VFLOGENTRY_H
#define VFLOGENTRY_H

#include "vfcrosscutting_export.h"
#include "vfsourcecontext.h"
#include "vfstaticstatusinfo.h"

#include <QByteArray>
#include <QMetaType>
#include <QSharedPointer>
#include <QString>

namespace Crosscutting {

// One immutable log record: context, severity and message. Travels as QSharedPointer<const VfLogEntry>.
class VFCROSSCUTTING_EXPORT VfLogEntry
{
public:
    VfLogEntry(QSharedPointer<VfSourceContext> const& sourceContext, VfStaticStatusInfo::VfStatusSeverity severity,
               QString const& message);
    virtual ~VfLogEntry();

    QSharedPointer<VfSourceContext> sourceContext() const;
    VfStaticStatusInfo::VfStatusSeverity severity() const;
    QString message() const;

private:
    QSharedPointer<VfSourceContext> m_sourceContext;
    VfStaticStatusInfo::VfStatusSeverity m_severity;
    bool m_latin1;    // m_message holds Latin-1, one byte a character, rather than UTF-16
    QByteArray m_message; // an entry waits in a writer's queue until the flush: kept small
};

} // namespace Crosscutting

// Declared so that signals carrying entries can be queued or spied once a program registers the type.
Q_DECLARE_METATYPE(QSharedPointer<const Crosscutting::VfLogEntry>)

#endif // VFLOGENTRY_H
