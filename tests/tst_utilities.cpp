#include "statuseventrecorder.h"
#include "vftestsupport.h"
#include "vfutilities.h"

#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;

class tst_Utilities : public QObject
{
    Q_OBJECT
    QScopedPointer<StatusEventRecorder> m_recorder;
    QTemporaryDir m_dir;
    QStringList arguments() const { return m_recorder->events.value(0).sourceContext()->additionalInfo(); }
    QString path(const QString& name) const { return m_dir.filePath(name); }
private slots:
    void init()
    {
        m_recorder.reset(new StatusEventRecorder);
        m_recorder->attach();
    }
    void processCommand()
    {
        QCOMPARE(QList<StatusCode>({VfUtilities::processCommand("sh", {"-c", "exit 0"}), VfUtilities::processCommand("/nonexistent/x", {})}),
                 QList<StatusCode>({VfStatusCodes::Success, VfStatusCodes::ExternalProcessFailed}));
    }
    void shellHelper_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QStringList>("reports");
        QTest::newRow("success") << QByteArray("printf 'a\\nb'") << QByteArray("a\nb") << QStringList();
        QTest::newRow("failure: error output reported") << QByteArray("printf out; echo oops >&2; exit 4") << QByteArray("out")
                                                        << QStringList{"printf out; echo oops >&2; exit 4", "oops\n"};
        QTest::newRow("timeout") << QByteArray("printf early; exec sleep 5") << QByteArray() << QStringList{"napper timeout"};
        QTest::newRow("timeout ends what the shell forked") << "sleep 5 & echo $! > " + QFile::encodeName(path("child")) + "; wait" << QByteArray()
                                                            << QStringList{"napper timeout"};
    }
    void shellHelper()
    {
        QFETCH(QByteArray, command);
        QElapsedTimer clock;
        clock.start();
        QTEST(VfUtilities::shellHelper(command.constData(), "napper", 1000, nullptr), "output");
        QVERIFY2(clock.elapsed() < 4000, "the call ends the command that ran out of time");
        QTEST(m_recorder->events.isEmpty() ? QStringList() : arguments(), "reports");
        // Nothing the shell forked outlives the call.
        const QString stat = "/proc/" + VfTest::readFile(path("child")).trimmed() + "/stat";
        QTRY_VERIFY_WITH_TIMEOUT(VfTest::readFile(stat) == "<missing>" || VfTest::readFile(stat).contains(") Z "), 3000);
    }
    void files()
    {
        QCOMPARE(VfUtilities::filePathOnly("/a/b.txt") + ' ' + VfUtilities::filePathOnly("b"), QStringLiteral("/a b"));
        const mode_t saved = ::umask(022);
        QCOMPARE(VfUtilities::makePath(path("made//x/"), true), StatusCode(VfStatusCodes::Success));
        ::umask(saved);
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(path("made/x")).constData(), &status) == 0 ? status.st_mode & 07777 : 0, 0777u);
        QVERIFY(VfTest::writeFile(path("b"), "first"));
        QCOMPARE(VfUtilities::makeBackupFile(path("b"), "old"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfTest::readFile(path("b.old")), QByteArray("first"));
    }
    void metadata()
    {
        const QJsonObject object{{"name", "value"}};
        QCOMPARE(VfUtilities::retrieveMetaProperty("name", object, "app.json"), QStringLiteral("value"));
        // Two arguments for a one-marker template: the file name lands in both places, as instruments log it.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: 1 argument\\(s\\) missing"));
        QCOMPARE(VfUtilities::retrieveMetaProperty("required", object, "app.json"), QString());
        QCOMPARE(arguments(), QStringList({"app.json", "Configuration file app.json'' does not contain required entry for 'app.json'"}));
        QCOMPARE(QList<bool>({VfUtilities::fuzzyCompare(1, 1 + 1e-13), VfUtilities::fuzzyCompare(1e6, 1e6 + 1)}), QList<bool>({true, false}));
    }
};

QTEST_GUILESS_MAIN(tst_Utilities)
#include "tst_utilities.moc"
