// What the report road keeps so that it need not work everything out again: the local clock's
// offset, the texts of reporting sites, and a bracket built without QString::arg. Each must give
// what working it out afresh gives.
#include "vflogentry.h"
#include "vfsourcecontext.h"

#include <QtTest>

#include <ctime>

using namespace Crosscutting;

class tst_ReportSpeed : public QObject
{
    Q_OBJECT
private slots:
    void timeFollowsZoneChange_data();
    void timeFollowsZoneChange();
    void siteTextFollowsContent();
    void shortFormWithMarkers_data();
    void shortFormWithMarkers();
    void messageKeepsEveryCharacter_data();
    void messageKeepsEveryCharacter();
    void cleanupTestCase();

private:
    const QByteArray m_savedTz = qgetenv("TZ");
};

void tst_ReportSpeed::timeFollowsZoneChange_data()
{
    // Local hours either side of midnight and noon, reached one after the other within a second,
    // through POSIX zone texts that need no zone files.
    QTest::addColumn<int>("localHour");
    QTest::addColumn<int>("minutes");
    QTest::newRow("0:xx AM") << 0 << 0;
    QTest::newRow("11:xx AM, half hour") << 11 << 30;
    QTest::newRow("12:xx PM") << 12 << 0;
    QTest::newRow("11:xx PM, quarter hour") << 23 << 45;
}

void tst_ReportSpeed::timeFollowsZoneChange()
{
    QFETCH(int, localHour);
    QFETCH(int, minutes);
    const int utcHour = QDateTime::currentDateTimeUtc().time().hour();
    int offset = ((localHour - utcHour + 24) % 24) * 3600 + minutes * 60;
    if (offset > 14 * 3600)
        offset -= 24 * 3600;
    const int east = qAbs(offset);
    qputenv("TZ", QStringLiteral("VFT%1%2:%3")
                      .arg(offset > 0 ? QLatin1Char('-') : QLatin1Char('+'))
                      .arg(east / 3600)
                      .arg(east / 60 % 60, 2, 10, QLatin1Char('0'))
                      .toLatin1());
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    QScopedPointer<VfSourceContext> context(
        &createSourceContext(QString(), "f.cpp", 1, "void Ns::VfC::f()", QStringList()));
    const QDateTime timestamp = context->timestamp();
    QCOMPARE(timestamp.timeSpec(), Qt::LocalTime);
    QCOMPARE(timestamp.offsetFromUtc(), offset);
    QVERIFY(timestamp.toMSecsSinceEpoch() >= before);
    QVERIFY(timestamp.toMSecsSinceEpoch() <= QDateTime::currentMSecsSinceEpoch());
    const QString timeText = timestamp.toString("MM-dd-yy hh:mm:ss.zzz AP");
    QVERIFY2(context->toString(VfSourceContext::SingleLineLongForm).startsWith('[' + timeText + ", "),
             qPrintable(timeText));
    QCOMPARE(context->toString(VfSourceContext::ShortFormWithTimestamp), "[" + timeText + " f.cpp:1:Velmar Framework]");
}

void tst_ReportSpeed::siteTextFollowsContent()
{
    // Another literal at the same address, as after a library was unloaded and another loaded.
    char literal[] = "/src/one/first.cpp";
    QCOMPARE(siteFileName(literal), QStringLiteral("first.cpp"));
    qstrcpy(literal, "/src/two/other.cpp");
    QCOMPARE(siteFileName(literal), QStringLiteral("other.cpp"));
    char function[] = "void f()";
    QCOMPARE(siteFunctionText(function), QStringLiteral("void f()"));
    function[5] = 'g';
    QCOMPARE(siteFunctionText(function), QStringLiteral("void g()"));
}

void tst_ReportSpeed::shortFormWithMarkers_data()
{
    // The bracket has always been filled by successive QString::arg calls, which take a "%" and
    // digits inside a filled part for a place marker.
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("expected");
    QTest::newRow("marker in the file") << "x%1.cpp" << "Mod" << "[%4x7.cpp:Mod:]";
    QTest::newRow("markers in both") << "a%2b" << "M%1" << "[%4a7b:7:M]";
    QTest::newRow("marker, no module") << "a%2b" << "" << "[a7b:7]";
    QTest::newRow("bare percent") << "50%" << "%3" << "[%450%:7:]";
}

void tst_ReportSpeed::shortFormWithMarkers()
{
    QFETCH(QString, file);
    QFETCH(QString, module);
    QFETCH(QString, expected);
    const VfSourceContext context(module, file, "Ns", "VfC", "void f()", 7, "T", {});
    QCOMPARE(context.toString(VfSourceContext::ShortForm), expected);
}

void tst_ReportSpeed::messageKeepsEveryCharacter_data()
{
    // A queued entry keeps Latin-1 text in one byte a character, and any other text as it came.
    QTest::addColumn<QString>("message");
    QTest::newRow("null") << QString();
    QTest::newRow("empty") << QString("");
    QTest::newRow("Latin-1") << QString::fromUtf8("Gr\xc3\xbc\xc3\x9f" "e\n");
    QTest::newRow("beyond Latin-1") << QString::fromUtf8("\xe2\x9c\x93 \xe6\xbc\xa2\n");
    QTest::newRow("zero character") << QString::fromLatin1("a\0b", 3);
    QTest::newRow("lone surrogate") << QString(QChar(0xd800)) + "x";
}

void tst_ReportSpeed::messageKeepsEveryCharacter()
{
    QFETCH(QString, message);
    const QSharedPointer<VfSourceContext> context(&createSourceContext(QString(), "f.cpp", 1, "void f()", {}));
    const VfLogEntry entry(context, VfStaticStatusInfo::VfStatusSeverity::Notification, message);
    QCOMPARE(entry.message(), message);
    QCOMPARE(entry.message().isNull(), message.isNull());
    QCOMPARE(entry.message().size(), message.size());
}

void tst_ReportSpeed::cleanupTestCase()
{
    if (m_savedTz.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", m_savedTz);
    tzset();
}

QTEST_GUILESS_MAIN(tst_ReportSpeed)
#include "tst_reportspeed.moc"
