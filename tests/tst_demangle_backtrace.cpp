// The tool demangle_backtrace (tools/demangle_backtrace), run on real backtraces of the helper
// programs in tests/helpers and on odd input.

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

// The full "file:line" of a mark of the helper source, as addr2line prints it.
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
    void missingRawFails();
    void rawDirectoryFails();
    void unwritableOutFails();
    void emptyRawGivesEmptyOut();
    void outIsTruncated();
    void dashWritesStandardOutput();

    void resolvesRealBacktrace_data();
    void resolvesRealBacktrace();
    void resolvesInlinedFrame();
    void resolvesCrashHandlerBacktrace_data();
    void resolvesCrashHandlerBacktrace();
    void acceptsBlankBeforeAddressAndCarriageReturn();
    void malformedLinesAreCopied();
    void unresolvableFramesKeepRawText();
    void demanglesWithoutBinutils();

private:
    QString capture(const QString& helper, const char* mode, const char* name);
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
};

void tst_DemangleBacktrace::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(QFileInfo(tool).isExecutable());
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
    const FaultTest::Run run = FaultTest::run(tool, {option});
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
    const FaultTest::Run run = FaultTest::run(tool, arguments);
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 2);
    QVERIFY(run.err.contains("usage"));
    QVERIFY(run.out.isEmpty());
}

void tst_DemangleBacktrace::missingRawFails()
{
    const QString raw = path("doesNotExist");
    const QString out = path("missingRawOut");
    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QFile::encodeName(raw)), run.err.constData());
    QVERIFY(!QFileInfo::exists(out));
}

void tst_DemangleBacktrace::rawDirectoryFails()
{
    const FaultTest::Run run = FaultTest::run(tool, {m_dir.path(), path("directoryOut")});
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 1);
    QVERIFY(!run.err.isEmpty());
}

void tst_DemangleBacktrace::unwritableOutFails()
{
    const QString raw = path("someRaw");
    QVERIFY(writeFile(raw, "[0x1234]\n"));
    const QString out = path("noSuchDirectory/out");
    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QFile::encodeName(out)), run.err.constData());
}

void tst_DemangleBacktrace::emptyRawGivesEmptyOut()
{
    const QString raw = path("emptyRaw");
    const QString out = path("emptyOut");
    QVERIFY(writeFile(raw, QByteArray()));
    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QCOMPARE(run.exitCode, 0);
    QVERIFY(QFileInfo::exists(out));
    QCOMPARE(QFileInfo(out).size(), qint64(0));
}

void tst_DemangleBacktrace::outIsTruncated()
{
    const QString raw = path("shortRaw");
    const QString out = path("longOut");
    QVERIFY(writeFile(raw, "[0x1234]\n"));
    QVERIFY(writeFile(out, QByteArray(10000, 'x')));
    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(FaultTest::readAll(out), QByteArray("#0 [0x1234]\n"));
}

void tst_DemangleBacktrace::dashWritesStandardOutput()
{
    const QString raw = path("dashRaw");
    QVERIFY(writeFile(raw, "[0x1234]\nnot a frame\n"));
    const FaultTest::Run run = FaultTest::run(tool, {raw, QStringLiteral("-")});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QByteArray("#0 [0x1234]\nnot a frame\n"));
}

void tst_DemangleBacktrace::resolvesRealBacktrace_data()
{
    QTest::addColumn<QString>("helper");
    QTest::addColumn<QString>("rawShape");
    // Each build of the helper gives its own frames a different shape in the raw file.
    QTest::newRow("-rdynamic: (symbol+0xOFF)") << QStringLiteral(FAULT_HELPER)
                                               << "\\(_ZN11FaultHelper12innerCaptureEPKc\\+0x[0-9a-f]+\\)";
    QTest::newRow("PIE: (+0xOFF)") << QStringLiteral(FAULT_HELPER_PIE) << "\\(\\+0x[0-9a-f]+\\)";
    QTest::newRow("non-PIE: no parentheses") << QStringLiteral(FAULT_HELPER_NOPIE) << "^[^(]*\\[0x[0-9a-f]+\\]$";
}

void tst_DemangleBacktrace::resolvesRealBacktrace()
{
    QFETCH(QString, helper);
    QFETCH(QString, rawShape);
    const QString raw = capture(helper, "capture", "realRaw");
    QVERIFY(!raw.isEmpty());
    const QList<QByteArray> rawLines = FaultTest::lines(FaultTest::readAll(raw));
    QVERIFY(rawLines.size() >= 4);
    QVERIFY2(QRegularExpression(rawShape).match(QString::fromLatin1(rawLines.at(1))).hasMatch(), rawLines.at(1).constData());

    const QString out = path("realOut");
    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QCOMPARE(run.exitCode, 0);
    const QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(out));
    QCOMPARE(lines.size(), rawLines.size());
    for (int i = 0; i < lines.size(); ++i)
        QVERIFY2(lines.at(i).startsWith('#' + QByteArray::number(i) + ' '), lines.at(i).constData());

    const QByteArray module = QFile::encodeName(helper);
    const QByteArray frame0 = frameLine(lines, 0);
    QVERIFY2(frame0.contains("Crosscutting::VfUtilities::logBackTraceNoDemangle(char const*)+0x"), frame0.constData());
    QVERIFY2(frame0.contains("vfutilities.cpp:"), frame0.constData());
    const QByteArray frame1 = frameLine(lines, 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^#1 %1: FaultHelper::innerCapture\\(char const\\*\\)\\+0x[0-9a-f]+ at %2$")
                                    .arg(QRegularExpression::escape(helper), QRegularExpression::escape(sourcePlace("capture"))))
                 .match(QString::fromLatin1(frame1))
                 .hasMatch(),
             frame1.constData());
    const QByteArray frame2 = frameLine(lines, 2);
    QVERIFY2(frame2.startsWith("#2 " + module + ": FaultHelper::Recorder::record(char const*)+0x"), frame2.constData());
    QVERIFY2(frame2.endsWith(FaultTest::markPlace("record")), frame2.constData());
    const QByteArray frame3 = frameLine(lines, 3);
    QVERIFY2(frame3.startsWith("#3 " + module + ": main+0x"), frame3.constData());
    QVERIFY2(frame3.contains("faulthelper.cpp:"), frame3.constData());
}

void tst_DemangleBacktrace::resolvesInlinedFrame()
{
    const QString raw = capture(QStringLiteral(FAULT_HELPER), "capture-inlined", "inlinedRaw");
    QVERIFY(!raw.isEmpty());
    const QString out = path("inlinedOut");
    QCOMPARE(FaultTest::run(tool, {raw, out}).exitCode, 0);
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

    // The crash handler runs the tool itself, found on PATH.
    const FaultTest::Run run = FaultTest::run(helper, {QStringLiteral("crash"), what}, FaultTest::toolDirectory());
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
    QCOMPARE(FaultTest::run(tool, {raw, out}).exitCode, 0);
    const QByteArray frame1 = frameLine(FaultTest::lines(FaultTest::readAll(out)), 1);
    QVERIFY2(frame1.contains(": FaultHelper::innerCapture(char const*)+0x"), frame1.constData());
    QVERIFY2(frame1.endsWith(FaultTest::markPlace("capture")), frame1.constData());
}

void tst_DemangleBacktrace::malformedLinesAreCopied()
{
    const QList<QByteArray> malformed = {
        "",
        "garbage without an address",
        "   \t ",
        "(((",
        "]",
        "[0xZZ]",
        "[0x12",
        "ule(+0x12)[0x1", // the start of an old tail left behind by a shorter backtrace
        QByteArray("binary \x01\xff\x7f text", 17),
        QByteArray(5000, 'y'),
    };
    QByteArray content = "[0x1000]\n";
    for (const QByteArray& line : malformed)
        content += line + '\n';
    content += "[0x2000]\nno newline at the end";
    const QString raw = path("malformedRaw");
    const QString out = path("malformedOut");
    QVERIFY(writeFile(raw, content));

    const FaultTest::Run run = FaultTest::run(tool, {raw, out});
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QByteArray expected = "#0 [0x1000]\n";
    for (const QByteArray& line : malformed)
        expected += line + '\n';
    expected += "#1 [0x2000]\nno newline at the end\n";
    QCOMPARE(FaultTest::readAll(out), expected);
}

void tst_DemangleBacktrace::unresolvableFramesKeepRawText()
{
    const QString raw = path("unresolvableRaw");
    const QString out = path("unresolvableOut");
    QVERIFY(writeFile(raw, "[0x7f00deadbeef]\n"
                           "/no/such/module(+0x10) [0x55d000000010]\n"
                           "/no/such/module() [0x55d000000020]\n"
                           "/no/such/lib.so(_ZN3Foo3barEv+0x10) [0x7f0000001010]\n"
                           "/no/such/lib.so(not_mangled-0x8) [0x7f0000001010]\n"));
    QCOMPARE(FaultTest::run(tool, {raw, out}).exitCode, 0);
    QCOMPARE(FaultTest::readAll(out), QByteArray("#0 [0x7f00deadbeef]\n"
                                                 "#1 /no/such/module(+0x10) [0x55d000000010]\n"
                                                 "#2 /no/such/module() [0x55d000000020]\n"
                                                 // A name that the raw file holds is demangled all the same.
                                                 "#3 /no/such/lib.so: Foo::bar()+0x10\n"
                                                 "#4 /no/such/lib.so: not_mangled-0x8\n"));
}

void tst_DemangleBacktrace::demanglesWithoutBinutils()
{
    const QString raw = capture(QStringLiteral(FAULT_HELPER), "capture", "noBinutilsRaw");
    QVERIFY(!raw.isEmpty());
    QTemporaryDir emptyPath;
    QVERIFY(emptyPath.isValid());
    const QString out = path("noBinutilsOut");
    const FaultTest::Run run = FaultTest::run(tool, {raw, out}, emptyPath.path(), true);
    QCOMPARE(run.exitCode, 0);
    const QList<QByteArray> lines = FaultTest::lines(FaultTest::readAll(out));
    const QByteArray frame1 = frameLine(lines, 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^#1 %1: FaultHelper::innerCapture\\(char const\\*\\)\\+0x[0-9a-f]+$")
                                    .arg(QRegularExpression::escape(QStringLiteral(FAULT_HELPER))))
                 .match(QString::fromLatin1(frame1))
                 .hasMatch(),
             frame1.constData());
    QVERIFY(FaultTest::lineWith(lines, {" at "}).isEmpty());
}

QTEST_GUILESS_MAIN(tst_DemangleBacktrace)
#include "tst_demangle_backtrace.moc"
