#include "standinmodels.h"

namespace Model {

StandInModel::StandInModel(const QString& modelName, const QStringList& validOptions, const QStringList& options,
                           QObject* parent)
    : QObject(parent)
    , m_modelName(modelName)
    , m_validOptions(validOptions)
    , m_options(options)
{
}

QString StandInModel::modelName() const
{
    return m_modelName;
}

QStringList StandInModel::options() const
{
    return m_options;
}

QStringList StandInModel::validOptions() const
{
    return m_validOptions;
}

DefaultModel::DefaultModel(const QStringList& options, QObject* parent)
    : StandInModel(QStringLiteral("DEFAULTMODEL"), QStringList(), options, parent)
{
}

SpaModel::SpaModel(const QStringList& options, QObject* parent)
    : StandInModel(QStringLiteral("SPA"), {QStringLiteral("PREAMP"), QStringLiteral("TRACKINGGENERATOR")}, options,
                   parent)
{
}

VnaModel::VnaModel(const QStringList& options, QObject* parent)
    : StandInModel(QStringLiteral("VNA"), {QStringLiteral("TIMEDOMAIN"), QStringLiteral("BIASTEE")}, options, parent)
{
}

#if defined(VF_MODEL_TEST_VARIANT)
AltModel::AltModel(const QStringList& options, QObject* parent)
    : StandInModel(QStringLiteral("ALT"), {QStringLiteral("ALTOPTION")}, options, parent)
{
}

UncreatableModel::UncreatableModel(const QStringList& options, QObject* parent)
    : StandInModel(QStringLiteral("UNCREATABLE"), QStringList(), options, parent)
{
}
#endif

} // namespace Model
