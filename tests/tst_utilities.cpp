#include "statuseventrecorder.h"
#include "vftestsupport.h"
#include "vfutilities.h"

#include <QDomDocument>
#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;
using Codes = QList<StatusCode>;

class tst_Utilities : public QObject
{
    Q_OBJECT
    QScopedPointer<StatusEventRecorder> m_recorder;
    QTemporaryDir m_dir;
    QStringList arguments(int event = 0) const { return m_recorder->events.value(event).sourceContext()->additionalInfo(); }
    QString path(const QString& name) const { return m_dir.filePath(name); }
private slots:
    void init()
    {
        m_recorder.reset(new StatusEventRecorder);
        m_recorder->attach();
    }
    void processCommand()
    {
        QCOMPARE(Codes({VfUtilities::processCommand("sh", {"-c", "exit 0"}), VfUtilities::processCommand("/nonexistent/x", {})}),
                 Codes({VfStatusCodes::Success, VfStatusCodes::ExternalProcessFailed}));
        // Deliberately one argument for a two-marker text, and no blank after "Failed to process": instruments log it so.
        QCOMPARE(arguments(0) + arguments(1), QStringList({"27", "1", "2", "Failed to process/nonexistent/x "}));
    }
    void shellHelper_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QStringList>("reports");
        QTest::newRow("success") << QByteArray("printf 'a\\nb'") << QByteArray("a\nb") << QStringList();
        QTest::newRow("failure: error output reported")
            << QByteArray("printf out; echo oops >&2; exit 4") << QByteArray("out") << QStringList{"printf out; echo oops >&2; exit 4", "oops\n"};
        QTest::newRow("timeout") << QByteArray("printf early; exec sleep 5") << QByteArray() << QStringList{"napper timeout"};
        QTest::newRow("timeout ends what the shell forked")
            << "sleep 5 & echo $! > " + QFile::encodeName(path("child")) + "; wait" << QByteArray() << QStringList{"napper timeout"};
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
    void outputOfCommand()
    {
        QByteArray out = "kept", err = "kept";
        qint32 exitCode = 77;
        QCOMPARE(VfUtilities::outputOfCommand("vf-no-such-program --flag", out, err, &exitCode),
                 StatusCode(VfStatusCodes::CommandNotRecognized));
        QCOMPARE(out + err + QByteArray::number(exitCode), QByteArray("keptkept77"));
        // Split by Qt, with no shell to expand $HOME; an exit code is returned, not reported.
        QCOMPARE(VfUtilities::outputOfCommand("sh -c \"echo $0; echo err >&2; exit 2\" $HOME", out, err, &exitCode),
                 StatusCode(VfStatusCodes::ExternalProcessFailed));
        QCOMPARE(out + err + QByteArray::number(exitCode), QByteArray("$HOME\nerr\n2"));
        QCOMPARE(arguments() << QString::number(m_recorder->events.size()), QStringList({"vf-no-such-program --flag", "1"}));
    }
    void files()
    {
        QCOMPARE(VfUtilities::filePathOnly("/a/b.txt") + ' ' + VfUtilities::filePathOnly("b"), QStringLiteral("/a b"));
        const mode_t saved = ::umask(022);
        QCOMPARE(VfUtilities::makePath(path("made//x/"), true), StatusCode(VfStatusCodes::Success));
        ::umask(saved);
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(path("made/x")).constData(), &status) == 0 ? status.st_mode & 07777 : 0, 0777u);
        QVERIFY(VfTest::writeFile(path("b"), "first") && VfTest::writeFile(path("c"), "x") && QDir().mkdir(path("c.old")));
        QCOMPARE(VfUtilities::makeBackupFile(path("b"), "old"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfTest::readFile(path("b.old")), QByteArray("first"));
        // No directory under a file; a backup that cannot be removed is reported, and the copy is tried all the same.
        QCOMPARE(Codes({VfUtilities::makePath(path("b/sub"), true), VfUtilities::makeBackupFile(path("c"), "old")}),
                 Codes({VfStatusCodes::DirectoryCannotCreate, VfStatusCodes::FileCannotCopy}));
        QCOMPARE(m_recorder->codes(),
                 Codes({VfStatusCodes::DirectoryCannotCreate, VfStatusCodes::FileCannotRemove, VfStatusCodes::FileCannotCopy}));
        QCOMPARE(arguments(0) + arguments(1) + arguments(2), QStringList({path("b/sub"), path("c.old"), path("c"), path("c.old")}));
        // Files behind links are listed; a linked directory is not walked.
        for (const char* file : {"tree/one/two/c", "tree/top", "outside/hidden"})
            QVERIFY(VfTest::writeFile(path(file), "x"));
        QVERIFY(QFile::link(path("outside"), path("tree/dirlink")) && QFile::link(path("tree/top"), path("tree/toplink")));
        QStringList found = VfUtilities::findAllFiles(QDir(path("tree"))).replaceInStrings(path("tree"), "");
        found.sort();
        QCOMPARE(found, QStringList({"/one/two/c", "/top", "/toplink"}));
    }
    void metadata()
    {
        const QJsonObject object{{"name", "value"}};
        QCOMPARE(VfUtilities::retrieveMetaProperty("name", object, "app.json"), QStringLiteral("value"));
        // Two arguments for a one-marker template: the file name lands in both places, as instruments log it.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: 1 argument\\(s\\) missing"));
        QCOMPARE(VfUtilities::retrieveMetaProperty("required", object, "app.json"), QString());
        QCOMPARE(arguments(), QStringList({"app.json", "Configuration file app.json'' does not contain required entry for 'app.json'"}));
        QVERIFY(VfUtilities::fuzzyCompare(1, 1 + 1e-13) && !VfUtilities::fuzzyCompare(1e6, 1e6 + 1));
    }
    void writeDomNode()
    {
        QDomDocument document;
        document.setContent(QStringLiteral("<r id=\"1\"><a/>t<b/><c k=\"v\"/></r>"));
        QString text;
        QXmlStreamWriter writer(&text);
        VfUtilities::writeDomNode(&writer, document, true);
        // Deliberately kept as instruments read it: each child also writes its later siblings, and nothing follows a text.
        QCOMPARE(text, QStringLiteral("<r id=\"1\"><a/>tt<b/><c k=\"v\"/><c k=\"v\"/></r>"));
    }
    void jsonDocument()
    {
        QVERIFY(VfTest::writeFile(path("good.json"), "{\"a\": [1, \"b\"]}") && VfTest::writeFile(path("bad.json"), "{\"a\": "));
        QVERIFY(QDir().mkpath(path("dir.json")));
        QJsonDocument document;
        QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("good.json"), &document, true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(document.object().value("a").toArray().at(1).toString(), QStringLiteral("b"));
        const auto load = [&](const char* name, QJsonDocument* into, bool report) {
            return VfUtilities::createJsonDocumentFromFile(path(name), into, report);
        };
        const Codes returned{load("bad.json", &document, true), load("none", &document, true), load("dir.json", &document, true),
                             load("good.json", nullptr, true), load("bad.json", &document, false)};
        QCOMPARE(returned, Codes({VfStatusCodes::ConfigurationDataInvalid, VfStatusCodes::FileNotFound, VfStatusCodes::FileCannotOpen,
                                  VfStatusCodes::InputNull, VfStatusCodes::ConfigurationDataInvalid}));
        QVERIFY(document.isEmpty());
        QCOMPARE(m_recorder->codes(), returned.mid(0, 4)); // the last one asked for no report
    }
};

QTEST_GUILESS_MAIN(tst_Utilities)
#include "tst_utilities.moc"
