#ifndef VFABSTRACTSTATUSREPORTER_H
#define VFABSTRACTSTATUSREPORTER_H

#include "vfcrosscutting_export.h"
#include "vfsourcecontext.h"
#include "vfstatuschangeevent.h"
#include "vfstatuscodes.h"

#include <QObject>

namespace Crosscutting {

/// Interface of the road from a reported code to an emitted status change event.
class VFCROSSCUTTING_EXPORT VfAbstractStatusReporter : public QObject
{
    Q_OBJECT
public:
    explicit VfAbstractStatusReporter(QObject* parent);
    ~VfAbstractStatusReporter() override;

public slots:
    // Takes ownership of sourceContext, which must come from new (createSourceContext).
    virtual StatusCode reportStatus(StatusCode statusCode, Crosscutting::VfSourceContext& sourceContext) = 0;

public:
    /// Adds an application's own status codes, so that REPORT_STATUS knows them (VfStatusReporter).
    virtual StatusCode loadApplicationStatusCodes(const QString& path, const QMetaObject& enumOwner,
                                                  const char* enumName) = 0;

signals:
    // Fully qualified so that a queued connection finds the type registered by the application.
    void statusChangeOccurred(const Crosscutting::VfStatusChangeEvent& statusChangeEvent);
};

} // namespace Crosscutting

#endif // VFABSTRACTSTATUSREPORTER_H
