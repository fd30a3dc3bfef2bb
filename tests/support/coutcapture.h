#ifndef COUTCAPTURE_H
#define COUTCAPTURE_H

#include <QByteArray>

#include <iostream>
#include <sstream>

// Collects what std::cout receives while it lives (the mutex diagnostics print there).
class CoutCapture
{
public:
    CoutCapture()
        : m_previous(std::cout.rdbuf(m_buffer.rdbuf()))
    {
    }
    ~CoutCapture() { std::cout.rdbuf(m_previous); }
    CoutCapture(const CoutCapture&) = delete;
    CoutCapture& operator=(const CoutCapture&) = delete;
    QByteArray text() const { return QByteArray::fromStdString(m_buffer.str()); }

private:
    std::ostringstream m_buffer;
    std::streambuf* m_previous;
};

#endif // COUTCAPTURE_H
