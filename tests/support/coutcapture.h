#ifndef COUTCAPTURE_H
#define COUTCAPTURE_H

#include <QByteArray>

#include <iostream>
#include <sstream>

// Collects what std::cout receives while it lives (the mutex diagnostics print there).
struct CoutCapture
{
    std::ostringstream buffer;
    std::streambuf* const previous = std::cout.rdbuf(buffer.rdbuf());
    ~CoutCapture() { std::cout.rdbuf(previous); }
    QByteArray text() const { return QByteArray::fromStdString(buffer.str()); }
};

#endif // COUTCAPTURE_H
