#pragma once

#include <QString>
#include <QUrl>

class QQmlEngine;

namespace tamvex {

/// Makes the "Tamvex" QML module known to `engine`: its C++ types and its QML files.
void setUpQmlEngine(QQmlEngine& engine);

/// The URL of a file of the module, such as "Hud/HudWindow.qml".
QUrl qmlModuleUrl(const QString& relativePath);

} // namespace tamvex
