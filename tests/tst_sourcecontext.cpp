#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"

#include <QtTest>

using namespace Crosscutting;

namespace {
QString fields(const VfSourceContext& c)
{
    return QStringList{c.sourceFunction(), c.sourceNamespace(), c.sourceClass(), c.sourceModule(), c.sourceFilename(),
                       QString::number(c.sourceLineNumber())}
        .join('|');
}
} // namespace

class tst_SourceContext : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qRegisterMetaType<VfStatusChangeEvent>(); }
    void cleanup() { VfCrosscuttingManagerPlaceholder::drop(); }

    void fromSignature_data()
    {
        QTest::addColumn<QString>("module");
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("expected"); // function|namespace|class|module|file|line
        const QString app = "|Velmar Application|vfutil.cpp|305", framework = "|Velmar Framework|vfutil.cpp|305";
        QTest::newRow("member in a namespace") << "" << "virtual int Ns::VfR::report(int, Ns::Ctx&)"
                                               << "virtual int report(int, Ns::Ctx&)|Ns|VfR" + framework;
        QTest::newRow("free function") << "" << "void write(Q*, D&)" << "void write(Q*, D&)||" + app;
        QTest::newRow("lower-case vf") << "" << "void vfThing::bar(int)" << "void bar(int)||vfThing" + app;
        QTest::newRow("namespace is the class") << "" << "Ns::C* Ns::make(const Q&)" << "Ns::C* make(const Q&)||Ns" + app;
        QTest::newRow("three levels") << "" << "void A::B::C::d()" << "Unavailable: void A::B::C::d()||" + app;
        QTest::newRow("module given") << "X" << "void Ns::VfR::f()" << "void f()|Ns|VfR|X|vfutil.cpp|305";
    }
    void fromSignature()
    {
        QFETCH(QString, module);
        QFETCH(QString, signature);
        QFETCH(QString, expected);
        QScopedPointer<VfSourceContext> c(&createSourceContext(module, "/home/b/src/vfutil.cpp", 305, signature, {}));
        QCOMPARE(fields(*c), expected);
        QScopedPointer<VfSourceContext> other(&createSourceContext(module, "other.cpp", 1, signature, {}));
        QCOMPARE(other->sourceFilename(), QString("other.cpp"));
    }

    void fromGdbFrame_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected"); // empty: no frame, reported as StringParseError
        QTest::newRow("library") << "#12 0x0000abcd in QCoreApplication::exec () from /usr/lib/libQt5Core.so.5"
                                 << "Unavailable: unknownReturnType QCoreApplication::exec|||Velmar Application|libQt5Core.so.5|0";
        QTest::newRow("source") << "#1  0x0000abcd in Ns::VfFoo::bar (this=0x1, x=2) at ../src/vffoo.ext:42"
                                << "unknownReturnType bar(this=0x1,x=2)|Ns|VfFoo|Velmar Framework|vffoo.ext|42";
        QTest::newRow("unknown function") << "#2  0x00012345 in ?? ()"
                                          << "Unavailable: unknownReturnType ?\?()|||Velmar Application||0";
        // The greedy match splits at the last " in ", here inside the arguments.
        QTest::newRow("' in ' in an argument") << "#3  0x1 in N::C::run (t=0x2 \"stop in here\") at f.cpp:3"
                                               << "Unavailable: unknownReturnType here\")|||Velmar Application|f.cpp|3";
        QTest::newRow("no address") << "#0  main () at main.cpp:10" << "";
    }
    void fromGdbFrame()
    {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        StatusEventRecorder recorder;
        recorder.attach();
        QScopedPointer<VfSourceContext> c(createSourceContextFromGdbBacktrace(line));
        QCOMPARE(c ? fields(*c) : QString(), expected);
        QCOMPARE(recorder.descriptions(), expected.isEmpty()
                                              ? QStringList{"An error occurred while parsing the string " + line + "."}
                                              : QStringList());
    }

    void siteTextFollowsContent()
    {
        // Another literal at the same address, as after a library was unloaded and another loaded.
        char file[] = "/src/one/first.cpp", function[] = "void f()";
        QCOMPARE(siteFileName(file) + siteFunctionText(function), QString("first.cppvoid f()"));
        qstrcpy(file, "/src/two/other.cpp");
        function[5] = 'g';
        QCOMPARE(siteFileName(file) + siteFunctionText(function), QString("other.cppvoid g()"));
    }

    // Last, as it leaves the zone changed.
    void timeFollowsZoneChange_data()
    {
        QTest::addColumn<int>("localHour");
        QTest::addColumn<int>("minutes");
        QTest::newRow("0:xx AM") << 0 << 0;
        QTest::newRow("11:xx AM, half hour") << 11 << 30;
        QTest::newRow("12:xx PM") << 12 << 0;
        QTest::newRow("11:xx PM, quarter hour") << 23 << 45;
        QTest::newRow("TZ unset again, within the second") << -1 << 0;
    }
    void timeFollowsZoneChange()
    {
        QFETCH(int, localHour);
        QFETCH(int, minutes);
        int offset = ((localHour - QDateTime::currentDateTimeUtc().time().hour() + 24) % 24) * 3600 + minutes * 60;
        if (offset > 14 * 3600)
            offset -= 24 * 3600;
        // A POSIX zone text needs no zone files; it counts west of Greenwich.
        if (localHour < 0)
            qunsetenv("TZ");
        else
            qputenv("TZ", QString("VFT%1%2:%3").arg(offset > 0 ? '-' : '+').arg(qAbs(offset) / 3600)
                          .arg(qAbs(offset) / 60 % 60, 2, 10, QLatin1Char('0')).toLatin1());
        QThread::currentThread()->setObjectName("T");
        QScopedPointer<VfSourceContext> c(&createSourceContext("", "a/f.cpp", 305, "void Ns::VfC::f()", {"a", "b"}));
        QVERIFY(qAbs(c->timestamp().msecsTo(QDateTime::currentDateTime())) < 60000); // read in the zone just set
        const QString time = c->timestamp().toString("MM-dd-yy hh:mm:ss.zzz AP");
        QCOMPARE(c->toString(VfSourceContext::SingleLineLongForm),
                 "[" + time + ", Velmar Framework, f.cpp, 305, T, Ns, VfC, void f(), a, b]");
    }
};

QTEST_GUILESS_MAIN(tst_SourceContext)
#include "tst_sourcecontext.moc"
