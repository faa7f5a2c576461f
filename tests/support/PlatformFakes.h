#pragma once

#include "platform/Clipboard.h"
#include "platform/FrontmostApp.h"
#include "platform/InputAccess.h"
#include "platform/KeySender.h"

#include <QStringList>

namespace tamvex::test {

/// A clipboard in memory that notes every operation.
class FakeClipboard final : public Clipboard {
public:
    ClipboardSnapshot snapshot() const override { return items; }
    void clear() override {
        items.clear();
        log << "clear";
    }
    bool setText(const QString& text) override {
        log << "text:" + text;
        if (kept)
            return false;
        items = {{{"text/plain", text.toUtf8()}}};
        return true;
    }
    void restore(const ClipboardSnapshot& snapshot) override {
        items = snapshot;
        log << "restore";
    }
    ClipboardSnapshot items;
    QStringList log;
    bool kept = false; // another program keeps the clipboard
};

class FakeKeys final : public KeySender {
public:
    bool isAvailable() const override { return works; }
    bool sendPaste(PasteChord chord) override {
        chords.append(chord);
        return works;
    }
    QString name() const override { return senderName; }
    bool works = true;
    QString senderName = QStringLiteral("fake");
    QList<PasteChord> chords;
};

class FakeAccess final : public InputAccess {
public:
    bool isTrusted() const override { return trusted; }
    bool trusted = true;
};

class FakeFront final : public FrontmostApp {
public:
    std::optional<FocusedWindow> focusedWindow() const override { return window; }
    std::optional<FocusedWindow> window;
};

} // namespace tamvex::test
