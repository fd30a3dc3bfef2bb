#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfsourcecontext.h"

#include <QThread>
#include <QtTest>

using namespace Crosscutting;

namespace {
// What a frame line must give, worked out from the line by plain string splitting along the
// spec's table of frame forms (Part 3.3) and the rules for signatures (Part 3.1).
struct Expected
{
    bool isFrame = false;
    QString functionInfo; // the frame's function part, before its blanks are removed
    QString fileName;
    unsigned long long line = 0;
    QString nameSpace;
    QString className;
    QString function;
};

bool isWord(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        // \w of the signature expression: ASCII letters, digits and the underscore
        const bool word = (c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
                          || (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('_');
        if (!word)
            return false;
    }
    return true;
}

bool isDecimal(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

Expected expectationFor(const QString& line)
{
    Expected expected;
    // A frame line is "#<n> ... in <rest>": the split is at the last " in ".
    const int in = line.lastIndexOf(QStringLiteral(" in "));
    if (!line.startsWith(QLatin1Char('#')) || in < 0 || in + 4 >= line.size())
        return expected;
    expected.isFrame = true;
    const QString rest = line.mid(in + 4);

    QString path;
    const int from = rest.lastIndexOf(QStringLiteral(" () from "));
    const int at = rest.lastIndexOf(QStringLiteral(" at "));
    const QString afterAt = at < 0 ? QString() : rest.mid(at + 4);
    const int colon = afterAt.lastIndexOf(QLatin1Char(':'));
    if (from > 0 && from + 9 < rest.size()) {
        expected.functionInfo = rest.left(from); // " ()" goes with the form
        path = rest.mid(from + 9);
    } else if (at > 0 && colon > 0 && isDecimal(afterAt.mid(colon + 1))) {
        expected.functionInfo = rest.left(at);
        path = afterAt.left(colon);
        expected.line = afterAt.mid(colon + 1).toULongLong();
    } else {
        expected.functionInfo = rest;
    }
    expected.fileName = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);

    // The signature: a name of one to three word levels, directly followed by "(...)".
    QString compact = expected.functionInfo;
    compact.remove(QLatin1Char(' '));
    const int open = compact.indexOf(QLatin1Char('('));
    const int close = compact.lastIndexOf(QLatin1Char(')'));
    const QStringList levels = open < 0 ? QStringList() : compact.left(open).split(QStringLiteral("::"));
    bool parsable = open >= 0 && close > open && levels.size() <= 3;
    for (const QString& level : levels)
        parsable = parsable && isWord(level);
    if (!parsable) {
        expected.function = QStringLiteral("Unavailable: unknownReturnType ") + compact;
        return expected;
    }
    if (levels.size() == 3)
        expected.nameSpace = levels.at(0);
    if (levels.size() >= 2)
        expected.className = levels.at(levels.size() - 2);
    expected.function = QStringLiteral("unknownReturnType ") + levels.last() + compact.mid(open, close - open + 1);
    return expected;
}

// Line numbers of the "// frame: <name>" marks in the helper's source.
QHash<QString, unsigned long long> frameMarks()
{
    QHash<QString, unsigned long long> marks;
    QFile source(QStringLiteral(VF_GDB_HELPER_SOURCE));
    if (!source.open(QIODevice::ReadOnly | QIODevice::Text))
        return marks;
    unsigned long long number = 0;
    while (!source.atEnd()) {
        const QString line = QString::fromUtf8(source.readLine());
        ++number;
        const int mark = line.indexOf(QStringLiteral("// frame: "));
        if (mark >= 0)
            marks.insert(line.mid(mark + 10).trimmed(), number);
    }
    return marks;
}
} // namespace

// Part 3.3: createSourceContextFromGdbBacktrace, on the spec's examples and on gdb's real output.
class tst_GdbBacktrace : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void frameForms_data();
    void frameForms();
    void lineWithoutAddressIsNoFrame();
    void emptyLineIsNoFrame();
    void failureReportComesFromTheFreeFunction();
    void greedySplitAtLastIn();
    void unknownFunctionFrame();
    void blanksRemovedFromTemplatesAndOperators_data();
    void blanksRemovedFromTemplatesAndOperators();
    void contextBelongsToCaller();
    void threadIsTheCallingThread();

    void realGdbBacktrace_data();
    void realGdbBacktrace();

private:
    QStringList runGdb(const QString& mode, const QString& label);
    void checkAgainstExpectation(const QString& line);
    StatusEventRecorder* m_recorder = nullptr;
};

void tst_GdbBacktrace::initTestCase()
{
    qRegisterMetaType<VfStatusChangeEvent>();
}

void tst_GdbBacktrace::init()
{
    m_recorder = new StatusEventRecorder;
    m_recorder->attach();
}

void tst_GdbBacktrace::cleanup()
{
    delete m_recorder;
    m_recorder = nullptr;
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_GdbBacktrace::frameForms_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("ns");
    QTest::addColumn<QString>("cls");
    QTest::addColumn<QString>("file");
    QTest::addColumn<unsigned long long>("lineNumber");
    QTest::addColumn<QString>("module");

    QTest::newRow("library frame") << "#12 0x0000abcd in QCoreApplication::exec () from /usr/lib/libQt5Core.so.5"
                                   << "Unavailable: unknownReturnType QCoreApplication::exec" << ""
                                   << "" << "libQt5Core.so.5" << 0ULL << "Velmar Application";
    QTest::newRow("frame with source")
        << "#1  0x0000abcd in Crosscutting::VfFoo::bar (this=0x1, x=2) at ../src/vffoo.ext:42"
        << "unknownReturnType bar(this=0x1,x=2)" << "Crosscutting" << "VfFoo" << "vffoo.ext" << 42ULL
        << "Velmar Framework";
    QTest::newRow("bare frame") << "#4  0xb6f0a123 in foo ()" << "unknownReturnType foo()" << "" << ""
                                << "" << 0ULL << "Velmar Application";
}

void tst_GdbBacktrace::frameForms()
{
    QFETCH(QString, line);
    QFETCH(QString, function);
    QFETCH(QString, ns);
    QFETCH(QString, cls);
    QFETCH(QString, file);
    QFETCH(unsigned long long, lineNumber);
    QFETCH(QString, module);

    QScopedPointer<VfSourceContext> context(createSourceContextFromGdbBacktrace(line));
    QVERIFY(context);
    QCOMPARE(context->sourceFunction(), function);
    QCOMPARE(context->sourceNamespace(), ns);
    QCOMPARE(context->sourceClass(), cls);
    QCOMPARE(context->sourceFilename(), file);
    QCOMPARE(context->sourceLineNumber(), lineNumber);
    QCOMPARE(context->sourceModule(), module);
    QCOMPARE(context->additionalInfo(), QStringList());
    QVERIFY(m_recorder->events.isEmpty()); // odd frames end in "Unavailable", unreported
}

void tst_GdbBacktrace::lineWithoutAddressIsNoFrame()
{
    const QString line = QStringLiteral("#0  main () at main.cpp:10");
    QVERIFY(!createSourceContextFromGdbBacktrace(line));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::StringParseError});
    QCOMPARE(m_recorder->events.at(0).sourceContext()->additionalInfo(), QStringList{line});
    QCOMPARE(m_recorder->descriptions().at(0),
             QStringLiteral("An error occurred while parsing the string #0  main () at main.cpp:10."));
}

void tst_GdbBacktrace::emptyLineIsNoFrame()
{
    QVERIFY(!createSourceContextFromGdbBacktrace(QString()));
    QVERIFY(!createSourceContextFromGdbBacktrace(QStringLiteral("Program received signal SIGABRT, Aborted.")));
    QVERIFY(!createSourceContextFromGdbBacktrace(QStringLiteral("0x1 in foo () at f.c:1"))); // no frame marker
    QCOMPARE(m_recorder->codes(), (QList<StatusCode>{VfStatusCodes::StringParseError, VfStatusCodes::StringParseError,
                                                      VfStatusCodes::StringParseError}));
    QCOMPARE(m_recorder->events.at(0).sourceContext()->additionalInfo(), QStringList{QString()});
}

void tst_GdbBacktrace::failureReportComesFromTheFreeFunction()
{
    QVERIFY(!createSourceContextFromGdbBacktrace(QStringLiteral("no frame")));
    QCOMPARE(m_recorder->events.size(), 1);
    // Part 3.1: a function straight in a namespace has it as its class, so the module is the application's.
    const QSharedPointer<VfSourceContext> context = m_recorder->events.at(0).sourceContext();
    QCOMPARE(context->sourceClass(), QStringLiteral("Crosscutting"));
    QCOMPARE(context->sourceNamespace(), QString());
    QCOMPARE(context->sourceFunction(),
             QStringLiteral("Crosscutting::VfSourceContext* createSourceContextFromGdbBacktrace(const QString&)"));
    QCOMPARE(context->sourceModule(), QStringLiteral("Velmar Application"));
    QCOMPARE(context->sourceFilename(), QStringLiteral("vfsourcecontext.cpp"));
}

void tst_GdbBacktrace::greedySplitAtLastIn()
{
    QScopedPointer<VfSourceContext> context(createSourceContextFromGdbBacktrace(
        QStringLiteral("#3  0x00001234 in Ns::Cls::run (text=0x2 \"stop in here\") at file.cpp:3")));
    QVERIFY(context);
    // Part 3.3: the greedy ".+" splits at the last " in ", inside the arguments.
    QCOMPARE(context->sourceFunction(), QStringLiteral("Unavailable: unknownReturnType here\")"));
    QCOMPARE(context->sourceClass(), QString());
    QCOMPARE(context->sourceFilename(), QStringLiteral("file.cpp"));
    QCOMPARE(context->sourceLineNumber(), 3ULL);
}

void tst_GdbBacktrace::unknownFunctionFrame()
{
    QScopedPointer<VfSourceContext> context(createSourceContextFromGdbBacktrace(QStringLiteral("#2  0x00012345 in ?? ()")));
    QVERIFY(context);
    QCOMPARE(context->sourceFunction(), QStringLiteral("Unavailable: unknownReturnType ?\?()"));
    QCOMPARE(context->sourceFilename(), QString());
    QCOMPARE(context->sourceLineNumber(), 0ULL);
    QCOMPARE(context->sourceModule(), QStringLiteral("Velmar Application"));
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_GdbBacktrace::blanksRemovedFromTemplatesAndOperators_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("cls");

    QTest::newRow("template") << "#5  0x1 in Outer::Box<int, long>::get (this=0x2) at box.h:7"
                              << "Unavailable: unknownReturnType Outer::Box<int,long>::get(this=0x2)" << "";
    QTest::newRow("operator") << "#6  0x1 in Ns::VfCls::operator() (this=0x1, n=2) at f.cpp:2"
                              << "unknownReturnType operator()(this=0x1,n=2)" << "VfCls";
    QTest::newRow("operator with blank") << "#7  0x1 in Ns::Cls::operator new (size=8) at f.cpp:2"
                                         << "unknownReturnType operatornew(size=8)" << "Cls";
}

void tst_GdbBacktrace::blanksRemovedFromTemplatesAndOperators()
{
    QFETCH(QString, line);
    QFETCH(QString, function);
    QFETCH(QString, cls);
    QScopedPointer<VfSourceContext> context(createSourceContextFromGdbBacktrace(line));
    QVERIFY(context);
    QCOMPARE(context->sourceFunction(), function);
    QCOMPARE(context->sourceClass(), cls);
}

void tst_GdbBacktrace::contextBelongsToCaller()
{
    const QDateTime before = QDateTime::currentDateTime();
    VfSourceContext* context = createSourceContextFromGdbBacktrace(QStringLiteral("#4  0xb6f0a123 in foo ()"));
    QVERIFY(context);
    // The time of the call, not of any crash; the caller deletes the context.
    QVERIFY(context->timestamp() >= before);
    QVERIFY(context->timestamp() <= QDateTime::currentDateTime());
    delete context;
}

void tst_GdbBacktrace::threadIsTheCallingThread()
{
    VfSourceContext* context = nullptr;
    QThread* worker = QThread::create([&context] {
        context = createSourceContextFromGdbBacktrace(QStringLiteral("#4  0xb6f0a123 in foo ()"));
    });
    worker->setObjectName(QStringLiteral("BacktraceReader"));
    worker->start();
    QVERIFY(worker->wait(10000));
    delete worker;
    QVERIFY(context);
    QCOMPARE(context->sourceThread(), QStringLiteral("BacktraceReader"));
    delete context;
}

QStringList tst_GdbBacktrace::runGdb(const QString& mode, const QString& label)
{
    QProcess gdb;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DEBUGINFOD_URLS")); // no downloads of debug information
    gdb.setProcessEnvironment(environment);
    gdb.start(QStringLiteral("gdb"), {"-nx", "-batch", "-ex", "set width 0", "-ex", "run", "-ex", "bt", "--args",
                                      QStringLiteral(VF_GDB_HELPER), mode, label});
    if (!gdb.waitForFinished(60000)) {
        gdb.kill();
        gdb.waitForFinished();
        return {};
    }
    QStringList frames;
    for (const QString& line : QString::fromLocal8Bit(gdb.readAllStandardOutput()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1Char('#')))
            frames.append(line);
    }
    if (frames.isEmpty())
        qWarning("gdb gave no frames: %s", gdb.readAllStandardError().constData());
    return frames;
}

void tst_GdbBacktrace::realGdbBacktrace_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("stopMark");

    QTest::newRow("SIGTRAP in a member function") << "trap" << "plain" << "trap";
    // The label puts " in " into the frames' arguments, where the greedy split then falls.
    QTest::newRow("SIGABRT, \" in \" in an argument") << "abort" << "stop in here" << "abort";
    QTest::newRow("SIGTRAP on a std::thread") << "thread" << "plain" << "trap";
}

void tst_GdbBacktrace::realGdbBacktrace()
{
    QFETCH(QString, mode);
    QFETCH(QString, label);
    QFETCH(QString, stopMark);

    const QHash<QString, unsigned long long> marks = frameMarks();
    QVERIFY2(marks.size() == 5, "frame marks of the helper's source");
    const QStringList frames = runGdb(mode, label);
    QVERIFY2(frames.size() >= 4, qPrintable(frames.join('\n')));

    int ownFrames = 0;
    for (const QString& line : frames) {
        checkAgainstExpectation(line);
        if (QTest::currentTestFailed())
            return;
        if (line.contains(QStringLiteral("gdbbacktracehelper.cpp")))
            ++ownFrames;
    }
    QVERIFY2(ownFrames >= 3, qPrintable(frames.join('\n')));

    // Independently of any splitting: the member function frames as the helper's source has them.
    QString crashLine;
    QString stepLine;
    QString launchLine;
    for (const QString& line : frames) {
        if (line.contains(QStringLiteral(" in Outer::Crasher::crash (")))
            crashLine = line;
        else if (line.contains(QStringLiteral(" in Outer::Crasher::step (")))
            stepLine = line;
        else if (line.contains(QStringLiteral(" in Outer::launch (")))
            launchLine = line;
    }
    QVERIFY2(!crashLine.isEmpty() && !stepLine.isEmpty() && !launchLine.isEmpty(), qPrintable(frames.join('\n')));
    QScopedPointer<VfSourceContext> crash(createSourceContextFromGdbBacktrace(crashLine));
    QScopedPointer<VfSourceContext> step(createSourceContextFromGdbBacktrace(stepLine));
    QScopedPointer<VfSourceContext> launch(createSourceContextFromGdbBacktrace(launchLine));
    QVERIFY(crash && step && launch);
    QCOMPARE(crash->sourceFilename(), QStringLiteral("gdbbacktracehelper.cpp"));
    QCOMPARE(crash->sourceLineNumber(), marks.value(stopMark));
    QCOMPARE(step->sourceLineNumber(), marks.value(QStringLiteral("step")));
    QCOMPARE(launch->sourceLineNumber(), marks.value(QStringLiteral("launch")));
    if (label.contains(QStringLiteral(" in "))) {
        QVERIFY(crash->sourceFunction().startsWith(QStringLiteral("Unavailable: unknownReturnType here")));
        QCOMPARE(crash->sourceClass(), QString());
    } else {
        QCOMPARE(crash->sourceNamespace(), QStringLiteral("Outer"));
        QCOMPARE(crash->sourceClass(), QStringLiteral("Crasher"));
        QVERIFY2(crash->sourceFunction().startsWith(QStringLiteral("unknownReturnType crash(this=0x")),
                 qPrintable(crash->sourceFunction()));
        QCOMPARE(step->sourceClass(), QStringLiteral("Crasher"));
        QVERIFY(step->sourceFunction().startsWith(QStringLiteral("unknownReturnType step(this=0x")));
        QCOMPARE(launch->sourceNamespace(), QString());
        QCOMPARE(launch->sourceClass(), QStringLiteral("Outer"));
        QVERIFY(launch->sourceFunction().startsWith(QStringLiteral("unknownReturnType launch(depth=1,")));
    }
    QCOMPARE(crash->sourceModule(), QStringLiteral("Velmar Application"));
}

void tst_GdbBacktrace::checkAgainstExpectation(const QString& line)
{
    const Expected expected = expectationFor(line);
    const int reportsBefore = m_recorder->events.size();
    QScopedPointer<VfSourceContext> context(createSourceContextFromGdbBacktrace(line));
    const QByteArray where = line.toLocal8Bit();
    if (!expected.isFrame) {
        QVERIFY2(!context, where.constData());
        QVERIFY2(m_recorder->events.size() == reportsBefore + 1, where.constData());
        QCOMPARE(m_recorder->codes().last(), StatusCode(VfStatusCodes::StringParseError));
        return;
    }
    QVERIFY2(context, where.constData());
    QVERIFY2(m_recorder->events.size() == reportsBefore, where.constData());
    QVERIFY2(context->sourceFilename() == expected.fileName, where.constData());
    QVERIFY2(context->sourceLineNumber() == expected.line, where.constData());
    QVERIFY2(context->sourceNamespace() == expected.nameSpace, where.constData());
    QVERIFY2(context->sourceClass() == expected.className, where.constData());
    QVERIFY2(context->sourceFunction() == expected.function,
             qPrintable(line + "\n  got:      " + context->sourceFunction() + "\n  expected: " + expected.function));
    const QString module = expected.className.startsWith(QStringLiteral("Vf")) ? QStringLiteral("Velmar Framework")
                                                                              : QStringLiteral("Velmar Application");
    QVERIFY2(context->sourceModule() == module, where.constData());
}

QTEST_GUILESS_MAIN(tst_GdbBacktrace)
#include "tst_gdbbacktrace.moc"
