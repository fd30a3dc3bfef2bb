#include "vfutilities.h"

#include "faulttestsupport.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <execinfo.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Crosscutting;

// The functions below show up in the frames under test: the test program is linked with
// -rdynamic and built without optimisation (tst_backtrace.cmake), so each is one named frame.
namespace BacktraceProbe {

__attribute__((noinline)) void captureRaw(const char* path)
{
    VfUtilities::logBackTraceNoDemangle(path);
}

__attribute__((noinline)) int recurseThenCapture(int depth, const char* path)
{
    if (depth == 0) {
        captureRaw(path);
        return 0;
    }
    return recurseThenCapture(depth - 1, path) + 1;
}

// Both captures come from one call site, so their frames are the same text.
__attribute__((noinline)) void captureTwice(const char* first, const char* second)
{
    for (const char* path : {first, second})
        captureRaw(path);
}

class Reporter
{
public:
    // Writes with logBackTrace, and gives the number of frames that this function sees itself.
    __attribute__((noinline)) static void report(const QString& path, int* ownCount)
    {
        VfUtilities::logBackTrace(path);
        void* frames[100];
        *ownCount = backtrace(frames, 100);
    }
};

} // namespace BacktraceProbe

namespace BacktraceProbeWithAnIntentionallyLongNamespaceNameToOutgrowTheBuffer {
struct ParameterTypeWhoseNameIsRepeatedForEveryParameterOfTheCaller
{
};
using P = ParameterTypeWhoseNameIsRepeatedForEveryParameterOfTheCaller;
__attribute__((noinline)) void callerWithALongDemangledName(const QString& path, P, P, P, P)
{
    VfUtilities::logBackTrace(path);
}
} // namespace BacktraceProbeWithAnIntentionallyLongNamespaceNameToOutgrowTheBuffer

// Not a mangled name: __cxa_demangle refuses it.
extern "C" __attribute__((noinline)) void vf_backtrace_plain_c_caller(const QString* path)
{
    VfUtilities::logBackTrace(*path);
}

// Internal linkage: not in the dynamic symbol table, so its frame has an empty name.
static __attribute__((noinline)) void unnamedCaller(const QString& path)
{
    VfUtilities::logBackTrace(path);
}

namespace {

const QByteArray noDemangleSymbol = "_ZN12Crosscutting11VfUtilities22logBackTraceNoDemangleEPKc";
const QRegularExpression rawFrame(QStringLiteral("^\\S.*\\[0x[0-9a-f]+\\]$"));

QString program()
{
    return QCoreApplication::arguments().first();
}

mode_t modeOf(const QString& path)
{
    struct stat info;
    if (stat(QFile::encodeName(path).constData(), &info) != 0)
        return mode_t(-1);
    return info.st_mode & 07777;
}

// The frame lines of a logBackTrace file: all lines after the heading.
QList<QByteArray> frameLines(const QString& path)
{
    QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(path));
    if (!lines.isEmpty())
        lines.removeFirst();
    return lines;
}

bool matches(const QString& pattern, const QByteArray& line)
{
    return QRegularExpression(pattern).match(QString::fromLatin1(line)).hasMatch();
}

} // namespace

class tst_Backtrace : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    // logBackTraceNoDemangle
    void noDemangleWritesRawFrames();
    void noDemangleCutsAtHundredFrames();
    void noDemangleKeepsTailOfLongerOldFile();
    void noDemangleNewFileModeIsOwnerOnlyLessUmask_data();
    void noDemangleNewFileModeIsOwnerOnlyLessUmask();
    void noDemangleExistingFileKeepsMode_data();
    void noDemangleExistingFileKeepsMode();
    void noDemangleMissingDirectoryReturnsAndCreatesNothing();
    void noDemangleDescriptorZeroReturnsAndStaysOpen();

    // logBackTrace
    void logBackTraceHeading();
    void logBackTraceLeavesOutFrameZero();
    void logBackTraceNonMangledNameGetsEmptyParentheses();
    void logBackTraceEmptyNameGetsEmptyParentheses();
    void logBackTraceFrameWithoutParenthesesWrittenAlone_data();
    void logBackTraceFrameWithoutParenthesesWrittenAlone();
    void logBackTraceLongDemangledNameWrittenWhole();
    void logBackTraceTruncatesOldFile();
    void logBackTraceUnopenablePathCreatesNothing();

private:
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
};

void tst_Backtrace::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void tst_Backtrace::noDemangleWritesRawFrames()
{
    const QString file = path("raw");
    BacktraceProbe::captureRaw(QFile::encodeName(file).constData());
    const QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(file));
    QVERIFY(lines.size() > 3);
    // The format of backtrace_symbols_fd, innermost first, frame 0 included, no heading.
    for (const QByteArray& line : lines)
        QVERIFY2(rawFrame.match(QString::fromLatin1(line)).hasMatch(), line.constData());
    QVERIFY2(lines.at(0).contains(noDemangleSymbol), lines.at(0).constData());
    QVERIFY(lines.at(1).contains("_ZN14BacktraceProbe10captureRawEPKc"));
    QVERIFY(lines.at(2).contains("noDemangleWritesRawFrames"));
}

void tst_Backtrace::noDemangleCutsAtHundredFrames()
{
    const QString shallow = path("shallow");
    BacktraceProbe::recurseThenCapture(10, QFile::encodeName(shallow).constData());
    const QList<QByteArray> shallowLines = FaultTest::lines(FaultTest::readAll(shallow));
    QVERIFY(shallowLines.size() < 100);
    QVERIFY(!FaultTest::lineWith(shallowLines, {"(main+"}).isEmpty());

    const QString deep = path("deep");
    BacktraceProbe::recurseThenCapture(150, QFile::encodeName(deep).constData());
    const QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(deep));
    QCOMPARE(lines.size(), 100);
    // The innermost frames stay; the outer ones, down to main, are lost.
    QVERIFY(lines.at(0).contains(noDemangleSymbol));
    QVERIFY(lines.at(1).contains("_ZN14BacktraceProbe10captureRawEPKc"));
    for (int i = 2; i < 100; ++i)
        QVERIFY2(lines.at(i).contains("_ZN14BacktraceProbe18recurseThenCaptureEiPKc"), lines.at(i).constData());
    QVERIFY(FaultTest::lineWith(lines, {"(main+"}).isEmpty());
}

void tst_Backtrace::noDemangleKeepsTailOfLongerOldFile()
{
    const QString fresh = path("fresh");
    const QString old = path("old");
    QByteArray oldContent;
    for (int i = 0; i < 2000; ++i)
        oldContent += "old line " + QByteArray::number(i) + '\n';
    {
        QFile file(old);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(oldContent);
    }
    BacktraceProbe::captureTwice(QFile::encodeName(fresh).constData(), QFile::encodeName(old).constData());

    // Part 7.2: kept as specified: no O_TRUNC and no O_APPEND.
    const QByteArray frames = FaultTest::readAll(fresh);
    QVERIFY(frames.contains(noDemangleSymbol));
    QVERIFY(frames.size() < oldContent.size());
    QCOMPARE(FaultTest::readAll(old), frames + oldContent.mid(frames.size()));
}

void tst_Backtrace::noDemangleNewFileModeIsOwnerOnlyLessUmask_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<int>("expected");
    QTest::newRow("umask 022") << 0022 << 0600;
    QTest::newRow("umask 000") << 0000 << 0600;
    QTest::newRow("umask 077") << 0077 << 0600;
    QTest::newRow("umask 277") << 0277 << 0400;
    QTest::newRow("umask 477") << 0477 << 0200;
}

void tst_Backtrace::noDemangleNewFileModeIsOwnerOnlyLessUmask()
{
    QFETCH(int, mask);
    QFETCH(int, expected);
    const QString file = path(QTest::currentDataTag());
    const mode_t previous = umask(mode_t(mask));
    VfUtilities::logBackTraceNoDemangle(QFile::encodeName(file).constData());
    umask(previous);
    QCOMPARE(int(modeOf(file)), expected);
    QVERIFY(FaultTest::readAll(file).contains(noDemangleSymbol));
}

void tst_Backtrace::noDemangleExistingFileKeepsMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("0644") << 0644;
    QTest::newRow("0640") << 0640;
    QTest::newRow("0755") << 0755;
    QTest::newRow("0444") << 0444;
}

void tst_Backtrace::noDemangleExistingFileKeepsMode()
{
    QFETCH(int, mode);
    const QString file = path(QTest::currentDataTag());
    {
        QFile existing(file);
        QVERIFY(existing.open(QIODevice::WriteOnly));
    }
    QCOMPARE(chmod(QFile::encodeName(file).constData(), mode_t(mode)), 0);
    VfUtilities::logBackTraceNoDemangle(QFile::encodeName(file).constData());
    QCOMPARE(int(modeOf(file)), mode);
    if (getuid() == 0 || (mode & 0200))
        QVERIFY(FaultTest::readAll(file).contains(noDemangleSymbol));
}

void tst_Backtrace::noDemangleMissingDirectoryReturnsAndCreatesNothing()
{
    const QString missing = path("missing");
    const QString file = missing + QStringLiteral("/backTrace");
    errno = 0;
    VfUtilities::logBackTraceNoDemangle(QFile::encodeName(file).constData());
    // Part 7.2: kept as specified: -1 passes the test against 0, so the operation goes on and its
    // write and close fail on the bad descriptor.
    QCOMPARE(errno, EBADF);
    QVERIFY(!QFileInfo::exists(missing));
    QVERIFY(!QFileInfo::exists(file));
}

void tst_Backtrace::noDemangleDescriptorZeroReturnsAndStaysOpen()
{
    // Part 7.2: kept as specified: with standard input closed, open gives 0 and the operation
    // returns at once, leaving an empty file and the descriptor open.
    const QString file = path("stdinClosed");
    const FaultTest::Run run =
        FaultTest::run(QStringLiteral(FAULT_HELPER), {QStringLiteral("stdin-closed"), file});
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QVERIFY(QFileInfo::exists(file));
    QCOMPARE(QFileInfo(file).size(), qint64(0));
    QVERIFY2(run.out.contains("descriptor 0 open"), run.out.constData());
}

void tst_Backtrace::logBackTraceHeading()
{
    const QString file = path("heading");
    const QDateTime before = QDateTime::currentDateTime();
    VfUtilities::logBackTrace(file);
    const QDateTime after = QDateTime::currentDateTime();

    const QByteArray content = FaultTest::readAll(file);
    const int end = content.indexOf('\n');
    QVERIFY(end > 0);
    const QByteArray heading = content.left(end + 1);
    QVERIFY2(matches(QStringLiteral("^\\[\\d\\d-\\d\\d-\\d\\d (0[1-9]|1[0-2]):[0-5]\\d:[0-5]\\d\\.\\d\\d\\d (AM|PM)\\] "
                                    "Backtrace: \\n$"),
                     heading),
             heading.constData());
    // The stamp is the local time of the call, to the millisecond.
    QStringList candidates;
    for (QDateTime t = before; t <= after; t = t.addMSecs(1))
        candidates << QLatin1Char('[') + t.toString(QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP"))
                          + QLatin1String("] Backtrace: \n");
    QVERIFY2(candidates.contains(QString::fromLatin1(heading)), heading.constData());
}

void tst_Backtrace::logBackTraceLeavesOutFrameZero()
{
    const QString file = path("frameZero");
    int ownCount = 0;
    BacktraceProbe::Reporter::report(file, &ownCount);
    const QList<QByteArray> lines = frameLines(file);

    // logBackTrace saw one frame more than its caller, its own, and left it out.
    QCOMPARE(lines.size(), ownCount);
    QVERIFY(FaultTest::lineWith(lines, {"VfUtilities::logBackTrace("}).isEmpty());
    QVERIFY(FaultTest::lineWith(lines, {"_ZN12Crosscutting11VfUtilities12logBackTrace"}).isEmpty());
    const QString module = QRegularExpression::escape(program());
    QVERIFY2(matches(QStringLiteral("^ %1 : BacktraceProbe::Reporter::report\\(QString const&, int\\*\\)\\+0x[0-9a-f]+$")
                         .arg(module),
                     lines.at(0)),
             lines.at(0).constData());
    QVERIFY2(matches(QStringLiteral("^ %1 : tst_Backtrace::logBackTraceLeavesOutFrameZero\\(\\)\\+0x[0-9a-f]+$").arg(module),
                     lines.at(1)),
             lines.at(1).constData());
}

void tst_Backtrace::logBackTraceNonMangledNameGetsEmptyParentheses()
{
    const QString file = path("plainName");
    vf_backtrace_plain_c_caller(&file);
    const QList<QByteArray> lines = frameLines(file);
    QVERIFY(!lines.isEmpty());
    QVERIFY2(matches(QStringLiteral("^ %1 : vf_backtrace_plain_c_caller\\(\\)\\+0x[0-9a-f]+$")
                         .arg(QRegularExpression::escape(program())),
                     lines.at(0)),
             lines.at(0).constData());
}

void tst_Backtrace::logBackTraceEmptyNameGetsEmptyParentheses()
{
    const QString file = path("emptyName");
    unnamedCaller(file);
    const QList<QByteArray> lines = frameLines(file);
    QVERIFY(!lines.isEmpty());
    QVERIFY2(matches(QStringLiteral("^ %1 : \\(\\)\\+0x[0-9a-f]+$").arg(QRegularExpression::escape(program())),
                     lines.at(0)),
             lines.at(0).constData());
}

void tst_Backtrace::logBackTraceFrameWithoutParenthesesWrittenAlone_data()
{
    QTest::addColumn<QString>("helper");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("alone");
    // When the C library cannot name the module, a frame is only "[0x...]".
    QTest::newRow("no parentheses: [0x...]") << QStringLiteral(FAULT_HELPER) << "logbacktrace-anonymous"
                                             << QStringLiteral("^\\[0x[0-9a-f]+\\]$");
    // A non-PIE program without -rdynamic gives "/path/program() [0x...]": parentheses, but no "+".
    QTest::newRow("no offset: module() [0x...]")
        << QStringLiteral(FAULT_HELPER_NOPIE) << "logbacktrace"
        << QStringLiteral("^%1\\(\\) \\[0x[0-9a-f]+\\]$").arg(QRegularExpression::escape(QStringLiteral(FAULT_HELPER_NOPIE)));
}

void tst_Backtrace::logBackTraceFrameWithoutParenthesesWrittenAlone()
{
    QFETCH(QString, helper);
    QFETCH(QString, mode);
    QFETCH(QString, alone);
    const QString file = path("noParentheses");
    const FaultTest::Run run = FaultTest::run(helper, {mode, file});
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 0);
    const QList<QByteArray> lines = frameLines(file);
    QVERIFY(lines.size() >= 3);
    // Frame 1 (the helper's Recorder::report) and main are both of that kind, and written unchanged.
    QVERIFY2(matches(alone, lines.at(0)), lines.at(0).constData());
    QVERIFY2(matches(alone, lines.at(1)), lines.at(1).constData());
    // Frames of other modules still split.
    QVERIFY(!FaultTest::lineWith(lines, {"libc.so.6 : "}).isEmpty());
}

void tst_Backtrace::logBackTraceLongDemangledNameWrittenWhole()
{
    namespace Long = BacktraceProbeWithAnIntentionallyLongNamespaceNameToOutgrowTheBuffer;
    const QString file = path("longName");
    Long::callerWithALongDemangledName(file, {}, {}, {}, {});

    const QString ns = QStringLiteral("BacktraceProbeWithAnIntentionallyLongNamespaceNameToOutgrowTheBuffer");
    const QString type = ns + QStringLiteral("::ParameterTypeWhoseNameIsRepeatedForEveryParameterOfTheCaller");
    const QString name = ns + QStringLiteral("::callerWithALongDemangledName(QString const&, %1, %1, %1, %1)").arg(type);
    QVERIFY(name.size() > 255);

    const QList<QByteArray> lines = frameLines(file);
    QVERIFY(lines.size() >= 2);
    const QString module = QRegularExpression::escape(program());
    QVERIFY2(matches(QStringLiteral("^ %1 : %2\\+0x[0-9a-f]+$").arg(module, QRegularExpression::escape(name)), lines.at(0)),
             lines.at(0).constData());
    // The grown buffer serves the next frames as well.
    QVERIFY2(matches(QStringLiteral("^ %1 : tst_Backtrace::logBackTraceLongDemangledNameWrittenWhole\\(\\)\\+0x[0-9a-f]+$")
                         .arg(module),
                     lines.at(1)),
             lines.at(1).constData());
}

void tst_Backtrace::logBackTraceTruncatesOldFile()
{
    const QString file = path("truncated");
    {
        QFile old(file);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(200000, 'o'));
    }
    VfUtilities::logBackTrace(file);
    const QByteArray content = FaultTest::readAll(file);
    QVERIFY(content.startsWith('['));
    QVERIFY(!content.contains(QByteArray(21, 'o')));
    QVERIFY(content.endsWith('\n'));
}

void tst_Backtrace::logBackTraceUnopenablePathCreatesNothing()
{
    const QString missing = path("missingToo");
    VfUtilities::logBackTrace(missing + QStringLiteral("/backTrace"));
    QVERIFY(!QFileInfo::exists(missing));
}

QTEST_GUILESS_MAIN(tst_Backtrace)
#include "tst_backtrace.moc"
