#ifndef VFERRORRATEHANDLER_H
#define VFERRORRATEHANDLER_H

#include "vfcrosscutting_export.h"
#include "vflogentry.h"

#include <QObject>
#include <QSharedPointer>

namespace Crosscutting {

/// Token bucket that a file writer consults before accepting an entry, so that a flood of
/// errors cannot fill the log: maxErrors entries per timeInterval seconds. When it runs low it
/// reports ErrorRateTooHigh into the log itself, so the reader learns why entries stop.
///
/// No lock: the writer calls it under its own mutex. Give each writer its own handler.
class VFCROSSCUTTING_EXPORT VfErrorRateHandler : public QObject
{
    Q_OBJECT
public:
    /// A full bucket of maxErrors tokens, refilled at maxErrors per timeInterval seconds.
    /// Cannot fail; any thread.
    VfErrorRateHandler(unsigned long long maxErrors, unsigned long long timeInterval, QObject* parent);
    /// Destroys the handler. Any thread, once no writer holds it.
    ~VfErrorRateHandler() override;

    /// Whether logEntry counts against the bucket; true for every entry here. Any thread.
    virtual bool errorRateCheckEnabled(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

    /// Refills the bucket by the time passed and says whether logEntry may be written: true for an
    /// entry that does not count, otherwise true while at least one token is left. Takes no token.
    /// The thread that logged, under the writer's mutex.
    bool canWrite(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

public slots:
    /// Takes one token for an entry just queued; with fewer than two left, reports ErrorRateTooHigh
    /// ("critical"). The thread that logged, under the writer's mutex.
    void updateAllowedErrors();

private:

    quint32 m_lastUpdateTime;
    quint64 m_maxErrors;
    quint64 m_timeInterval;
    quint64 m_allowedErrors;
};

} // namespace Crosscutting

#endif // VFERRORRATEHANDLER_H
