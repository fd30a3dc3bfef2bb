#include "vfabstractstatusreporter.h"

namespace Crosscutting {

VfAbstractStatusReporter::VfAbstractStatusReporter(QObject* parent)
    : QObject(parent)
{
}

VfAbstractStatusReporter::~VfAbstractStatusReporter() = default;

} // namespace Crosscutting
