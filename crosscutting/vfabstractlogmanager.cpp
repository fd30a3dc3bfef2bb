#include "vfabstractlogmanager.h"

namespace Crosscutting {

VfAbstractLogManager::VfAbstractLogManager(QObject* parent)
    : QObject(parent)
{
}

VfAbstractLogManager::~VfAbstractLogManager() = default;

} // namespace Crosscutting
