#include "vfstatusreporter.h"

#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QRegularExpression>

#include <algorithm>

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

const char* const RecordMembers[] = {"name", "title", "description", "severity", "category"};

} // namespace

// One generation of the application table. It is never changed once published, and is filled by
// insertion rather than copied, so that no reader's QHash is ever shared and made to detach.
struct VfStatusReporter::ApplicationStatusCodes
{
    QHash<unsigned long long, VfStaticStatusInfo*> records;
    ApplicationStatusCodes* previous = nullptr;
};

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
    // The newest generation holds every application record; the earlier ones only share them.
    ApplicationStatusCodes* generation = m_applicationStatusCodes.fetchAndStoreAcquire(nullptr);
    if (generation)
        qDeleteAll(generation->records);
    while (generation) {
        ApplicationStatusCodes* previous = generation->previous;
        delete generation;
        generation = previous;
    }
}

StatusCode VfStatusReporter::reportStatus(StatusCode statusCode, VfSourceContext& sourceContext)
{
    QSharedPointer<VfSourceContext> context(&sourceContext);
    // The framework table does not change after construction, and an application table is never
    // changed once published, so both are read without a lock.
    const auto framework = m_frameworkStatusCodes.constFind(statusCode);
    if (framework != m_frameworkStatusCodes.constEnd()) {
        emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, **framework));
        return statusCode;
    }
    if (const ApplicationStatusCodes* applicationCodes = m_applicationStatusCodes.loadAcquire()) {
        const auto application = applicationCodes->records.constFind(statusCode);
        if (application != applicationCodes->records.constEnd()) {
            emit statusChangeOccurred(createStatusChangeEvent(statusCode, context, **application));
            return statusCode;
        }
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

StatusCode VfStatusReporter::loadApplicationStatusCodes(const QString& path, const QMetaObject& enumOwner,
                                                        const char* enumName)
{
    if (!enumName)
        return REPORT_STATUS(VfStatusCodes::InputNull, QStringLiteral("enumName"));
    const int enumIndex = enumOwner.indexOfEnumerator(enumName);
    if (enumIndex < 0)
        return REPORT_STATUS(VfStatusCodes::InputInvalid, QStringLiteral("enumName"));
    const QMetaEnum codes = enumOwner.enumerator(enumIndex);
    const QString enumText = QString::fromLatin1(enumOwner.className()) + QStringLiteral("::") + QLatin1String(enumName);

    QJsonDocument document;
    const StatusCode readResult = VfUtilities::createJsonDocumentFromFile(path, &document, true);
    if (readResult != 0)
        return readResult;
    if (!document.isArray())
        return REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, path, QStringLiteral("its root is not an array"));

    // Records stay here, owned by this load, until the whole catalogue has passed.
    QHash<unsigned long long, VfStaticStatusInfo*> loaded;
    QHash<unsigned long long, QString> recordOfCode;
    QString reason;
    const QJsonArray records = document.array();
    for (int i = 0; i < records.size(); ++i) {
        const QString name = records.at(i).toObject().value(QStringLiteral("name")).toString();
        const QString label = QStringLiteral("record %1 (\"%2\")").arg(i + 1).arg(name);
        bool isEnumerator = false;
        const int value = codes.keyToValue(name.toLatin1().constData(), &isEnumerator);
        // Widened with its sign, as the framework's codes are.
        const unsigned long long code = static_cast<unsigned long long>(static_cast<long long>(value));
        reason = checkStatusRecord(records.at(i));
        if (!reason.isEmpty())
            reason = label + QStringLiteral(": ") + reason;
        else if (!isEnumerator)
            reason = label + QStringLiteral(": \"") + name + QStringLiteral("\" is no enumerator of ") + enumText;
        else if (code <= VfStatusCodes::LastValue || m_frameworkStatusCodes.contains(code))
            reason = label + QStringLiteral(": its value %1 is a framework code").arg(code);
        else if (loaded.contains(code))
            reason = label + QStringLiteral(": its value %1 is that of %2").arg(code).arg(recordOfCode.value(code));
        if (!reason.isEmpty())
            break;
        VfStatusCodes::VfStatusCode ignored;
        loaded.insert(code, createStaticStatusInfoObjectFromJsonObject(records.at(i).toObject(), &ignored));
        recordOfCode.insert(code, label);
    }

    // Published by compare-and-swap, so that loads on two threads cannot lose each other's records.
    auto* next = new ApplicationStatusCodes;
    ApplicationStatusCodes* current = m_applicationStatusCodes.loadAcquire();
    while (reason.isEmpty()) {
        next->records.clear();
        if (current) {
            for (auto it = current->records.cbegin(); it != current->records.cend(); ++it) {
                if (loaded.contains(it.key()) && reason.isEmpty())
                    reason = recordOfCode.value(it.key())
                             + QStringLiteral(": its value %1 is that of an earlier catalogue's record").arg(it.key());
                next->records.insert(it.key(), it.value());
            }
        }
        if (!reason.isEmpty())
            break;
        for (auto it = loaded.cbegin(); it != loaded.cend(); ++it)
            next->records.insert(it.key(), it.value());
        next->previous = current;
        if (m_applicationStatusCodes.testAndSetOrdered(current, next, current))
            return VfStatusCodes::Success;
    }
    delete next;
    qDeleteAll(loaded);
    return REPORT_STATUS(VfStatusCodes::ConfigurationDataInvalid, path, reason);
}

QString VfStatusReporter::checkStatusRecord(const QJsonValue& record)
{
    if (!record.isObject())
        return QStringLiteral("it is not an object");
    const QJsonObject object = record.toObject();
    for (const char* member : RecordMembers) {
        if (!object.value(QLatin1String(member)).isString())
            return QStringLiteral("its %1 is missing or not a string").arg(QLatin1String(member));
    }
    const QString severity = object.value(QStringLiteral("severity")).toString();
    if (enumKeyToValue<VfStaticStatusInfo>("VfStatusSeverity", severity) < 0)
        return QStringLiteral("\"") + severity + QStringLiteral("\" is no severity");
    const QString category = object.value(QStringLiteral("category")).toString();
    if (enumKeyToValue<VfStaticStatusInfo>("VfStatusCategory", category) < 0)
        return QStringLiteral("\"") + category + QStringLiteral("\" is no category");

    // REPORT_STATUS checks its arguments against the number of markers, and fills them in order of
    // their numbers: %1 to %n, each once, is what lets every argument land.
    static const QRegularExpression markerExpression(QStringLiteral("%(\\d{1,2})"));
    QList<int> numbers;
    QStringList markers;
    QRegularExpressionMatchIterator it = markerExpression.globalMatch(object.value(QStringLiteral("description")).toString());
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        numbers.append(match.captured(1).toInt());
        markers.append(match.captured(0));
    }
    std::sort(numbers.begin(), numbers.end());
    for (int i = 0; i < numbers.size(); ++i) {
        if (numbers.at(i) != i + 1) {
            return QStringLiteral("its description has the place markers ") + markers.join(QStringLiteral(", "))
                   + QStringLiteral(", not %1 to %n each once");
        }
    }
    return QString();
}

} // namespace Crosscutting
