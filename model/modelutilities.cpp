#include "modelutilities.h"

#include "standinmodels.h"

namespace Model {

const QMetaObject* ModelUtilities::modelMetaObject(const QString& modelName)
{
    // Case-sensitive on purpose, like the instrument's library: "spa" is not "SPA".
    if (modelName == QLatin1String("DEFAULTMODEL"))
        return &DefaultModel::staticMetaObject;
    if (modelName == QLatin1String("SPA"))
        return &SpaModel::staticMetaObject;
    if (modelName == QLatin1String("VNA"))
        return &VnaModel::staticMetaObject;
#if defined(VF_MODEL_TEST_VARIANT)
    if (modelName == QLatin1String("ALT"))
        return &AltModel::staticMetaObject;
    if (modelName == QLatin1String("UNCREATABLE"))
        return &UncreatableModel::staticMetaObject;
#endif
    return nullptr;
}

} // namespace Model
