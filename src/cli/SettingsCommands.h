#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex settings get [KEY]` and `tamvex settings set KEY VALUE`; `args` starts after
/// the word "settings". A VALUE of "-" is the first line of standard input.
int runSettingsCommand(const QStringList& args, QTextStream& out, QTextStream& err);
/// The same, reading standard input from `in`.
int runSettingsCommand(const QStringList& args, QTextStream& in, QTextStream& out, QTextStream& err);

} // namespace tamvex
