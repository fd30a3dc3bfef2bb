#ifndef VFABSTRACTLOGWRITER_H
#define VFABSTRACTLOGWRITER_H

#include "vfcrosscutting_export.h"
#include "vflogentry.h"

#include <QDir>
#include <QObject>
#include <QSharedPointer>
#include <QString>

namespace Crosscutting {

// A named sink that a VfLog is connected to (Part 4.3).
class VFCROSSCUTTING_EXPORT VfAbstractLogWriter : public QObject
{
    Q_OBJECT
public:
    VfAbstractLogWriter(QString const& logName, QObject* parent);
    ~VfAbstractLogWriter() override;

    virtual void flush() = 0;
    virtual bool clearLog() = 0;
    virtual bool isCopyable() const;
    virtual bool copyLogTo(QDir const& directory) = 0;
    virtual bool isTimedSaveEnabled() const;
    virtual QString readLog();

    QString logName() const;

public slots:
    virtual bool writeToLog(QSharedPointer<const Crosscutting::VfLogEntry> logEntry) = 0;

private:
    QString m_logName;
};

} // namespace Crosscutting

#endif // VFABSTRACTLOGWRITER_H
