#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfutilities.h"

#include <QtTest>

using namespace Crosscutting;

class tst_JsonDocuments : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void failures_data();
    void failures();
    void nullDocumentDoesNotLookAtTheFile();
    void syntaxErrorEmptiesDocument();
    void readsDocument();
    void catalogueResourceReadable();

private:
    QTemporaryDir m_dir;
    StatusEventRecorder* m_recorder = nullptr;
    QString write(const QString& name, const QByteArray& content)
    {
        QFile f(m_dir.filePath(name));
        f.open(QIODevice::WriteOnly);
        f.write(content);
        return f.fileName();
    }
};

void tst_JsonDocuments::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void tst_JsonDocuments::init()
{
    m_recorder = new StatusEventRecorder;
    m_recorder->attach();
}

void tst_JsonDocuments::cleanup()
{
    delete m_recorder;
    VfCrosscuttingManagerPlaceholder::drop();
}

void tst_JsonDocuments::failures_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("report");
    QTest::addColumn<StatusCode>("code");
    for (bool report : {false, true}) {
        const char* suffix = report ? " reported" : " silent";
        QTest::newRow(qPrintable(QString("missing file") + suffix)) << "missing" << report << StatusCode(VfStatusCodes::FileNotFound);
        QTest::newRow(qPrintable(QString("unreadable") + suffix)) << "unreadable" << report << StatusCode(VfStatusCodes::FileCannotOpen);
        QTest::newRow(qPrintable(QString("syntax error") + suffix)) << "syntax" << report << StatusCode(VfStatusCodes::ConfigurationDataInvalid);
        QTest::newRow(qPrintable(QString("null document") + suffix)) << "null" << report << StatusCode(VfStatusCodes::InputNull);
    }
}

void tst_JsonDocuments::failures()
{
    QFETCH(QString, kind);
    QFETCH(bool, report);
    QFETCH(StatusCode, code);
    QString path;
    QStringList arguments;
    if (kind == "missing") {
        path = m_dir.filePath("missing.json");
        arguments = QStringList{path};
    } else if (kind == "unreadable") {
        path = m_dir.filePath("directory.json");
        QDir().mkpath(path); // a directory exists but cannot be opened as a file
        arguments = QStringList{path};
    } else if (kind == "syntax") {
        path = write("bad.json", "{ \"a\": ");
    } else {
        path = write("good.json", "[]");
        arguments = QStringList{"jsonDocument"};
    }
    QJsonDocument document;
    QCOMPARE(VfUtilities::createJsonDocumentFromFile(path, kind == "null" ? nullptr : &document, report), code);
    if (!report) {
        QVERIFY(m_recorder->events.isEmpty());
        return;
    }
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{code});
    const QStringList got = m_recorder->events.first().sourceContext()->additionalInfo();
    if (kind == "syntax") {
        QCOMPARE(got.size(), 2);
        QCOMPARE(got.first(), path);
        QVERIFY(!got.last().isEmpty());
    } else {
        QCOMPARE(got, arguments);
    }
}

void tst_JsonDocuments::nullDocumentDoesNotLookAtTheFile()
{
    // A path that does not exist still gives InputNull: the file is not looked at.
    QCOMPARE(VfUtilities::createJsonDocumentFromFile("/nonexistent/x.json", nullptr, false),
             StatusCode(VfStatusCodes::InputNull));
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_JsonDocuments::syntaxErrorEmptiesDocument()
{
    QJsonDocument document(QJsonArray{1, 2, 3});
    QVERIFY(!document.isEmpty());
    QCOMPARE(VfUtilities::createJsonDocumentFromFile(write("broken.json", "[1, 2,"), &document, false),
             StatusCode(VfStatusCodes::ConfigurationDataInvalid));
    // Part 8.4: the parse result is assigned even after a failure.
    QVERIFY(document.isEmpty());
}

void tst_JsonDocuments::readsDocument()
{
    QJsonDocument document;
    QCOMPARE(VfUtilities::createJsonDocumentFromFile(write("ok.json", R"({"a": [1, "b"]})"), &document, true),
             StatusCode(VfStatusCodes::Success));
    QCOMPARE(document.object().value("a").toArray().at(1).toString(), QString("b"));
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_JsonDocuments::catalogueResourceReadable()
{
    QJsonDocument document;
    QCOMPARE(VfUtilities::createJsonDocumentFromFile(":/configuration/statuscodes_framework.json", &document, true),
             StatusCode(VfStatusCodes::Success));
    QCOMPARE(document.array().size(), 72);
}

QTEST_GUILESS_MAIN(tst_JsonDocuments)
#include "tst_jsondocuments.moc"
