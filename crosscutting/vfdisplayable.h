#ifndef VFDISPLAYABLE_H
#define VFDISPLAYABLE_H

#include "vfcrosscutting_export.h"

#include <QHash>
#include <QString>
#include <QStringList>

namespace Crosscutting {

/// Abstract base of everything that renders itself as text for a person or a log, with the
/// two layouts that all long forms share: one bracketed line, or a block of aligned lines.
class VFCROSSCUTTING_EXPORT VfDisplayable
{
public:
    /// The four text forms of a displayable object.
    enum DisplayFormat : unsigned char {
        /// The shortest text, without the time.
        ShortForm = 0,
        /// The short text with the time in front.
        ShortFormWithTimestamp = 1,
        /// All the fields on one line.
        SingleLineLongForm = 2,
        /// All the fields, one line for each.
        MultiLineLongForm = 3
    };

    /// Does nothing. Cannot fail; any thread.
    VfDisplayable() {}
    /// Does nothing. Cannot fail; any thread.
    virtual ~VfDisplayable() {}
    /// The object as text in the given form. An unknown form gives an empty string.
    /// Any thread: implementations only read their object.
    virtual QString toString(DisplayFormat format) const = 0;

    /// "[" + the fields joined by ", " + "]", each field as it is, empty ones included; an empty
    /// list gives "[]". Cannot fail. Any thread.
    QString formatSingleLineLongFormString(const QStringList& fields) const;
    /// One line "key: value" per entry, the key right-aligned in 13 columns and the value
    /// left-aligned in 20, joined by "\n" in the hash's own order, with no line end after the last.
    /// An empty hash gives an empty string. Cannot fail. Any thread.
    QString formatMultiLineLongFormString(const QHash<QString, QString>& fields) const;
};

} // namespace Crosscutting

#endif // VFDISPLAYABLE_H
