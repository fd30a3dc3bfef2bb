// The stand-in for the instrument's closed libmodel.so.1 (Overview, "Platform interfaces"; Part 9.1):
// its ABI, the classes it describes, its file and SONAME, and the swap of the library at run time
// through the loader's search path.
#include "modelutilities.h"

#include <QtTest>

#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QProcessEnvironment>

namespace {

const char* const ModelMetaObjectSymbol = "_ZN5Model14ModelUtilities15modelMetaObjectERK7QString";

QObject* makeModel(const QMetaObject* metaObject, const QStringList& options, QObject* parent)
{
    return metaObject->newInstance(Q_ARG(const QStringList&, options), Q_ARG(QObject*, parent));
}

// `readelf` with the given options on a file, or a null string when it could not run.
QString readelf(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("readelf"), arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return QString();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

// The child's "key=value" lines.
QMap<QString, QString> runChild(const QProcessEnvironment& environment)
{
    QProcess child;
    child.setProcessEnvironment(environment);
    child.start(QStringLiteral(VF_MODEL_CHILD), QStringList());
    QMap<QString, QString> values;
    if (!child.waitForFinished(60000) || child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
        return values;
    const QStringList lines = QString::fromLocal8Bit(child.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals > 0)
            values.insert(line.left(equals), line.mid(equals + 1));
    }
    return values;
}

} // namespace

class tst_ModelStandIn : public QObject
{
    Q_OBJECT
private slots:
    void knowsItsModels_data();
    void knowsItsModels();
    void unknownNamesGiveNull_data();
    void unknownNamesGiveNull();
    void instanceThroughInvokableConstructor_data();
    void instanceThroughInvokableConstructor();
    void instanceWithParentIsDeletedWithIt();
    void validOptionsArePublished();
    void libraryFileSonameAndSymbol();
    void linkedWithRunpathNotRpath_data();
    void linkedWithRunpathNotRpath();
    void childUsesTheBuiltLibrary();
    void childGetsAnotherLibraryThroughLdLibraryPath();
};

void tst_ModelStandIn::knowsItsModels_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("className");
    QTest::newRow("DEFAULTMODEL") << "DEFAULTMODEL" << "Model::DefaultModel";
    QTest::newRow("SPA") << "SPA" << "Model::SpaModel";
    QTest::newRow("VNA") << "VNA" << "Model::VnaModel";
}

void tst_ModelStandIn::knowsItsModels()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    QFETCH(QString, name);
    QFETCH(QString, className);
    const QMetaObject* metaObject = Model::ModelUtilities::modelMetaObject(name);
    QVERIFY(metaObject);
    QCOMPARE(QString::fromLatin1(metaObject->className()), className);
    QVERIFY(metaObject->inherits(&QObject::staticMetaObject));
    // The same meta-object every time: it is the class's static one.
    QCOMPARE(Model::ModelUtilities::modelMetaObject(name), metaObject);
}

void tst_ModelStandIn::unknownNamesGiveNull_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << "";
    QTest::newRow("lower case spa") << "spa";
    QTest::newRow("mixed case Vna") << "Vna";
    QTest::newRow("lower case defaultmodel") << "defaultmodel";
    QTest::newRow("blank before SPA") << " SPA";
    QTest::newRow("UNKNOWN") << "UNKNOWN";
    QTest::newRow("ALT, only in the tests' second library") << "ALT";
    QTest::newRow("UNCREATABLE, only in the tests' second library") << "UNCREATABLE";
}

void tst_ModelStandIn::unknownNamesGiveNull()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    QFETCH(QString, name);
    QCOMPARE(Model::ModelUtilities::modelMetaObject(name), static_cast<const QMetaObject*>(nullptr));
}

void tst_ModelStandIn::instanceThroughInvokableConstructor_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("options");
    QTest::newRow("DEFAULTMODEL, no options") << "DEFAULTMODEL" << QStringList();
    QTest::newRow("SPA, two options") << "SPA" << QStringList{"PREAMP", "TRACKINGGENERATOR"};
    QTest::newRow("VNA, one option") << "VNA" << QStringList{"TIMEDOMAIN"};
}

void tst_ModelStandIn::instanceThroughInvokableConstructor()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    QFETCH(QString, name);
    QFETCH(QStringList, options);
    const QMetaObject* metaObject = Model::ModelUtilities::modelMetaObject(name);
    QVERIFY(metaObject);
    QCOMPARE(metaObject->constructorCount(), 1);
    QCOMPARE(metaObject->constructor(0).parameterTypes(), (QList<QByteArray>{"QStringList", "QObject*"}));

    QScopedPointer<QObject> model(makeModel(metaObject, options, nullptr));
    QVERIFY(model);
    QCOMPARE(model->metaObject(), metaObject);
    QCOMPARE(model->property("modelName").toString(), name);
    QCOMPARE(model->property("options").toStringList(), options);
    QVERIFY(!model->parent());
}

void tst_ModelStandIn::instanceWithParentIsDeletedWithIt()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    QScopedPointer<QObject> parent(new QObject);
    QPointer<QObject> model = makeModel(Model::ModelUtilities::modelMetaObject("SPA"), {}, parent.data());
    QVERIFY(model);
    QCOMPARE(model->parent(), parent.data());
    parent.reset();
    QVERIFY(model.isNull());

    // Deleted through QObject's virtual destructor, as the identity store does.
    QPointer<QObject> alone = makeModel(Model::ModelUtilities::modelMetaObject("VNA"), {}, nullptr);
    delete alone.data();
    QVERIFY(alone.isNull());
}

void tst_ModelStandIn::validOptionsArePublished()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    QScopedPointer<QObject> spa(makeModel(Model::ModelUtilities::modelMetaObject("SPA"), {}, nullptr));
    QScopedPointer<QObject> vna(makeModel(Model::ModelUtilities::modelMetaObject("VNA"), {}, nullptr));
    QScopedPointer<QObject> standard(makeModel(Model::ModelUtilities::modelMetaObject("DEFAULTMODEL"), {}, nullptr));
    QCOMPARE(spa->property("validOptions").toStringList(), (QStringList{"PREAMP", "TRACKINGGENERATOR"}));
    QCOMPARE(vna->property("validOptions").toStringList(), (QStringList{"TIMEDOMAIN", "BIASTEE"}));
    QCOMPARE(standard->property("validOptions").toStringList(), QStringList());
}

void tst_ModelStandIn::libraryFileSonameAndSymbol()
{
    if (!VF_MODEL_STANDIN)
        QSKIP("built against the system's libmodel.so.1");
    const QFileInfo library(QStringLiteral(VF_MODEL_LIBRARY_FILE));
    QCOMPARE(library.fileName(), QStringLiteral("libmodel.so.1.0.0"));
    const QFileInfo sonameLink(library.absolutePath() + QStringLiteral("/libmodel.so.1"));
    const QFileInfo devLink(library.absolutePath() + QStringLiteral("/libmodel.so"));
    QVERIFY(sonameLink.isSymLink());
    QCOMPARE(sonameLink.canonicalFilePath(), library.canonicalFilePath());
    QVERIFY(devLink.isSymLink());
    QCOMPARE(devLink.canonicalFilePath(), library.canonicalFilePath());

    const QString dynamic = readelf({QStringLiteral("-d"), library.filePath()});
    QVERIFY2(!dynamic.isEmpty(), "readelf -d failed");
    QVERIFY(dynamic.contains(QStringLiteral("Library soname: [libmodel.so.1]")));
    // The tests' second library answers to the same name, so the loader takes it in its place.
    QVERIFY(readelf({QStringLiteral("-d"), QStringLiteral(VF_MODEL_VARIANT_FILE)})
                .contains(QStringLiteral("Library soname: [libmodel.so.1]")));

    // The one function of the ABI, exported under its C++ name; nothing else of the Model
    // namespace is exported.
    const QString symbols = readelf({QStringLiteral("--dyn-syms"), QStringLiteral("-W"), library.filePath()});
    QVERIFY2(!symbols.isEmpty(), "readelf --dyn-syms failed");
    QStringList modelSymbols;
    for (const QString& line : symbols.split(QLatin1Char('\n'))) {
        const QStringList fields = line.simplified().split(QLatin1Char(' '));
        if (fields.size() >= 8 && fields.at(7).startsWith(QLatin1String("_ZN5Model")) && fields.at(6) != QLatin1String("UND"))
            modelSymbols.append(fields.at(3) + QLatin1Char(' ') + fields.at(4) + QLatin1Char(' ') + fields.at(7));
    }
    QCOMPARE(modelSymbols, QStringList{QStringLiteral("FUNC GLOBAL ") + QLatin1String(ModelMetaObjectSymbol)});
}

void tst_ModelStandIn::linkedWithRunpathNotRpath_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("libVfCrosscutting") << QStringLiteral(VF_CROSSCUTTING_LIBRARY_FILE);
    QTest::newRow("program linking it") << QStringLiteral(VF_MODEL_CHILD);
}

void tst_ModelStandIn::linkedWithRunpathNotRpath()
{
    // DT_RUNPATH is searched after LD_LIBRARY_PATH, DT_RPATH before it: with an RPATH into the
    // build tree, no LD_LIBRARY_PATH could swap libmodel.so.1.
    QFETCH(QString, file);
    const QString dynamic = readelf({QStringLiteral("-d"), file});
    QVERIFY2(!dynamic.isEmpty(), "readelf -d failed");
    QVERIFY(dynamic.contains(QStringLiteral("Shared library: [libmodel.so.1]"))
            || dynamic.contains(QStringLiteral("Shared library: [libVfCrosscutting.so.1]")));
    QVERIFY(dynamic.contains(QStringLiteral("(RUNPATH)")));
    QVERIFY(!dynamic.contains(QStringLiteral("(RPATH)")));
}

void tst_ModelStandIn::childUsesTheBuiltLibrary()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("LD_LIBRARY_PATH"));
    const QMap<QString, QString> values = runChild(environment);
    QVERIFY2(!values.isEmpty(), "the child failed");
    QCOMPARE(QFileInfo(values.value("library")).canonicalFilePath(),
             QFileInfo(QStringLiteral(VF_MODEL_LIBRARY_FILE)).canonicalFilePath());
    QCOMPARE(values.value("DEFAULTMODEL"), QStringLiteral("Model::DefaultModel"));
    QCOMPARE(values.value("ALT"), QStringLiteral("null"));
    if (VF_MODEL_STANDIN) {
        QCOMPARE(values.value("SPA"), QStringLiteral("Model::SpaModel"));
        QCOMPARE(values.value("VNA"), QStringLiteral("Model::VnaModel"));
    }
    // The identity store of libVfCrosscutting does not know "ALT" either (InputInvalid, Part 9.1).
    QCOMPARE(values.value("setModel"), QStringLiteral("39"));
    QCOMPARE(values.value("model"), QStringLiteral("UNKNOWN"));
    QCOMPARE(values.value("data"), QStringLiteral("DEFAULTMODEL"));
}

void tst_ModelStandIn::childGetsAnotherLibraryThroughLdLibraryPath()
{
    const QFileInfo variant(QStringLiteral(VF_MODEL_VARIANT_FILE));
    QVERIFY(variant.absolutePath() != QFileInfo(QStringLiteral(VF_MODEL_LIBRARY_FILE)).absolutePath());

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_LIBRARY_PATH"), variant.absolutePath());
    const QMap<QString, QString> values = runChild(environment);
    QVERIFY2(!values.isEmpty(), "the child failed");
    QCOMPARE(QFileInfo(values.value("library")).canonicalFilePath(), variant.canonicalFilePath());
    QCOMPARE(values.value("ALT"), QStringLiteral("Model::AltModel"));
    QCOMPARE(values.value("DEFAULTMODEL"), QStringLiteral("Model::DefaultModel"));
    QCOMPARE(values.value("SPA"), QStringLiteral("Model::SpaModel"));
    // libVfCrosscutting, unchanged, resolves the name through the library it was given.
    QCOMPARE(values.value("setModel"), QStringLiteral("0"));
    QCOMPARE(values.value("model"), QStringLiteral("ALT"));
    QCOMPARE(values.value("data"), QStringLiteral("ALT"));
}

QTEST_GUILESS_MAIN(tst_ModelStandIn)
#include "tst_modelstandin.moc"
