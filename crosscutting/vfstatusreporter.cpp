#include "vfstatusreporter.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QRegularExpression>

namespace Crosscutting {

namespace {

// Resolves a key of an enumeration published by T; -1 for an unknown enumeration or key (Part 2.1).
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
    // Part 2.1: the result is ignored so that construction stays silent.
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
    if (m_frameworkStatusCodes.contains(statusCode)) {
        emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, *m_frameworkStatusCodes[statusCode]));
    } else if (m_applicationStatusCodes.contains(statusCode)) {
        emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, *m_applicationStatusCodes[statusCode]));
    } else {
        // Part 2.3: through the service access object, not this; ends after one level because
        // the catalogue holds the record of code 61 with one marker.
        REPORT_STATUS(VfStatusCodes::ReportStatusStatusCodeNotRecognized, QString::number(statusCode));
    }
    return statusCode;
}

VfStatusChangeEvent VfStatusReporter::createStatusChangeEvent(StatusCode statusCode,
                                                              const QSharedPointer<VfSourceContext>& sourceContext,
                                                              const VfStaticStatusInfo& statusInfo)
{
    // Built once: the spec allows it so long as the count stays the same (Part 2.3).
    static const QRegularExpression markerExpression(QStringLiteral("%\\d{1,2}"));

    const QStringList arguments = sourceContext->additionalInfo();
    QString text = statusInfo.description();
    for (const QString& argument : arguments)
        text = text.arg(argument, 0, QLatin1Char(' '));

    const int markerCount = statusInfo.description().count(markerExpression);
    if (markerCount != arguments.size()) {
        REPORT_STATUS(VfStatusCodes::ReportStatusInvalidArgCount, QString::number(statusCode),
                      QString::number(arguments.size()), QString::number(markerCount));
    }

    QSharedPointer<VfStaticStatusInfo> filled(
        new VfStaticStatusInfo(statusInfo.title(), text, statusInfo.severity(), statusInfo.category(), nullptr));
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
        // Part 2.1: a repeated code overwrites and leaves the earlier record allocated.
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

    // Widened with its sign: an unknown name becomes 0xFFFFFFFFFFFFFFFF (Part 2.1).
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
