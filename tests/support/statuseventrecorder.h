#ifndef STATUSEVENTRECORDER_H
#define STATUSEVENTRECORDER_H

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfstatuschangeevent.h"

// Records every statusChangeOccurred of the current status reporter, in order, on the reporting
// thread (direct connection), keeping copies of the events.
class StatusEventRecorder : public QObject
{
public:
    void attach()
    {
        connect(Crosscutting::VfCrosscuttingManagerPlaceholder::instance()->statusReporter(),
                &Crosscutting::VfAbstractStatusReporter::statusChangeOccurred, this,
                [this](const Crosscutting::VfStatusChangeEvent& event) { events.append(event); }, Qt::DirectConnection);
    }
    QList<StatusCode> codes() const
    {
        QList<StatusCode> result;
        for (const auto& event : events)
            result.append(event.statusCode());
        return result;
    }
    QStringList descriptions() const
    {
        QStringList result;
        for (const auto& event : events)
            result.append(event.statusInfo()->description());
        return result;
    }
    QList<Crosscutting::VfStatusChangeEvent> events;
};

#endif // STATUSEVENTRECORDER_H
