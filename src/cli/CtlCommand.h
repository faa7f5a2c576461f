#pragma once

#include <QDBusConnection>
#include <QStringList>
#include <QTextStream>

namespace tamvex {

/// `tamvex ctl press|release|toggle`: drives the running instance over the session bus.
/// `args` start after the word "ctl". Returns 0 on success, 1 when no instance runs or the
/// call failed, 2 on a usage error; messages go to `err` in Russian.
int runCtlCommand(const QStringList& args, QTextStream& out, QTextStream& err,
                  QDBusConnection bus = QDBusConnection::sessionBus());

} // namespace tamvex
