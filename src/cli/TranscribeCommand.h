#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex transcribe FILE [--preset P] [--json] [--timeout SEC]`: one audio file through the
/// pipeline a dictation would use (the stored preset, or P without storing it), under the
/// dictation's time limit. Prints the text, or with --json the text, usage, preset and
/// latency. Writes no history and pastes nothing. `args` start after the word "transcribe".
/// Returns 0, 1 on a failure (the Russian message on `err`), 2 on misuse.
int runTranscribeCommand(const QStringList& args, QTextStream& out, QTextStream& err);

} // namespace tamvex
