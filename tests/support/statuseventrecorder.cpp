#include "statuseventrecorder.h"

#include "vfcrosscuttingmanagerplaceholder.h"

StatusEventRecorder::StatusEventRecorder(QObject* parent)
    : QObject(parent)
{
}

void StatusEventRecorder::attach()
{
    connect(Crosscutting::VfCrosscuttingManagerPlaceholder::instance()->statusReporter(),
            &Crosscutting::VfAbstractStatusReporter::statusChangeOccurred, this, &StatusEventRecorder::record,
            Qt::DirectConnection);
}

QList<StatusCode> StatusEventRecorder::codes() const
{
    QList<StatusCode> result;
    for (const auto& e : events)
        result.append(e.statusCode());
    return result;
}

QStringList StatusEventRecorder::descriptions() const
{
    QStringList result;
    for (const auto& e : events)
        result.append(e.statusInfo()->description());
    return result;
}

void StatusEventRecorder::record(const Crosscutting::VfStatusChangeEvent& event)
{
    events.append(event);
}
