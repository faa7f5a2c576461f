#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex settings get [KEY]` and `tamvex settings set KEY VALUE`; `args` starts after
/// the word "settings".
int runSettingsCommand(const QStringList& args, QTextStream& out, QTextStream& err);

} // namespace tamvex
