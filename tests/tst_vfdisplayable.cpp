#include "vfdisplayable.h"

#include <QtTest>

using namespace Crosscutting;

namespace {
// The smallest concrete displayable, to reach the protected-in-spirit helpers.
class Probe : public VfDisplayable
{
public:
    QString toString(DisplayFormat) const override { return QString(); }
};
}

class tst_VfDisplayable : public QObject
{
    Q_OBJECT
private slots:
    void formatValues();
    void singleLine_data();
    void singleLine();
    void multiLineOneKey_data();
    void multiLineOneKey();
    void multiLineEmptyHash();
    void multiLineJoinsWithoutTrailingNewline();
};

void tst_VfDisplayable::formatValues()
{
    QCOMPARE(int(VfDisplayable::ShortForm), 0);
    QCOMPARE(int(VfDisplayable::ShortFormWithTimestamp), 1);
    QCOMPARE(int(VfDisplayable::SingleLineLongForm), 2);
    QCOMPARE(int(VfDisplayable::MultiLineLongForm), 3);
    QCOMPARE(sizeof(VfDisplayable::DisplayFormat), size_t(1));
}

void tst_VfDisplayable::singleLine_data()
{
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty list") << QStringList() << "[]";
    QTest::newRow("one field, no separator") << QStringList{"a"} << "[a]";
    QTest::newRow("empty field keeps its separator") << QStringList{"a", "", "b"} << "[a, , b]";
    QTest::newRow("nothing trimmed") << QStringList{" a ", "b\n"} << "[ a , b\n]";
    QTest::newRow("one empty field") << QStringList{""} << "[]";
}

void tst_VfDisplayable::singleLine()
{
    QFETCH(QStringList, fields);
    QFETCH(QString, expected);
    QCOMPARE(Probe().formatSingleLineLongFormString(fields), expected);
}

void tst_VfDisplayable::multiLineOneKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");
    QTest::newRow("spec example") << "Title" << "Abc"
                                  << QString(8, ' ') + "Title: Abc" + QString(17, ' ');
    QTest::newRow("13-character key, no leading blank") << "ABCDEFGHIJKLM" << "v"
                                                        << "ABCDEFGHIJKLM: v" + QString(19, ' ');
    QTest::newRow("longer key is not cut") << "ABCDEFGHIJKLMNOP" << "v"
                                           << "ABCDEFGHIJKLMNOP: v" + QString(19, ' ');
    QTest::newRow("20-character value, no trailing blank") << "k" << "01234567890123456789"
                                                           << QString(12, ' ') + "k: 01234567890123456789";
    QTest::newRow("longer value is not cut") << "k" << "0123456789012345678901"
                                             << QString(12, ' ') + "k: 0123456789012345678901";
    QTest::newRow("empty key: 13 blanks before the colon") << "" << "x"
                                                           << QString(13, ' ') + ": x" + QString(19, ' ');
    QTest::newRow("line breaks kept, no indentation") << "Text" << "one\ntwo"
                                                      << QString(9, ' ') + "Text: one\ntwo" + QString(13, ' ');
}

void tst_VfDisplayable::multiLineOneKey()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, expected);
    QHash<QString, QString> fields;
    fields.insert(key, value);
    QCOMPARE(Probe().formatMultiLineLongFormString(fields), expected);
}

void tst_VfDisplayable::multiLineEmptyHash()
{
    QCOMPARE(Probe().formatMultiLineLongFormString({}), QString());
}

void tst_VfDisplayable::multiLineJoinsWithoutTrailingNewline()
{
    QHash<QString, QString> fields{{"A", "1"}, {"B", "2"}, {"C", "3"}};
    const QString text = Probe().formatMultiLineLongFormString(fields);
    QVERIFY(!text.endsWith('\n'));
    QStringList lines = text.split('\n');
    QCOMPARE(lines.size(), 3);
    // Lines come in the hash's own order, so compare as a set.
    lines.sort();
    QCOMPARE(lines, (QStringList{QString(12, ' ') + "A: 1" + QString(19, ' '),
                                 QString(12, ' ') + "B: 2" + QString(19, ' '),
                                 QString(12, ' ') + "C: 3" + QString(19, ' ')}));
}

QTEST_GUILESS_MAIN(tst_VfDisplayable)
#include "tst_vfdisplayable.moc"
