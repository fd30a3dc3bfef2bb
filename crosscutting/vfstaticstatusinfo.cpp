#include "vfstaticstatusinfo.h"

#include "vfutilities.h"

#include <QRegularExpression>

namespace Crosscutting {

VfStaticStatusInfo::VfStaticStatusInfo()
    : QObject(nullptr)
    , m_severity(VfStatusSeverity::Unassigned)
    , m_category(VfStatusCategory::Unassigned)
    , m_markerCount(-1)
{
}

VfStaticStatusInfo::VfStaticStatusInfo(const QString& title, const QString& description, VfStatusSeverity severity,
                                       VfStatusCategory category, QObject* parent)
    : QObject(parent)
    , m_title(title)
    , m_description(description)
    , m_severity(severity)
    , m_category(category)
    , m_markerCount(-1)
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

int VfStaticStatusInfo::markerCount() const
{
    int count = m_markerCount.load(std::memory_order_relaxed);
    if (count < 0) {
        // A record never changes, so threads that count at once store the same number.
        static const QRegularExpression markerExpression(QStringLiteral("%\\d{1,2}"));
        count = m_description.count(markerExpression);
        m_markerCount.store(count, std::memory_order_relaxed);
    }
    return count;
}

namespace {

// The names of all 256 values of a one-byte enumeration, as enumValueToString gives them, made once.
struct EnumNames {
    QString names[256];
    explicit EnumNames(const QString& enumName)
    {
        for (int value = 0; value < 256; ++value)
            names[value] = VfUtilities::enumValueToString<VfStaticStatusInfo>(enumName, value);
    }
};

const QString& severityName(VfStaticStatusInfo::VfStatusSeverity severity)
{
    static const EnumNames names(QStringLiteral("VfStatusSeverity"));
    return names.names[static_cast<quint8>(severity)];
}

const QString& categoryName(VfStaticStatusInfo::VfStatusCategory category)
{
    static const EnumNames names(QStringLiteral("VfStatusCategory"));
    return names.names[static_cast<quint8>(category)];
}

} // namespace

QString VfStaticStatusInfo::toString(DisplayFormat format) const
{
    switch (format) {
    case ShortForm:
    case ShortFormWithTimestamp:
        return description();
    case SingleLineLongForm: {
        // The bracketed list of formatSingleLineLongFormString, built in one buffer, with room for
        // the line end that a log entry appends.
        const QString& severity = severityName(m_severity);
        const QString& category = categoryName(m_category);
        QString text;
        text.reserve(9 + m_title.size() + m_description.size() + severity.size() + category.size());
        text += QLatin1Char('[');
        text += m_title;
        text += QLatin1String(", ");
        text += m_description;
        text += QLatin1String(", ");
        text += severity;
        text += QLatin1String(", ");
        text += category;
        text += QLatin1Char(']');
        return text;
    }
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
