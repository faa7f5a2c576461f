#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>
#include <memory>

class QMimeData;

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
    /// Puts a plain text on the clipboard; false when another program kept the clipboard,
    /// so that a paste now would insert its contents instead.
    [[nodiscard]] virtual bool setText(const QString& text) = 0;
    /// Puts a snapshot's items back, as new items.
    virtual void restore(const ClipboardSnapshot& snapshot) = 0;
};

/// The desktop's clipboard through QClipboard (X11 selections or the Wayland data device).
/// On X11 a claim the server ignored is made again with a fresh server time: a background
/// tool receives almost no X events, so the time Qt stamps can be older than another
/// program's claim.
class SystemClipboard final : public Clipboard {
public:
    SystemClipboard();
    ~SystemClipboard() override;
    ClipboardSnapshot snapshot() const override;
    void clear() override;
    bool setText(const QString& text) override;
    /// QClipboard holds one item: the first is restored whole, any further items are
    /// merged into it type by type where their types differ.
    void restore(const ClipboardSnapshot& snapshot) override;

private:
    /// Puts what `make` builds on the clipboard and checks that the server made us its
    /// owner, trying once more on a fresh time; false if another program kept it.
    bool claim(const std::function<QMimeData*()>& make);
    struct X11;
    std::unique_ptr<X11> m_x11; // null off X11
};

} // namespace tamvex
