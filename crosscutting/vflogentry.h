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

/// One immutable log record: source context, severity and message. Travels as
/// QSharedPointer<const VfLogEntry>; the same object reaches every writer of a log, so any
/// thread may read it.
class VFCROSSCUTTING_EXPORT VfLogEntry
{
public:
    /// Keeps the three values; the message as it is, with no line end added. Cannot fail; any thread.
    VfLogEntry(QSharedPointer<VfSourceContext> const& sourceContext, VfStaticStatusInfo::VfStatusSeverity severity,
               QString const& message);
    /// Any thread, once the last holder lets go.
    virtual ~VfLogEntry();

    /// Where the entry was made. Any thread.
    QSharedPointer<VfSourceContext> sourceContext() const;
    /// The severity of the entry. Any thread.
    VfStaticStatusInfo::VfStatusSeverity severity() const;
    /// The message text, unchanged. Any thread.
    QString message() const;

private:
    QSharedPointer<VfSourceContext> m_sourceContext;
    VfStaticStatusInfo::VfStatusSeverity m_severity;
    bool m_latin1;    // m_message holds Latin-1, one byte a character, rather than UTF-16
    QByteArray m_message; // an entry waits in a writer's queue until the flush: kept small
};

} // namespace Crosscutting

// Declared so that signals carrying entries can be queued or spied once a program registers
// the type.
Q_DECLARE_METATYPE(QSharedPointer<const Crosscutting::VfLogEntry>)

#endif // VFLOGENTRY_H
