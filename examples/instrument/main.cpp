// instrument-demo: embeds VfCrosscutting the way the instrument's framework does. It reports a
// handful of statuses from the main thread and a worker, logs events, routes Qt messages, runs
// its event loop so that the timer flushes the logs, and prints what landed in the files.
#include "instrumentstatuscodes.h"

#include <vfcrosscutting.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <cstdlib>

using namespace Crosscutting;

namespace {

const char* const BackTracePath = "/etc/tarvion/logs/backTrace";
const char* const BackTraceDemangledPath = "/etc/tarvion/logs/backTraceDemangled";

void printFile(const QString& path)
{
    QFile file(path);
    std::printf("\n==== %s ====\n", qPrintable(path));
    if (!file.open(QIODevice::ReadOnly)) {
        std::printf("(missing: %s)\n", qPrintable(file.errorString()));
        return;
    }
    const QByteArray content = file.readAll();
    std::fwrite(content.constData(), 1, size_t(content.size()), stdout);
    if (!content.endsWith('\n'))
        std::printf("\n");
}

// The crash handler leaves through exit(0), so atexit handlers run: that is where
// the demo shows what the crash left behind.
void printBacktraceFiles()
{
    std::fflush(stdout);
    printFile(QString::fromLatin1(BackTracePath));
    printFile(QString::fromLatin1(BackTraceDemangledPath));
    std::fflush(stdout);
}

} // namespace

namespace Demo {

// A piece of instrument software that reports through the library.
class Instrument : public QObject
{
    Q_OBJECT
public:
    StatusCode calibrate(const QString& file)
    {
        if (!QFile::exists(file))
            return REPORT_STATUS(VfStatusCodes::FileNotFound, file);
        return VfStatusCodes::Success;
    }

    StatusCode runSelfTest()
    {
        // One argument where the catalogue's text has two markers: the library reports
        // ReportStatusInvalidArgCount first, then the report itself with "%2" left in.
        return REPORT_STATUS(VfStatusCodes::CommandFailed, QStringLiteral("selftest --full"));
    }

    StatusCode measure(double reading)
    {
        // A code of the application's own catalogue, on the same road as the library's.
        if (reading > 100.0)
            return REPORT_STATUS(InstrumentStatusCodes::SensorOverrange, QString::number(reading), QStringLiteral("T1"));
        return VfStatusCodes::Success;
    }

    StatusCode reportVendorCode()
    {
        // A code that no catalogue knows.
        return REPORT_STATUS(4242);
    }

    void logEvent(const QString& text)
    {
        QSharedPointer<VfSourceContext> context(
            &createSourceContext(QString(), QStringLiteral(__FILE__), __LINE__, QString::fromLatin1(Q_FUNC_INFO), {}));
        VfCrosscuttingManagerPlaceholder::instance()->logManager()->addLogEntry(
            context, VfStaticStatusInfo::VfStatusSeverity::Notification, text + QLatin1Char('\n'), EventLog);
    }
};

} // namespace Demo

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("instrument-demo"));
    QThread::currentThread()->setObjectName(MainThread);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Example instrument application for VfCrosscutting."));
    parser.addHelpOption();
    QCommandLineOption secondsOption(QStringLiteral("seconds"),
                                     QStringLiteral("Run the event loop this long, so the timer flushes (default 6)."),
                                     QStringLiteral("seconds"), QStringLiteral("6"));
    QCommandLineOption crashOption(QStringLiteral("crash"), QStringLiteral("Raise SIGFPE once the reports are made."));
    parser.addOption(secondsOption);
    parser.addOption(crashOption);
    parser.process(app);
    const int seconds = parser.value(secondsOption).toInt();

    // What the framework does at start-up: Qt may queue status events to the log manager's thread.
    qRegisterMetaType<VfStatusChangeEvent>();
    qInstallMessageHandler(logMessageHandler);
    VfCrosscuttingManagerPlaceholder::instance()->initializePlatformSpecificFunctionality();

    // The application's own status codes, loaded once before anything reports them.
    const QString catalogue = QStringLiteral(":/configuration/instrumentstatuscodes.json");
    if (VfCrosscuttingManagerPlaceholder::instance()->statusReporter()->loadApplicationStatusCodes(
            catalogue, Demo::InstrumentStatusCodes::staticMetaObject, "InstrumentStatusCode") != 0)
        return 1;
    std::printf("instrument: status codes of its own loaded from %s\n", qPrintable(catalogue));

    // SIGINT and SIGTERM end the demo cleanly through the event loop.
    VfUnixSignalHandler signalHandler({{SIGINT, [](int) { QCoreApplication::quit(); }},
                                       {SIGTERM, [](int) { QCoreApplication::quit(); }}},
                                      nullptr);

    // A fresh sandbox has no identity files: the store reports the failed reads and runs on with
    // the default model. The demo then gives the instrument an identity, through the remount road.
    VfSystemIdentity* identity = VfCrosscuttingManagerPlaceholder::instance()->systemIdentity();
    if (identity->model() == QLatin1String("UNKNOWN")) {
        identity->setModel(QStringLiteral("spa"), true);
        identity->setUnitName(QStringLiteral("Bench unit 7"));
        identity->setFirmwareVersion(QStringLiteral("1.0.0-demo"));
    }
    std::printf("instrument: model %s, unit name \"%s\", firmware %s\n", qPrintable(identity->model()),
                qPrintable(identity->unitName()), qPrintable(identity->firmwareVersion()));
    for (const VfStorageInfo& volume : VfStorageInfo::mountedVolumes()) {
        std::printf("volume %-10s %-20s total %lld bytes, free %lld bytes\n", qPrintable(volume.aliasName()),
                    qPrintable(volume.rootPath()), static_cast<long long>(volume.bytesTotal()),
                    static_cast<long long>(volume.bytesFree()));
    }
    std::fflush(stdout);

    Demo::Instrument instrument;
    instrument.logEvent(QStringLiteral("instrument-demo started"));
    instrument.calibrate(QStringLiteral("/opt/tarvion/data/calibration.xml"));
    instrument.runSelfTest();
    instrument.measure(104.5);
    instrument.reportVendorCode();

    QThread* worker = QThread::create([&instrument] {
        instrument.calibrate(QStringLiteral("/opt/tarvion/data/worker-calibration.xml"));
        qWarning("worker thread: calibration data missing");
    });
    worker->setObjectName(TaskProcessor);
    worker->start();
    worker->wait();
    delete worker;

    qDebug("demo: debug message from the application");
    qInfo("demo: info message");
    qCritical("demo: critical message");
    instrument.logEvent(QStringLiteral("reports made, waiting for the flush"));

    if (parser.isSet(crashOption)) {
        VfCrosscuttingManagerPlaceholder::instance()->logManager()->forceFlushAllLogs(); // makes the log directory
        std::atexit(printBacktraceFiles);
        std::printf("instrument: raising SIGFPE\n");
        std::fflush(stdout);
        std::raise(SIGFPE);
    }

    QTimer::singleShot(seconds * 1000, &app, &QCoreApplication::quit);
    std::printf("instrument: event loop runs for %d s (SIGINT or SIGTERM ends it sooner)\n", seconds);
    std::fflush(stdout);
    const int result = app.exec();

    instrument.logEvent(QStringLiteral("instrument-demo stopping"));
    const QString logDirectory = VfPlatformInfo::systemDataRootPath() + QStringLiteral("/logs/");
    qInstallMessageHandler(nullptr);
    VfCrosscuttingManagerPlaceholder::drop();

    printFile(logDirectory + QStringLiteral("velmar.log"));
    printFile(logDirectory + QStringLiteral("event.log"));
    return result;
}

#include "main.moc"
