#ifndef VFSOURCECONTEXT_H
#define VFSOURCECONTEXT_H

/// \file
/// Source contexts and the functions that make them.

#include "vfcrosscutting_export.h"
#include "vfdisplayable.h"

#include <QDateTime>
#include <QDebug>
#include <QExplicitlySharedDataPointer>
#include <QSharedData>
#include <QString>
#include <QStringList>

namespace Crosscutting {

/// Immutable record of where and when a report or log entry was made: time, module, file and
/// line, namespace, class and function, thread, and the text arguments of the report.
///
/// Made on the heap by createSourceContext() and shared by QSharedPointer once reported. It never
/// changes after construction, so any thread may read it without a lock.
class VFCROSSCUTTING_EXPORT VfSourceContext : private VfDisplayable
{
public:
    using VfDisplayable::DisplayFormat;
    using VfDisplayable::ShortForm;
    using VfDisplayable::ShortFormWithTimestamp;
    using VfDisplayable::SingleLineLongForm;
    using VfDisplayable::MultiLineLongForm;

    /// Stores the arguments as they are and takes the local time. Cannot fail; any thread.
    /// Reporting sites use createSourceContext() instead.
    VfSourceContext(const QString& sourceModule, const QString& sourceFilename, const QString& sourceNamespace,
                    const QString& sourceClass, const QString& sourceFunction, unsigned long long sourceLineNumber,
                    QString sourceThread, const QStringList& additionalInfo);
    /// Any thread, once the last holder lets go.
    ~VfSourceContext() override;

    /// ShortForm and ShortFormWithTimestamp: formatSingleLineShortFormString(); SingleLineLongForm:
    /// time, module, file, line, thread, namespace, class, function and every argument in one bracket;
    /// MultiLineLongForm: one labelled line for each. An unknown form gives an empty string. Any thread.
    QString toString(DisplayFormat format) const override;
    /// The bracket that opens every log line: "[file:line:module]", or "[file:line]" for an empty
    /// module, with the time ("MM-dd-yy hh:mm:ss.zzz AP") and a blank at its start when
    /// includeTimestamp is true. Cannot fail; any thread.
    QString formatSingleLineShortFormString(bool includeTimestamp) const;

    /// The module label: "Velmar Framework" for classes whose names begin with "Vf", "Velmar
    /// Application" for the others, or the label the caller gave. Any thread.
    QString sourceModule() const;
    /// The source file name. Any thread.
    QString sourceFilename() const;
    /// The namespace of the reporting function; empty if none was found. Any thread.
    QString sourceNamespace() const;
    /// The class of the reporting function; empty if none was found. Any thread.
    QString sourceClass() const;
    /// Return type and function with its parameters, or "Unavailable: " followed by the signature
    /// when it could not be taken apart. Any thread.
    QString sourceFunction() const;
    /// objectName() of the thread that made the context; empty for an unnamed thread. Any thread.
    QString sourceThread() const;
    /// The source line; 0 when unknown. Any thread.
    unsigned long long sourceLineNumber() const;
    /// The text arguments of the report, in order. Any thread.
    QStringList additionalInfo() const;
    /// The local time at which the context was made. Any thread.
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

/// Thread name "MainThread", shared by the whole code base; the library itself reads neither
/// name. Give it to QThread::setObjectName() so that contexts carry it.
VFCROSSCUTTING_EXPORT extern const QString MainThread;
/// Thread name "TaskProcessor", shared by the whole code base.
VFCROSSCUTTING_EXPORT extern const QString TaskProcessor;

/// A new context on the heap, from what the compiler knows at a reporting site: the function
/// signature (as Q_FUNC_INFO gives it) is taken apart into namespace, class and function. An empty
/// sourceModule is derived from the class. Ownership passes to VfAbstractStatusReporter::reportStatus().
/// Never fails: an unreadable signature gives the "Unavailable: " function text. Any thread.
VFCROSSCUTTING_EXPORT VfSourceContext& createSourceContext(const QString& sourceModule, const QString& sourceFile,
                                                           unsigned long long lineNumber,
                                                           const QString& functionSignature,
                                                           const QStringList& additionalInfo);

/// The file name of a reporting site's __FILE__, as QFileInfo gives it, converted once per
/// thread and site. Cannot fail; any thread. REPORT_STATUS calls it.
VFCROSSCUTTING_EXPORT QString siteFileName(const char* file);
/// A reporting site's Q_FUNC_INFO as a QString, converted once per thread and site. Cannot fail;
/// any thread. REPORT_STATUS calls it.
VFCROSSCUTTING_EXPORT QString siteFunctionText(const char* function);

/// Streams the MultiLineLongForm text of context. Any thread.
VFCROSSCUTTING_EXPORT QDebug operator<<(QDebug debug, const VfSourceContext& context);

/// A new context, owned by the caller, from one frame line of a gdb backtrace such as
/// "#1  0x0000abcd in Crosscutting::VfFoo::bar (x=2) at vffoo.cpp:42". A line that is no frame
/// line is reported as StringParseError and gives null. Any thread.
VFCROSSCUTTING_EXPORT VfSourceContext* createSourceContextFromGdbBacktrace(const QString& backtraceLine);

} // namespace Crosscutting

#endif // VFSOURCECONTEXT_H
