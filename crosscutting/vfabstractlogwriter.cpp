#include "vfabstractlogwriter.h"

namespace Crosscutting {

VfAbstractLogWriter::VfAbstractLogWriter(QString const& logName, QObject* parent)
    : QObject(parent)
    , m_logName(logName)
{
}

VfAbstractLogWriter::~VfAbstractLogWriter() = default;

bool VfAbstractLogWriter::isCopyable() const
{
    return false;
}

bool VfAbstractLogWriter::isTimedSaveEnabled() const
{
    return true;
}

QString VfAbstractLogWriter::readLog()
{
    return QString();
}

QString VfAbstractLogWriter::logName() const
{
    return m_logName;
}

} // namespace Crosscutting
