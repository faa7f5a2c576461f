#pragma once

#include <QStringList>

namespace tamvex {

/// What the command line asks for.
struct CommandLineRequest {
    /// True when the desktop application is to start (no subcommand).
    bool startApplication = false;
    /// A file that replaces the microphone for the application (--audio-input).
    QString audioInputFile;
    /// Links (tamvex://...) handed to the application.
    QStringList forwardedArguments;
};

/// Parses the arguments (without the program name). Runs a subcommand at once and
/// returns its exit code, or returns -1 and fills `request` when the application is to start.
int runCommandLine(const QStringList& args, CommandLineRequest& request);

} // namespace tamvex
