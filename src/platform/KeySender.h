#pragma once

#include <QString>

namespace tamvex {

/// The paste chord for the focused window: terminals paste with Ctrl+Shift+V.
enum class PasteChord { ctrlV, ctrlShiftV };

/// Sends synthetic key presses to whatever window has the focus.
class KeySender {
public:
    virtual ~KeySender() = default;
    /// True when keys can be sent in this session.
    virtual bool isAvailable() const = 0;
    /// Presses and releases the chord; false when it could not be sent.
    virtual bool sendPaste(PasteChord chord) = 0;
    /// "uinput", "XTest" or "none", for the log.
    virtual QString name() const = 0;
};

} // namespace tamvex
