// Faults made for real inside the sandbox: a log whose file system fills, vanishes or cannot be
// written, rotation under large flushes, a crash while other threads log, df figures that overflow.
#include "helpers/vflogtesthelpers.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vffilewriter.h"
#include "vfstorageinfo.h"
#include "vftestsupport.h"

#include <QtTest>

#include <chrono>
#include <csignal>
#include <limits>
#include <malloc.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

using namespace Crosscutting;
using VfLogTest::makeContext;
using VfLogTest::readFile;
using EntryPointer = QSharedPointer<const VfLogEntry>;

namespace {

const char* const s_crashChild = "--crash-child";

EntryPointer entry(int number, int length)
{
    const QString text = QString::number(number) + QLatin1Char(' ');
    return EntryPointer(new VfLogEntry(makeContext(), VfStaticStatusInfo::VfStatusSeverity::Notification,
                                       text + QString(length - text.size() - 1, QLatin1Char('x')) + QLatin1Char('\n')));
}

// Queues count entries from first on, flushing after every batch; returns the records, as ShortForm writes them.
QByteArray writeEntries(VfFileWriter& writer, int first, int count, int batch, int length)
{
    QByteArray records;
    for (int number = first; number < first + count; ++number) {
        const EntryPointer logEntry = entry(number, length);
        writer.writeToLog(logEntry);
        records += "[f:1] " + logEntry->message().toUtf8();
        if ((number - first + 1) % batch == 0)
            writer.flush();
    }
    writer.flush();
    return records;
}

[[noreturn]] void logForever()
{
    for (int i = 0;; ++i) {
        REPORT_STATUS(VfStatusCodes::FileNotFound, QString::number(i));
        qDebug("routed %d", i);
    }
}

// The REPORT_STATUS and Qt message roads on the main thread and one more, while a worker raises SIGFPE.
[[noreturn]] void crashChild(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(&logMessageHandler);
    VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();
    std::thread second(&logForever);
    std::thread worker([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        raise(SIGFPE);
    });
    logForever();
}

} // namespace

class tst_LogFaults : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void writerRecoversFromWriteErrors_data();
    void writerRecoversFromWriteErrors();
    void backupFullWhateverTheBatching_data();
    void backupFullWhateverTheBatching();
    void crashWhileLoggingEndsWithStatusZero();
    void storageSizesSaturate_data();
    void storageSizesSaturate();
};

void tst_LogFaults::initTestCase()
{
    if (!VfTest::isSandboxed())
        QSKIP("needs tests/sandbox-run: mounts and /etc/tarvion");
}

void tst_LogFaults::writerRecoversFromWriteErrors_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("tmpfs of 64 KiB fills, then grows") << "full";
    QTest::newRow("log is a symlink to /dev/full, then a file") << "devfull";
    QTest::newRow("a directory in the log's place, then removed") << "directory";
}

void tst_LogFaults::writerRecoversFromWriteErrors()
{
    QFETCH(QString, fault);
    const QString directory = QStringLiteral("/etc/tarvion/faults/") + fault;
    const QString log = directory + QStringLiteral("/f.log");
    QDir(directory).removeRecursively();
    QVERIFY(QDir().mkpath(directory));
    if (fault == "full")
        QCOMPARE(::mount("vffull", qPrintable(directory), "tmpfs", 0, "size=64k"), 0);
    else if (fault == "devfull")
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), log));
    else
        QVERIFY(QDir().mkpath(log));
    VfFileWriter writer(QDir(directory), QStringLiteral("f.log"), VfDisplayable::ShortForm, true, 128 * 1024,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);

    // 2 MB of text while the writer cannot write: what it cannot write must not pile up in memory.
    writeEntries(writer, 0, 100, 100, 400);
    const size_t heapBefore = mallinfo2().uordblks;
    writeEntries(writer, 100, 5000, 500, 400);
    const qint64 heapGrowth = qint64(mallinfo2().uordblks) - qint64(heapBefore);
    QVERIFY2(heapGrowth < 512 * 1024, qPrintable(QStringLiteral("heap grew by %1 bytes").arg(heapGrowth)));
    // The text that fitted before the disk filled stays: no rotation moves an empty file over it.
    const qint64 kept = QFileInfo(log).size() + QFileInfo(log + ".bak").size();
    if (fault == "full")
        QVERIFY2(kept > 60000, qPrintable(QStringLiteral("%1 bytes kept").arg(kept)));

    if (fault == "full")
        QCOMPARE(::mount(nullptr, qPrintable(directory), nullptr, MS_REMOUNT, "size=64m"), 0);
    else
        QVERIFY(fault == "devfull" ? QFile::remove(log) : QDir(log).removeRecursively());
    const QByteArray written = writeEntries(writer, 10000, 100, 100, 400);
    const QByteArray text = readFile(log);
    int landed = 0;
    for (const QByteArray& record : written.split('\n'))
        landed += !record.isEmpty() && text.contains(record + '\n') ? 1 : 0;
    QCOMPARE(landed, 100);
    if (fault == "full")
        ::umount2(qPrintable(directory), MNT_DETACH);
}

void tst_LogFaults::backupFullWhateverTheBatching_data()
{
    QTest::addColumn<int>("batch");
    for (int batch : {1, 10, 100, 1000})
        QTest::addRow("%d entries per flush", batch) << batch;
}

void tst_LogFaults::backupFullWhateverTheBatching()
{
    QFETCH(int, batch);
    QTemporaryDir directory;
    VfFileWriter writer(QDir(directory.path()), QStringLiteral("r.log"), VfDisplayable::ShortForm, true, 65536,
                        QSharedPointer<VfErrorRateHandler>(), nullptr);
    writeEntries(writer, 0, 300, batch, 1500);
    const qint64 backup = QFileInfo(directory.filePath(QStringLiteral("r.log.bak"))).size();
    QVERIFY2(backup >= 65536 * 9 / 10, qPrintable(QStringLiteral("backup of %1 bytes").arg(backup)));
}

void tst_LogFaults::crashWhileLoggingEndsWithStatusZero()
{
    const QString backTrace = QStringLiteral("/etc/tarvion/logs/backTrace");
    QVERIFY(QDir().mkpath(QStringLiteral("/etc/tarvion/logs")));
    QStringList failures;
    for (int run = 0; run < 20; ++run) {
        QFile::remove(backTrace);
        QProcess child;
        child.setStandardOutputFile(QProcess::nullDevice());
        child.setStandardErrorFile(QProcess::nullDevice());
        child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(s_crashChild)});
        if (!child.waitForFinished(60000)) {
            child.kill();
            child.waitForFinished();
            failures << QStringLiteral("hung");
        } else if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0) {
            failures << QStringLiteral("signal or status %1").arg(child.exitCode());
        } else if (QFileInfo(backTrace).size() == 0) {
            failures << QStringLiteral("no backtrace");
        }
    }
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QStringLiteral(", "))));
}

void tst_LogFaults::storageSizesSaturate_data()
{
    QTest::addColumn<QString>("used");
    QTest::addColumn<QString>("available");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<qint64>("free");
    const qint64 max = std::numeric_limits<qint64>::max();
    QTest::newRow("sum and product overflow") << "9000000000000000000" << "9000000000000000000" << max << max;
    QTest::newRow("product overflows") << "9007199254740992" << "1" << max << qint64(1024);
    QTest::newRow("fits") << "1" << "2" << qint64(3072) << qint64(2048);
}

void tst_LogFaults::storageSizesSaturate()
{
    QFETCH(QString, used);
    QFETCH(QString, available);
    QFETCH(qint64, total);
    QFETCH(qint64, free);
    QTemporaryDir fakes;
    VfTest::writeFakeProgram(fakes.path(), QStringLiteral("df"),
                             QStringLiteral("echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                                            "echo '/dev/big 1 %1 %2 50% /media/usb/big'\n").arg(used, available));
    const QByteArray path = qgetenv("PATH");
    VfTest::prependToPath(fakes.path());
    const VfStorageInfo volume(QStringLiteral("/media/usb/big"), QStringLiteral("big"));
    const qint64 bytesTotal = volume.bytesTotal();
    const qint64 bytesFree = volume.bytesFree();
    qputenv("PATH", path);
    QCOMPARE(bytesTotal, total);
    QCOMPARE(bytesFree, free);
}

int main(int argc, char** argv)
{
    if (argc > 1 && qstrcmp(argv[1], s_crashChild) == 0)
        crashChild(argc, argv);
    QCoreApplication app(argc, argv);
    tst_LogFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logfaults.moc"
