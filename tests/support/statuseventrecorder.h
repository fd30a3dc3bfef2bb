#ifndef STATUSEVENTRECORDER_H
#define STATUSEVENTRECORDER_H

#include "vfstatuschangeevent.h"

#include <QList>
#include <QObject>

// Records every statusChangeOccurred of the current status reporter, in order, on the
// reporting thread (direct connection), keeping copies of the events.
class StatusEventRecorder : public QObject
{
    Q_OBJECT
public:
    explicit StatusEventRecorder(QObject* parent = nullptr);
    void attach(); // to VfCrosscuttingManagerPlaceholder::instance()->statusReporter()
    QList<Crosscutting::VfStatusChangeEvent> events;
    QList<StatusCode> codes() const;
    QStringList descriptions() const;

public slots:
    void record(const Crosscutting::VfStatusChangeEvent& event);
};

#endif // STATUSEVENTRECORDER_H
