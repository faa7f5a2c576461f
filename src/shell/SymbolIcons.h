#pragma once

#include <QColor>
#include <QIcon>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

/// Our own icons, one SVG per symbol under the QML module's icons/, named after the symbol
/// ("pawprint.fill"). Each is one path on a 24 by 24 grid, so QML can fill it in any colour.
class SymbolIcons : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
public:
    using QObject::QObject;
    /// The resource path of a symbol's SVG.
    static QString resourcePath(const QString& symbol);
    /// True when the symbol's SVG is among the resources.
    static bool exists(const QString& symbol);
    /// The path data of the symbol, empty when there is no such symbol.
    Q_INVOKABLE static QString pathData(const QString& symbol);
    /// True when the path fills by the even-odd rule (holes cut by inner shapes).
    Q_INVOKABLE static bool evenOdd(const QString& symbol);
    /// The symbol filled with `color`, drawn at 16, 32 and 64 pixels; null when absent. With
    /// an opaque `outline`, a halo of that colour rings the shape, so that it reads on a panel
    /// of either brightness.
    static QIcon icon(const QString& symbol, const QColor& color, const QColor& outline = Qt::transparent);
};

} // namespace tamvex
