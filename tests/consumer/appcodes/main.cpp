// Loads its catalogue from the resource that vf_add_status_catalogue built in, and reports one of
// its codes: the event carries the catalogue's texts.
#include "pumpstatuscodes.h"

#include <vfcrosscutting.h>

#include <QCoreApplication>
#include <cstdio>

using namespace Crosscutting;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    VfAbstractStatusReporter* reporter = VfCrosscuttingManagerPlaceholder::instance()->statusReporter();
    const StatusCode loaded = reporter->loadApplicationStatusCodes(QStringLiteral(":/configuration/pumpstatuscodes.json"),
                                                                   Pump::PumpStatusCodes::staticMetaObject, "PumpStatusCode");
    QString text;
    QObject::connect(reporter, &VfAbstractStatusReporter::statusChangeOccurred, [&](const VfStatusChangeEvent& e) {
        text = e.statusInfo()->toString(VfDisplayable::SingleLineLongForm);
    });
    const StatusCode code = REPORT_STATUS(Pump::PumpStatusCodes::PumpStalled, QStringLiteral("P2"));
    VfCrosscuttingManagerPlaceholder::drop();
    std::printf("pump: load %llu, code %llu, %s\n", loaded, code, qPrintable(text));
    return (loaded == 0 && code == 0x30001 && text == QLatin1String("[Pump stalled, Pump P2 stalled., CriticalError, External]")) ? 0 : 1;
}
