#ifndef VFDISPLAYABLE_H
#define VFDISPLAYABLE_H

#include "vfcrosscutting_export.h"

#include <QHash>
#include <QString>
#include <QStringList>

namespace Crosscutting {

// Abstract base of everything that renders itself as text, with the two long-form layouts (Part 1.2).
class VFCROSSCUTTING_EXPORT VfDisplayable
{
public:
    enum DisplayFormat : unsigned char {
        ShortForm = 0,
        ShortFormWithTimestamp = 1,
        SingleLineLongForm = 2,
        MultiLineLongForm = 3
    };

    VfDisplayable() {}
    virtual ~VfDisplayable() {}
    virtual QString toString(DisplayFormat format) const = 0;

    QString formatSingleLineLongFormString(const QStringList& fields) const;
    QString formatMultiLineLongFormString(const QHash<QString, QString>& fields) const;
};

} // namespace Crosscutting

#endif // VFDISPLAYABLE_H
