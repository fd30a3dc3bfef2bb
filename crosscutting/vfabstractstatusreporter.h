#ifndef VFABSTRACTSTATUSREPORTER_H
#define VFABSTRACTSTATUSREPORTER_H

#include "vfcrosscutting_export.h"
#include "vfsourcecontext.h"
#include "vfstatuschangeevent.h"
#include "vfstatuscodes.h"

#include <QObject>

namespace Crosscutting {

/// Interface of the road from a reported code to an emitted status change event.
/// VfStatusReporter implements it; programs reach it through
/// VfCrosscuttingManagerPlaceholder::statusReporter() and report with REPORT_STATUS.
class VFCROSSCUTTING_EXPORT VfAbstractStatusReporter : public QObject
{
    Q_OBJECT
public:
    /// Passes the parent to QObject. Cannot fail; any thread.
    explicit VfAbstractStatusReporter(QObject* parent);
    /// Destroys the reporter. Any thread that no longer reports through it.
    ~VfAbstractStatusReporter() override;

public slots:
    /// Reports statusCode: emits statusChangeOccurred with the code, the context and the
    /// catalogue's record filled with the context's arguments. Takes ownership of sourceContext,
    /// which must come from new, as createSourceContext() makes it. Returns statusCode unchanged on
    /// every path; an unknown code is reported in turn as ReportStatusStatusCodeNotRecognized.
    /// Any thread; the signal is emitted on the calling thread.
    virtual StatusCode reportStatus(StatusCode statusCode, Crosscutting::VfSourceContext& sourceContext) = 0;

public:
    /// Adds an application's own status codes, so that REPORT_STATUS knows them. Returns 0, or the
    /// reported failure code, in which case nothing is added. Any thread.
    virtual StatusCode loadApplicationStatusCodes(const QString& path, const QMetaObject& enumOwner,
                                                  const char* enumName) = 0;

signals:
    /// Emitted once for each reported code that the catalogue knows, on the reporting thread.
    /// To receive it queued on another thread, the application registers the type first:
    /// qRegisterMetaType<Crosscutting::VfStatusChangeEvent>().
    // Fully qualified so that a queued connection finds the type registered by the application.
    void statusChangeOccurred(const Crosscutting::VfStatusChangeEvent& statusChangeEvent);
};

} // namespace Crosscutting

#endif // VFABSTRACTSTATUSREPORTER_H
