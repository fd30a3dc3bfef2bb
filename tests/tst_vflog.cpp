// Part 4.1: log entries and logs.
#include "helpers/vflogtesthelpers.h"
#include "vflog.h"
#include "vflogentry.h"

#include <QtTest>

using namespace Crosscutting;
using VfLogTest::makeContext;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using EntryPointer = QSharedPointer<const VfLogEntry>;

class tst_VfLog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void entryKeepsItsValues();
    void entryHoldsItsOwnContextReference();
    void newLogIsEnabledWithDefaultFilter();
    void newLogAcceptsEmptyNamespace();
    void defaultFilterLetsEverythingThrough_data();
    void defaultFilterLetsEverythingThrough();
    void anchoredFilter_data();
    void anchoredFilter();
    void filterLooksAtNamespaceOnly();
    void resetNamespaceFilterDeliversAgain();
    void disabledLogDeliversNothingAndKeepsFilter();
    void disabledLogBuffersNothing();
    void severityPlaysNoPart();
    void invalidPatternDropsEverything();
    void noConnectedWriterFreesEntry();
    void twoWritersReceiveTheSameEntryObject();
    void signalAndSlotSignatures();

private:
    static EntryPointer entryAt(const QSignalSpy& spy, int index)
    {
        return qvariant_cast<EntryPointer>(spy.at(index).at(0));
    }
};

void tst_VfLog::initTestCase()
{
    qRegisterMetaType<EntryPointer>();
}

void tst_VfLog::entryKeepsItsValues()
{
    const auto context = makeContext(QStringLiteral("Ns"), QStringLiteral("Cls"));
    const VfLogEntry entry(context, Severity::Warning, QStringLiteral("  text without trimming "));
    QCOMPARE(entry.sourceContext(), context);
    QCOMPARE(entry.severity(), Severity::Warning);
    // Nothing trimmed, no line end added (Part 4.1).
    QCOMPARE(entry.message(), QStringLiteral("  text without trimming "));
    QCOMPARE(sizeof(Severity), sizeof(quint8));
}

void tst_VfLog::entryHoldsItsOwnContextReference()
{
    auto context = makeContext();
    QWeakPointer<VfSourceContext> weak = context;
    auto* entry = new VfLogEntry(context, Severity::Notification, QStringLiteral("m"));
    context.reset();
    QVERIFY(!weak.isNull()); // the entry keeps it alive
    delete entry;
    QVERIFY(weak.isNull());
}

void tst_VfLog::newLogIsEnabledWithDefaultFilter()
{
    VfLog log(nullptr);
    QVERIFY(log.isLogEnable());
    QCOMPARE(log.namespaceFilter().pattern(), QStringLiteral("[\\s\\S]?"));
    QCOMPARE(log.namespaceFilter().patternOptions(), QRegularExpression::NoPatternOption);
    QCOMPARE(log.parent(), nullptr);
}

void tst_VfLog::newLogAcceptsEmptyNamespace()
{
    VfLog log(nullptr);
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    const auto context = makeContext(QString());
    log.addLogEntry(context, Severity::CriticalError, QStringLiteral("hello\n"));
    QCOMPARE(spy.count(), 1);
    const EntryPointer entry = entryAt(spy, 0);
    QCOMPARE(entry->sourceContext(), context);
    QCOMPARE(entry->severity(), Severity::CriticalError);
    QCOMPARE(entry->message(), QStringLiteral("hello\n"));
}

void tst_VfLog::defaultFilterLetsEverythingThrough_data()
{
    QTest::addColumn<QString>("sourceNamespace");
    QTest::newRow("empty") << QString();
    QTest::newRow("one character") << QStringLiteral("A");
    QTest::newRow("Crosscutting") << QStringLiteral("Crosscutting");
    QTest::newRow("line break") << QStringLiteral("\n");
}

void tst_VfLog::defaultFilterLetsEverythingThrough()
{
    QFETCH(QString, sourceNamespace);
    VfLog log(nullptr);
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    log.addLogEntry(makeContext(sourceNamespace), Severity::Notification, QStringLiteral("m"));
    QCOMPARE(spy.count(), 1);
}

void tst_VfLog::anchoredFilter_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("sourceNamespace");
    QTest::addColumn<bool>("delivered");
    QTest::newRow("caret, begins with") << "^Cross" << "Crosscutting" << true;
    QTest::newRow("caret, only contains") << "^Cross" << "MyCrosscutting" << false;
    QTest::newRow("no caret, begins with") << "Cross" << "Crosscutting" << true;
    QTest::newRow("no caret, only contains") << "Cross" << "MyCrosscutting" << true;
    QTest::newRow("no caret, absent") << "Cross" << "Other" << false;
    QTest::newRow("case-sensitive") << "^Cross" << "crosscutting" << false;
}

void tst_VfLog::anchoredFilter()
{
    QFETCH(QString, pattern);
    QFETCH(QString, sourceNamespace);
    QFETCH(bool, delivered);
    VfLog log(nullptr);
    log.setNamespaceFilter(QRegularExpression(pattern));
    QCOMPARE(log.namespaceFilter().pattern(), pattern);
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    log.addLogEntry(makeContext(sourceNamespace), Severity::Notification, QStringLiteral("m"));
    QCOMPARE(spy.count(), delivered ? 1 : 0);
}

void tst_VfLog::filterLooksAtNamespaceOnly()
{
    VfLog log(nullptr);
    log.setNamespaceFilter(QRegularExpression(QStringLiteral("^Foo")));
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    // Module, class, file and message all say Foo; the namespace does not.
    log.addLogEntry(makeContext(QStringLiteral("Bar"), QStringLiteral("Foo"), QStringLiteral("Foo"),
                                QStringLiteral("Foo.cpp")),
                    Severity::Notification, QStringLiteral("Foo"));
    QCOMPARE(spy.count(), 0);
    log.addLogEntry(makeContext(QStringLiteral("Foo")), Severity::Notification, QStringLiteral("x"));
    QCOMPARE(spy.count(), 1);
}

void tst_VfLog::resetNamespaceFilterDeliversAgain()
{
    VfLog log(nullptr);
    log.setNamespaceFilter(QRegularExpression(QStringLiteral("^OnlyThis$")));
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    log.addLogEntry(makeContext(QStringLiteral("Other")), Severity::Notification, QStringLiteral("m"));
    log.addLogEntry(makeContext(QString()), Severity::Notification, QStringLiteral("m"));
    QCOMPARE(spy.count(), 0);
    log.resetNamespaceFilter();
    QCOMPARE(log.namespaceFilter().pattern(), QStringLiteral("[\\s\\S]?"));
    log.addLogEntry(makeContext(QStringLiteral("Other")), Severity::Notification, QStringLiteral("m"));
    log.addLogEntry(makeContext(QString()), Severity::Notification, QStringLiteral("m"));
    QCOMPARE(spy.count(), 2);
}

void tst_VfLog::disabledLogDeliversNothingAndKeepsFilter()
{
    VfLog log(nullptr);
    log.setNamespaceFilter(QRegularExpression(QStringLiteral("^Keep")));
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    log.disable();
    QVERIFY(!log.isLogEnable());
    log.addLogEntry(makeContext(QStringLiteral("Keep")), Severity::CriticalError, QStringLiteral("m"));
    QCOMPARE(spy.count(), 0);
    QCOMPARE(log.namespaceFilter().pattern(), QStringLiteral("^Keep"));
    log.enable();
    QVERIFY(log.isLogEnable());
    log.addLogEntry(makeContext(QStringLiteral("Keep")), Severity::CriticalError, QStringLiteral("m"));
    log.addLogEntry(makeContext(QStringLiteral("Drop")), Severity::CriticalError, QStringLiteral("m"));
    QCOMPARE(spy.count(), 1);
}

void tst_VfLog::disabledLogBuffersNothing()
{
    VfLog log(nullptr);
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    auto context = makeContext();
    QWeakPointer<VfSourceContext> weak = context;
    log.disable();
    log.addLogEntry(context, Severity::Notification, QStringLiteral("dropped"));
    context.reset();
    QVERIFY(weak.isNull()); // nothing kept for a later enable()
    log.enable();
    QCOMPARE(spy.count(), 0);
}

void tst_VfLog::severityPlaysNoPart()
{
    VfLog log(nullptr);
    log.setNamespaceFilter(QRegularExpression(QStringLiteral("^N$")));
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    for (int value = 0; value <= 4; ++value) {
        log.addLogEntry(makeContext(QStringLiteral("N")), Severity(value), QStringLiteral("m"));
        log.addLogEntry(makeContext(QStringLiteral("X")), Severity(value), QStringLiteral("m"));
    }
    QCOMPARE(spy.count(), 5);
    for (int value = 0; value <= 4; ++value)
        QCOMPARE(int(entryAt(spy, value)->severity()), value);
}

void tst_VfLog::invalidPatternDropsEverything()
{
    VfLog log(nullptr);
    const QRegularExpression invalid(QStringLiteral("("));
    QVERIFY(!invalid.isValid());
    log.setNamespaceFilter(invalid); // not rejected (Part 4.1)
    QCOMPARE(log.namespaceFilter().pattern(), QStringLiteral("("));
    QSignalSpy spy(&log, &VfLog::logEntryReady);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^QRegularExpressionPrivate::doMatch")));
    log.addLogEntry(makeContext(QStringLiteral("(")), Severity::Notification, QStringLiteral("m"));
    QCOMPARE(spy.count(), 0);
}

void tst_VfLog::noConnectedWriterFreesEntry()
{
    VfLog log(nullptr);
    auto context = makeContext();
    QWeakPointer<VfSourceContext> weak = context;
    log.addLogEntry(context, Severity::Notification, QStringLiteral("nobody listens"));
    context.reset();
    // The entry, the only other holder of the context, died with the last reference.
    QVERIFY(weak.isNull());
}

void tst_VfLog::twoWritersReceiveTheSameEntryObject()
{
    VfLog log(nullptr);
    EntryPointer first;
    EntryPointer second;
    connect(&log, &VfLog::logEntryReady, this, [&first](const EntryPointer& entry) { first = entry; },
            Qt::DirectConnection);
    connect(&log, &VfLog::logEntryReady, this, [&second](const EntryPointer& entry) { second = entry; },
            Qt::DirectConnection);
    log.addLogEntry(makeContext(), Severity::Warning, QStringLiteral("shared"));
    QVERIFY(first);
    QCOMPARE(first.data(), second.data());
}

void tst_VfLog::signalAndSlotSignatures()
{
    // Reachable by name, fully qualified so that queued connections and spies find registered types.
    const QMetaObject& mo = VfLog::staticMetaObject;
    const int signalIndex = mo.indexOfSignal("logEntryReady(QSharedPointer<const Crosscutting::VfLogEntry>)");
    QVERIFY(signalIndex >= 0);
    const int slotIndex = mo.indexOfSlot(
        "addLogEntry(QSharedPointer<Crosscutting::VfSourceContext>,Crosscutting::VfStaticStatusInfo::VfStatusSeverity,QString)");
    QVERIFY(slotIndex >= 0);
}

QTEST_GUILESS_MAIN(tst_VfLog)
#include "tst_vflog.moc"
