#include "vfstaticstatusinfo.h"
#include "vfutilities.h"

#include <QtTest>

using namespace Crosscutting;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using Category = VfStaticStatusInfo::VfStatusCategory;

Q_DECLARE_METATYPE(Crosscutting::VfStaticStatusInfo::VfStatusSeverity)
Q_DECLARE_METATYPE(Crosscutting::VfStaticStatusInfo::VfStatusCategory)

class tst_VfStaticStatusInfo : public QObject
{
    Q_OBJECT
private slots:
    void enumerations_data();
    void enumerations();
    void defaultRecordSingleLine();
    void filledRecordForms_data();
    void filledRecordForms();
    void multiLineForm();
    void unknownSeverityIsEmptyField();
    void unknownFormatIsEmpty();
    void metaCastAnswersToDisplayable();
    void enumValueToStringTemplate();
};

void tst_VfStaticStatusInfo::enumerations_data()
{
    QTest::addColumn<QString>("enumName");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("value");
    QTest::newRow("severity Unassigned") << "VfStatusSeverity" << "Unassigned" << 0;
    QTest::newRow("severity Notification") << "VfStatusSeverity" << "Notification" << 1;
    QTest::newRow("severity Warning") << "VfStatusSeverity" << "Warning" << 2;
    QTest::newRow("severity NonCriticalError") << "VfStatusSeverity" << "NonCriticalError" << 3;
    QTest::newRow("severity CriticalError") << "VfStatusSeverity" << "CriticalError" << 4;
    QTest::newRow("category Unassigned") << "VfStatusCategory" << "Unassigned" << 0;
    QTest::newRow("category Internal") << "VfStatusCategory" << "Internal" << 1;
    QTest::newRow("category External") << "VfStatusCategory" << "External" << 2;
}

void tst_VfStaticStatusInfo::enumerations()
{
    QFETCH(QString, enumName);
    QFETCH(QString, key);
    QFETCH(int, value);
    const QMetaObject& mo = VfStaticStatusInfo::staticMetaObject;
    const int index = mo.indexOfEnumerator(enumName.toLatin1());
    QVERIFY(index >= 0);
    QVERIFY(!mo.enumerator(index).isFlag());
    QCOMPARE(mo.enumerator(index).keyToValue(key.toLatin1()), value);
    QCOMPARE(sizeof(Severity), size_t(1));
    QCOMPARE(sizeof(Category), size_t(1));
}

void tst_VfStaticStatusInfo::defaultRecordSingleLine()
{
    VfStaticStatusInfo info;
    QCOMPARE(info.toString(VfStaticStatusInfo::SingleLineLongForm), QString("[, , Unassigned, Unassigned]"));
    QVERIFY(info.parent() == nullptr);
}

void tst_VfStaticStatusInfo::filledRecordForms_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("expected");
    QTest::newRow("ShortForm: description unchanged") << 0 << " Invalid data 'x' received\n";
    QTest::newRow("ShortFormWithTimestamp: the same") << 1 << " Invalid data 'x' received\n";
    QTest::newRow("SingleLineLongForm")
        << 2 << "[Invalid data,  Invalid data 'x' received\n, NonCriticalError, Internal]";
}

void tst_VfStaticStatusInfo::filledRecordForms()
{
    QFETCH(int, format);
    QFETCH(QString, expected);
    VfStaticStatusInfo info("Invalid data", " Invalid data 'x' received\n", Severity::NonCriticalError,
                            Category::Internal, nullptr);
    QCOMPARE(info.toString(VfStaticStatusInfo::DisplayFormat(format)), expected);
}

void tst_VfStaticStatusInfo::multiLineForm()
{
    VfStaticStatusInfo info("T", "D", Severity::CriticalError, Category::External, nullptr);
    QStringList lines = info.toString(VfStaticStatusInfo::MultiLineLongForm).split('\n');
    lines.sort();
    QStringList expected{QString(8, ' ') + "Title: " + QString("T").leftJustified(20),
                         QString(2, ' ') + "Description: " + QString("D").leftJustified(20),
                         QString(5, ' ') + "Severity: " + QString("CriticalError").leftJustified(20),
                         QString(5, ' ') + "Category: " + QString("External").leftJustified(20)};
    expected.sort();
    QCOMPARE(lines, expected);
}

void tst_VfStaticStatusInfo::unknownSeverityIsEmptyField()
{
    VfStaticStatusInfo info("T", "D", Severity(255), Category::Internal, nullptr);
    QCOMPARE(info.toString(VfStaticStatusInfo::SingleLineLongForm), QString("[T, D, , Internal]"));
    const QStringList lines = info.toString(VfStaticStatusInfo::MultiLineLongForm).split('\n');
    QVERIFY(lines.contains(QString(5, ' ') + "Severity: " + QString(20, ' ')));
}

void tst_VfStaticStatusInfo::unknownFormatIsEmpty()
{
    VfStaticStatusInfo info("T", "D", Severity::Warning, Category::Internal, nullptr);
    QCOMPARE(info.toString(VfStaticStatusInfo::DisplayFormat(4)), QString());
}

void tst_VfStaticStatusInfo::metaCastAnswersToDisplayable()
{
    VfStaticStatusInfo info;
    QVERIFY(info.qt_metacast("Crosscutting::VfStaticStatusInfo") != nullptr);
    QVERIFY(info.qt_metacast("VfDisplayable") != nullptr);
}

void tst_VfStaticStatusInfo::enumValueToStringTemplate()
{
    QCOMPARE(VfUtilities::enumValueToString<VfStaticStatusInfo>("VfStatusSeverity", 4), QString("CriticalError"));
    // No such value: a null string; no such enumeration: an empty, non-null string (Part 2.2).
    QVERIFY(VfUtilities::enumValueToString<VfStaticStatusInfo>("VfStatusSeverity", 255).isNull());
    const QString missing = VfUtilities::enumValueToString<VfStaticStatusInfo>("NoSuchEnum", 1);
    QVERIFY(missing.isEmpty());
    QVERIFY(!missing.isNull());
}

QTEST_GUILESS_MAIN(tst_VfStaticStatusInfo)
#include "tst_vfstaticstatusinfo.moc"
