#include "vfdisplayable.h"

namespace Crosscutting {

QString VfDisplayable::formatSingleLineLongFormString(const QStringList& fields) const
{
    return QLatin1Char('[') + fields.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString VfDisplayable::formatMultiLineLongFormString(const QHash<QString, QString>& fields) const
{
    // Lines follow QHash's own iteration order on purpose: readers look for labels, not positions.
    QStringList lines;
    lines.reserve(fields.size());
    for (auto it = fields.constBegin(); it != fields.constEnd(); ++it)
        lines.append(QStringLiteral("%1: %2").arg(it.key(), 13, QLatin1Char(' ')).arg(it.value(), -20, QLatin1Char(' ')));
    return lines.join(QLatin1Char('\n'));
}

} // namespace Crosscutting
