#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex mic-test [--seconds N] [--audio-input FILE] [--device ID] [--list-devices] [--json]`:
/// records through the real recorder for N seconds (3 by default), reading the level every
/// 0.06 s, and prints the file, its duration, its peak and whether the drop rules would keep
/// it. `args` are the words after "mic-test". Returns the process exit code: 0 recorded,
/// 1 the recording could not be made, 2 a wrong command line. Needs a running Qt application.
int runMicTest(const QStringList& args, QTextStream& out, QTextStream& err);

} // namespace tamvex
