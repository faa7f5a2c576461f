#pragma once

#include <QLoggingCategory>
#include <QString>

namespace tamvex {

/// The one logging category of the system: "com.dovra.tamv.Tamvex".
Q_DECLARE_LOGGING_CATEGORY(lcTamvex)

/// Writes one line at info level.
void logInfo(const QString& line);
/// Writes one line at error level.
void logError(const QString& line);

} // namespace tamvex
