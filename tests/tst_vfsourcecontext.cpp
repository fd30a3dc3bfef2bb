#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfsourcecontext.h"

#include <QtTest>
#include <QThread>

using namespace Crosscutting;

namespace {
QScopedPointer<VfSourceContext> make(const QString& module, const QString& file, const QString& signature,
                                     const QStringList& info = {}, unsigned long long line = 305)
{
    return QScopedPointer<VfSourceContext>(&createSourceContext(module, file, line, signature, info));
}

VfSourceContext* direct(const QString& module, const QString& file, const QStringList& info = {})
{
    return new VfSourceContext(module, file, "Ns", "VfCls", "void f()", 305, "T", info);
}

QString timeText(const VfSourceContext& c)
{
    return c.timestamp().toString("MM-dd-yy hh:mm:ss.zzz AP");
}
} // namespace

class tst_VfSourceContext : public QObject
{
    Q_OBJECT
private slots:
    // Part 3.1
    void signatureTable_data();
    void signatureTable();
    void emptySignature();
    void moduleGivenIsKept();
    void moduleRuleIsCaseSensitive_data();
    void moduleRuleIsCaseSensitive();
    void fileNameLastComponent_data();
    void fileNameLastComponent();
    void constructorSignatureIsUnavailable();
    void threadName();
    void timestampFixedAtConstruction();
    void constructorStoresArguments();
    // Part 3.2
    void shortForms_data();
    void shortForms();
    void shortFormWithTimestamp();
    void longFormsKeepWholeFileName();
    void singleLineLongForm();
    void multiLineLineCount_data();
    void multiLineLineCount();
    void multiLineTextArgs();
    void unknownFormIsEmpty();
    void debugStreamIsMultiLine();
};

void tst_VfSourceContext::signatureTable_data()
{
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("ns");
    QTest::addColumn<QString>("cls");
    QTest::addColumn<QString>("module");

    QTest::newRow("virtual member in namespace")
        << "virtual StatusCode Crosscutting::VfStatusReporter::reportStatus(StatusCode, Crosscutting::VfSourceContext&)"
        << "virtual StatusCode reportStatus(StatusCode, Crosscutting::VfSourceContext&)"
        << "Crosscutting" << "VfStatusReporter" << "Velmar Framework";
    QTest::newRow("trailing const dropped")
        << "QString Crosscutting::VfSourceContext::formatSingleLineShortFormString(bool) const"
        << "QString formatSingleLineShortFormString(bool)" << "Crosscutting" << "VfSourceContext"
        << "Velmar Framework";
    QTest::newRow("free function")
        << "void writeElement(QXmlStreamWriter*, QDomElement&, bool)"
        << "void writeElement(QXmlStreamWriter*, QDomElement&, bool)" << "" << "" << "Velmar Application";
    QTest::newRow("class without namespace") << "void Foo::bar(int)" << "void bar(int)" << "" << "Foo"
                                             << "Velmar Application";
    QTest::newRow("function straight in a namespace")
        << "Crosscutting::VfSourceContext* Crosscutting::createSourceContextFromGdbBacktrace(const QString&)"
        << "Crosscutting::VfSourceContext* createSourceContextFromGdbBacktrace(const QString&)" << ""
        << "Crosscutting" << "Velmar Application";
    QTest::newRow("static stays in the return type") << "static void Crosscutting::VfUtilities::x(int)"
                                                     << "static void x(int)" << "Crosscutting" << "VfUtilities"
                                                     << "Velmar Framework";
    QTest::newRow("three name levels") << "void A::B::C::d()" << "Unavailable: void A::B::C::d()" << "" << ""
                                       << "Velmar Application";
}

void tst_VfSourceContext::signatureTable()
{
    QFETCH(QString, signature);
    QFETCH(QString, function);
    QFETCH(QString, ns);
    QFETCH(QString, cls);
    QFETCH(QString, module);
    auto c = make(QString(), "file.cpp", signature);
    QCOMPARE(c->sourceFunction(), function);
    QCOMPARE(c->sourceNamespace(), ns);
    QCOMPARE(c->sourceClass(), cls);
    QCOMPARE(c->sourceModule(), module);
}

void tst_VfSourceContext::emptySignature()
{
    auto c = make(QString(), "f.cpp", QString());
    QCOMPARE(c->sourceFunction(), QString("Unavailable: "));
    QVERIFY(c->sourceNamespace().isEmpty());
    QVERIFY(c->sourceClass().isEmpty());
}

void tst_VfSourceContext::moduleGivenIsKept()
{
    auto c = make("X", "f.cpp", "virtual StatusCode Crosscutting::VfStatusReporter::reportStatus(StatusCode)");
    QCOMPARE(c->sourceModule(), QString("X"));
    QCOMPARE(c->sourceClass(), QString("VfStatusReporter"));
}

void tst_VfSourceContext::moduleRuleIsCaseSensitive_data()
{
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("module");
    QTest::newRow("Foo") << "void Foo::bar(int)" << "Velmar Application";
    QTest::newRow("vfThing lower case") << "void vfThing::bar(int)" << "Velmar Application";
    QTest::newRow("VfThing") << "void VfThing::bar(int)" << "Velmar Framework";
}

void tst_VfSourceContext::moduleRuleIsCaseSensitive()
{
    QFETCH(QString, signature);
    QFETCH(QString, module);
    QCOMPARE(make(QString(), "f.cpp", signature)->sourceModule(), module);
}

void tst_VfSourceContext::fileNameLastComponent_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expected");
    QTest::newRow("path") << "/home/build/src/crosscutting/vfutilities.cpp" << "vfutilities.cpp";
    QTest::newRow("relative path") << "../src/vffoo.ext" << "vffoo.ext";
    QTest::newRow("plain name") << "main.cpp" << "main.cpp";
}

void tst_VfSourceContext::fileNameLastComponent()
{
    QFETCH(QString, file);
    QFETCH(QString, expected);
    QCOMPARE(make(QString(), file, "void f()")->sourceFilename(), expected);
}

void tst_VfSourceContext::constructorSignatureIsUnavailable()
{
    auto c = make(QString(), "f.cpp", "Crosscutting::VfSourceContext::VfSourceContext(int)");
    QCOMPARE(c->sourceFunction(), QString("Unavailable: Crosscutting::VfSourceContext::VfSourceContext(int)"));
    QVERIFY(c->sourceNamespace().isEmpty());
    QVERIFY(c->sourceClass().isEmpty());
    QCOMPARE(c->sourceModule(), QString("Velmar Application"));
}

void tst_VfSourceContext::threadName()
{
    QString unnamed, named;
    QThread* t1 = QThread::create([&] { unnamed = make(QString(), "f", "void f()")->sourceThread(); });
    t1->start();
    t1->wait();
    delete t1;
    QThread* t2 = QThread::create([&] { named = make(QString(), "f", "void f()")->sourceThread(); });
    t2->setObjectName("TaskProcessor");
    t2->start();
    t2->wait();
    delete t2;
    QVERIFY(unnamed.isEmpty());
    QCOMPARE(named, QString("TaskProcessor"));
}

void tst_VfSourceContext::timestampFixedAtConstruction()
{
    const QDateTime before = QDateTime::currentDateTime();
    auto c = make(QString(), "f", "void f()");
    const QDateTime first = c->timestamp();
    QVERIFY(first >= before);
    QTest::qWait(20);
    QCOMPARE(c->timestamp(), first);
    QCOMPARE(c->toString(VfSourceContext::ShortFormWithTimestamp),
             "[" + first.toString("MM-dd-yy hh:mm:ss.zzz AP") + " f:305:Velmar Application]");
}

void tst_VfSourceContext::constructorStoresArguments()
{
    VfSourceContext c("M", "a/b.cpp", "N", "C", "void f()", 7, "T", {"x", "y"});
    QCOMPARE(c.sourceModule(), QString("M"));
    QCOMPARE(c.sourceFilename(), QString("a/b.cpp"));
    QCOMPARE(c.sourceNamespace(), QString("N"));
    QCOMPARE(c.sourceClass(), QString("C"));
    QCOMPARE(c.sourceFunction(), QString("void f()"));
    QCOMPARE(c.sourceLineNumber(), 7ull);
    QCOMPARE(c.sourceThread(), QString("T"));
    QCOMPARE(c.additionalInfo(), (QStringList{"x", "y"}));
}

void tst_VfSourceContext::shortForms_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expected");
    QTest::newRow("with module") << "Velmar Framework" << "source.ext" << "[source.ext:305:Velmar Framework]";
    QTest::newRow("empty module") << "" << "source.ext" << "[source.ext:305]";
    QTest::newRow("directories: last part only") << "Velmar Framework" << "a/b/source.ext"
                                                 << "[source.ext:305:Velmar Framework]";
    QTest::newRow("ends in slash: empty file part") << "Velmar Framework" << "a/b/" << "[:305:Velmar Framework]";
    QTest::newRow("empty file name: one empty part") << "Velmar Framework" << "" << "[:305:Velmar Framework]";
}

void tst_VfSourceContext::shortForms()
{
    QFETCH(QString, module);
    QFETCH(QString, file);
    QFETCH(QString, expected);
    QScopedPointer<VfSourceContext> c(direct(module, file));
    StatusEventRecorder recorder;
    recorder.attach();
    QCOMPARE(c->toString(VfSourceContext::ShortForm), expected);
    QCOMPARE(c->formatSingleLineShortFormString(false), expected);
    // The split always gives one part, so the StringParseError guard never reports (Part 3.2).
    QVERIFY(recorder.events.isEmpty());
}

void tst_VfSourceContext::shortFormWithTimestamp()
{
    QScopedPointer<VfSourceContext> c(direct("", "source.ext"));
    QCOMPARE(c->toString(VfSourceContext::ShortFormWithTimestamp), "[" + timeText(*c) + " source.ext:305]");
    QScopedPointer<VfSourceContext> m(direct("Velmar Framework", "source.ext"));
    QCOMPARE(m->toString(VfSourceContext::ShortFormWithTimestamp),
             "[" + timeText(*m) + " source.ext:305:Velmar Framework]");
    // The time text: two-digit month, day and year, 12-hour clock, milliseconds, upper-case AM/PM.
    QVERIFY(QRegularExpression("^\\d\\d-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (AM|PM)$").match(timeText(*m)).hasMatch());
}

void tst_VfSourceContext::longFormsKeepWholeFileName()
{
    QScopedPointer<VfSourceContext> c(direct("M", "dir/sub/source.ext"));
    QVERIFY(c->toString(VfSourceContext::SingleLineLongForm).contains(", dir/sub/source.ext, "));
    QVERIFY(c->toString(VfSourceContext::MultiLineLongForm).contains("Filename: dir/sub/source.ext"));
}

void tst_VfSourceContext::singleLineLongForm()
{
    VfSourceContext c("Velmar Framework", "f.cpp", "Crosscutting", "VfX", "void g(int)", 42, "", {"a", "b"});
    QCOMPARE(c.toString(VfSourceContext::SingleLineLongForm),
             "[" + timeText(c) + ", Velmar Framework, f.cpp, 42, , Crosscutting, VfX, void g(int), a, b]");
}

void tst_VfSourceContext::multiLineLineCount_data()
{
    QTest::addColumn<QStringList>("info");
    QTest::addColumn<int>("lines");
    QTest::newRow("none") << QStringList() << 8;
    QTest::newRow("one") << QStringList{"a"} << 9;
    QTest::newRow("two") << QStringList{"a", "b"} << 10;
    QTest::newRow("three") << QStringList{"a", "b", "c"} << 10;
}

void tst_VfSourceContext::multiLineLineCount()
{
    QFETCH(QStringList, info);
    QFETCH(int, lines);
    QScopedPointer<VfSourceContext> c(direct("M", "f", info));
    QCOMPARE(c->toString(VfSourceContext::MultiLineLongForm).split('\n').size(), lines);
}

void tst_VfSourceContext::multiLineTextArgs()
{
    // Part 3.2: of three arguments the first shows under "Text Args", the last under the empty
    // label, and the middle one is not shown.
    QScopedPointer<VfSourceContext> c(direct("M", "f", {"first", "middle", "last"}));
    const QString text = c->toString(VfSourceContext::MultiLineLongForm);
    QStringList lines = text.split('\n');
    QVERIFY(lines.contains(QString(4, ' ') + "Text Args: " + QString("first").leftJustified(20)));
    QVERIFY(lines.contains(QString(13, ' ') + ": " + QString("last").leftJustified(20)));
    QVERIFY(!text.contains("middle"));
    QVERIFY(lines.contains(QString(7, ' ') + "Line #: " + QString("305").leftJustified(20)));
    QVERIFY(lines.contains(QString(4, ' ') + "Timestamp: " + timeText(*c).leftJustified(20)));
}

void tst_VfSourceContext::unknownFormIsEmpty()
{
    QScopedPointer<VfSourceContext> c(direct("M", "f"));
    QCOMPARE(c->toString(VfSourceContext::DisplayFormat(4)), QString());
}

void tst_VfSourceContext::debugStreamIsMultiLine()
{
    QScopedPointer<VfSourceContext> c(direct("M", "f"));
    QString out;
    QDebug(&out).noquote() << *c;
    // QDebug's own string operator adds its space, then the operator's maybeSpace adds one more (Part 3.2).
    QCOMPARE(out, c->toString(VfSourceContext::MultiLineLongForm) + "  ");
    QString nospace;
    QDebug(&nospace).noquote().nospace() << *c;
    QCOMPARE(nospace, c->toString(VfSourceContext::MultiLineLongForm));
}

QTEST_GUILESS_MAIN(tst_VfSourceContext)
#include "tst_vfsourcecontext.moc"
