#include "platform/Clipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace tamvex {

namespace {
// Targets of the X selection protocol itself, which Qt lists beside the data's types: they
// describe the selection, not its contents, and the new owner answers them on its own.
bool isSelectionProtocolTarget(const QString& format) {
    static const QStringList targets{"TARGETS", "MULTIPLE", "TIMESTAMP", "SAVE_TARGETS", "DELETE",
                                     "INSERT_SELECTION", "INSERT_PROPERTY"};
    return targets.contains(format);
}
} // namespace

ClipboardSnapshot SystemClipboard::snapshot() const {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data)
        return {};
    ClipboardItem item;
    const QStringList formats = data->formats();
    for (const QString& format : formats) {
        if (isSelectionProtocolTarget(format))
            continue;
        const QByteArray bytes = data->data(format);
        if (!bytes.isEmpty())
            item.append({format, bytes});
    }
    if (item.isEmpty())
        return {};
    return {item};
}

void SystemClipboard::clear() { QGuiApplication::clipboard()->clear(QClipboard::Clipboard); }

void SystemClipboard::setText(const QString& text) {
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}

void SystemClipboard::restore(const ClipboardSnapshot& snapshot) {
    auto* data = new QMimeData;
    for (const ClipboardItem& item : snapshot)
        for (const auto& [format, bytes] : item)
            if (!data->hasFormat(format))
                data->setData(format, bytes);
    QGuiApplication::clipboard()->setMimeData(data, QClipboard::Clipboard);
}

} // namespace tamvex
