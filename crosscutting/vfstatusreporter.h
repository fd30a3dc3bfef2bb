#ifndef VFSTATUSREPORTER_H
#define VFSTATUSREPORTER_H

#include "vfabstractstatusreporter.h"
#include "vfcrosscutting_export.h"
#include "vfstaticstatusinfo.h"
#include "vfstatuscodes.h"

#include <QHash>
#include <QJsonObject>
#include <QSharedPointer>

namespace Crosscutting {

// Turns a code into an event: looks the code up in the catalogue and fills its description (Parts 2.1, 2.3).
class VFCROSSCUTTING_EXPORT VfStatusReporter : public VfAbstractStatusReporter
{
    Q_OBJECT
public:
    explicit VfStatusReporter(QObject* parent);
    ~VfStatusReporter() override;

    StatusCode reportStatus(StatusCode statusCode, Crosscutting::VfSourceContext& sourceContext) override;

    VfStatusChangeEvent createStatusChangeEvent(StatusCode statusCode,
                                                const QSharedPointer<VfSourceContext>& sourceContext,
                                                const VfStaticStatusInfo& statusInfo);

    StatusCode loadFrameworkStatusCodes();
    VfStaticStatusInfo* createStaticStatusInfoObjectFromJsonObject(const QJsonObject& object,
                                                                   VfStatusCodes::VfStatusCode* statusCodeOut) const;
    QString extractStatusCodeStringValue(const QJsonObject& object, const QString& key) const;

private:
    QHash<unsigned long long, VfStaticStatusInfo*> m_frameworkStatusCodes;
    QHash<unsigned long long, VfStaticStatusInfo*> m_applicationStatusCodes;
    QString m_frameworkStatusCodesPath;
};

} // namespace Crosscutting

#endif // VFSTATUSREPORTER_H
