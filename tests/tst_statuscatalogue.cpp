#include "vfstatuscodes.h"

#include <QtTest>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QRegularExpression>
#include <QTextCodec>

using namespace Crosscutting;

// Checks the status catalogue compiled into the library against every figure of Part 2.1.
namespace {

const QString s_catalogueResource = QStringLiteral(":/configuration/statuscodes_framework.json");
const QStringList s_keyOrder = {"name", "title", "description", "severity", "category"};

// Part 2.1, severity by list; NonCriticalError is "all the other 40".
const QStringList s_criticalErrors = {
    "ApplicationAlreadyLoaded", "ApplicationLoadFailed", "ApplicationNotFound", "ApplicationUnloadFailed",
    "CppStandardLibraryBadException", "CppStandardLibraryInvalidDynamicCast", "CppStandardLibraryInvalidTypeId",
    "CppStandardLibraryIoStreamError", "CppStandardLibraryMemoryAllocationFailure", "ErrorRateTooHigh",
    "FileNotFound", "FileSystemMountFailed", "FileXmlTagInvalid", "HardwareError", "InstrumentModelMismatch",
    "InstrumentOptionMismatch", "MemoryAccessViolation", "ObjectConstructionFailed",
    "PendingOperationResetFailure", "ProxyConnectionEstablishmentError", "ProxyInitializationError",
    "QueueFull", "SharedMemoryAttachFailure", "SignalSlotConnectionFailure"};
const QStringList s_warnings = {
    "ConnectivityUiConnectionAlreadyEstablished", "ItemAlreadyExists", "ItemDoesNotExist",
    "MetaObjectInstantiationError", "ObjectStateInvalid", "ReportStatusInvalidArgCount",
    "ReportStatusStatusCodeNotRecognized"};
const QStringList s_notifications = {"SettingChangePending"};

// Part 2.1, category: External for these three, Internal for all the other 69.
const QStringList s_external = {"ApplicationAlreadyLoaded", "ApplicationLoadFailed", "ApplicationUnloadFailed"};

// Part 2.1, number of place markers; one for all the other 48.
const QStringList s_noMarker = {"ApplicationNotFound", "MemoryAccessViolation", "ObjectNull",
                                "SettingChangePending"};
const QStringList s_twoMarkers = {
    "ApplicationLoadFailed", "ApplicationUnloadFailed", "CommandFailed", "ConfigurationDataInvalid",
    "DownloadFailed", "ExternalProcessFailed", "FeatureNotAvailable", "FileCannotCopy", "FileIoError",
    "ItemAlreadyExists", "ItemDoesNotExist", "ObjectConstructionFailed", "QueueFull",
    "SettingDependencyEvaluationError", "SettingValidationError", "SharedMemoryAttachFailure",
    "UnknownEnumValue"};
const QStringList s_threeMarkers = {"FileSystemMountFailed", "ObjectStateInvalid", "ReportStatusInvalidArgCount"};

// Names of VfStaticStatusInfo's enumerations (Part 2.2), checked as text here.
const QStringList s_severityEnumerators = {"Unassigned", "Notification", "Warning", "NonCriticalError",
                                           "CriticalError"};
const QStringList s_categoryEnumerators = {"Unassigned", "Internal", "External"};

QMetaEnum statusCodeEnum()
{
    // A QMetaEnum points into its meta-object, so it is taken from the static one, not a copy.
    const QMetaObject& metaObject = VfStatusCodes::staticMetaObject;
    return metaObject.enumerator(metaObject.indexOfEnumerator("VfStatusCode"));
}

// The enumerators 1..72, the names a catalogue record may have, in declaration order.
QStringList catalogueEnumeratorNames()
{
    const QMetaEnum metaEnum = statusCodeEnum();
    QStringList names;
    for (int value = 1; value <= 72; ++value)
        names << QString::fromLatin1(metaEnum.valueToKey(value));
    return names;
}

QStringList markersOf(const QString& text)
{
    QStringList markers;
    QRegularExpressionMatchIterator it = QRegularExpression(QStringLiteral("%\\d{1,2}")).globalMatch(text);
    while (it.hasNext())
        markers << it.next().captured(0);
    return markers;
}

// One member of an object at depth 2 of the raw text (root array -> object -> member).
struct RawMember
{
    QString key;
    int colonColumn;
    QString between; // what stands between the key's closing quote and the colon
};

// Scans the raw JSON text without a JSON parser (QJsonObject sorts its keys) and returns, for each
// object of the root array, its members in the order written, with the column of their colon.
QList<QList<RawMember>> scanRawObjects(const QString& text)
{
    QList<QList<RawMember>> objects;
    int depth = 0;
    int lineStart = 0;
    int i = 0;
    QString lastString;
    int lastStringEnd = -1; // index just after the closing quote of the last string at depth 2
    while (i < text.size()) {
        const QChar c = text.at(i);
        if (c == '"') {
            int j = i + 1;
            QString value;
            while (j < text.size() && text.at(j) != '"') {
                if (text.at(j) == '\\')
                    ++j;
                if (j < text.size())
                    value += text.at(j);
                ++j;
            }
            if (depth == 2) {
                lastString = value;
                lastStringEnd = j + 1;
            }
            i = j + 1;
            continue;
        }
        if (c == '\n')
            lineStart = i + 1;
        else if (c == '[' || c == '{') {
            ++depth;
            if (depth == 2 && c == '{')
                objects.append(QList<RawMember>());
        } else if (c == ']' || c == '}')
            --depth;
        else if (c == ':' && depth == 2 && !objects.isEmpty() && lastStringEnd >= 0)
            objects.last().append({lastString, i - lineStart, text.mid(lastStringEnd, i - lastStringEnd)});
        ++i;
    }
    return objects;
}

// The problems of layout in one scanned object: key order and colon alignment (Part 2.1).
QStringList layoutProblems(const QList<RawMember>& members)
{
    QStringList problems;
    QStringList keys;
    for (const RawMember& member : members)
        keys << member.key;
    if (keys != s_keyOrder)
        problems << QStringLiteral("keys in order %1").arg(keys.join(','));
    for (const RawMember& member : members) {
        if (member.colonColumn != members.first().colonColumn)
            problems << QStringLiteral("colon of '%1' in column %2, not %3")
                            .arg(member.key).arg(member.colonColumn).arg(members.first().colonColumn);
        if (member.between.isEmpty() || member.between != QString(member.between.size(), ' '))
            problems << QStringLiteral("'%1' is not followed by blanks before its colon").arg(member.key);
    }
    return problems;
}

} // namespace

class tst_StatusCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void validJsonOfStringMembers();
    void validUtf8();
    void namesAreEnumeratorsOneToSeventyTwoInOrder();
    void noDuplicatesNoSuccessNoLastValue();
    void severity_data();
    void severity();
    void severityCounts();
    void severityAndCategoryAreEnumeratorNames();
    void category_data();
    void category();
    void markers_data();
    void markers();
    void markerCounts();
    void unknownEnumValueMarkerOrder();
    void specTexts_data();
    void specTexts();
    void particularWording();
    void titlesAndDescriptionsNonEmpty();
    void rawKeyOrderAndAlignment();
    void rawScannerFindsMisalignment();

private:
    QJsonObject record(const QString& name) const;

    QByteArray m_raw;
    QJsonArray m_array;
    QList<QJsonObject> m_records;
};

QJsonObject tst_StatusCatalogue::record(const QString& name) const
{
    for (const QJsonObject& object : m_records)
        if (object.value("name").toString() == name)
            return object;
    return QJsonObject();
}

void tst_StatusCatalogue::initTestCase()
{
    // Referencing an exported symbol keeps the library loaded, and with it the resource that its
    // static initialiser registers (Part 2.1).
    QVERIFY(statusCodeEnum().isValid());
    QFile file(s_catalogueResource);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
    m_raw = file.readAll();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(m_raw, &error);
    QVERIFY2(error.error == QJsonParseError::NoError, qPrintable(error.errorString()));
    QVERIFY(document.isArray());
    m_array = document.array();
    for (const QJsonValue& value : m_array)
        if (value.isObject())
            m_records << value.toObject();
}

void tst_StatusCatalogue::validJsonOfStringMembers()
{
    QCOMPARE(m_array.size(), 72);
    for (int i = 0; i < m_array.size(); ++i) {
        QVERIFY2(m_array.at(i).isObject(), qPrintable(QString("element %1").arg(i)));
        const QJsonObject object = m_array.at(i).toObject();
        QCOMPARE(object.size(), 5);
        for (const QString& key : s_keyOrder) {
            QVERIFY2(object.value(key).isString(), qPrintable(QString("element %1, member %2").arg(i).arg(key)));
        }
    }
}

void tst_StatusCatalogue::validUtf8()
{
    QTextCodec::ConverterState state;
    const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(m_raw.constData(), m_raw.size(), &state);
    QCOMPARE(state.invalidChars, 0);
    QVERIFY(!m_raw.startsWith("\xEF\xBB\xBF"));
    QCOMPARE(text.toUtf8(), m_raw);
}

void tst_StatusCatalogue::namesAreEnumeratorsOneToSeventyTwoInOrder()
{
    const QMetaEnum metaEnum = statusCodeEnum();
    QCOMPARE(metaEnum.keyCount(), 74);
    QCOMPARE(m_records.size(), 72);
    for (int i = 0; i < m_records.size(); ++i) {
        const QString name = m_records.at(i).value("name").toString();
        bool ok = false;
        const int value = metaEnum.keyToValue(name.toLatin1().constData(), &ok);
        QVERIFY2(ok, qPrintable(name));
        QCOMPARE(value, i + 1);
        QCOMPARE(name, QString::fromLatin1(metaEnum.valueToKey(i + 1)));
    }
}

void tst_StatusCatalogue::noDuplicatesNoSuccessNoLastValue()
{
    QSet<QString> names;
    for (const QJsonObject& object : m_records) {
        const QString name = object.value("name").toString();
        QVERIFY2(!names.contains(name), qPrintable(name));
        names.insert(name);
    }
    QCOMPARE(names.size(), 72);
    QVERIFY(!names.contains("Success"));
    QVERIFY(!names.contains("LastValue"));
    const QStringList enumerators = catalogueEnumeratorNames();
    QCOMPARE(names, QSet<QString>(enumerators.begin(), enumerators.end()));
}

void tst_StatusCatalogue::severity_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("severity");
    for (const QString& name : catalogueEnumeratorNames()) {
        QString severity = "NonCriticalError";
        if (s_criticalErrors.contains(name))
            severity = "CriticalError";
        else if (s_warnings.contains(name))
            severity = "Warning";
        else if (s_notifications.contains(name))
            severity = "Notification";
        QTest::newRow(qPrintable(name)) << name << severity;
    }
}

void tst_StatusCatalogue::severity()
{
    QFETCH(QString, name);
    QFETCH(QString, severity);
    const QJsonObject object = record(name);
    QVERIFY2(!object.isEmpty(), "no record of that name");
    QCOMPARE(object.value("severity").toString(), severity);
}

void tst_StatusCatalogue::severityCounts()
{
    // The lists of Part 2.1 themselves, so that a slip in them cannot hide one in the catalogue.
    QCOMPARE(s_criticalErrors.size(), 24);
    QCOMPARE(s_warnings.size(), 7);
    QCOMPARE(s_notifications.size(), 1);
    const QStringList all = catalogueEnumeratorNames();
    for (const QStringList* list : {&s_criticalErrors, &s_warnings, &s_notifications, &s_external,
                                    &s_noMarker, &s_twoMarkers, &s_threeMarkers})
        for (const QString& name : *list)
            QVERIFY2(all.contains(name), qPrintable(name));

    QHash<QString, int> counts;
    for (const QJsonObject& object : m_records)
        ++counts[object.value("severity").toString()];
    QCOMPARE(counts.value("CriticalError"), 24);
    QCOMPARE(counts.value("Warning"), 7);
    QCOMPARE(counts.value("Notification"), 1);
    QCOMPARE(counts.value("NonCriticalError"), 40);
    QCOMPARE(counts.size(), 4);
}

void tst_StatusCatalogue::severityAndCategoryAreEnumeratorNames()
{
    for (const QJsonObject& object : m_records) {
        const QString name = object.value("name").toString();
        const QString severity = object.value("severity").toString();
        const QString category = object.value("category").toString();
        QVERIFY2(s_severityEnumerators.contains(severity), qPrintable(name));
        QVERIFY2(severity != "Unassigned", qPrintable(name));
        QVERIFY2(s_categoryEnumerators.contains(category), qPrintable(name));
        QVERIFY2(category != "Unassigned", qPrintable(name));
    }
}

void tst_StatusCatalogue::category_data()
{
    QCOMPARE(s_external.size(), 3);
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("category");
    for (const QString& name : catalogueEnumeratorNames())
        QTest::newRow(qPrintable(name)) << name << (s_external.contains(name) ? "External" : "Internal");
}

void tst_StatusCatalogue::category()
{
    QFETCH(QString, name);
    QFETCH(QString, category);
    const QJsonObject object = record(name);
    QVERIFY2(!object.isEmpty(), "no record of that name");
    QCOMPARE(object.value("category").toString(), category);
}

void tst_StatusCatalogue::markers_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("count");
    for (const QString& name : catalogueEnumeratorNames()) {
        int count = 1;
        if (s_noMarker.contains(name))
            count = 0;
        else if (s_twoMarkers.contains(name))
            count = 2;
        else if (s_threeMarkers.contains(name))
            count = 3;
        QTest::newRow(qPrintable(name)) << name << count;
    }
}

void tst_StatusCatalogue::markers()
{
    QFETCH(QString, name);
    QFETCH(int, count);
    const QJsonObject object = record(name);
    QVERIFY2(!object.isEmpty(), "no record of that name");
    const QStringList found = markersOf(object.value("description").toString());
    QCOMPARE(found.size(), count);
    // No record repeats a marker, and the markers are the positional %1 .. %count.
    QStringList expected;
    for (int n = 1; n <= count; ++n)
        expected << QStringLiteral("%%1").arg(n);
    QStringList sorted = found;
    sorted.sort();
    QCOMPARE(sorted, expected);
    QVERIFY(!markersOf(object.value("title").toString()).size());
}

void tst_StatusCatalogue::markerCounts()
{
    QCOMPARE(s_noMarker.size(), 4);
    QCOMPARE(s_twoMarkers.size(), 17);
    QCOMPARE(s_threeMarkers.size(), 3);
    QHash<int, int> counts;
    for (const QJsonObject& object : m_records)
        ++counts[markersOf(object.value("description").toString()).size()];
    QCOMPARE(counts.value(0), 4);
    QCOMPARE(counts.value(1), 48);
    QCOMPARE(counts.value(2), 17);
    QCOMPARE(counts.value(3), 3);
    QCOMPARE(counts.size(), 4);
}

void tst_StatusCatalogue::unknownEnumValueMarkerOrder()
{
    // Part 2.1: %2 stands ahead of %1, so the first argument is the enum's name, the second the value.
    const QString description = record("UnknownEnumValue").value("description").toString();
    QVERIFY(description.indexOf("%2") >= 0);
    QVERIFY(description.indexOf("%2") < description.indexOf("%1"));
    QCOMPARE(description.arg("VfStatusSeverity").arg("7"),
             QString("The enum value '7' does not match any known enumerator in the 'VfStatusSeverity' enum."));
}

void tst_StatusCatalogue::specTexts_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("severity");
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("description");
    // Part 2.1's table, word for word ("applicaiton" and "occured" stay misspelt).
    QTest::newRow("ApplicationAlreadyLoaded") << 1 << "Application already loaded"
        << "CriticalError" << "External"
        << "Requested application '%1' is already loaded. Unload the applicaiton before attempting to load the application again.";
    QTest::newRow("ApplicationNotFound") << 3 << "No application was found"
        << "CriticalError" << "Internal"
        << "No application was found in the MT process or available applications in the MT process did not match.";
    QTest::newRow("CommandFailed") << 5 << "Command Failed"
        << "NonCriticalError" << "Internal"
        << "The command '%1' failed with an error code of '%2'.";
    QTest::newRow("CommandNotRecognized") << 7 << "Command not recognized"
        << "NonCriticalError" << "Internal"
        << "The command '%1' is not recognized.";
    QTest::newRow("ConfigurationDataInvalid") << 8 << "Configuration file invalid"
        << "NonCriticalError" << "Internal"
        << "The configuration file '%1' was found to contain invalid data for the following reason: %2.";
    QTest::newRow("CppStandardLibraryInvalidTypeId") << 13 << "Invalid dynamic cast"
        << "CriticalError" << "Internal"
        << "An exception was thrown due to an invalid dynamic_cast operation.\nException information: %1";
    QTest::newRow("DataCollectorCannotStop") << 17 << "Data Collector not stopped"
        << "NonCriticalError" << "Internal"
        << "The data collector associated with the device abstraction '%1' cannot be started";
    QTest::newRow("DirectoryCannotCreate") << 21 << "Directory cannot create"
        << "NonCriticalError" << "Internal"
        << "The directory %1 cannot be created";
    QTest::newRow("DirectoryNotFound") << 23 << "Directory not found"
        << "NonCriticalError" << "Internal"
        << "The %1 directory was not found";
    QTest::newRow("ErrorRateTooHigh") << 26 << "Error Rate Too High"
        << "CriticalError" << "Internal"
        << "Too many errors for type '%1' reported. Logging is stopped for these errors, it will resume when the error rate goes down";
    QTest::newRow("ExternalProcessFailed") << 27 << "External Process Failure"
        << "NonCriticalError" << "Internal"
        << "The external process '%1' returned a non-zero exit code: %2";
    QTest::newRow("FileCannotCopy") << 29 << "File cannot be copied"
        << "NonCriticalError" << "Internal"
        << "An attempt to copy file %1 to %2 failed.";
    QTest::newRow("FileCannotOpen") << 30 << "File cannot be opened"
        << "NonCriticalError" << "Internal"
        << "%1";
    QTest::newRow("FileCannotRemove") << 31 << "File cannot be removed"
        << "NonCriticalError" << "Internal"
        << "%1";
    QTest::newRow("FileIoError") << 33 << "File I/O Error"
        << "NonCriticalError" << "Internal"
        << "A file I/O error has occurred on file %1 with the error string of %2";
    QTest::newRow("FileNotFound") << 34 << "File not found"
        << "CriticalError" << "Internal"
        << "The file '%1' could not be found. Please ensure the file exists.";
    QTest::newRow("FileSystemMountFailed") << 35 << "Mounting filesystem failed"
        << "CriticalError" << "Internal"
        << "Mounting filesystem '%1' with '%2' returned a non-zero exit code: %3";
    QTest::newRow("InputInvalid") << 39 << "Invalid input to function"
        << "NonCriticalError" << "Internal"
        << "Function was passed an invalid input parameter for '%1'.\nPlease see the API documentation for this function's proper input.";
    QTest::newRow("InputNull") << 40 << "Nullptr input to function"
        << "NonCriticalError" << "Internal"
        << "Function was passed an unexpected nullptr input parameter for '%1'.\nPlease see the API documentation for this function's proper input.";
    QTest::newRow("MemoryAccessViolation") << 49 << "Memory access violation occurred"
        << "CriticalError" << "Internal"
        << "A memory access violation occured. This may have been caused by a null pointer dereference, accessing an array with an out-of-range index or some other coding error.";
    QTest::newRow("MetaObjectInstantiationError") << 50 << "Instantiation from meta object failed"
        << "Warning" << "Internal"
        << "Failed to create new meta object of type '%1'. Double check that the invocation of QMetaObject::newInstance() matches a valid constructor.";
    QTest::newRow("ObjectNull") << 52 << "Object is null"
        << "NonCriticalError" << "Internal"
        << "The requested operation is not permitted because the target object is null.";
    QTest::newRow("ReportStatusInvalidArgCount") << 60 << "REPORT_STATUS error"
        << "Warning" << "Internal"
        << "A call to REPORT_STATUS for status code %1 was made with an invalid number of arguments: Got %2 additional arguments, expected %3. Please ensure the number of placeholders specified in the description of this status code matches the number of additional arguments passed to REPORT_STATUS.";
    QTest::newRow("ReportStatusStatusCodeNotRecognized") << 61 << "Status code unrecognized"
        << "Warning" << "Internal"
        << "A call to REPORT_STATUS was received for an unrecognized status code (%1). Please ensure the status code has been added to the appropriate status resource file (<AppName>statuscodes.json).";
    QTest::newRow("SettingChangePending") << 64 << "Setting change pending"
        << "Notification" << "Internal"
        << "A setting change is pending.";
    QTest::newRow("StringParseError") << 69 << "Error when parsing string"
        << "NonCriticalError" << "Internal"
        << "An error occurred while parsing the string %1.";
    QTest::newRow("TimeoutExceeded") << 70 << "A timeout was exceeded"
        << "NonCriticalError" << "Internal"
        << "The requested operation '%1' was aborted because it took longer than expected.";
    QTest::newRow("Unknown") << 71 << "Unknown"
        << "NonCriticalError" << "Internal"
        << "An unknown internal error has occurred. More information: %1";
    QTest::newRow("UnknownEnumValue") << 72 << "An unknown enum value was encountered"
        << "NonCriticalError" << "Internal"
        << "The enum value '%2' does not match any known enumerator in the '%1' enum.";
}

void tst_StatusCatalogue::specTexts()
{
    QFETCH(int, value);
    QFETCH(QString, title);
    QFETCH(QString, severity);
    QFETCH(QString, category);
    QFETCH(QString, description);
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    bool ok = false;
    QCOMPARE(statusCodeEnum().keyToValue(QTest::currentDataTag(), &ok), value);
    QVERIFY(ok);
    QVERIFY(value >= 1 && value <= m_records.size());
    const QJsonObject object = m_records.at(value - 1);
    QCOMPARE(object.value("name").toString(), name);
    QCOMPARE(object.value("title").toString(), title);
    QCOMPARE(object.value("severity").toString(), severity);
    QCOMPARE(object.value("category").toString(), category);
    QCOMPARE(object.value("description").toString(), description);
}

void tst_StatusCatalogue::particularWording()
{
    // Part 2.1: CppStandardLibraryInvalidTypeId has the very title and text of ...InvalidDynamicCast.
    const QJsonObject dynamicCast = record("CppStandardLibraryInvalidDynamicCast");
    const QJsonObject typeId = record("CppStandardLibraryInvalidTypeId");
    QCOMPARE(typeId.value("title").toString(), dynamicCast.value("title").toString());
    QCOMPARE(typeId.value("description").toString(), dynamicCast.value("description").toString());
    // Part 2.1: DataCollectorCannotStop says "cannot be started", as DataCollectorCannotStart does.
    QCOMPARE(record("DataCollectorCannotStop").value("description").toString(),
             record("DataCollectorCannotStart").value("description").toString());
    // Part 2.1: the caller supplies the entire message of these three.
    for (const char* name : {"FileCannotOpen", "FileCannotRemove", "FileCannotRename"})
        QCOMPARE(record(name).value("description").toString(), QString("%1"));
    // A "\n" of the spec's texts is the escape \n in the JSON text, never a raw line break in a string.
    QVERIFY(m_raw.contains("operation.\\nException information: %1\""));
    QVERIFY(record("InputInvalid").value("description").toString().contains("'%1'.\nPlease"));
}

void tst_StatusCatalogue::titlesAndDescriptionsNonEmpty()
{
    for (const QJsonObject& object : m_records) {
        const QString name = object.value("name").toString();
        QVERIFY2(!object.value("title").toString().trimmed().isEmpty(), qPrintable(name));
        QVERIFY2(!object.value("description").toString().trimmed().isEmpty(), qPrintable(name));
    }
}

void tst_StatusCatalogue::rawKeyOrderAndAlignment()
{
    const QList<QList<RawMember>> objects = scanRawObjects(QString::fromUtf8(m_raw));
    QCOMPARE(objects.size(), 72);
    const int column = objects.first().isEmpty() ? -1 : objects.first().first().colonColumn;
    for (int i = 0; i < objects.size(); ++i) {
        const QStringList problems = layoutProblems(objects.at(i));
        QVERIFY2(problems.isEmpty(), qPrintable(QString("object %1: %2").arg(i).arg(problems.join("; "))));
        // One layout for every record.
        QCOMPARE(objects.at(i).first().colonColumn, column);
    }
}

void tst_StatusCatalogue::rawScannerFindsMisalignment()
{
    // The raw check above must be able to fail: it does on a misaligned and on a reordered object.
    const QString good = "[\n  {\n    \"name\"        : \"A\",\n    \"title\"       : \"{x: y}\",\n"
                         "    \"description\" : \"\\\"q\\\" : %1\",\n    \"severity\"    : \"Warning\",\n"
                         "    \"category\"    : \"Internal\"\n  }\n]\n";
    QList<QList<RawMember>> objects = scanRawObjects(good);
    QCOMPARE(objects.size(), 1);
    QCOMPARE(layoutProblems(objects.first()), QStringList());

    QString misaligned = good;
    misaligned.replace("\"title\"       :", "\"title\" :");
    objects = scanRawObjects(misaligned);
    QCOMPARE(objects.size(), 1);
    QCOMPARE(layoutProblems(objects.first()).size(), 1);

    QString noBlank = good;
    noBlank.replace(" : ", ": "); // still aligned, but "description" now touches its colon
    objects = scanRawObjects(noBlank);
    QCOMPARE(layoutProblems(objects.first()).size(), 1);

    QString reordered = good;
    reordered.replace("\"severity\"    : \"Warning\"", "\"category\"    : \"Warning\"")
        .replace("\"category\"    : \"Internal\"", "\"severity\"    : \"Internal\"");
    objects = scanRawObjects(reordered);
    QVERIFY(!layoutProblems(objects.first()).isEmpty());
}

QTEST_GUILESS_MAIN(tst_StatusCatalogue)
#include "tst_statuscatalogue.moc"
