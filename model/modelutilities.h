#ifndef MODELUTILITIES_H
#define MODELUTILITIES_H

#include <QMetaObject>
#include <QString>
#include <QtGlobal>

#if defined(VF_MODEL_LIBRARY)
#define MODEL_EXPORT Q_DECL_EXPORT
#else
#define MODEL_EXPORT Q_DECL_IMPORT
#endif

namespace Model {

// The public face of libmodel.so.1, the instrument's closed model library: it turns a model
// name into the meta-object of the QObject class that describes that model. The classes so
// described have an invokable constructor (const QStringList& options, QObject* parent).
class MODEL_EXPORT ModelUtilities
{
public:
    // The meta-object of the class for `modelName` (matched case-sensitively), or null for a
    // name the library does not know. "DEFAULTMODEL" is always known.
    static const QMetaObject* modelMetaObject(const QString& modelName);
};

} // namespace Model

#endif // MODELUTILITIES_H
