#include "statuseventrecorder.h"
#include "vftestsupport.h"
#include "vfutilities.h"

#include <QDomDocument>
#include <QXmlStreamWriter>
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
        QCOMPARE(VfUtilities::processCommand("sh", {"-c", "exit 0"}), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfUtilities::processCommand("sh", {"-c", "kill -SEGV $$"}), StatusCode(VfStatusCodes::ExternalProcessFailed));
        QCOMPARE(VfUtilities::processCommand("/nonexistent/x", {}), StatusCode(VfStatusCodes::ExternalProcessFailed));
        // One argument for a two-marker text, and no blank after "Failed to process": instruments log it so.
        QCOMPARE(m_recorder->codes(), Codes({VfStatusCodes::ReportStatusInvalidArgCount, VfStatusCodes::ExternalProcessFailed}) + Codes({VfStatusCodes::ReportStatusInvalidArgCount, VfStatusCodes::ExternalProcessFailed}));
        QCOMPARE(arguments(0) + arguments(1) + arguments(3), QStringList({"27", "1", "2", "Failed to processsh -c,kill -SEGV $$", "Failed to process/nonexistent/x "}));
    }
    void shellHelper_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<int>("timeout");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("reports");
        QTest::newRow("success, error output ignored") << QByteArray("printf 'a\\nb'; echo x >&2") << 5000 << QByteArray("a\nb") << 0 << QStringList();
        QTest::newRow("standard input closed") << QByteArray("cat; echo done") << 5000 << QByteArray("done\n") << 0 << QStringList();
        QTest::newRow("failure: error output as the code") << QByteArray("printf out; echo oops >&2; exit 4") << 5000 << QByteArray("out") << 4
                                                           << QStringList{"printf out; echo oops >&2; exit 4", "oops\n"};
        QTest::newRow("timeout") << QByteArray("printf early; exec sleep 5") << 1000 << QByteArray() << 0 << QStringList{"napper timeout"};
        QTest::newRow("timeout while starting") << QByteArray("exec sleep 5") << 0 << QByteArray() << 0 << QStringList{"napper timeout"};
        QTest::newRow("timeout ends what the shell forked") << "sleep 5 & echo $! > " + QFile::encodeName(path("child")) + "; wait" << 1000 << QByteArray() << 0
                                                            << QStringList{"napper timeout"};
    }
    void shellHelper()
    {
        QFETCH(QByteArray, command);
        QFETCH(int, timeout);
        int exitCode = -12345;
        // A wait of 0 runs out while the shell may still be starting, before it has a process group of its own.
        for (int attempt = 0; attempt < (timeout == 0 ? 20 : 1); ++attempt) {
            QElapsedTimer clock;
            clock.start();
            QTEST(VfUtilities::shellHelper(command.constData(), "napper", timeout, &exitCode), "output");
            QVERIFY2(clock.elapsed() < 4000, "the call ends the command that ran out of time");
        }
        QTEST(exitCode, "exitCode");
        QTEST(m_recorder->events.isEmpty() ? QStringList() : arguments(), "reports");
        // Nothing the shell forked outlives the call.
        const QString stat = "/proc/" + VfTest::readFile(path("child")).trimmed() + "/stat";
        QTRY_VERIFY_WITH_TIMEOUT(VfTest::readFile(stat) == "<missing>" || VfTest::readFile(stat).contains(") Z "), 3000);
    }
    void outputOfCommand()
    {
        QByteArray out, err;
        qint32 exitCode = 77;
        QCOMPARE(VfUtilities::outputOfCommand("vf-no-such-program --flag", out, err, &exitCode), StatusCode(VfStatusCodes::CommandNotRecognized));
        QCOMPARE(arguments() << QString::number(exitCode), QStringList({"vf-no-such-program --flag", "77"}));
        QCOMPARE(VfUtilities::outputOfCommand("sh -c \"echo out; echo err >&2; exit 2\"", out, err, &exitCode), StatusCode(VfStatusCodes::ExternalProcessFailed));
        QCOMPARE(out + err + QByteArray::number(exitCode), QByteArray("out\nerr\n2"));
        // Split by Qt, with no shell to expand $HOME; a failure is returned, not reported.
        QCOMPARE(VfUtilities::outputOfCommand("printf [%s] one $HOME", out, err, nullptr), StatusCode(VfStatusCodes::Success));
        QCOMPARE(out + err, QByteArray("[one][$HOME]"));
        QCOMPARE(m_recorder->events.size(), 1);
    }
    void files()
    {
        QCOMPARE(QStringList({VfUtilities::filePathOnly("/a/b.txt"), VfUtilities::filePathOnly("/a/"), VfUtilities::filePathOnly("/b"),
                              VfUtilities::filePathOnly("b"), VfUtilities::filePathOnly("a//b")}),
                 QStringList({"/a", "/a", "", "b", "a/"}));
        const QString root = QDir(m_dir.path()).canonicalPath() + "/tree";
        QStringList files{root + "/one/a", root + "/one/two/three/c", root + "/top"};
        for (const QString& file : files)
            QVERIFY(VfTest::writeFile(file, "x"));
        QVERIFY(QDir().mkpath(root + "/empty/deeper") && VfTest::writeFile(path("outside/hidden"), "x"));
        QVERIFY(QFile::link(path("outside"), root + "/dirlink") && QFile::link(root + "/top", root + "/toplink"));
        QStringList found = VfUtilities::findAllFiles(QDir(root));
        found.sort();
        QCOMPARE(found, files << root + "/toplink");
    }
    void makePath()
    {
        const mode_t saved = ::umask(022);
        QVERIFY(QDir().mkdir(path("made")) && QFile::setPermissions(path("made"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(VfUtilities::makePath(path("made") + "//x///y/", true) + VfUtilities::makePath(path("made/p/q"), false), StatusCode(VfStatusCodes::Success));
        ::umask(saved);
        QList<int> modes;
        for (const char* made : {"made", "made/x", "made/x/y", "made/p/q"}) {
            struct stat status;
            modes << (::stat(QFile::encodeName(path(made)).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1);
        }
        QCOMPARE(modes, QList<int>({0700, 0777, 0777, 0755})); // only what the call made is opened up
        QVERIFY(VfTest::writeFile(path("plain"), "x"));
        QCOMPARE(VfUtilities::makePath(path("plain/sub"), true), StatusCode(VfStatusCodes::DirectoryCannotCreate));
        QCOMPARE(arguments(), QStringList{path("plain/sub")});
    }
    void makeBackupFile()
    {
        QVERIFY(VfTest::writeFile(path("b"), "first") && VfTest::writeFile(path("b.old"), "older, longer"));
        QCOMPARE(VfUtilities::makeBackupFile(path("b"), "old") + VfUtilities::makeBackupFile(path("b"), ".x"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfTest::readFile(path("b.old")) + VfTest::readFile(path("b..x")) + VfTest::readFile(path("b")), QByteArray("firstfirstfirst"));
        QCOMPARE(VfUtilities::makeBackupFile(path("gone"), "old"), StatusCode(VfStatusCodes::FileNotFound));
        QCOMPARE(m_recorder->events.size(), 0);
        // A backup that cannot be removed is reported, and the copy is tried all the same.
        QVERIFY(QDir().mkdir(path("c.old")) && VfTest::writeFile(path("c"), "x"));
        QCOMPARE(VfUtilities::makeBackupFile(path("c"), "old"), StatusCode(VfStatusCodes::FileCannotCopy));
        QCOMPARE(m_recorder->codes(), Codes({VfStatusCodes::FileCannotRemove, VfStatusCodes::FileCannotCopy}));
        QCOMPARE(arguments(0) + arguments(1), QStringList({path("c.old"), path("c"), path("c.old")}));
    }
    void writeDomNode_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::addColumn<int>("node"); // -1: the document, 0: the root element, 1: its first child
        QTest::addColumn<bool>("siblings");
        QTest::addColumn<QString>("written");
        // Existing instruments read the repeated children and the lost nodes: kept as they were.
        QTest::newRow("document repeats later children") << "<r id=\"1\"><a/><b k=\"v\"/><c>t</c></r>" << -1 << true
                                                         << "<r id=\"1\"><a/><b k=\"v\"/><c>t</c><b k=\"v\"/><c>t</c><c>t</c></r>";
        QTest::newRow("document without siblings") << "<r k=\"v\"><a/></r>" << -1 << false << "<r k=\"v\"/>";
        QTest::newRow("element stops after text") << "<r>a&lt;b<b/></r>" << 0 << false << "<r>a&lt;b</r>";
        QTest::newRow("element and its siblings") << "<r><a><x/></a>mid<c/></r>" << 1 << true << "<a><x/></a>mid";
        QTest::newRow("comment: Node Type 8") << "<r><!--c--><b/></r>" << 0 << false << "<r/>";
        QTest::newRow("document without an element") << "" << -1 << true << "";
    }
    void writeDomNode()
    {
        QFETCH(QString, xml);
        QFETCH(int, node);
        QFETCH(bool, siblings);
        QDomDocument document;
        document.setContent(xml);
        QDomNode start = node < 0 ? document : node == 0 ? document.documentElement() : document.documentElement().firstChild();
        QString text;
        QXmlStreamWriter writer(&text);
        VfUtilities::writeDomNode(&writer, start, siblings);
        QTEST(text, "written");
        const QString tag = QTest::currentDataTag();
        QCOMPARE(m_recorder->events.isEmpty() ? QString() : arguments().value(0), tag.contains(':') ? tag.section(": ", 1) : QString());
    }
    void metadata()
    {
        const QJsonObject object{{"name", "value"}, {"number", 42}};
        QCOMPARE(VfUtilities::retrieveMetaProperty("name", object, "app.json") + VfUtilities::retrieveMetaProperty("number", object, "app.json"), QStringLiteral("value"));
        QCOMPARE(m_recorder->events.size(), 0);
        // Two arguments for a one-marker template: the file name lands in both places, as instruments log it.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: 1 argument\\(s\\) missing"));
        QCOMPARE(VfUtilities::retrieveMetaProperty("required", object, "app.json"), QString());
        QCOMPARE(arguments(), QStringList({"app.json", "Configuration file app.json'' does not contain required entry for 'app.json'"}));
        QCOMPARE(QList<bool>({VfUtilities::containsDigit("abc"), VfUtilities::containsDigit("ab3"), VfUtilities::containsDigit("0"),
                              VfUtilities::containsDigit(QString(QChar(0x0663))), VfUtilities::containsDigit(QString(QChar(0x00B2)))}),
                 QList<bool>({false, true, true, true, false}));
        const auto fuzzy = VfUtilities::fuzzyCompare;
        QCOMPARE(QList<bool>({fuzzy(0, 1e-13), fuzzy(0, 1e-9), fuzzy(1, 1 + 1e-13), fuzzy(-1e-13, 1e-13), fuzzy(1e6, 1e6 + 1), fuzzy(1e12, 1e12 + 0.1), fuzzy(0, qQNaN())}),
                 QList<bool>({true, false, true, true, false, true, false}));
    }
    void jsonDocument()
    {
        QVERIFY(VfTest::writeFile(path("good.json"), "{\"a\": [1, \"b\"]}") && VfTest::writeFile(path("bad.json"), "{\"a\": ") && QDir().mkpath(path("dir.json")));
        for (bool report : {false, true}) {
            QJsonDocument document(QJsonArray{1});
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("good.json"), &document, report), StatusCode(VfStatusCodes::Success));
            QCOMPARE(document.object().value("a").toArray().at(1).toString(), QStringLiteral("b"));
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("bad.json"), &document, report), StatusCode(VfStatusCodes::ConfigurationDataInvalid));
            QVERIFY(document.isEmpty());
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("none.json"), &document, report), StatusCode(VfStatusCodes::FileNotFound));
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("dir.json"), &document, report), StatusCode(VfStatusCodes::FileCannotOpen));
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path("good.json"), nullptr, report), StatusCode(VfStatusCodes::InputNull));
        }
        QCOMPARE(arguments(0) + arguments(1) + arguments(2) + arguments(3),
                 QStringList({path("bad.json"), "unterminated object", path("none.json"), path("dir.json"), "jsonDocument"}));
    }
};

QTEST_GUILESS_MAIN(tst_Utilities)
#include "tst_utilities.moc"
