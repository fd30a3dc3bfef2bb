#include "vfsourcecontext.h"

#include "vfcrosscuttingmanagerplaceholder.h"

#include <QByteArray>
#include <QHash>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace Crosscutting {

const QString MainThread = QStringLiteral("MainThread");
const QString TaskProcessor = QStringLiteral("TaskProcessor");

namespace {

// The time text is deliberately not ISO: month first, a two-digit year, a 12-hour clock.
const QString& timeFormat()
{
    static const QString format = QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP");
    return format;
}

qint64 floorDivide(qint64 value, qint64 divisor)
{
    return value >= 0 ? value / divisor : -((divisor - 1 - value) / divisor);
}

// The local clock's offset from UTC at a moment, as QDateTime::currentDateTime() finds it through
// the C library, which with TZ unset looks at /etc/localtime on every call. Asked again only when
// it can have changed: in another second (zones change their offset on whole seconds) or with
// another TZ. A replaced /etc/localtime therefore shows within the second. Per thread, so no lock.
int localOffsetAt(qint64 msecsSinceEpoch)
{
    struct Cache {
        qint64 second = std::numeric_limits<qint64>::min();
        int offset = 0;
        bool tzSet = false;
        std::string tz;
    };
    thread_local Cache cache;
    const qint64 second = floorDivide(msecsSinceEpoch, 1000);
    const char* tz = std::getenv("TZ");
    if (second == cache.second && (tz != nullptr) == cache.tzSet && (tz == nullptr || cache.tz == tz))
        return cache.offset;
    // As Qt does before each conversion, so that a changed zone is read.
    tzset();
    const time_t seconds = static_cast<time_t>(second);
    struct tm local;
    cache.offset = localtime_r(&seconds, &local) ? static_cast<int>(local.tm_gmtoff) : 0;
    cache.second = second;
    cache.tzSet = tz != nullptr;
    cache.tz = tz ? tz : "";
    return cache.offset;
}

// Date and time of day of a count of milliseconds on a clock without zone.
struct WallClock {
    int year, month, day, hour, minute, second, msec;
};

WallClock wallClockOf(qint64 msecs)
{
    const qint64 msecsPerDay = 86400000;
    qint64 days = floorDivide(msecs, msecsPerDay);
    const qint64 msecOfDay = msecs - days * msecsPerDay;
    // Civil date from a day count since 1970-01-01, in the proleptic Gregorian calendar.
    days += 719468;
    const qint64 era = floorDivide(days, 146097);
    const qint64 dayOfEra = days - era * 146097;
    const qint64 yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const qint64 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const qint64 monthFromMarch = (5 * dayOfYear + 2) / 153;
    WallClock clock;
    clock.day = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    clock.month = static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    clock.year = static_cast<int>(yearOfEra + era * 400 + (clock.month <= 2 ? 1 : 0));
    clock.hour = static_cast<int>(msecOfDay / 3600000);
    clock.minute = static_cast<int>(msecOfDay / 60000 % 60);
    clock.second = static_cast<int>(msecOfDay / 1000 % 60);
    clock.msec = static_cast<int>(msecOfDay % 1000);
    return clock;
}

QDateTime dateTimeOf(const WallClock& clock, Qt::TimeSpec timeSpec)
{
    return QDateTime(QDate(clock.year, clock.month, clock.day), QTime(clock.hour, clock.minute, clock.second, clock.msec),
                     timeSpec);
}

// What QDateTime::toString makes of the time format in the system locale, learnt once from Qt
// itself: the AM and PM texts, and whether the digits are the ASCII ones.
struct TimeTextLocale {
    bool asciiDigits;
    QString am;
    QString pm;
};

const TimeTextLocale& timeTextLocale()
{
    static const TimeTextLocale locale = [] {
        const QDateTime morning(QDate(2000, 1, 2), QTime(3, 4, 5, 6), Qt::UTC);
        const QDateTime evening(QDate(2000, 1, 2), QTime(15, 4, 5, 6), Qt::UTC);
        TimeTextLocale result;
        result.am = morning.toString(QStringLiteral("AP"));
        result.pm = evening.toString(QStringLiteral("AP"));
        result.asciiDigits = morning.toString(timeFormat()) == QLatin1String("01-02-00 03:04:05.006 ") + result.am;
        return result;
    }();
    return locale;
}

QChar* putDigits(QChar* out, int value, int width)
{
    for (int i = width - 1; i >= 0; --i) {
        out[i] = QLatin1Char(static_cast<char>('0' + value % 10));
        value /= 10;
    }
    return out + width;
}

// Appends the time text of a wall-clock time to text.
void appendTime(QString& text, const WallClock& clock)
{
    const TimeTextLocale& locale = timeTextLocale();
    if (!locale.asciiDigits || clock.year < 0) {
        text += dateTimeOf(clock, Qt::UTC).toString(timeFormat());
        return;
    }
    const QString& amPm = clock.hour < 12 ? locale.am : locale.pm;
    const int hour12 = clock.hour % 12 == 0 ? 12 : clock.hour % 12;
    const int start = text.size();
    text.resize(start + 22 + amPm.size());
    QChar* out = text.data() + start;
    out = putDigits(out, clock.month, 2);
    *out++ = QLatin1Char('-');
    out = putDigits(out, clock.day, 2);
    *out++ = QLatin1Char('-');
    out = putDigits(out, clock.year % 100, 2);
    *out++ = QLatin1Char(' ');
    out = putDigits(out, hour12, 2);
    *out++ = QLatin1Char(':');
    out = putDigits(out, clock.minute, 2);
    *out++ = QLatin1Char(':');
    out = putDigits(out, clock.second, 2);
    *out++ = QLatin1Char('.');
    out = putDigits(out, clock.msec, 3);
    *out++ = QLatin1Char(' ');
    std::copy(amPm.constBegin(), amPm.constEnd(), out);
}

// Appends a number in base 10, as QString::number gives it.
void appendNumber(QString& text, unsigned long long value)
{
    char digits[20];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    const int start = text.size();
    text.resize(start + count);
    QChar* out = text.data() + start;
    while (count > 0)
        *out++ = QLatin1Char(digits[--count]);
}

// QFileInfo(path).fileName() without the file system object: the part after the last "/".
QString fileNameOf(const QString& path)
{
    if (path.isEmpty())
        return QString(QLatin1String(""));
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? path : path.mid(slash + 1);
}

// Texts come from a fixed set of sites, so each thread works each out once. The bound is for
// callers that pass texts of their own, such as gdb backtraces.
const int kMaxCachedTexts = 4096;

// A reporting site's literal, converted once per thread; the stored copy guards against another
// literal at the same address after a library was unloaded.
template <typename Convert>
QString cachedSiteText(QHash<const char*, QPair<QByteArray, QString>>& cache, const char* literal, Convert convert)
{
    const auto found = cache.constFind(literal);
    if (found != cache.constEnd() && qstrcmp(found->first.constData(), literal) == 0)
        return found->second;
    if (cache.size() >= kMaxCachedTexts)
        cache.clear();
    const QString text = convert(literal);
    cache.insert(literal, qMakePair(QByteArray(literal), text));
    return text;
}

} // namespace

// Makes the contexts of createSourceContext, from texts that each thread works out once per site.
class VfSourceContextFactory
{
public:
    static VfSourceContext& create(const QString& sourceModule, const QString& sourceFile,
                                   unsigned long long lineNumber, const QString& functionSignature,
                                   const QStringList& additionalInfo);

private:
    // What the signature expression makes of one function signature.
    struct ParsedSignature {
        QString sourceNamespace;
        QString sourceClass;
        QString sourceFunction;
        QString module; // the module for a context that names none
        // The texts of the last context made with this signature, for the next one of the same site.
        QString lastSourceFile;
        QExplicitlySharedDataPointer<const VfSourceContext::SiteTexts> lastSite;
    };

    static ParsedSignature parseSignature(const QString& functionSignature)
    {
        // Compiled once per process: this runs for every new signature on every thread.
        static const QRegularExpression signatureExpression(QStringLiteral(
            "(?<returnType>.+)\\s(?|(?<namespace>\\w+)::(?<class>\\w+)::|(?<namespace>)(?<class>\\w+)::|)(?<function>\\w+\\(.*\\))"));

        const QRegularExpressionMatch match = signatureExpression.match(functionSignature);
        const QString function = match.captured(QStringLiteral("function"));
        ParsedSignature parsed;
        parsed.sourceNamespace = match.captured(QStringLiteral("namespace"));
        parsed.sourceClass = match.captured(QStringLiteral("class"));
        if (function.isNull())
            parsed.sourceFunction = QStringLiteral("Unavailable: %1").arg(functionSignature);
        else
            parsed.sourceFunction = QStringLiteral("%1 %2").arg(match.captured(QStringLiteral("returnType"))).arg(function);
        parsed.module = parsed.sourceClass.startsWith(QLatin1String("Vf"), Qt::CaseSensitive)
            ? QStringLiteral("Velmar Framework")
            : QStringLiteral("Velmar Application");
        return parsed;
    }

    static ParsedSignature& cachedSignature(const QString& functionSignature)
    {
        thread_local QHash<QString, ParsedSignature> cache;
        const auto found = cache.find(functionSignature);
        if (found != cache.end())
            return *found;
        if (cache.size() >= kMaxCachedTexts)
            cache.clear();
        // A deep copy as the key: the caller's text may be raw data that changes later.
        return *cache.insert(QString(functionSignature.constData(), functionSignature.size()),
                             parseSignature(functionSignature));
    }
};

VfSourceContext& VfSourceContextFactory::create(const QString& sourceModule, const QString& sourceFile,
                                                unsigned long long lineNumber, const QString& functionSignature,
                                                const QStringList& additionalInfo)
{
    ParsedSignature& parsed = cachedSignature(functionSignature);
    const QString& module = sourceModule.isEmpty() ? parsed.module : sourceModule;
    if (!parsed.lastSite || parsed.lastSite->sourceModule != module || parsed.lastSourceFile != sourceFile) {
        auto* site = new VfSourceContext::SiteTexts;
        site->sourceModule = module;
        site->sourceFilename = fileNameOf(sourceFile);
        site->sourceNamespace = parsed.sourceNamespace;
        site->sourceClass = parsed.sourceClass;
        site->sourceFunction = parsed.sourceFunction;
        parsed.lastSite = QExplicitlySharedDataPointer<const VfSourceContext::SiteTexts>(site);
        parsed.lastSourceFile = QString(sourceFile.constData(), sourceFile.size()); // a deep copy, as the key
    }
    return *new VfSourceContext(parsed.lastSite, lineNumber, QThread::currentThread()->objectName(), additionalInfo);
}

VfSourceContext::VfSourceContext(const QString& sourceModule, const QString& sourceFilename,
                                 const QString& sourceNamespace, const QString& sourceClass,
                                 const QString& sourceFunction, unsigned long long sourceLineNumber,
                                 QString sourceThread, const QStringList& additionalInfo)
    : m_msecsSinceEpoch(QDateTime::currentMSecsSinceEpoch())
    , m_offsetFromUtc(localOffsetAt(m_msecsSinceEpoch))
    , m_sourceLineNumber(sourceLineNumber)
    , m_sourceThread(std::move(sourceThread))
    , m_additionalInfo(additionalInfo)
{
    SiteTexts* site = new SiteTexts;
    site->sourceModule = sourceModule;
    site->sourceFilename = sourceFilename;
    site->sourceNamespace = sourceNamespace;
    site->sourceClass = sourceClass;
    site->sourceFunction = sourceFunction;
    m_site = QExplicitlySharedDataPointer<const SiteTexts>(site);
}

VfSourceContext::VfSourceContext(const QExplicitlySharedDataPointer<const SiteTexts>& site,
                                 unsigned long long sourceLineNumber, QString sourceThread,
                                 const QStringList& additionalInfo)
    : m_msecsSinceEpoch(QDateTime::currentMSecsSinceEpoch())
    , m_offsetFromUtc(localOffsetAt(m_msecsSinceEpoch))
    , m_site(site)
    , m_sourceLineNumber(sourceLineNumber)
    , m_sourceThread(std::move(sourceThread))
    , m_additionalInfo(additionalInfo)
{
}

VfSourceContext::~VfSourceContext() = default;

QString VfSourceContext::sourceModule() const { return m_site->sourceModule; }
QString VfSourceContext::sourceFilename() const { return m_site->sourceFilename; }
QString VfSourceContext::sourceNamespace() const { return m_site->sourceNamespace; }
QString VfSourceContext::sourceClass() const { return m_site->sourceClass; }
QString VfSourceContext::sourceFunction() const { return m_site->sourceFunction; }
QString VfSourceContext::sourceThread() const { return m_sourceThread; }
unsigned long long VfSourceContext::sourceLineNumber() const { return m_sourceLineNumber; }
QStringList VfSourceContext::additionalInfo() const { return m_additionalInfo; }

QDateTime VfSourceContext::timestamp() const
{
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(m_msecsSinceEpoch, Qt::LocalTime);
    if (local.offsetFromUtc() == m_offsetFromUtc)
        return local;
    // The zone has changed since: a local time keeps the wall-clock time at which it was taken.
    return dateTimeOf(wallClockOf(m_msecsSinceEpoch + qint64(m_offsetFromUtc) * 1000), Qt::LocalTime);
}

QString VfSourceContext::timeText() const
{
    // The local time of construction, as timestamp().toString(timeFormat()) gives it.
    QString text;
    text.reserve(30);
    appendTime(text, wallClockOf(m_msecsSinceEpoch + qint64(m_offsetFromUtc) * 1000));
    return text;
}

QString VfSourceContext::toString(DisplayFormat format) const
{
    switch (format) {
    case ShortForm:
        return formatSingleLineShortFormString(false);
    case ShortFormWithTimestamp:
        return formatSingleLineShortFormString(true);
    case SingleLineLongForm: {
        // The bracketed list of formatSingleLineLongFormString, built in one buffer: the time, the
        // module, the file, the line, the thread, the namespace, the class, the function and the
        // text arguments, with every empty field in its place.
        const SiteTexts& site = *m_site;
        const QString* const fields[] = {&site.sourceModule, &site.sourceFilename, nullptr, &m_sourceThread,
                                         &site.sourceNamespace, &site.sourceClass, &site.sourceFunction};
        int size = 64 + 2 * m_additionalInfo.size();
        for (const QString* field : fields)
            size += field ? field->size() + 2 : 0;
        for (const QString& info : m_additionalInfo)
            size += info.size();
        QString text;
        text.reserve(size);
        text += QLatin1Char('[');
        appendTime(text, wallClockOf(m_msecsSinceEpoch + qint64(m_offsetFromUtc) * 1000));
        for (const QString* field : fields) {
            text += QLatin1String(", ");
            if (field)
                text += *field;
            else
                appendNumber(text, m_sourceLineNumber);
        }
        for (const QString& info : m_additionalInfo) {
            text += QLatin1String(", ");
            text += info;
        }
        text += QLatin1Char(']');
        return text;
    }
    case MultiLineLongForm: {
        QHash<QString, QString> fields;
        fields.insert(QStringLiteral("Timestamp"), timeText());
        fields.insert(QStringLiteral("Module"), sourceModule());
        fields.insert(QStringLiteral("Filename"), sourceFilename());
        fields.insert(QStringLiteral("Namespace"), sourceNamespace());
        fields.insert(QStringLiteral("Class"), sourceClass());
        fields.insert(QStringLiteral("Function"), sourceFunction());
        fields.insert(QStringLiteral("Line #"), QString::number(sourceLineNumber()));
        fields.insert(QStringLiteral("Thread"), sourceThread());
        const QStringList info = additionalInfo();
        if (!info.isEmpty()) {
            fields.insert(QStringLiteral("Text Args"), info.first());
            // Every later item goes to the one empty key, each replacing the one before: the block
            // shows the first and the last, and the whole list stands in the single-line form.
            for (int i = 1; i < info.size(); ++i)
                fields.insert(QString(), info.at(i));
        }
        return formatMultiLineLongFormString(fields);
    }
    }
    return QString();
}

QString VfSourceContext::formatSingleLineShortFormString(bool includeTimestamp) const
{
    const QString& fileName = m_site->sourceFilename;
    const QString& module = m_site->sourceModule;
    // The file part is what follows the last "/": the split keeps empty parts, so a name ending in
    // "/" has an empty one, and the split always gives at least one part.
    const int slash = fileName.lastIndexOf(QLatin1Char('/'));
    const QString filePart = slash < 0 ? fileName : fileName.mid(slash + 1);
    const bool withModule = !module.isEmpty();
    // The bracket has always been filled by successive QString::arg calls, which take a "%" in a
    // filled part for a place marker of the next call. Only such parts still go through them.
    if (filePart.contains(QLatin1Char('%')) || (withModule && module.contains(QLatin1Char('%')))) {
        const QString line = QString::number(m_sourceLineNumber);
        const QString timePrefix = includeTimestamp ? timeText() + QLatin1Char(' ') : QString();
        if (withModule)
            return QStringLiteral("[%4%1:%2:%3]").arg(filePart).arg(line).arg(module).arg(timePrefix);
        return QStringLiteral("[%3%1:%2]").arg(filePart).arg(line).arg(timePrefix);
    }
    QString text;
    text.reserve(64 + filePart.size() + module.size());
    text += QLatin1Char('[');
    if (includeTimestamp) {
        const int start = text.size();
        appendTime(text, wallClockOf(m_msecsSinceEpoch + qint64(m_offsetFromUtc) * 1000));
        // A "%" in the time text (a locale's AM or PM text) is a place marker to the calls above.
        if (text.indexOf(QLatin1Char('%'), start) >= 0) {
            const QString timePrefix = timeText() + QLatin1Char(' ');
            const QString line = QString::number(m_sourceLineNumber);
            if (withModule)
                return QStringLiteral("[%4%1:%2:%3]").arg(filePart).arg(line).arg(module).arg(timePrefix);
            return QStringLiteral("[%3%1:%2]").arg(filePart).arg(line).arg(timePrefix);
        }
        text += QLatin1Char(' ');
    }
    text += filePart;
    text += QLatin1Char(':');
    appendNumber(text, m_sourceLineNumber);
    if (withModule) {
        text += QLatin1Char(':');
        text += module;
    }
    text += QLatin1Char(']');
    return text;
}

VfSourceContext& createSourceContext(const QString& sourceModule, const QString& sourceFile,
                                     unsigned long long lineNumber, const QString& functionSignature,
                                     const QStringList& additionalInfo)
{
    return VfSourceContextFactory::create(sourceModule, sourceFile, lineNumber, functionSignature, additionalInfo);
}

QString siteFileName(const char* file)
{
    thread_local QHash<const char*, QPair<QByteArray, QString>> cache;
    return cachedSiteText(cache, file, [](const char* text) { return fileNameOf(QString::fromUtf8(text)); });
}

QString siteFunctionText(const char* function)
{
    thread_local QHash<const char*, QPair<QByteArray, QString>> cache;
    return cachedSiteText(cache, function, [](const char* text) { return QString::fromLatin1(text); });
}

QDebug operator<<(QDebug debug, const VfSourceContext& context)
{
    debug << context.toString(VfSourceContext::MultiLineLongForm);
    return debug.maybeSpace();
}

VfSourceContext* createSourceContextFromGdbBacktrace(const QString& backtraceLine)
{
    // Built anew on each call: nothing in the library calls this on a hot path.
    // The branches take, in order: "name () from library", "name (args) at file:line", "name (args)".
    const QRegularExpression frameExpression(QStringLiteral(
        "#\\d+.+\\sin\\s(?|(?<functionInfo>.+)\\s\\(\\)\\sfrom\\s(?<filename>.+)(?<linenumber>)"
        "|(?<functionInfo>.+)\\sat\\s(?<filename>.+):(?<linenumber>\\d+)"
        "|(?<functionInfo>.+)(?<filename>)(?<linenumber>))"));
    const QRegularExpressionMatch match = frameExpression.match(backtraceLine);
    if (!match.hasMatch()) {
        REPORT_STATUS(VfStatusCodes::StringParseError, backtraceLine);
        return nullptr;
    }
    // Without its blanks, the frame's text has just the one blank that the signature expression
    // of createSourceContext splits at: the one after the stand-in return type that a frame line lacks.
    QString functionInfo = match.captured(QStringLiteral("functionInfo"));
    functionInfo.replace(QStringLiteral(" "), QString(), Qt::CaseSensitive);
    functionInfo.insert(0, QStringLiteral("unknownReturnType "));
    const unsigned long long lineNumber = match.captured(QStringLiteral("linenumber")).toULongLong(nullptr, 10);
    return &createSourceContext(QString(), match.captured(QStringLiteral("filename")), lineNumber, functionInfo,
                                QStringList());
}

} // namespace Crosscutting
