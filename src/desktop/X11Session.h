#pragma once

#include "platform/FrontmostApp.h"
#include "platform/KeySender.h"

namespace tamvex {

/// Synthetic keys through the X server's XTest extension, where /dev/uinput is not writable.
class X11KeySender final : public KeySender {
public:
    /// Connects to $DISPLAY; unavailable without an X server with XTest.
    X11KeySender();
    ~X11KeySender() override;
    X11KeySender(const X11KeySender&) = delete;
    X11KeySender& operator=(const X11KeySender&) = delete;

    bool isAvailable() const override { return m_display != nullptr; }
    bool sendPaste(PasteChord chord) override;
    QString name() const override { return QStringLiteral("XTest"); }

private:
    /// The keycode to send for V, or 0 when none can type it.
    unsigned char pasteKey();

    void* m_display = nullptr;    // Display*
    unsigned char m_boundKey = 0; // a keycode bound to "v" while no layout has it, undone at the end
};

/// The focused X11 window's WM_CLASS: _NET_ACTIVE_WINDOW, or the input focus without a
/// window manager, walked up to the first window that names its class.
class X11FrontmostApp final : public FrontmostApp {
public:
    X11FrontmostApp();
    ~X11FrontmostApp() override;
    X11FrontmostApp(const X11FrontmostApp&) = delete;
    X11FrontmostApp& operator=(const X11FrontmostApp&) = delete;

    std::optional<FocusedWindow> focusedWindow() const override;

private:
    void* m_display = nullptr; // Display*
};

} // namespace tamvex
