#ifndef PUMPSTATUSCODES_H
#define PUMPSTATUSCODES_H

#include <QObject>

namespace Pump {

// The pump application's own status codes, above the library's.
class PumpStatusCodes : public QObject
{
    Q_OBJECT
public:
    enum PumpStatusCode : unsigned long long {
        PumpPressureLow = 0x30000,
        PumpStalled,
        LastPumpCode
    };
    Q_ENUM(PumpStatusCode)
};

} // namespace Pump

#endif // PUMPSTATUSCODES_H
