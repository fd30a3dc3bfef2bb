// Child of tst_modelstandin: says which libmodel.so.1 the loader gave it and what that library
// knows, directly and through libVfCrosscutting's identity store. Output, one item a line:
// library=<path>, <NAME>=<class name or null> for each model name, then setModel=<status>,
// model=<model>, data=<modelName of the model-dependent data>.
#include "modelutilities.h"
#include "systemidentity.h"
#include "vfcrosscuttingmanagerplaceholder.h"

#include <QCoreApplication>
#include <QVariant>

#include <cstdio>
#include <dlfcn.h>

using namespace Crosscutting;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);

    Dl_info info = {};
    if (dladdr(reinterpret_cast<void*>(&Model::ModelUtilities::modelMetaObject), &info) == 0 || !info.dli_fname)
        return 2;
    std::printf("library=%s\n", info.dli_fname);

    for (const char* name : {"DEFAULTMODEL", "SPA", "VNA", "ALT"}) {
        const QMetaObject* metaObject = Model::ModelUtilities::modelMetaObject(QString::fromLatin1(name));
        std::printf("%s=%s\n", name, metaObject ? metaObject->className() : "null");
    }

    {
        // File I/O disabled: no file is read or written; the store starts on the default model.
        VfSystemIdentity identity(true, nullptr);
        const StatusCode status = identity.setModel(QStringLiteral("alt"), false);
        std::printf("setModel=%llu\n", status);
        std::printf("model=%s\n", qPrintable(identity.model()));
        std::printf("data=%s\n", qPrintable(identity.getModelDependentData()->property("modelName").toString()));
    }
    VfCrosscuttingManagerPlaceholder::drop();
    return 0;
}
