#include "helpers/vflogtesthelpers.h"
#include "vfabstractlogmanager.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vflog.h"
#include "vflogentry.h"
#include "vflogmanager.h"

#include <QtTest>

#include <csignal>

using namespace Crosscutting;
using Severity = VfStaticStatusInfo::VfStatusSeverity;

void vfBridgeEmit(int type);
void qBridgeEmit(int type);

class tst_LogMessageHandler : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void moduleForFilename_data();
    void moduleForFilename();
    void typeTable_data();
    void typeTable();
    void realCallSites_data();
    void realCallSites();
    void whiteSpaceOnlyBecomesOneLineEnd();
    void messageTrimmedWithOneLineEnd();
    void pathReducedToBaseName();
    void nullFileAndNegativeLine();
    void unknownTypeDoesNothing();
    void reachesVelmarLogNotEventLog();
    void fatalWritesFlushesAndAborts();

private:
    QList<QSharedPointer<const VfLogEntry>> m_entries;
    void capture()
    {
        auto* manager = qobject_cast<VfLogManager*>(VfCrosscuttingManagerPlaceholder::instance()->logManager());
        QVERIFY(manager);
        connect(VfLogManagerTestAccess::log(*manager, DebugLog), &VfLog::logEntryReady, this,
                [this](const QSharedPointer<const VfLogEntry>& entry) { m_entries.append(entry); },
                Qt::DirectConnection);
    }
    static void handle(QtMsgType type, const char* file, int line, const char* function, const QString& text)
    {
        logMessageHandler(type, QMessageLogContext(file, line, function, "default"), text);
    }
};

void tst_LogMessageHandler::initTestCase()
{
    QVERIFY2(qEnvironmentVariableIsSet("VF_SANDBOXED"), "run through tests/sandbox-run");
    // Keep the console writer quiet: the ignore handler sees every entry, the log still gets it.
    VfCrosscuttingManagerPlaceholder::instance()->logManager()->registerIgnoreHandler(
        [](MessageSource, const char*) { return true; });
}

void tst_LogMessageHandler::init()
{
    m_entries.clear();
    VfCrosscuttingManagerPlaceholder::instance()->logManager()->registerIgnoreHandler(
        [](MessageSource, const char*) { return true; });
    capture();
}

void tst_LogMessageHandler::cleanup()
{
    qInstallMessageHandler(nullptr);
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_LogMessageHandler::moduleForFilename_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("module");
    QTest::newRow("vfutilities") << "vfutilities.cpp" << "FW";
    QTest::newRow("qobject") << "qobject.cpp" << "QT";
    QTest::newRow("main") << "main.cpp" << "appDebug";
    QTest::newRow("upper-case Vf is not the framework") << "VfThing.cpp" << "appDebug";
    QTest::newRow("upper-case Q is not Qt") << "QObject.cpp" << "appDebug";
    QTest::newRow("directory beginning with q has no effect") << "/src/qt/main.cpp" << "appDebug";
    QTest::newRow("directory beginning with vf has no effect") << "/vf/app.cpp" << "appDebug";
    QTest::newRow("path to a vf file") << "/build/src/vflog.cpp" << "FW";
    QTest::newRow("empty") << "" << "appDebug";
}

void tst_LogMessageHandler::moduleForFilename()
{
    QFETCH(QString, file);
    QFETCH(QString, module);
    QCOMPARE(::moduleForFilename(file, "QT", "FW"), module);
}

void tst_LogMessageHandler::typeTable_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("qtFileModule");
    QTest::addColumn<int>("severity");
    QTest::newRow("QtDebugMsg") << int(QtDebugMsg) << "QDEBUG" << int(Severity::Notification);
    QTest::newRow("QtWarningMsg") << int(QtWarningMsg) << "QWARNING" << int(Severity::Warning);
    QTest::newRow("QtCriticalMsg") << int(QtCriticalMsg) << "QCRITICAL" << int(Severity::CriticalError);
    QTest::newRow("QtInfoMsg shares the debug row") << int(QtInfoMsg) << "QDEBUG" << int(Severity::Notification);
}

void tst_LogMessageHandler::typeTable()
{
    QFETCH(int, type);
    QFETCH(QString, qtFileModule);
    QFETCH(int, severity);
    handle(QtMsgType(type), "qobject.cpp", 12, "void QObject::f()", "from qt");
    handle(QtMsgType(type), "vfutilities.cpp", 13, "void Crosscutting::VfUtilities::f()", "from framework");
    handle(QtMsgType(type), "main.cpp", 14, "int main(int, char**)", "from application");
    QCOMPARE(m_entries.size(), 3);
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceModule(), qtFileModule);
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceModule(), QString("VfDebug"));
    QCOMPARE(m_entries.at(2)->sourceContext()->sourceModule(), QString("appDebug"));
    for (const auto& entry : m_entries)
        QCOMPARE(int(entry->severity()), severity);
    QCOMPARE(m_entries.at(0)->message(), QString("from qt\n"));
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceLineNumber(), 13ull);
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceClass(), QString("VfUtilities"));
    QCOMPARE(m_entries.at(2)->sourceContext()->sourceFilename(), QString("main.cpp"));
}

void tst_LogMessageHandler::realCallSites_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("qtModule");
    QTest::addColumn<int>("severity");
    QTest::newRow("qDebug") << int(QtDebugMsg) << "QDEBUG" << int(Severity::Notification);
    QTest::newRow("qInfo") << int(QtInfoMsg) << "QDEBUG" << int(Severity::Notification);
    QTest::newRow("qWarning") << int(QtWarningMsg) << "QWARNING" << int(Severity::Warning);
    QTest::newRow("qCritical") << int(QtCriticalMsg) << "QCRITICAL" << int(Severity::CriticalError);
}

void tst_LogMessageHandler::realCallSites()
{
    QFETCH(int, type);
    QFETCH(QString, qtModule);
    QFETCH(int, severity);
    qInstallMessageHandler(logMessageHandler);
    switch (type) {
    case QtDebugMsg: qDebug("from test file"); break;
    case QtInfoMsg: qInfo("from test file"); break;
    case QtWarningMsg: qWarning("from test file"); break;
    case QtCriticalMsg: qCritical("from test file"); break;
    }
    vfBridgeEmit(type);
    qBridgeEmit(type);
    qInstallMessageHandler(nullptr);

    QCOMPARE(m_entries.size(), 3);
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceModule(), QString("appDebug"));
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceFilename(), QString("tst_logmessagehandler.cpp"));
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceClass(), QString("tst_LogMessageHandler"));
    QCOMPARE(m_entries.at(0)->message(), QString("from test file\n"));
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceModule(), QString("VfDebug"));
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceFilename(), QString("vfbridgesource.cpp"));
    QCOMPARE(m_entries.at(1)->message(), QString("from vf file\n"));
    QCOMPARE(m_entries.at(2)->sourceContext()->sourceModule(), qtModule);
    QCOMPARE(m_entries.at(2)->sourceContext()->sourceFilename(), QString("qbridgesource.cpp"));
    QCOMPARE(m_entries.at(2)->message(), QString("from q file\n"));
    for (const auto& entry : m_entries)
        QCOMPARE(int(entry->severity()), severity);
}

void tst_LogMessageHandler::whiteSpaceOnlyBecomesOneLineEnd()
{
    handle(QtDebugMsg, "main.cpp", 1, "int main()", " \t\n  ");
    QCOMPARE(m_entries.size(), 1);
    QCOMPARE(m_entries.first()->message(), QString("\n"));
}

void tst_LogMessageHandler::messageTrimmedWithOneLineEnd()
{
    handle(QtWarningMsg, "main.cpp", 1, "int main()", "  two lines\ninside  \n\n");
    QCOMPARE(m_entries.first()->message(), QString("two lines\ninside\n"));
}

void tst_LogMessageHandler::pathReducedToBaseName()
{
    handle(QtDebugMsg, "/home/qt/build/main.cpp", 1, "int main()", "x");
    handle(QtDebugMsg, "/usr/src/qtbase/qobject.cpp", 1, "void QObject::f()", "x");
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceModule(), QString("appDebug"));
    QCOMPARE(m_entries.at(0)->sourceContext()->sourceFilename(), QString("main.cpp"));
    QCOMPARE(m_entries.at(1)->sourceContext()->sourceModule(), QString("QDEBUG"));
}

void tst_LogMessageHandler::nullFileAndNegativeLine()
{
    // Release builds of Qt give no context: a null file, line 0 or -1, a null function.
    handle(QtWarningMsg, nullptr, -1, nullptr, "no context");
    QCOMPARE(m_entries.size(), 1);
    auto context = m_entries.first()->sourceContext();
    QCOMPARE(context->sourceModule(), QString("appDebug"));
    QVERIFY(context->sourceFilename().isEmpty());
    QCOMPARE(context->sourceLineNumber(), 0xFFFFFFFFFFFFFFFFull); // widened with its sign
    QCOMPARE(context->sourceFunction(), QString("Unavailable: "));
}

void tst_LogMessageHandler::unknownTypeDoesNothing()
{
    handle(QtMsgType(7), "main.cpp", 1, "int main()", "x");
    QVERIFY(m_entries.isEmpty());
}

void tst_LogMessageHandler::reachesVelmarLogNotEventLog()
{
    handle(QtCriticalMsg, "main.cpp", 5, "int main()", "to the debug log");
    VfCrosscuttingManagerPlaceholder::instance()->logManager()->forceFlushAllLogs();
    QFile velmar("/etc/tarvion/logs/velmar.log");
    QVERIFY(velmar.open(QIODevice::ReadOnly));
    QVERIFY(velmar.readAll().endsWith(", appDebug, main.cpp, 5, , , , int main()] to the debug log\n"));
    QFile event("/etc/tarvion/logs/event.log");
    QVERIFY(!event.exists() || event.size() == 0 || (event.open(QIODevice::ReadOnly) && !event.readAll().contains("to the debug log")));
}

void tst_LogMessageHandler::fatalWritesFlushesAndAborts()
{
    QFile::remove("/etc/tarvion/logs/velmar.log");
    QProcess child;
    child.start(FATAL_HELPER, QStringList());
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    QCOMPARE(child.exitCode(), int(SIGABRT));
    QFile velmar("/etc/tarvion/logs/velmar.log");
    QVERIFY(velmar.open(QIODevice::ReadOnly));
    const QByteArray text = velmar.readAll();
    // The fatal entry and the one queued before it reached the file through the flush.
    QVERIFY2(text.contains("appDebug, fatalhelper.cpp, "), text.constData());
    QVERIFY(text.contains("] before the fatal message\n"));
    QVERIFY(text.endsWith("] fatal message for the test\n"));
}

QTEST_GUILESS_MAIN(tst_LogMessageHandler)
#include "tst_logmessagehandler.moc"
