#include "vfstaticstatusinfo.h"

#include "vfutilities.h"

namespace Crosscutting {

VfStaticStatusInfo::VfStaticStatusInfo()
    : QObject(nullptr)
    , m_severity(VfStatusSeverity::Unassigned)
    , m_category(VfStatusCategory::Unassigned)
{
}

VfStaticStatusInfo::VfStaticStatusInfo(const QString& title, const QString& description, VfStatusSeverity severity,
                                       VfStatusCategory category, QObject* parent)
    : QObject(parent)
    , m_title(title)
    , m_description(description)
    , m_severity(severity)
    , m_category(category)
{
}

QString VfStaticStatusInfo::title() const
{
    return m_title;
}

QString VfStaticStatusInfo::description() const
{
    return m_description;
}

VfStaticStatusInfo::VfStatusSeverity VfStaticStatusInfo::severity() const
{
    return m_severity;
}

VfStaticStatusInfo::VfStatusCategory VfStaticStatusInfo::category() const
{
    return m_category;
}

QString VfStaticStatusInfo::toString(DisplayFormat format) const
{
    switch (format) {
    case ShortForm:
    case ShortFormWithTimestamp:
        return description();
    case SingleLineLongForm:
        return formatSingleLineLongFormString(
            {title(), description(),
             VfUtilities::enumValueToString<VfStaticStatusInfo>(QStringLiteral("VfStatusSeverity"), int(m_severity)),
             VfUtilities::enumValueToString<VfStaticStatusInfo>(QStringLiteral("VfStatusCategory"), int(m_category))});
    case MultiLineLongForm: {
        QHash<QString, QString> fields;
        fields.insert(QStringLiteral("Title"), title());
        fields.insert(QStringLiteral("Description"), description());
        fields.insert(QStringLiteral("Severity"),
                      VfUtilities::enumValueToString<VfStaticStatusInfo>(QStringLiteral("VfStatusSeverity"), int(m_severity)));
        fields.insert(QStringLiteral("Category"),
                      VfUtilities::enumValueToString<VfStaticStatusInfo>(QStringLiteral("VfStatusCategory"), int(m_category)));
        return formatMultiLineLongFormString(fields);
    }
    }
    return QString();
}

} // namespace Crosscutting
