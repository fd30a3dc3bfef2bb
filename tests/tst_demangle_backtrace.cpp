// The tool demangle_backtrace (tools/demangle_backtrace), run on real backtraces of the helper
// programs in tests/helpers and on odd input, always with a PATH that holds no other program:
// it resolves in its own process, on an instrument without binutils.

#include "faulttestsupport.h"
#include "vftestsupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString tool = QStringLiteral(DEMANGLE_BACKTRACE);

QByteArray frameLine(const QList<QByteArray>& lines, int number)
{
    const QByteArray prefix = '#' + QByteArray::number(number) + ' ';
    for (const QByteArray& line : lines) {
        if (line.startsWith(prefix))
            return line;
    }
    return QByteArray();
}

// The full "file:line" of a mark of the helper source.
QString sourcePlace(const char* mark)
{
    return QStringLiteral(FAULT_HELPER_SOURCE ":%1").arg(FaultTest::markLine(mark));
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(content) == content.size();
}

} // namespace

class tst_DemangleBacktrace : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void help_data();
    void help();
    void wrongArgumentCount_data();
    void wrongArgumentCount();
    void unreadableRawOrUnwritableOutFails_data();
    void unreadableRawOrUnwritableOutFails();
    void copiesWhatItCannotResolve_data();
    void copiesWhatItCannotResolve();

    void resolvesRealBacktrace_data();
    void resolvesRealBacktrace();
    void resolvesInlinedFrame();
    void resolvesCrashHandlerBacktrace_data();
    void resolvesCrashHandlerBacktrace();
    void acceptsBlankBeforeAddressAndCarriageReturn();

private:
    QString capture(const QString& helper, const char* mode, const char* name);
    FaultTest::Run runTool(const QStringList& arguments) { return FaultTest::run(tool, arguments, path("noPrograms"), true); }
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
};

void tst_DemangleBacktrace::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(QFileInfo(tool).isExecutable());
    QVERIFY(QDir(m_dir.path()).mkdir(QStringLiteral("noPrograms")));
    QVERIFY(writeFile(path("someRaw"), "[0x1234]\n"));
}

QString tst_DemangleBacktrace::capture(const QString& helper, const char* mode, const char* name)
{
    const QString raw = path(name);
    QFile::remove(raw);
    const FaultTest::Run run = FaultTest::run(helper, {QString::fromLatin1(mode), raw});
    return run.finished && run.exitCode == 0 ? raw : QString();
}

void tst_DemangleBacktrace::help_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("-h") << "-h";
    QTest::newRow("--help") << "--help";
}

void tst_DemangleBacktrace::help()
{
    QFETCH(QString, option);
    const FaultTest::Run run = runTool({option});
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 0);
    QVERIFY(run.err.isEmpty());
    const QList<QByteArray> lines = FaultTest::lines(run.out);
    for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OUTPUT FORMAT", "EXIT STATUS"})
        QVERIFY2(lines.contains(section), section);
    QVERIFY(run.out.contains("demangle_backtrace RAW OUT"));
}

void tst_DemangleBacktrace::wrongArgumentCount_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList();
    QTest::newRow("one") << QStringList{path("a")};
    QTest::newRow("three") << QStringList{path("a"), path("b"), path("c")};
}

void tst_DemangleBacktrace::wrongArgumentCount()
{
    QFETCH(QStringList, arguments);
    const FaultTest::Run run = runTool(arguments);
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 2);
    QVERIFY(run.err.contains("usage"));
    QVERIFY(run.out.isEmpty());
}

void tst_DemangleBacktrace::unreadableRawOrUnwritableOutFails_data()
{
    QTest::addColumn<QString>("raw");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("named"); // the path that the message names
    QTest::newRow("missing RAW") << path("doesNotExist") << path("missingRawOut") << path("doesNotExist");
    QTest::newRow("RAW is a directory") << m_dir.path() << path("directoryOut") << m_dir.path();
    QTest::newRow("OUT in a missing directory") << path("someRaw") << path("noSuchDirectory/out")
                                                << path("noSuchDirectory/out");
}

void tst_DemangleBacktrace::unreadableRawOrUnwritableOutFails()
{
    QFETCH(QString, raw);
    QFETCH(QString, out);
    QFETCH(QString, named);
    const FaultTest::Run run = runTool({raw, out});
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QFile::encodeName(named)), run.err.constData());
    QVERIFY(!QFileInfo::exists(out));
}

void tst_DemangleBacktrace::copiesWhatItCannotResolve_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("toStandardOutput"); // OUT "-"; otherwise a file full of older text
    QTest::newRow("empty") << QByteArray() << QByteArray() << false;
    QTest::newRow("shorter than OUT was") << QByteArray("[0x1234]\n") << QByteArray("#0 [0x1234]\n") << false;
    QTest::newRow("-") << QByteArray("[0x1234]\nnot a frame\n") << QByteArray("#0 [0x1234]\nnot a frame\n") << true;

    const QList<QByteArray> malformed = {
        "",
        "garbage without an address",
        "   \t ",
        "(((",
        "]",
        "[0xZZ]",
        "[0x12",
        "ule(+0x12)[0x1", // the start of an old tail left behind by a shorter backtrace
        QByteArrayLiteral("binary \x01\xff\x7f text"),
        QByteArray(5000, 'y'),
    };
    QByteArray raw = "[0x1000]\n";
    QByteArray expected = "#0 [0x1000]\n";
    for (const QByteArray& line : malformed) {
        raw += line + '\n';
        expected += line + '\n';
    }
    QTest::newRow("malformed lines") << raw + "[0x2000]\nno newline at the end"
                                     << expected + "#1 [0x2000]\nno newline at the end\n" << false;

    QTest::newRow("unresolvable frames") << QByteArray("[0x7f00deadbeef]\n"
                                                       "/no/such/module(+0x10) [0x55d000000010]\n"
                                                       "/no/such/module() [0x55d000000020]\n"
                                                       "/no/such/lib.so(_ZN3Foo3barEv+0x10) [0x7f0000001010]\n"
                                                       "/no/such/lib.so(not_mangled-0x8) [0x7f0000001010]\n")
                                         << QByteArray("#0 [0x7f00deadbeef]\n"
                                                       "#1 /no/such/module(+0x10) [0x55d000000010]\n"
                                                       "#2 /no/such/module() [0x55d000000020]\n"
                                                       // A name that the raw file holds is demangled all the same.
                                                       "#3 /no/such/lib.so: Foo::bar()+0x10\n"
                                                       "#4 /no/such/lib.so: not_mangled-0x8\n")
                                         << false;
}

void tst_DemangleBacktrace::copiesWhatItCannotResolve()
{
    QFETCH(QByteArray, raw);
    QFETCH(QByteArray, expected);
    QFETCH(bool, toStandardOutput);
    const QString rawPath = path("copiedRaw");
    const QString out = toStandardOutput ? QStringLiteral("-") : path("copiedOut");
    QVERIFY(writeFile(rawPath, raw));
    QVERIFY(toStandardOutput || writeFile(out, QByteArray(10000, 'x')));
    const FaultTest::Run run = runTool({rawPath, out});
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(toStandardOutput ? run.out : FaultTest::readAll(out), expected);
}

void tst_DemangleBacktrace::resolvesRealBacktrace_data()
{
    QTest::addColumn<QString>("helper");
    QTest::addColumn<QString>("rawShape");
    QTest::addColumn<bool>("debugInfo");
    // Each build of the helper gives its own frames a different shape in the raw file.
    QTest::newRow("-rdynamic: (symbol+0xOFF)") << QStringLiteral(FAULT_HELPER)
                                               << "\\(_ZN11FaultHelper12innerCaptureEPKc\\+0x[0-9a-f]+\\)" << true;
    QTest::newRow("PIE: (+0xOFF)") << QStringLiteral(FAULT_HELPER_PIE) << "\\(\\+0x[0-9a-f]+\\)" << true;
    QTest::newRow("non-PIE: no parentheses") << QStringLiteral(FAULT_HELPER_NOPIE) << "^[^(]*\\[0x[0-9a-f]+\\]$" << true;
    // Names from the symbol table alone; the library keeps its own debug information.
    QTest::newRow("PIE without debug information") << QStringLiteral(FAULT_HELPER_NODEBUG) << "\\(\\+0x[0-9a-f]+\\)" << false;
}

void tst_DemangleBacktrace::resolvesRealBacktrace()
{
    QFETCH(QString, helper);
    QFETCH(QString, rawShape);
    QFETCH(bool, debugInfo);
    const QString raw = capture(helper, "capture", "realRaw");
    QVERIFY(!raw.isEmpty());
    const QList<QByteArray> rawLines = FaultTest::lines(FaultTest::readAll(raw));
    QVERIFY(rawLines.size() >= 4);
    QVERIFY2(QRegularExpression(rawShape).match(QString::fromLatin1(rawLines.at(1))).hasMatch(), rawLines.at(1).constData());

    const QString out = path("realOut");
    const FaultTest::Run run = runTool({raw, out});
    QCOMPARE(run.exitCode, 0);
    const QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(out));
    QCOMPARE(lines.size(), rawLines.size());
    for (int i = 0; i < lines.size(); ++i)
        QVERIFY2(lines.at(i).startsWith('#' + QByteArray::number(i) + ' '), lines.at(i).constData());

    const QByteArray frame0 = frameLine(lines, 0);
    QVERIFY2(frame0.contains("Crosscutting::VfUtilities::logBackTraceNoDemangle(char const*)+0x"), frame0.constData());
    QVERIFY2(frame0.contains("vfutilities.cpp:"), frame0.constData());
    const auto place = [debugInfo](const char* mark) {
        return debugInfo ? QRegularExpression::escape(QLatin1String(" at ") + sourcePlace(mark)) : QString();
    };
    const QString frame = QStringLiteral("^#%1 ") + QRegularExpression::escape(helper) + QStringLiteral(": %2\\+0x[0-9a-f]+%3$");
    const QByteArray frame1 = frameLine(lines, 1);
    QVERIFY2(QRegularExpression(frame.arg(1).arg(QStringLiteral("FaultHelper::innerCapture\\(char const\\*\\)"), place("capture")))
                 .match(QString::fromLatin1(frame1))
                 .hasMatch(),
             frame1.constData());
    const QByteArray frame2 = frameLine(lines, 2);
    QVERIFY2(QRegularExpression(frame.arg(2).arg(QStringLiteral("FaultHelper::Recorder::record\\(char const\\*\\)"), place("record")))
                 .match(QString::fromLatin1(frame2))
                 .hasMatch(),
             frame2.constData());
    const QByteArray frame3 = frameLine(lines, 3);
    QVERIFY2(frame3.startsWith("#3 " + QFile::encodeName(helper) + ": main+0x"), frame3.constData());
    QCOMPARE(frame3.contains("faulthelper.cpp:"), debugInfo);

    // The offsets in the functions are those that the C library writes where it knows the
    // symbol: every build has the same code in these two functions.
    const QList<QByteArray> named = FaultTest::lines(FaultTest::readAll(capture(QStringLiteral(FAULT_HELPER), "capture", "namedRaw")));
    QVERIFY(named.size() >= 3);
    const QRegularExpression offset(QStringLiteral("\\+(0x[0-9a-f]+)(\\)| at |$)"));
    for (int i = 1; i <= 2; ++i)
        QCOMPARE(offset.match(QString::fromLatin1(lines.at(i))).captured(1), offset.match(QString::fromLatin1(named.at(i))).captured(1));
}

void tst_DemangleBacktrace::resolvesInlinedFrame()
{
    const QString raw = capture(QStringLiteral(FAULT_HELPER), "capture-inlined", "inlinedRaw");
    QVERIFY(!raw.isEmpty());
    const QString out = path("inlinedOut");
    QCOMPARE(runTool({raw, out}).exitCode, 0);
    const QByteArray frame1 = frameLine(FaultTest::lines(FaultTest::readAll(out)), 1);
    // The statement inside the inlined function, then where it was inlined.
    QVERIFY2(frame1.contains(": FaultHelper::Recorder::recordInlined(char const*)+0x"), frame1.constData());
    QVERIFY2(frame1.contains(" at " + sourcePlace("inlined").toLatin1() + " (inlined: "),
             frame1.constData());
    QVERIFY2(frame1.endsWith("(inlined: FaultHelper::inlinedCapture(char const*) into FaultHelper::Recorder::recordInlined(char const*) at "
                             + sourcePlace("recordInlined").toLatin1() + ')'),
             frame1.constData());
}
void tst_DemangleBacktrace::resolvesCrashHandlerBacktrace_data()
{
    QTest::addColumn<QString>("helper");
    QTest::addColumn<QString>("what");
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<QByteArray>("place");
    for (const QString& helper : {QStringLiteral(FAULT_HELPER), QStringLiteral(FAULT_HELPER_PIE)}) {
        const QByteArray variant = helper == QStringLiteral(FAULT_HELPER) ? "-rdynamic" : "PIE";
        // raise(): the line of the call. Division and trap: the faulting instruction's own line,
        // since the frame after the signal trampoline is no return address.
        QTest::newRow(variant + " SIGHUP by raise") << helper << "HUP" << QByteArray("FaultHelper::Crasher::raiseSignal(int)+0x")
                                                    << FaultTest::markPlace("raise");
        QTest::newRow(variant + " SIGFPE by division") << helper << "FPE-divide"
                                                       << QByteArray("FaultHelper::divide(int, int)+0x")
                                                       << FaultTest::markPlace("divide");
        QTest::newRow(variant + " SIGILL by trap") << helper << "ILL-trap" << QByteArray("FaultHelper::Crasher::trap()+0x")
                                                   << FaultTest::markPlace("trap");
    }
}

void tst_DemangleBacktrace::resolvesCrashHandlerBacktrace()
{
    QFETCH(QString, helper);
    QFETCH(QString, what);
    QFETCH(QByteArray, function);
    QFETCH(QByteArray, place);
    if (!VfTest::isSandboxed())
        QSKIP("writes /etc/tarvion/logs: run through tests/sandbox-run");
    QDir(QStringLiteral("/etc/tarvion/logs")).removeRecursively();
    QVERIFY(QDir().mkpath(QStringLiteral("/etc/tarvion/logs")));

    // The crash handler runs the tool itself, found on a PATH that holds nothing else.
    for (const QString& binutil : {QStringLiteral("nm"), QStringLiteral("addr2line")})
        QVERIFY(QStandardPaths::findExecutable(binutil, {FaultTest::toolDirectory()}).isEmpty());
    const FaultTest::Run run = FaultTest::run(helper, {QStringLiteral("crash"), what}, FaultTest::toolDirectory(), true);
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 0);
    const QByteArray demangled = FaultTest::readAll(QStringLiteral("/etc/tarvion/logs/backTraceDemangled"));
    const QList<QByteArray> lines = FaultTest::lines(demangled);
    QVERIFY2(frameLine(lines, 0).contains("Crosscutting::VfUtilities::logBackTraceNoDemangle(char const*)"), demangled.constData());
    QVERIFY2(frameLine(lines, 1).contains("Crosscutting::linuxGeneralSignalHandler(unsigned int, sigcontext)"),
             demangled.constData());
    const QByteArray line = FaultTest::lineWith(lines, {function});
    QVERIFY2(line.endsWith(" at " + QByteArray(FAULT_HELPER_SOURCE).replace("faulthelper.cpp", place)), demangled.constData());
    QVERIFY(!FaultTest::lineWith(lines, {": main+0x", "faulthelper.cpp:"}).isEmpty());
}

void tst_DemangleBacktrace::acceptsBlankBeforeAddressAndCarriageReturn()
{
    // Older C libraries put a blank before "[", and a file may have passed through Windows.
    const QString raw = capture(QStringLiteral(FAULT_HELPER), "capture", "blankRaw");
    QVERIFY(!raw.isEmpty());
    QByteArray content = FaultTest::readAll(raw);
    content.replace(")[", ") [").replace('\n', "\r\n");
    QVERIFY(writeFile(raw, content));
    const QString out = path("blankOut");
    QCOMPARE(runTool({raw, out}).exitCode, 0);
    const QByteArray frame1 = frameLine(FaultTest::lines(FaultTest::readAll(out)), 1);
    QVERIFY2(frame1.contains(": FaultHelper::innerCapture(char const*)+0x"), frame1.constData());
    QVERIFY2(frame1.endsWith(FaultTest::markPlace("capture")), frame1.constData());
}

QTEST_GUILESS_MAIN(tst_DemangleBacktrace)
#include "tst_demangle_backtrace.moc"
