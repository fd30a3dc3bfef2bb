#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QDomDocument>
#include <QXmlStreamWriter>
#include <QtTest>
#include <sys/stat.h>

using namespace Crosscutting;
using Codes = QList<StatusCode>;

static int modeOf(const QString& path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

static bool write(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

static QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "<missing>";
}

static bool isAlive(const QString& pidFile)
{
    const QByteArray stat = read("/proc/" + read(pidFile).trimmed() + "/stat");
    return stat != "<missing>" && !stat.contains(") Z");
}

class tst_Utilities : public QObject
{
    Q_OBJECT
    StatusEventRecorder* m_recorder = nullptr;
    QTemporaryDir m_dir;
    QStringList info(int event) const { return m_recorder->events.value(event).sourceContext()->additionalInfo(); }
    QString path(const QString& name) const { return m_dir.filePath(name); }
private slots:
    void init()
    {
        m_recorder = new StatusEventRecorder;
        m_recorder->attach();
    }
    void cleanup()
    {
        delete m_recorder;
        VfCrosscuttingManagerPlaceholder::drop();
    }
    void processCommand_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("text");
        QTest::newRow("success") << "sh" << QStringList{"-c", "exit 0"} << QString();
        QTest::newRow("exit code") << "sh" << QStringList{"-c", "exit 3"} << "Failed to processsh -c,exit 3";
        QTest::newRow("crash") << "sh" << QStringList{"-c", "kill -SEGV $$"} << "Failed to processsh -c,kill -SEGV $$";
        QTest::newRow("not started") << "/nonexistent/x" << QStringList() << "Failed to process/nonexistent/x ";
    }
    void processCommand()
    {
        QFETCH(QString, command);
        QFETCH(QStringList, arguments);
        QFETCH(QString, text);
        const StatusCode code = VfUtilities::processCommand(command, arguments);
        if (text.isNull()) {
            QCOMPARE(code, StatusCode(VfStatusCodes::Success));
            QCOMPARE(m_recorder->codes(), Codes());
            return;
        }
        QCOMPARE(code, StatusCode(VfStatusCodes::ExternalProcessFailed));
        QCOMPARE(m_recorder->codes(), Codes({VfStatusCodes::ReportStatusInvalidArgCount, VfStatusCodes::ExternalProcessFailed}));
        QCOMPARE(info(0), QStringList({"27", "1", "2"}));
        QCOMPARE(m_recorder->descriptions().value(1),
                 "The external process '" + text + "' returned a non-zero exit code: %2");
    }
    void shellHelper_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<int>("timeout");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<Codes>("codes");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("success, error output ignored") << QByteArray("printf 'a\\nb'; echo x >&2") << 5000
                                                       << QByteArray("a\nb") << 0 << Codes() << QStringList();
        QTest::newRow("standard input closed") << QByteArray("cat; echo done") << 5000 << QByteArray("done\n") << 0
                                               << Codes() << QStringList();
        QTest::newRow("failure: error output as the code")
            << QByteArray("printf out; echo oops >&2; exit 4") << 5000 << QByteArray("out") << 4
            << Codes{VfStatusCodes::CommandFailed} << QStringList{"printf out; echo oops >&2; exit 4", "oops\n"};
        QTest::newRow("timeout") << QByteArray("printf early; exec sleep 5") << 1000 << QByteArray() << 0
                                 << Codes{VfStatusCodes::TimeoutExceeded} << QStringList{"napper timeout"};
        QTest::newRow("timeout while starting") << QByteArray("exec sleep 5") << 0 << QByteArray() << 0
                                                << Codes{VfStatusCodes::TimeoutExceeded} << QStringList{"napper timeout"};
    }
    void shellHelper()
    {
        QFETCH(QByteArray, command);
        QFETCH(int, timeout);
        int exitCode = -12345;
        QElapsedTimer clock;
        clock.start();
        QTEST(VfUtilities::shellHelper(command.constData(), "napper", timeout, &exitCode), "output");
        QVERIFY2(clock.elapsed() < 4000, "the call ends the command that ran out of time");
        QTEST(exitCode, "exitCode");
        QTEST(m_recorder->codes(), "codes");
        QTEST(m_recorder->events.isEmpty() ? QStringList() : info(0), "arguments");
        if (!m_recorder->events.isEmpty() && m_recorder->codes().first() == VfStatusCodes::TimeoutExceeded)
            QCOMPARE(m_recorder->descriptions().first(), QStringLiteral("The requested operation 'napper timeout' "
                                                                        "was aborted because it took longer than expected."));
    }
    void shellHelperEndsWhatTheShellForked()
    {
        const QByteArray command = "echo $$ > " + QFile::encodeName(path("shell")) + "; sleep 5 & echo $! > "
                                   + QFile::encodeName(path("child")) + "; wait";
        QVERIFY(VfUtilities::shellHelper(command.constData(), "forked", 1000, nullptr).isEmpty());
        QVERIFY(!isAlive(path("shell")));
        QTRY_VERIFY_WITH_TIMEOUT(!isAlive(path("child")), 3000);
        QCOMPARE(m_recorder->codes(), Codes{VfStatusCodes::TimeoutExceeded});
    }
    void outputOfCommand()
    {
        QByteArray out = "kept", err = "kept";
        qint32 exitCode = 77;
        QCOMPARE(VfUtilities::outputOfCommand("vf-no-such-program --flag", out, err, &exitCode),
                 StatusCode(VfStatusCodes::CommandNotRecognized));
        QCOMPARE(out + err + QByteArray::number(exitCode), QByteArray("keptkept77"));
        QCOMPARE(m_recorder->descriptions(), QStringList{"The command 'vf-no-such-program --flag' is not recognized."});
        QCOMPARE(VfUtilities::outputOfCommand("sh -c \"echo out; echo err >&2; exit 2\"", out, err, &exitCode),
                 StatusCode(VfStatusCodes::ExternalProcessFailed));
        QCOMPARE(out + err + QByteArray::number(exitCode), QByteArray("out\nerr\n2"));
        // Split by Qt, with no shell to expand $HOME; a failure is returned, not reported.
        QCOMPARE(VfUtilities::outputOfCommand("printf [%s] one $HOME", out, err, nullptr), StatusCode(VfStatusCodes::Success));
        QCOMPARE(out + err, QByteArray("[one][$HOME]"));
        QCOMPARE(m_recorder->events.size(), 1);
    }
    void filePathOnly_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("file") << "/a/b.txt" << "/a";
        QTest::newRow("trailing slash") << "/a/" << "/a";
        QTest::newRow("under the root") << "/b" << "";
        QTest::newRow("bare name") << "b" << "b";
        QTest::newRow("doubled slash") << "a//b" << "a/";
    }
    void filePathOnly()
    {
        QFETCH(QString, path);
        QTEST(VfUtilities::filePathOnly(path), "expected");
    }
    void findAllFiles()
    {
        const QString root = QDir(m_dir.path()).canonicalPath() + "/tree";
        QStringList files{root + "/one/a", root + "/one/two/three/c", root + "/top"};
        for (const QString& file : files)
            QVERIFY(write(file, "x"));
        QVERIFY(QDir().mkpath(root + "/empty/deeper") && write(m_dir.filePath("outside/hidden"), "x"));
        QVERIFY(QFile::link(m_dir.filePath("outside"), root + "/dirlink") && QFile::link(root + "/top", root + "/toplink"));
        QStringList found = VfUtilities::findAllFiles(QDir(root));
        found.sort();
        QCOMPARE(found, files << root + "/toplink");
        QVERIFY(VfUtilities::findAllFiles(QDir(root + "/missing")).isEmpty());
    }
    void makePath()
    {
        const mode_t saved = ::umask(022);
        const QString base = path("made");
        QVERIFY(QDir().mkdir(base) && ::chmod(QFile::encodeName(base).constData(), 0750) == 0);
        QCOMPARE(VfUtilities::makePath(base + "//x///y/", true), StatusCode(VfStatusCodes::Success));
        QCOMPARE(VfUtilities::makePath(base + "/p/q", false), StatusCode(VfStatusCodes::Success));
        ::umask(saved);
        // Only the directories that the call made are opened up.
        QCOMPARE(QList<int>({modeOf(base), modeOf(base + "/x"), modeOf(base + "/x/y"), modeOf(base + "/p/q")}),
                 QList<int>({0750, 0777, 0777, 0755}));
        QVERIFY(write(path("plain"), "x"));
        QCOMPARE(VfUtilities::makePath(path("plain/sub"), true), StatusCode(VfStatusCodes::DirectoryCannotCreate));
        QCOMPARE(m_recorder->descriptions(), QStringList{"The directory " + path("plain/sub") + " cannot be created"});
    }
    void makeBackupFile()
    {
        QVERIFY(write(path("b"), "first") && write(path("b.old"), "older, longer"));
        QCOMPARE(VfUtilities::makeBackupFile(path("b"), "old"), StatusCode(VfStatusCodes::Success));
        QCOMPARE(read(path("b.old")) + read(path("b")), QByteArray("firstfirst"));
        QCOMPARE(VfUtilities::makeBackupFile(path("b"), ".x"), StatusCode(VfStatusCodes::Success));
        QVERIFY(QFile::exists(path("b..x")));
        QCOMPARE(VfUtilities::makeBackupFile(path("gone"), "old"), StatusCode(VfStatusCodes::FileNotFound));
        QCOMPARE(m_recorder->events.size(), 0);
        // A backup that cannot be removed is reported, and the copy is tried all the same.
        QVERIFY(QDir().mkdir(path("c.old")) && write(path("c"), "x"));
        QCOMPARE(VfUtilities::makeBackupFile(path("c"), "old"), StatusCode(VfStatusCodes::FileCannotCopy));
        QCOMPARE(m_recorder->codes(), Codes({VfStatusCodes::FileCannotRemove, VfStatusCodes::FileCannotCopy}));
        QCOMPARE(m_recorder->descriptions(),
                 QStringList({path("c.old"), "An attempt to copy file " + path("c") + " to " + path("c.old") + " failed."}));
    }
    void writeDomNode_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::addColumn<int>("node"); // -1: the document, 0: the root element, 1: its first child
        QTest::addColumn<bool>("siblings");
        QTest::addColumn<QString>("written");
        QTest::addColumn<QString>("invalid");
        // Existing instruments read the repeated children and the lost nodes below: kept as they were.
        QTest::newRow("document repeats later children") << "<r id=\"1\"><a/><b k=\"v\"/><c>t</c></r>" << -1 << true
                                                         << "<r id=\"1\"><a/><b k=\"v\"/><c>t</c><b k=\"v\"/><c>t</c><c>t</c></r>" << "";
        QTest::newRow("document, mixed content") << "<r>text<b/>tail</r>" << -1 << true << "<r>text<b/>tailtail</r>" << "";
        QTest::newRow("document without siblings") << "<r k=\"v\"><a/></r>" << -1 << false << "<r k=\"v\"/>" << "";
        QTest::newRow("element stops after text") << "<r>a&lt;b<b/></r>" << 0 << false << "<r>a&lt;b</r>" << "";
        QTest::newRow("element and its siblings") << "<r><a><x/></a>mid<c/></r>" << 1 << true << "<a><x/></a>mid" << "";
        QTest::newRow("element alone") << "<r><a><x/></a><b/></r>" << 1 << false << "<a><x/></a>" << "";
        QTest::newRow("comment") << "<r><!--c--><b/></r>" << 0 << false << "<r/>" << "Node Type 8";
        QTest::newRow("CDATA") << "<r><![CDATA[x]]></r>" << 0 << true << "<r/>" << "Node Type 4";
        QTest::newRow("processing instruction") << "<r><?pi d?></r>" << 0 << true << "<r/>" << "Node Type 7";
    }
    void writeDomNode()
    {
        QFETCH(QString, xml);
        QFETCH(int, node);
        QFETCH(bool, siblings);
        QFETCH(QString, invalid);
        QDomDocument document;
        QVERIFY(document.setContent(xml));
        QDomNode start = node < 0 ? document : node == 0 ? document.documentElement() : document.documentElement().firstChild();
        QString text;
        QXmlStreamWriter writer(&text);
        VfUtilities::writeDomNode(&writer, start, siblings);
        QTEST(text, "written");
        QCOMPARE(m_recorder->events.isEmpty() ? QString() : info(0).value(0), invalid);
        if (!invalid.isEmpty())
            QCOMPARE(m_recorder->descriptions(), QStringList{"Function was passed an invalid input parameter for '" + invalid
                                                             + "'.\nPlease see the API documentation for this function's proper input."});
    }
    void writeDomNodeOfNothing()
    {
        QString text;
        QXmlStreamWriter writer(&text);
        QDomNode null;
        QDomDocument empty("doctype-only");
        VfUtilities::writeDomNode(&writer, null, true);
        VfUtilities::writeDomNode(&writer, empty, true);
        QCOMPARE(text, QString());
        QCOMPARE(m_recorder->codes(), Codes({VfStatusCodes::ObjectNull, VfStatusCodes::ObjectNull}));
        QCOMPARE(m_recorder->events.at(1).sourceContext()->sourceFunction(),
                 QStringLiteral("void writeDocument(QXmlStreamWriter*, QDomDocument&, bool)"));
    }
    void retrieveMetaProperty()
    {
        const QJsonObject object{{"name", "value"}, {"number", 42}};
        QCOMPARE(VfUtilities::retrieveMetaProperty("name", object, "app.json"), QStringLiteral("value"));
        QCOMPARE(VfUtilities::retrieveMetaProperty("number", object, "app.json"), QString());
        QCOMPARE(m_recorder->events.size(), 0);
        // Two arguments for a one-marker template: the file name lands in both places, as instruments log it.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: 1 argument\\(s\\) missing"));
        QCOMPARE(VfUtilities::retrieveMetaProperty("required", object, "app.json"), QString());
        QCOMPARE(m_recorder->codes(), Codes{VfStatusCodes::ConfigurationDataInvalid});
        QCOMPARE(info(0), QStringList({"app.json", "Configuration file app.json'' does not contain required entry for 'app.json'"}));
    }
    void containsDigitAndFuzzyCompare()
    {
        QCOMPARE(QList<bool>({VfUtilities::containsDigit(""), VfUtilities::containsDigit("abc"), VfUtilities::containsDigit("ab3"),
                              VfUtilities::containsDigit("0"), VfUtilities::containsDigit(QString(QChar(0x0663))),
                              VfUtilities::containsDigit(QString(QChar(0x00B2)))}),
                 QList<bool>({false, false, true, true, true, false}));
        const double nan = qQNaN();
        const QList<QPair<double, double>> pairs{{0, 1e-13}, {0, 1e-9}, {1, 1 + 1e-13}, {-1e-13, 1e-13}, {1e6, 1e6 + 1},
                                                 {1e12, 1e12 + 0.1}, {-1, 1}, {nan, nan}, {0, nan}};
        QList<bool> results;
        for (const auto& pair : pairs)
            results << VfUtilities::fuzzyCompare(pair.first, pair.second);
        QCOMPARE(results, QList<bool>({true, false, true, true, false, true, false, false, false}));
    }
    void jsonDocument_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<StatusCode>("code");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("read") << "good.json" << StatusCode(VfStatusCodes::Success) << QStringList();
        QTest::newRow("missing") << "missing.json" << StatusCode(VfStatusCodes::FileNotFound) << QStringList{path("missing.json")};
        QTest::newRow("directory") << "dir.json" << StatusCode(VfStatusCodes::FileCannotOpen) << QStringList{path("dir.json")};
        QTest::newRow("syntax error") << "bad.json" << StatusCode(VfStatusCodes::ConfigurationDataInvalid)
                                      << QStringList{path("bad.json"), "unterminated object"};
        QTest::newRow("no document") << "" << StatusCode(VfStatusCodes::InputNull) << QStringList{"jsonDocument"};
    }
    void jsonDocument()
    {
        QFETCH(QString, file);
        QFETCH(StatusCode, code);
        QVERIFY(write(path("good.json"), "{\"a\": [1, \"b\"]}") && write(path("bad.json"), "{\"a\": ") && QDir().mkpath(path("dir.json")));
        for (bool report : {false, true}) {
            QJsonDocument document(QJsonArray{1});
            QCOMPARE(VfUtilities::createJsonDocumentFromFile(path(file), file.isEmpty() ? nullptr : &document, report), code);
            QCOMPARE(m_recorder->events.size(), report && code != VfStatusCodes::Success ? 1 : 0);
            if (file.startsWith("good"))
                QCOMPARE(document.object().value("a").toArray().at(1).toString(), QStringLiteral("b"));
            if (file.startsWith("bad"))
                QVERIFY(document.isEmpty());
        }
        QTEST(m_recorder->events.isEmpty() ? QStringList() : info(0), "arguments");
    }
};

QTEST_GUILESS_MAIN(tst_Utilities)
#include "tst_utilities.moc"
