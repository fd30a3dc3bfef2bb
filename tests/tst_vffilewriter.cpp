// Part 4.4: file writer.
#define VF_LOGTEST_COUNT_SYNC
#include "helpers/vflogtesthelpers.h"
#include "statuseventrecorder.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vfstatusreporter.h"

#include <QtTest>

using namespace Crosscutting;
using VfLogTest::makeContext;
using VfLogTest::readFile;
using VfLogTest::writeFile;
using Severity = VfStaticStatusInfo::VfStatusSeverity;
using EntryPointer = QSharedPointer<const VfLogEntry>;

namespace {

// Context text in ShortForm is "[f:1]", 5 characters: an entry counts 5 plus its message (Part 4.4).
EntryPointer entryCounting(int counted, char fill, Severity severity = Severity::Notification)
{
    return EntryPointer(
        new VfLogEntry(makeContext(), severity, QString(counted - 5 - 1, QLatin1Char(fill)) + QLatin1Char('\n')));
}

QByteArray recordOf(const EntryPointer& entry)
{
    return "[f:1] " + entry->message().toUtf8();
}

} // namespace

class tst_VfFileWriter : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void construction();
    void directoryAndFileMadeOnFirstUse();
    void flushAloneCreatesFile();
    void recordFormat_data();
    void recordFormat();
    void appendsToAnExistingFile();
    void notSizeLimitedNeverBacksUp();
    void limitBoundary_data();
    void limitBoundary();
    void spaceNotCounted();
    void charactersCountedNotBytes();
    void entriesOfOneFlushAreSummed();
    void counterRestartsAfterRotation();
    void secondRotationReplacesBackup();
    void oversizedFileRotatesOnFirstFlush();
    void renameFailureTruncatesLiveLog();
    void clearLogEmptiesFileQueueAndBackup();
    void clearLogFailsWhenBackupCannotGo();
    void readLogAfterFlushOnly();
    void readLogBackupFirst();
    void readLogFileMissing();
    void readLogFileUnreadable();
    void copyLogToWithoutBackup();
    void copyLogToWithBackupCopiesBackupOnly();
    void copyLogToExistingTargetFails();
    void copyLogToDirectoryTargetFails();
    void flushWithEmptyQueueSyncs();
    void outputPathAlwaysValid();
    void everyQueuedEntrySignals();
    void refusedEntryDropped();
    void destructorFlushes();

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QScopedPointer<QTemporaryDir> m_directory;
    StatusEventRecorder* m_recorder = nullptr;
};

void tst_VfFileWriter::initTestCase()
{
    qRegisterMetaType<EntryPointer>();
    qRegisterMetaType<VfStatusChangeEvent>();
    VfCrosscuttingManagerPlaceholder::instance();
}

void tst_VfFileWriter::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_recorder = new StatusEventRecorder(this);
    m_recorder->attach();
}

void tst_VfFileWriter::cleanup()
{
    delete m_recorder;
    m_recorder = nullptr;
    m_directory.reset();
}

void tst_VfFileWriter::construction()
{
    const QDir directory(m_directory->path());
    VfFileWriter limited(directory, QStringLiteral("a.log"), VfDisplayable::ShortForm, true, 100,
                         QSharedPointer<VfErrorRateHandler>(), nullptr);
    QCOMPARE(limited.logName(), QStringLiteral("a.log"));
    QCOMPARE(limited.pathName(), directory);
    QVERIFY(limited.isCopyable());
    QVERIFY(limited.isTimedSaveEnabled());
    QCOMPARE(sizeof(VfDisplayable::DisplayFormat), sizeof(quint8));
    // The file is not opened, not even created, by the constructor.
    QVERIFY(!QFile::exists(path(QStringLiteral("a.log"))));
    // Signals in order, fully qualified.
    const QMetaObject& mo = VfFileWriter::staticMetaObject;
    QVERIFY(mo.indexOfSignal("backupLogFileCreated()") >= 0);
    QVERIFY(mo.indexOfSignal("errorAddedToOutstandingLogEntries(QSharedPointer<const Crosscutting::VfLogEntry>)")
            > mo.indexOfSignal("backupLogFileCreated()"));
}

void tst_VfFileWriter::directoryAndFileMadeOnFirstUse()
{
    const QString nested = path(QStringLiteral("deep/er/logs/"));
    VfFileWriter writer(QDir(nested), QStringLiteral("n.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QVERIFY(!QDir(nested).exists());
    QVERIFY(writer.writeToLog(entryCounting(10, 'a')));
    QVERIFY(QFile::exists(nested + QStringLiteral("n.log")));
    QCOMPARE(QFileInfo(nested + QStringLiteral("n.log")).size(), 0); // only queued so far
}

void tst_VfFileWriter::flushAloneCreatesFile()
{
    VfFileWriter writer(QDir(path(QStringLiteral("logs"))), QStringLiteral("e.log"), VfDisplayable::ShortForm, true,
                        1000, QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.flush();
    QVERIFY(QFile::exists(path(QStringLiteral("logs/e.log"))));
}

void tst_VfFileWriter::recordFormat_data()
{
    QTest::addColumn<int>("format");
    QTest::newRow("ShortForm") << int(VfDisplayable::ShortForm);
    QTest::newRow("ShortFormWithTimestamp") << int(VfDisplayable::ShortFormWithTimestamp);
    QTest::newRow("SingleLineLongForm") << int(VfDisplayable::SingleLineLongForm);
}

void tst_VfFileWriter::recordFormat()
{
    QFETCH(int, format);
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("r.log"), VfDisplayable::DisplayFormat(format),
                        false, 0, QSharedPointer<VfErrorRateHandler>(), nullptr);
    const auto context = QSharedPointer<VfSourceContext>(
        new VfSourceContext(QStringLiteral("Velmar Framework"), QStringLiteral("source.ext"), QStringLiteral("Ns"),
                            QStringLiteral("VfCls"), QStringLiteral("void fn(int)"), 305, QStringLiteral("Worker"),
                            QStringList{QStringLiteral("a1"), QStringLiteral("a2")}));
    const QString time = VfLogTest::timeText(context);
    QVERIFY(writer.writeToLog(EntryPointer(new VfLogEntry(context, Severity::CriticalError, "first\n"))));
    QVERIFY(writer.writeToLog(EntryPointer(new VfLogEntry(context, Severity::Warning, "no line end"))));
    writer.flush();
    // Built from Part 3.2's formats: the severity is not written and no line end is added.
    QString contextText;
    switch (format) {
    case VfDisplayable::ShortForm:
        contextText = QStringLiteral("[source.ext:305:Velmar Framework]");
        break;
    case VfDisplayable::ShortFormWithTimestamp:
        contextText = QStringLiteral("[%1 source.ext:305:Velmar Framework]").arg(time);
        break;
    default:
        contextText = QStringLiteral("[%1, Velmar Framework, source.ext, 305, Worker, Ns, VfCls, void fn(int), a1, a2]")
                          .arg(time);
    }
    const QString expected = contextText + QStringLiteral(" first\n") + contextText + QStringLiteral(" no line end");
    QCOMPARE(readFile(path(QStringLiteral("r.log"))), expected.toUtf8());
}

void tst_VfFileWriter::appendsToAnExistingFile()
{
    QVERIFY(writeFile(path(QStringLiteral("old.log")), "earlier run\n"));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("old.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    const EntryPointer entry = entryCounting(10, 'a');
    writer.writeToLog(entry);
    writer.flush();
    QCOMPARE(readFile(path(QStringLiteral("old.log"))), "earlier run\n" + recordOf(entry));
}

void tst_VfFileWriter::notSizeLimitedNeverBacksUp()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("u.log"), VfDisplayable::ShortForm, false, 10,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    QByteArray expected;
    for (int i = 0; i < 20; ++i) {
        const EntryPointer entry = entryCounting(30, char('a' + i));
        writer.writeToLog(entry);
        expected += recordOf(entry);
        if (i % 7 == 0)
            writer.flush();
    }
    writer.flush();
    QCOMPARE(rotations.count(), 0);
    QCOMPARE(readFile(path(QStringLiteral("u.log"))), expected);
    QVERIFY(!QFile::exists(path(QStringLiteral("u.log.bak"))));
    QCOMPARE(writer.readLog(), QString::fromUtf8(expected)); // one file
}

void tst_VfFileWriter::limitBoundary_data()
{
    QTest::addColumn<int>("counted");
    QTest::addColumn<bool>("rotates");
    QTest::newRow("10 fits (equality does not rotate)") << 10 << false;
    QTest::newRow("11 rotates") << 11 << true;
}

void tst_VfFileWriter::limitBoundary()
{
    QFETCH(int, counted);
    QFETCH(bool, rotates);
    const QByteArray filler(90, 'x');
    QVERIFY(writeFile(path(QStringLiteral("b.log")), filler));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("b.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer entry = entryCounting(counted, 'e');
    writer.writeToLog(entry);
    writer.flush();
    QCOMPARE(rotations.count(), rotates ? 1 : 0);
    if (rotates) {
        // The backup holds the text of before; the new file starts with the entry that tripped the limit.
        QCOMPARE(readFile(path(QStringLiteral("b.log.bak"))), filler);
        QCOMPARE(readFile(path(QStringLiteral("b.log"))), recordOf(entry));
    } else {
        QVERIFY(!QFile::exists(path(QStringLiteral("b.log.bak"))));
        QCOMPARE(readFile(path(QStringLiteral("b.log"))), filler + recordOf(entry));
    }
}

void tst_VfFileWriter::spaceNotCounted()
{
    // Part 4.4: kept as specified: the separator is not counted, so the file may pass the limit.
    QVERIFY(writeFile(path(QStringLiteral("s.log")), QByteArray(90, 'x')));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("s.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.writeToLog(entryCounting(10, 'e'));
    writer.flush();
    QCOMPARE(QFileInfo(path(QStringLiteral("s.log"))).size(), 101);
    QVERIFY(!QFile::exists(path(QStringLiteral("s.log.bak"))));
}

void tst_VfFileWriter::charactersCountedNotBytes()
{
    const QString message = QString(4, QChar(0x20AC)) + QLatin1Char('\n'); // 5 characters, more bytes
    QTextStream probe(stdout);
    if (probe.codec()->fromUnicode(message).size() == message.size())
        QSKIP("the default codec writes one byte per character here");
    QVERIFY(writeFile(path(QStringLiteral("m.log")), QByteArray(90, 'x')));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("m.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    writer.writeToLog(EntryPointer(new VfLogEntry(makeContext(), Severity::Notification, message)));
    writer.flush();
    // Counted 10 characters: no rotation, though the bytes pass the limit.
    QCOMPARE(rotations.count(), 0);
    QVERIFY(QFileInfo(path(QStringLiteral("m.log"))).size() > 101);
}

void tst_VfFileWriter::entriesOfOneFlushAreSummed()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("sum.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer a = entryCounting(40, 'a');
    const EntryPointer b = entryCounting(40, 'b');
    const EntryPointer c = entryCounting(40, 'c');
    writer.writeToLog(a);
    writer.writeToLog(b);
    writer.writeToLog(c);
    writer.flush();
    // Each fits alone; 40 + 40 + 40 passes 100 at the third.
    QCOMPARE(rotations.count(), 1);
    QCOMPARE(readFile(path(QStringLiteral("sum.log.bak"))), recordOf(a) + recordOf(b));
    QCOMPARE(readFile(path(QStringLiteral("sum.log"))), recordOf(c));
}

void tst_VfFileWriter::counterRestartsAfterRotation()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("c.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer a = entryCounting(60, 'a');
    const EntryPointer b = entryCounting(60, 'b');
    const EntryPointer c = entryCounting(30, 'c');
    const EntryPointer d = entryCounting(20, 'd');
    for (const EntryPointer& entry : {a, b, c, d})
        writer.writeToLog(entry);
    writer.flush();
    // a (60) fits; b makes 120: rotate, counter = 60; c makes 90: fits; d makes 110: rotate again.
    QCOMPARE(rotations.count(), 2);
    QCOMPARE(readFile(path(QStringLiteral("c.log.bak"))), recordOf(b) + recordOf(c));
    QCOMPARE(readFile(path(QStringLiteral("c.log"))), recordOf(d));
}

void tst_VfFileWriter::secondRotationReplacesBackup()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("two.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer a = entryCounting(70, 'a');
    const EntryPointer b = entryCounting(70, 'b');
    const EntryPointer c = entryCounting(70, 'c');
    writer.writeToLog(a);
    writer.flush();
    writer.writeToLog(b);
    writer.flush();
    QCOMPARE(rotations.count(), 1);
    QCOMPARE(readFile(path(QStringLiteral("two.log.bak"))), recordOf(a));
    writer.writeToLog(c);
    writer.flush();
    QCOMPARE(rotations.count(), 2);
    QCOMPARE(readFile(path(QStringLiteral("two.log.bak"))), recordOf(b)); // the older backup is lost
    QCOMPARE(readFile(path(QStringLiteral("two.log"))), recordOf(c));
}

void tst_VfFileWriter::oversizedFileRotatesOnFirstFlush()
{
    const QByteArray filler(150, 'x');
    QVERIFY(writeFile(path(QStringLiteral("big.log")), filler));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("big.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer a = entryCounting(10, 'a');
    const EntryPointer b = entryCounting(10, 'b');
    writer.writeToLog(a);
    writer.writeToLog(b);
    writer.flush();
    QCOMPARE(rotations.count(), 1);
    QCOMPARE(readFile(path(QStringLiteral("big.log.bak"))), filler);
    QCOMPARE(readFile(path(QStringLiteral("big.log"))), recordOf(a) + recordOf(b));
}

void tst_VfFileWriter::renameFailureTruncatesLiveLog()
{
    // A non-empty directory where the backup goes: neither removed nor replaced by the rename.
    QVERIFY(QDir(m_directory->path()).mkpath(QStringLiteral("r.log.bak/keep")));
    QVERIFY(writeFile(path(QStringLiteral("r.log")), QByteArray(95, 'x')));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("r.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy rotations(&writer, &VfFileWriter::backupLogFileCreated);
    const EntryPointer entry = entryCounting(10, 'e');
    writer.writeToLog(entry);
    writer.flush();
    // Part 4.4: kept as specified: the reopen truncates the live log; the old text is gone.
    QCOMPARE(rotations.count(), 1);
    QCOMPARE(readFile(path(QStringLiteral("r.log"))), recordOf(entry));
    QVERIFY(QFileInfo(path(QStringLiteral("r.log.bak"))).isDir());
}

void tst_VfFileWriter::clearLogEmptiesFileQueueAndBackup()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("cl.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.writeToLog(entryCounting(70, 'a'));
    writer.writeToLog(entryCounting(70, 'b'));
    writer.flush();
    QVERIFY(QFile::exists(path(QStringLiteral("cl.log.bak"))));
    QVERIFY(QFileInfo(path(QStringLiteral("cl.log"))).size() > 0);
    writer.writeToLog(entryCounting(20, 'q')); // queued, never written
    QVERIFY(writer.clearLog());
    QCOMPARE(QFileInfo(path(QStringLiteral("cl.log"))).size(), 0);
    QVERIFY(!QFile::exists(path(QStringLiteral("cl.log.bak"))));
    writer.flush();
    QCOMPARE(readFile(path(QStringLiteral("cl.log"))), QByteArray());
    // Writing goes on in the emptied file.
    const EntryPointer after = entryCounting(12, 'z');
    writer.writeToLog(after);
    writer.flush();
    QCOMPARE(readFile(path(QStringLiteral("cl.log"))), recordOf(after));
}

void tst_VfFileWriter::clearLogFailsWhenBackupCannotGo()
{
    QVERIFY(QDir(m_directory->path()).mkpath(QStringLiteral("f.log.bak/keep")));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("f.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.writeToLog(entryCounting(20, 'a'));
    writer.flush();
    // The file is emptied, but the result is ANDed with the failed removal.
    QVERIFY(!writer.clearLog());
    QCOMPARE(QFileInfo(path(QStringLiteral("f.log"))).size(), 0);
}

void tst_VfFileWriter::readLogAfterFlushOnly()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("rd.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    const EntryPointer entry = entryCounting(15, 'r');
    writer.writeToLog(entry);
    QCOMPARE(writer.readLog(), QString()); // no lock, no flush
    writer.flush();
    QCOMPARE(writer.readLog(), QString::fromUtf8(recordOf(entry)));
}

void tst_VfFileWriter::readLogBackupFirst()
{
    QVERIFY(writeFile(path(QStringLiteral("o.log.bak")), "older\n"));
    QVERIFY(writeFile(path(QStringLiteral("o.log")), "newer\n"));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("o.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QCOMPARE(writer.readLog(), QStringLiteral("older\nnewer\n"));
    VfFileWriter unlimited(QDir(m_directory->path()), QStringLiteral("o.log"), VfDisplayable::ShortForm, false, 0,
                           QSharedPointer<VfErrorRateHandler>(), nullptr);
    QCOMPARE(unlimited.readLog(), QStringLiteral("newer\n")); // no backup without a size limit
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_VfFileWriter::readLogFileMissing()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("x.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    const QString missing = path(QStringLiteral("missing.txt"));
    QCOMPARE(writer.readLogFile(missing), QString());
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileNotFound});
    QCOMPARE(m_recorder->events.first().sourceContext()->additionalInfo(), QStringList{missing});
    QCOMPARE(m_recorder->events.first().sourceContext()->sourceFilename(), QStringLiteral("vffilewriter.cpp"));
    QCOMPARE(m_recorder->events.first().sourceContext()->sourceFunction(),
             QStringLiteral("const QString readLogFile(const QString&)"));
    QCOMPARE(m_recorder->events.first().sourceContext()->sourceClass(), QStringLiteral("VfFileWriter"));
    // readLog of a writer whose file does not exist yet reports the same.
    m_recorder->events.clear();
    QCOMPARE(writer.readLog(), QString());
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileNotFound});
}

void tst_VfFileWriter::readLogFileUnreadable()
{
    // A directory exists but cannot be opened as a file, even by root.
    const QString directoryPath = path(QStringLiteral("adir"));
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("adir")));
    QFile probe(directoryPath);
    QVERIFY(!probe.open(QIODevice::ReadOnly | QIODevice::Text));
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("x.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QCOMPARE(writer.readLogFile(directoryPath), QString());
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileCannotOpen});
    QCOMPARE(m_recorder->descriptions().first(), QStringLiteral("%1, %2").arg(directoryPath, probe.errorString()));
}

void tst_VfFileWriter::copyLogToWithoutBackup()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("cp.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    const EntryPointer entry = entryCounting(20, 'c');
    writer.writeToLog(entry); // copyLogTo flushes first
    const QString target = path(QStringLiteral("copy.txt"));
    QVERIFY(writer.copyLogTo(QDir(target))); // the QDir names the target file
    QCOMPARE(readFile(target), recordOf(entry));
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_VfFileWriter::copyLogToWithBackupCopiesBackupOnly()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("cb.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    const EntryPointer a = entryCounting(70, 'a');
    const EntryPointer b = entryCounting(70, 'b');
    writer.writeToLog(a);
    writer.writeToLog(b);
    const QString target = path(QStringLiteral("copy.txt"));
    // Part 4.4: kept as specified: the current file is read through the write-only device, which gives nothing.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^QIODevice::read .*WriteOnly device")));
    QVERIFY(writer.copyLogTo(QDir(target)));
    QCOMPARE(readFile(path(QStringLiteral("cb.log"))), recordOf(b));
    QCOMPARE(readFile(target), recordOf(a)); // the backup alone
    QVERIFY(m_recorder->events.isEmpty());
}

void tst_VfFileWriter::copyLogToExistingTargetFails()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("ex.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.writeToLog(entryCounting(20, 'c'));
    const QString target = path(QStringLiteral("exists.txt"));
    QVERIFY(writeFile(target, "keep me"));
    QVERIFY(!writer.copyLogTo(QDir(target)));
    QCOMPARE(readFile(target), QByteArray("keep me")); // QFile::copy never overwrites
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
    QCOMPARE(m_recorder->events.first().sourceContext()->additionalInfo(),
             (QStringList{path(QStringLiteral("ex.log")), target}));
    QCOMPARE(m_recorder->events.first().sourceContext()->sourceFunction(),
             QStringLiteral("virtual bool copyLogTo(const QDir&)"));
}

void tst_VfFileWriter::copyLogToDirectoryTargetFails()
{
    // With a backup, the failing copy is that of the backup.
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("dt.log"), VfDisplayable::ShortForm, true, 100,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writer.writeToLog(entryCounting(70, 'a'));
    writer.writeToLog(entryCounting(70, 'b'));
    writer.flush();
    const QString target = path(QStringLiteral("targetdir"));
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("targetdir")));
    QVERIFY(!writer.copyLogTo(QDir(target)));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
    QCOMPARE(m_recorder->events.first().sourceContext()->additionalInfo(),
             (QStringList{path(QStringLiteral("dt.log.bak")), target}));
    // Without a backup, the failing copy is that of the log file.
    m_recorder->events.clear();
    VfFileWriter plain(QDir(m_directory->path()), QStringLiteral("pl.log"), VfDisplayable::ShortForm, true, 1000,
                       QSharedPointer<VfErrorRateHandler>(), nullptr);
    plain.writeToLog(entryCounting(20, 'p'));
    QVERIFY(!plain.copyLogTo(QDir(target)));
    QCOMPARE(m_recorder->codes(), QList<StatusCode>{VfStatusCodes::FileCannotCopy});
    QCOMPARE(m_recorder->events.first().sourceContext()->additionalInfo(),
             (QStringList{path(QStringLiteral("pl.log")), target}));
}

void tst_VfFileWriter::flushWithEmptyQueueSyncs()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("sy.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    int before = VfLogTest::syncCalls;
    writer.flush();
    QCOMPARE(VfLogTest::syncCalls - before, 1);
    before = VfLogTest::syncCalls;
    writer.writeToLog(entryCounting(20, 'a'));
    QCOMPARE(VfLogTest::syncCalls - before, 0); // queueing touches no disk
    writer.flush();
    writer.flush();
    QCOMPARE(VfLogTest::syncCalls - before, 2);
}

void tst_VfFileWriter::outputPathAlwaysValid()
{
    // A regular file where the directory should be: neither directory nor file can be made.
    QVERIFY(writeFile(path(QStringLiteral("blocker")), "file"));
    const QString directory = path(QStringLiteral("blocker/logs"));
    VfFileWriter writer(QDir(directory), QStringLiteral("w.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    // Part 4.4: kept as specified: isOutputPathValid is true although the open failed.
    QVERIFY(writer.isOutputPathValid());
    QVERIFY(writer.writeToLog(entryCounting(20, 'a')));
    QVERIFY(!QFile::exists(directory + QStringLiteral("/w.log")));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("device not open")));
    writer.flush(); // the queued entry goes nowhere
    // Retried at each use: once the obstacle is gone the next use opens the file.
    QVERIFY(QFile::remove(path(QStringLiteral("blocker"))));
    const EntryPointer later = entryCounting(20, 'b');
    QVERIFY(writer.writeToLog(later));
    QVERIFY(QFile::exists(directory + QStringLiteral("/w.log")));
    writer.flush();
    QCOMPARE(readFile(directory + QStringLiteral("/w.log")), recordOf(later));
}

void tst_VfFileWriter::everyQueuedEntrySignals()
{
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("sg.log"), VfDisplayable::ShortForm, true, 1000,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    QSignalSpy spy(&writer, &VfFileWriter::errorAddedToOutstandingLogEntries);
    for (int value = 0; value <= 4; ++value) {
        const EntryPointer entry(new VfLogEntry(makeContext(), Severity(value), QStringLiteral("m\n")));
        writer.writeToLog(entry);
        QCOMPARE(spy.count(), value + 1);
        QCOMPARE(qvariant_cast<EntryPointer>(spy.last().at(0)).data(), entry.data());
    }
}

void tst_VfFileWriter::refusedEntryDropped()
{
    QSharedPointer<VfErrorRateHandler> handler(new VfErrorRateHandler(0, 10, nullptr)); // refuses everything
    VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("rf.log"), VfDisplayable::ShortForm, true, 1000,
                        handler, nullptr);
    QSignalSpy spy(&writer, &VfFileWriter::errorAddedToOutstandingLogEntries);
    QVERIFY(!writer.writeToLog(entryCounting(20, 'a')));
    writer.flush();
    QCOMPARE(spy.count(), 0);
    QCOMPARE(readFile(path(QStringLiteral("rf.log"))), QByteArray());
    QVERIFY(m_recorder->events.isEmpty()); // no report here (Part 4.4)
}

void tst_VfFileWriter::destructorFlushes()
{
    const EntryPointer entry = entryCounting(20, 'd');
    const int before = VfLogTest::syncCalls;
    {
        VfFileWriter writer(QDir(m_directory->path()), QStringLiteral("d.log"), VfDisplayable::ShortForm, true, 1000,
                            QSharedPointer<VfErrorRateHandler>(), nullptr);
        writer.writeToLog(entry);
    }
    QCOMPARE(VfLogTest::syncCalls - before, 1);
    QCOMPARE(readFile(path(QStringLiteral("d.log"))), recordOf(entry));
}

QTEST_GUILESS_MAIN(tst_VfFileWriter)
#include "tst_vffilewriter.moc"
