#ifndef INSTRUMENTSTATUSCODES_H
#define INSTRUMENTSTATUSCODES_H

#include <QObject>

namespace Demo {

// The status codes of the instrument application itself, beside the library's: published to Qt's
// meta-object system so that instrumentstatuscodes.json can name them. Their values start well
// above the library's codes, so the two can never meet.
class InstrumentStatusCodes : public QObject
{
    Q_OBJECT
public:
    enum InstrumentStatusCode : unsigned long long {
        SensorOverrange = 0x10000,
        ProbeNotCalibrated,
    };
    Q_ENUM(InstrumentStatusCode)
};

} // namespace Demo

#endif // INSTRUMENTSTATUSCODES_H
