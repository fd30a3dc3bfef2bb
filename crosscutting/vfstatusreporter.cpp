#include "vfstatusreporter.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaEnum>

namespace Crosscutting {

namespace {

// Resolves a key of an enumeration published by T; -1 for an unknown enumeration or key.
template <typename T>
int enumKeyToValue(const char* enumName, const QString& key)
{
    const QMetaObject metaObject = T::staticMetaObject;
    const int index = metaObject.indexOfEnumerator(enumName);
    if (index < 0)
        return -1;
    return metaObject.enumerator(index).keyToValue(key.toLatin1().constData());
}

} // namespace

VfStatusReporter::VfStatusReporter(QObject* parent)
    : VfAbstractStatusReporter(parent)
    , m_frameworkStatusCodesPath(QStringLiteral(":/configuration/statuscodes_framework.json"))
{
    // The result is ignored so that construction stays silent.
    loadFrameworkStatusCodes();
}

VfStatusReporter::~VfStatusReporter()
{
    qDeleteAll(m_frameworkStatusCodes);
    m_frameworkStatusCodes.clear();
    qDeleteAll(m_applicationStatusCodes);
    m_applicationStatusCodes.clear();
}

StatusCode VfStatusReporter::reportStatus(StatusCode statusCode, VfSourceContext& sourceContext)
{
    QSharedPointer<VfSourceContext> context(&sourceContext);
    // The tables do not change after construction, so they are read without a lock.
    const auto framework = m_frameworkStatusCodes.constFind(statusCode);
    if (framework != m_frameworkStatusCodes.constEnd()) {
        emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, **framework));
        return statusCode;
    }
    const auto application = m_applicationStatusCodes.constFind(statusCode);
    if (application != m_applicationStatusCodes.constEnd()) {
        emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, **application));
        return statusCode;
    }
    // Through the service access object, not this. It ends after one level because the
    // catalogue holds the record of ReportStatusStatusCodeNotRecognized with one marker.
    REPORT_STATUS(VfStatusCodes::ReportStatusStatusCodeNotRecognized, QString::number(statusCode));
    return statusCode;
}

VfStatusChangeEvent VfStatusReporter::createStatusChangeEvent(StatusCode statusCode,
                                                              const QSharedPointer<VfSourceContext>& sourceContext,
                                                              const VfStaticStatusInfo& statusInfo)
{
    const QStringList arguments = sourceContext->additionalInfo();
    QString text = statusInfo.description();
    for (const QString& argument : arguments)
        text = text.arg(argument, 0, QLatin1Char(' '));

    // The markers of the catalogue's template, not of the filled text, each occurrence counted.
    const int markerCount = statusInfo.markerCount();
    if (markerCount != arguments.size()) {
        REPORT_STATUS(VfStatusCodes::ReportStatusInvalidArgCount, QString::number(statusCode),
                      QString::number(arguments.size()), QString::number(markerCount));
    }

    QSharedPointer<VfStaticStatusInfo> filled = QSharedPointer<VfStaticStatusInfo>::create(
        statusInfo.title(), text, statusInfo.severity(), statusInfo.category(), nullptr);
    return VfStatusChangeEvent(statusCode, sourceContext, filled);
}

StatusCode VfStatusReporter::loadFrameworkStatusCodes()
{
    QJsonDocument document;
    const StatusCode result = VfUtilities::createJsonDocumentFromFile(m_frameworkStatusCodesPath, &document, false);
    if (result != 0)
        return result;

    const QJsonArray records = document.array();
    for (const QJsonValue& value : records) {
        if (value.type() != QJsonValue::Object)
            continue;
        VfStatusCodes::VfStatusCode code;
        VfStaticStatusInfo* info = createStaticStatusInfoObjectFromJsonObject(value.toObject(), &code);
        // A repeated code overwrites and leaves the earlier record allocated: it costs nothing in a
        // correct catalogue.
        if (info)
            m_frameworkStatusCodes[code] = info;
    }
    return 0;
}

VfStaticStatusInfo* VfStatusReporter::createStaticStatusInfoObjectFromJsonObject(
    const QJsonObject& object, VfStatusCodes::VfStatusCode* statusCodeOut) const
{
    const QString name = extractStatusCodeStringValue(object, QStringLiteral("name"));
    const QString title = extractStatusCodeStringValue(object, QStringLiteral("title"));
    const QString description = extractStatusCodeStringValue(object, QStringLiteral("description"));
    const QString severity = extractStatusCodeStringValue(object, QStringLiteral("severity"));
    const QString category = extractStatusCodeStringValue(object, QStringLiteral("category"));

    const int code = enumKeyToValue<VfStatusCodes>("VfStatusCode", name);
    const int severityValue = enumKeyToValue<VfStaticStatusInfo>("VfStatusSeverity", severity);
    const int categoryValue = enumKeyToValue<VfStaticStatusInfo>("VfStatusCategory", category);

    // Widened with its sign: an unknown name becomes 0xFFFFFFFFFFFFFFFF.
    *statusCodeOut = static_cast<VfStatusCodes::VfStatusCode>(static_cast<unsigned long long>(static_cast<long long>(code)));
    return new VfStaticStatusInfo(title, description,
                                  static_cast<VfStaticStatusInfo::VfStatusSeverity>(static_cast<quint8>(severityValue)),
                                  static_cast<VfStaticStatusInfo::VfStatusCategory>(static_cast<quint8>(categoryValue)),
                                  nullptr);
}

QString VfStatusReporter::extractStatusCodeStringValue(const QJsonObject& object, const QString& key) const
{
    return object.value(key).toString();
}

} // namespace Crosscutting
