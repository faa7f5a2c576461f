#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

namespace tamvex {

/// One clipboard item: its (MIME type, bytes) pairs in the order the owner offered them.
using ClipboardItem = QList<QPair<QString, QByteArray>>;
/// The whole clipboard: one element per item, in order; empty when the clipboard was empty.
using ClipboardSnapshot = QList<ClipboardItem>;

/// The system clipboard, as the paste sees it.
class Clipboard {
public:
    virtual ~Clipboard() = default;
    /// Every type of every item with its bytes; a type that gives no bytes is left out.
    virtual ClipboardSnapshot snapshot() const = 0;
    /// Empties the clipboard.
    virtual void clear() = 0;
    /// Puts a plain text on the clipboard.
    virtual void setText(const QString& text) = 0;
    /// Puts a snapshot's items back, as new items.
    virtual void restore(const ClipboardSnapshot& snapshot) = 0;
};

/// The desktop's clipboard through QClipboard (X11 selections or the Wayland data device).
class SystemClipboard final : public Clipboard {
public:
    ClipboardSnapshot snapshot() const override;
    void clear() override;
    void setText(const QString& text) override;
    /// QClipboard holds one item: the first is restored whole, any further items are
    /// merged into it type by type where their types differ.
    void restore(const ClipboardSnapshot& snapshot) override;
};

} // namespace tamvex
