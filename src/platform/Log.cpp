#include "platform/Log.h"

namespace tamvex {

Q_LOGGING_CATEGORY(lcTamvex, "com.dovra.tamv.Tamvex", QtInfoMsg)

void logInfo(const QString& line) {
    qCInfo(lcTamvex).noquote() << line;
}

void logError(const QString& line) {
    qCCritical(lcTamvex).noquote() << line;
}

} // namespace tamvex
