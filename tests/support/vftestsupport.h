#ifndef VFTESTSUPPORT_H
#define VFTESTSUPPORT_H

#include <QString>

// Small helpers shared by the test programs (tests/README.md).
namespace VfTest {

// True when the program runs inside tests/sandbox-run, with tmpfs over the fixed roots.
bool isSandboxed();

// Writes an executable shell script named `name` into `directory` (created if needed) and
// returns its path. Tests put such fakes first on PATH with prependToPath.
QString writeFakeProgram(const QString& directory, const QString& name, const QString& script);

// Puts `directory` first on PATH of this process (and so of its children).
void prependToPath(const QString& directory);

} // namespace VfTest

#endif // VFTESTSUPPORT_H
