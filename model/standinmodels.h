#ifndef STANDINMODELS_H
#define STANDINMODELS_H

#include <QObject>
#include <QString>
#include <QStringList>

namespace Model {

// Base of the stand-in's model classes: what a model is called, the options it was made with,
// and the options it accepts. Private to the library: users reach it through the meta-object.
class StandInModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString modelName READ modelName CONSTANT)
    Q_PROPERTY(QStringList options READ options CONSTANT)
    Q_PROPERTY(QStringList validOptions READ validOptions CONSTANT)

public:
    QString modelName() const;
    QStringList options() const;
    QStringList validOptions() const;

protected:
    StandInModel(const QString& modelName, const QStringList& validOptions, const QStringList& options,
                 QObject* parent);

private:
    QString m_modelName;
    QStringList m_validOptions;
    QStringList m_options;
};

// What the instrument is when its model is not known.
class DefaultModel : public StandInModel
{
    Q_OBJECT
public:
    Q_INVOKABLE DefaultModel(const QStringList& options, QObject* parent);
};

// Example model: spectrum analyser.
class SpaModel : public StandInModel
{
    Q_OBJECT
public:
    Q_INVOKABLE SpaModel(const QStringList& options, QObject* parent);
};

// Example model: vector network analyser.
class VnaModel : public StandInModel
{
    Q_OBJECT
public:
    Q_INVOKABLE VnaModel(const QStringList& options, QObject* parent);
};

#if defined(VF_MODEL_TEST_VARIANT)
// Only in the tests' second libmodel.so.1: a model the stand-in does not know.
class AltModel : public StandInModel
{
    Q_OBJECT
public:
    Q_INVOKABLE AltModel(const QStringList& options, QObject* parent);
};

// Only in the tests' second libmodel.so.1: a known model whose class cannot be instantiated
// through the meta-object, since its constructor is not invokable.
class UncreatableModel : public StandInModel
{
    Q_OBJECT
public:
    UncreatableModel(const QStringList& options, QObject* parent);
};
#endif

} // namespace Model

#endif // STANDINMODELS_H
