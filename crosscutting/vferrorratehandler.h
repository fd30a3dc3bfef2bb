#ifndef VFERRORRATEHANDLER_H
#define VFERRORRATEHANDLER_H

#include "vfcrosscutting_export.h"
#include "vflogentry.h"

#include <QObject>
#include <QSharedPointer>

namespace Crosscutting {

// Token bucket a file writer consults before accepting an entry; reports ErrorRateTooHigh when it runs low.
class VFCROSSCUTTING_EXPORT VfErrorRateHandler : public QObject
{
    Q_OBJECT
public:
    VfErrorRateHandler(unsigned long long maxErrors, unsigned long long timeInterval, QObject* parent);
    ~VfErrorRateHandler() override;

    virtual bool errorRateCheckEnabled(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

    bool canWrite(QSharedPointer<const Crosscutting::VfLogEntry> logEntry);

public slots:
    void updateAllowedErrors();

private:

    quint32 m_lastUpdateTime;
    quint64 m_maxErrors;
    quint64 m_timeInterval;
    quint64 m_allowedErrors;
};

} // namespace Crosscutting

#endif // VFERRORRATEHANDLER_H
