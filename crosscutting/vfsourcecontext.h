#ifndef VFSOURCECONTEXT_H
#define VFSOURCECONTEXT_H

#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"

#include <QDateTime>
#include <QDebug>
#include <QExplicitlySharedDataPointer>
#include <QSharedData>
#include <QString>
#include <QStringList>

namespace Crosscutting {

// Immutable record of where and when a report or log entry was made.
class VFCROSSCUTTING_EXPORT VfSourceContext : private VfDisplayable
{
public:
    using VfDisplayable::DisplayFormat;
    using VfDisplayable::ShortForm;
    using VfDisplayable::ShortFormWithTimestamp;
    using VfDisplayable::SingleLineLongForm;
    using VfDisplayable::MultiLineLongForm;

    VfSourceContext(const QString& sourceModule, const QString& sourceFilename, const QString& sourceNamespace,
                    const QString& sourceClass, const QString& sourceFunction, unsigned long long sourceLineNumber,
                    QString sourceThread, const QStringList& additionalInfo);
    ~VfSourceContext() override;

    QString toString(DisplayFormat format) const override;
    QString formatSingleLineShortFormString(bool includeTimestamp) const;

    QString sourceModule() const;
    QString sourceFilename() const;
    QString sourceNamespace() const;
    QString sourceClass() const;
    QString sourceFunction() const;
    QString sourceThread() const;
    unsigned long long sourceLineNumber() const;
    QStringList additionalInfo() const;
    QDateTime timestamp() const;

private:
    friend class VfSourceContextFactory;

    // The texts that all contexts made at one reporting site share, held once.
    struct SiteTexts : QSharedData {
        QString sourceModule;
        QString sourceFilename;
        QString sourceNamespace;
        QString sourceClass;
        QString sourceFunction;
    };

    // A context of a site whose texts are already made.
    VfSourceContext(const QExplicitlySharedDataPointer<const SiteTexts>& site, unsigned long long sourceLineNumber,
                    QString sourceThread, const QStringList& additionalInfo);

    QString timeText() const;

    qint64 m_msecsSinceEpoch; // the time of construction, UTC
    int m_offsetFromUtc;      // the local clock's offset from UTC then, in seconds
    QExplicitlySharedDataPointer<const SiteTexts> m_site;
    unsigned long long m_sourceLineNumber;
    QString m_sourceThread;
    QStringList m_additionalInfo;
};

// Thread names shared by the whole code base; the library itself reads neither.
VFCROSSCUTTING_EXPORT extern const QString MainThread;
VFCROSSCUTTING_EXPORT extern const QString TaskProcessor;

// A new context on the heap, from what the compiler knows at a reporting site;
// ownership passes to reportStatus.
VFCROSSCUTTING_EXPORT VfSourceContext& createSourceContext(const QString& sourceModule, const QString& sourceFile,
                                                           unsigned long long lineNumber,
                                                           const QString& functionSignature,
                                                           const QStringList& additionalInfo);

// The texts of a reporting site's literals, converted once per thread: __FILE__ to its file name
// (as QFileInfo gives it), Q_FUNC_INFO to a QString.
VFCROSSCUTTING_EXPORT QString siteFileName(const char* file);
VFCROSSCUTTING_EXPORT QString siteFunctionText(const char* function);

VFCROSSCUTTING_EXPORT QDebug operator<<(QDebug debug, const VfSourceContext& context);

// A new context, owned by the caller, from one frame line of a gdb backtrace, or null for a line
// that is no frame line.
VFCROSSCUTTING_EXPORT VfSourceContext* createSourceContextFromGdbBacktrace(const QString& backtraceLine);

} // namespace Crosscutting

#endif // VFSOURCECONTEXT_H
