#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex history list [--limit N] [--json]`, `history show ID [--json]`, `history export --json`,
/// `history retry ID [--json]`. `args` start after the word "history". All but retry read the
/// database read-only; retry asks the running instance over D-Bus, or runs the retry itself
/// when none runs. Returns the exit code.
int runHistoryCommand(const QStringList& args, QTextStream& out, QTextStream& err);

/// `tamvex insights [--json] [--recompute]`: the cached snapshot, or a new one from the newest
/// page of the history. `args` start after the word "insights". Returns the exit code.
int runInsightsCommand(const QStringList& args, QTextStream& out, QTextStream& err);

} // namespace tamvex
