#include "shell/SymbolIcons.h"

#include <QFile>
#include <QHash>
#include <QPainter>
#include <QPixmap>
#include <QRegularExpression>
#include <QSvgRenderer>

namespace tamvex {

namespace {
QByteArray readSymbol(const QString& symbol) {
    static QHash<QString, QByteArray> cache;
    auto it = cache.find(symbol);
    if (it == cache.end()) {
        QFile file(SymbolIcons::resourcePath(symbol));
        it = cache.insert(symbol, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return *it;
}
} // namespace

QString SymbolIcons::resourcePath(const QString& symbol) {
    return QStringLiteral(":/Tamvex/icons/") + symbol + QStringLiteral(".svg");
}

bool SymbolIcons::exists(const QString& symbol) {
    return !readSymbol(symbol).isEmpty();
}

QString SymbolIcons::pathData(const QString& symbol) {
    static const QRegularExpression d(QStringLiteral(R"re( d="([^"]*)")re"));
    return d.match(QString::fromUtf8(readSymbol(symbol))).captured(1);
}

bool SymbolIcons::evenOdd(const QString& symbol) {
    return readSymbol(symbol).contains("fill-rule=\"evenodd\"");
}

QIcon SymbolIcons::icon(const QString& symbol, const QColor& color, const QColor& outline) {
    const QByteArray svg = readSymbol(symbol);
    if (svg.isEmpty())
        return {};
    QByteArray filled = svg;
    filled.replace("<path ", "<path fill=\"" + color.name(QColor::HexRgb).toLatin1() + "\" ");
    QSvgRenderer renderer(filled);
    // The halo: the same shape, stroked wide in the outline colour, drawn first.
    QByteArray haloSvg = svg;
    const QByteArray outlineName = outline.name(QColor::HexRgb).toLatin1();
    haloSvg.replace("<path ", "<path fill=\"" + outlineName + "\" stroke=\"" + outlineName +
                                  "\" stroke-width=\"3\" stroke-linejoin=\"round\" ");
    QSvgRenderer halo(haloSvg);
    QIcon icon;
    for (int size : {16, 32, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        if (outline.alpha() > 0) {
            // Shrunk a little, so that the halo stays inside the icon's square.
            const qreal inset = size * 1.5 / 24;
            halo.render(&painter, QRectF(inset, inset, size - 2 * inset, size - 2 * inset));
            renderer.render(&painter, QRectF(inset, inset, size - 2 * inset, size - 2 * inset));
        } else {
            renderer.render(&painter);
        }
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace tamvex
