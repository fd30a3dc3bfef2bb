#ifndef VFLOGTESTHELPERS_H
#define VFLOGTESTHELPERS_H

// Shared by the logging tests (Parts 4.1-4.6): contexts, standard output capture, a sync() probe and
// access to the log manager's tables. Header-only: each test program is one translation unit.

#include "vfabstractlogwriter.h"
#include "vferrorratehandler.h"
#include "vflogmanager.h"
#include "vfsourcecontext.h"

#include <QByteArray>
#include <QFile>
#include <QSharedPointer>
#include <QTemporaryFile>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <functional>

#include <dlfcn.h>
#include <unistd.h>

Q_DECLARE_METATYPE(QSharedPointer<Crosscutting::VfSourceContext>)

namespace VfLogTest {

using Crosscutting::VfSourceContext;

// A context built directly, so every field is known to the test.
inline QSharedPointer<VfSourceContext> makeContext(const QString& sourceNamespace = QString(),
                                                   const QString& sourceClass = QString(),
                                                   const QString& module = QString(),
                                                   const QString& fileName = QStringLiteral("f"),
                                                   unsigned long long line = 1,
                                                   const QStringList& additionalInfo = QStringList())
{
    return QSharedPointer<VfSourceContext>(new VfSourceContext(module, fileName, sourceNamespace, sourceClass,
                                                               QStringLiteral("void f()"), line, QString(),
                                                               additionalInfo));
}

// Runs `action` with file descriptor 1 redirected to a temporary file and returns what reached it.
inline QByteArray captureStdout(const std::function<void()>& action)
{
    std::fflush(stdout);
    QTemporaryFile file;
    if (!file.open())
        qFatal("captureStdout: no temporary file");
    const int saved = ::dup(1);
    ::dup2(file.handle(), 1);
    action();
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
    QFile reader(file.fileName());
    if (!reader.open(QIODevice::ReadOnly))
        qFatal("captureStdout: cannot read back");
    return reader.readAll();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

inline bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(data) == data.size();
}

// The time text of Part 3.2, made by the test from the context's own timestamp.
inline QString timeText(const QSharedPointer<VfSourceContext>& context)
{
    return context->timestamp().toString(QStringLiteral("MM-dd-yy hh:mm:ss.zzz AP"));
}

} // namespace VfLogTest

#ifdef VF_LOGTEST_COUNT_SYNC
// Interposes the library's call of sync() (Part 4.4) to count it; the real sync() still runs.
namespace VfLogTest {
inline std::atomic<int> syncCalls{0};
}
extern "C" void sync(void) __THROW
{
    ++VfLogTest::syncCalls;
    using SyncFunction = void (*)();
    static const SyncFunction realSync = reinterpret_cast<SyncFunction>(dlsym(RTLD_NEXT, "sync"));
    if (realSync)
        realSync();
}
#endif

namespace Crosscutting {

// Reaches the log manager's private tables (friend of VfLogManager), for tests only.
class VfLogManagerTestAccess
{
public:
    static VfLog* log(VfLogManager& manager, VfLogType type) { return manager.m_logs.value(type); }
    static QTimer& flushTimer(VfLogManager& manager) { return manager.m_flushTimer; }
    static QHash<VfLogDestination, VfAbstractLogWriter*>& writers(VfLogManager& manager)
    {
        return manager.m_writers;
    }
    static unsigned int destinations(VfLogManager& manager, VfLogType type)
    {
        return manager.m_destinations.value(type, 0);
    }
    // Swaps the writer of `destination` for `writer` (owned by the manager from now), keeping the connections.
    static void replaceWriter(VfLogManager& manager, VfLogDestination destination, VfAbstractLogWriter* writer)
    {
        QList<VfLogType> connected;
        const QList<VfLogType> types = manager.m_logs.keys();
        for (VfLogType type : types) {
            if (manager.m_destinations.value(type, 0) & destination) {
                manager.updateWriter(manager.m_logs.value(type), type, destination, false);
                connected.append(type);
            }
        }
        delete manager.m_writers.value(destination);
        manager.m_writers[destination] = writer;
        for (VfLogType type : qAsConst(connected))
            manager.updateWriter(manager.m_logs.value(type), type, destination, true);
    }
};

// Reaches the bucket's fields (friend of VfErrorRateHandler), for tests only.
class VfErrorRateHandlerTestAccess
{
public:
    static quint32& lastUpdateTime(VfErrorRateHandler& handler) { return handler.m_lastUpdateTime; }
    static quint64& allowedErrors(VfErrorRateHandler& handler) { return handler.m_allowedErrors; }
    static quint64 maxErrors(VfErrorRateHandler& handler) { return handler.m_maxErrors; }
    static quint64 timeInterval(VfErrorRateHandler& handler) { return handler.m_timeInterval; }
};

} // namespace Crosscutting

#endif // VFLOGTESTHELPERS_H
