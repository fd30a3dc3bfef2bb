// Part 4.3: writer base and standard output writer.
#include "helpers/vflogtesthelpers.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vflogmanager.h"
#include "vfplatforminfo.h"
#include "vfstdoutwriter.h"

#include <QtTest>

#include <functional>

using namespace Crosscutting;
using VfLogTest::captureStdout;
using VfLogTest::makeContext;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using EntryPointer = QSharedPointer<const VfLogEntry>;

Q_DECLARE_METATYPE(Crosscutting::MessageSource)

namespace {

EntryPointer makeEntry(const QString& sourceClass, const QString& module, const QString& message,
                       const QString& fileName = QStringLiteral("source.ext"), unsigned long long line = 305)
{
    return EntryPointer(new VfLogEntry(makeContext(QStringLiteral("Ns"), sourceClass, module, fileName, line),
                                       Severity::Notification, message));
}

VfAbstractLogManager* logManager()
{
    return VfCrosscuttingManagerPlaceholder::instance()->logManager();
}

} // namespace

class tst_VfStdOutWriter : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void baseAnswers();
    void sourceForLogEntry_data();
    void sourceForLogEntry();
    void lineIsContextSpaceMessage_data();
    void lineIsContextSpaceMessage();
    void defaultHandlerPrintsEveryEntry();
    void handlerSeesTrimmedLatin1ConsoleGetsUntrimmed();
    void handlerReturningTrueMutesEntry();
    void qtSourceHiddenOnConsoleOnly();
    void messageWithoutLineEndRunsOn();
    void zeroCharacterEndsTheLine();
    void emptyHandlerThrowsThroughWriteToLog();
    void clearLogAndCopyLogTo();
    void logWithOnlyThisWriterClears();
    void flushPrintsNothing();
};

void tst_VfStdOutWriter::initTestCase()
{
    qRegisterMetaType<EntryPointer>();
    VfCrosscuttingManagerPlaceholder::instance();
}

void tst_VfStdOutWriter::cleanup()
{
    logManager()->deregisterIgnoreHandler();
}

void tst_VfStdOutWriter::baseAnswers()
{
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    QCOMPARE(writer.logName(), QStringLiteral("Stdout"));
    QVERIFY(!writer.isCopyable());
    QVERIFY(writer.isTimedSaveEnabled());
    QCOMPARE(writer.readLog(), QString());
    // writeToLog is a slot with the argument name logEntry, seventh virtual of the base (Part 4.3).
    const QMetaObject& mo = VfAbstractLogWriter::staticMetaObject;
    const int index = mo.indexOfSlot("writeToLog(QSharedPointer<const Crosscutting::VfLogEntry>)");
    QVERIFY(index >= 0);
    QCOMPARE(mo.method(index).parameterNames(), QList<QByteArray>{"logEntry"});
}

void tst_VfStdOutWriter::sourceForLogEntry_data()
{
    QTest::addColumn<QString>("sourceClass");
    QTest::addColumn<QString>("module");
    QTest::addColumn<Crosscutting::MessageSource>("expected");
    QTest::newRow("Vf class, VfDebug") << "VfUtilities" << "VfDebug" << FrameworkDebugSource;
    QTest::newRow("Vf class, framework module") << "VfLogManager" << "Velmar Framework" << FrameworkSource;
    QTest::newRow("Vf class, appDebug") << "VfThing" << "appDebug" << FrameworkSource;
    QTest::newRow("Vf class, vfdebug lower") << "VfThing" << "vfdebug" << FrameworkSource;
    QTest::newRow("Q class, module ignored") << "QObject" << "VfDebug" << QtSource;
    QTest::newRow("Q class, appDebug") << "QIODevice" << "appDebug" << QtSource;
    QTest::newRow("Q class, QDEBUG") << "QObject" << "QDEBUG" << QtSource;
    QTest::newRow("lower q, appDebug") << "qobject" << "appDebug" << ApplicationDebugSource;
    QTest::newRow("lower q, other") << "qobject" << "QWARNING" << ApplicationSource;
    QTest::newRow("lower vf, VfDebug") << "vfThing" << "VfDebug" << ApplicationSource;
    QTest::newRow("app class, appDebug") << "Foo" << "appDebug" << ApplicationDebugSource;
    QTest::newRow("app class, AppDebug") << "Foo" << "AppDebug" << ApplicationSource;
    QTest::newRow("empty class, appDebug") << "" << "appDebug" << ApplicationDebugSource;
    QTest::newRow("empty class, empty module") << "" << "" << ApplicationSource;
    QTest::newRow("V alone") << "V" << "VfDebug" << ApplicationSource;
    QTest::newRow("Q alone") << "Q" << "" << QtSource;
}

void tst_VfStdOutWriter::sourceForLogEntry()
{
    QFETCH(QString, sourceClass);
    QFETCH(QString, module);
    QFETCH(Crosscutting::MessageSource, expected);
    QCOMPARE(::sourceForLogEntry(makeEntry(sourceClass, module, QStringLiteral("m"))), expected);
}

void tst_VfStdOutWriter::lineIsContextSpaceMessage_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("module") << "source.ext" << "Velmar Framework" << "hello\n"
                            << QByteArray("[source.ext:305:Velmar Framework] hello\n");
    QTest::newRow("no module") << "source.ext" << "" << "hello\n" << QByteArray("[source.ext:305] hello\n");
    QTest::newRow("directories cut") << "a/b/source.ext" << "M" << "x\n" << QByteArray("[source.ext:305:M] x\n");
    QTest::newRow("multi-line message") << "s" << "M" << "one\ntwo\n" << QByteArray("[s:305:M] one\ntwo\n");
    // Local 8-bit encoding of the message, built here from the spec's rule.
    const QString accented = QStringLiteral("caf\u00e9 \u00fc\n");
    QTest::newRow("local 8-bit") << "s" << "M" << accented << (QByteArray("[s:305:M] ") + accented.toLocal8Bit());
}

void tst_VfStdOutWriter::lineIsContextSpaceMessage()
{
    QFETCH(QString, fileName);
    QFETCH(QString, module);
    QFETCH(QString, message);
    QFETCH(QByteArray, expected);
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    bool result = false;
    const QByteArray output =
        captureStdout([&] { result = writer.writeToLog(makeEntry(QStringLiteral("Foo"), module, message, fileName)); });
    QVERIFY(result);
    QCOMPARE(output, expected);
}

void tst_VfStdOutWriter::defaultHandlerPrintsEveryEntry()
{
    // The default handler ignores nothing, whatever the source.
    QVERIFY(!logManager()->ignoreHandler()(QtSource, "x"));
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    const QStringList classes{QStringLiteral("QObject"), QStringLiteral("VfThing"), QStringLiteral("Foo")};
    const QStringList modules{QStringLiteral("VfDebug"), QStringLiteral("appDebug"), QStringLiteral("M")};
    QByteArray expected;
    const QByteArray output = captureStdout([&] {
        for (const QString& cls : classes) {
            for (const QString& module : modules) {
                QVERIFY(writer.writeToLog(makeEntry(cls, module, cls + QLatin1Char('\n'), QStringLiteral("s"), 1)));
                expected += "[s:1:" + module.toLatin1() + "] " + cls.toLatin1() + "\n";
            }
        }
    });
    QCOMPARE(output, expected);
}

void tst_VfStdOutWriter::handlerSeesTrimmedLatin1ConsoleGetsUntrimmed()
{
    QList<QPair<MessageSource, QByteArray>> seen;
    logManager()->registerIgnoreHandler([&seen](MessageSource source, char const* text) {
        seen.append(qMakePair(source, QByteArray(text)));
        return false;
    });
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    const QString message = QStringLiteral("  \t caf\u00e9 padded \n");
    const QByteArray output =
        captureStdout([&] { writer.writeToLog(makeEntry(QStringLiteral("VfThing"), QStringLiteral("VfDebug"), message)); });
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.at(0).first, FrameworkDebugSource);
    QCOMPARE(seen.at(0).second, QByteArray("caf\xe9 padded")); // trimmed, Latin-1
    QCOMPARE(output, QByteArray("[source.ext:305:VfDebug] ") + message.toLocal8Bit());
}

void tst_VfStdOutWriter::handlerReturningTrueMutesEntry()
{
    logManager()->registerIgnoreHandler([](MessageSource, char const*) { return true; });
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    bool result = false;
    const QByteArray output =
        captureStdout([&] { result = writer.writeToLog(makeEntry(QStringLiteral("Foo"), QString(), "m\n")); });
    QVERIFY(result); // ignored entries count as written
    QCOMPARE(output, QByteArray());
}

void tst_VfStdOutWriter::qtSourceHiddenOnConsoleOnly()
{
    logManager()->registerIgnoreHandler([](MessageSource source, char const*) { return source == QtSource; });
    const QString velmarLog = VfPlatformInfo::systemDataRootPath() + QStringLiteral("/logs/velmar.log");
    logManager()->forceFlushAllLogs();
    const qint64 before = QFileInfo(velmarLog).size();
    const QByteArray output = captureStdout([&] {
        logManager()->addLogEntry(makeContext(QString(), QStringLiteral("QObject"), QStringLiteral("QDEBUG")),
                                  Severity::Notification, QStringLiteral("from Qt\n"), StatusLog);
        logManager()->addLogEntry(makeContext(QString(), QStringLiteral("qobject"), QStringLiteral("QDEBUG")),
                                  Severity::Notification, QStringLiteral("lower q\n"), StatusLog);
    });
    QCOMPARE(output, QByteArray("[f:1:QDEBUG] lower q\n"));
    logManager()->forceFlushAllLogs();
    const QByteArray added = VfLogTest::readFile(velmarLog).mid(int(before));
    // The file writer never asks the handler: both entries are in velmar.log.
    QVERIFY(added.contains(" from Qt\n"));
    QVERIFY(added.contains(" lower q\n"));
}

void tst_VfStdOutWriter::messageWithoutLineEndRunsOn()
{
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    const QByteArray output = captureStdout([&] {
        writer.writeToLog(makeEntry(QStringLiteral("Foo"), QStringLiteral("M"), QStringLiteral("first"), "s", 1));
        writer.writeToLog(makeEntry(QStringLiteral("Foo"), QStringLiteral("M"), QStringLiteral("second\n"), "s", 2));
    });
    QCOMPARE(output, QByteArray("[s:1:M] first[s:2:M] second\n"));
}

void tst_VfStdOutWriter::zeroCharacterEndsTheLine()
{
    // Failure handling of Part 4.3: fputs stops at a zero character.
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    const QString message = QStringLiteral("ab") + QChar(0) + QStringLiteral("cd\n");
    const QByteArray output =
        captureStdout([&] { writer.writeToLog(makeEntry(QStringLiteral("Foo"), QStringLiteral("M"), message, "s", 1)); });
    QCOMPARE(output, QByteArray("[s:1:M] ab"));
}

void tst_VfStdOutWriter::emptyHandlerThrowsThroughWriteToLog()
{
    logManager()->registerIgnoreHandler(std::function<bool(MessageSource, char const*)>());
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    bool thrown = false;
    try {
        writer.writeToLog(makeEntry(QStringLiteral("Foo"), QString(), QStringLiteral("m\n")));
    } catch (const std::bad_function_call&) {
        thrown = true;
    }
    QVERIFY(thrown);
}

void tst_VfStdOutWriter::clearLogAndCopyLogTo()
{
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    QTemporaryDir directory;
    QVERIFY(writer.clearLog());
    QVERIFY(!writer.copyLogTo(QDir(directory.filePath(QStringLiteral("copy")))));
    QVERIFY(!QFile::exists(directory.filePath(QStringLiteral("copy"))));
}

void tst_VfStdOutWriter::logWithOnlyThisWriterClears()
{
    VfLogManager manager(nullptr);
    manager.setLogDestination(DebugLog, StdOutDestination);
    QCOMPARE(manager.getLogWritersByLog(DebugLog).size(), 1);
    QVERIFY(qobject_cast<VfStdOutWriter*>(manager.getLogWritersByLog(DebugLog).first()));
    QVERIFY(manager.clearLog(DebugLog));
    QCOMPARE(manager.logFileName(DebugLog), QStringList());
}

void tst_VfStdOutWriter::flushPrintsNothing()
{
    VfStdOutWriter writer(QStringLiteral("Stdout"), nullptr);
    const QByteArray output = captureStdout([&] { writer.flush(); });
    QCOMPARE(output, QByteArray());
}

QTEST_GUILESS_MAIN(tst_VfStdOutWriter)
#include "tst_vfstdoutwriter.moc"
