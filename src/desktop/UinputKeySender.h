#pragma once

#include "platform/KeySender.h"

#include <QString>

namespace tamvex {

/// A virtual keyboard on /dev/uinput, made once when the application starts: a device
/// made just before a keystroke is not yet known to the compositor, and its keys are lost.
/// Works on X11 and Wayland alike.
class UinputKeySender final : public KeySender {
public:
    /// Creates the virtual keyboard; without write access it stays unavailable.
    explicit UinputKeySender(const QString& devicePath = QStringLiteral("/dev/uinput"));
    ~UinputKeySender() override;
    UinputKeySender(const UinputKeySender&) = delete;
    UinputKeySender& operator=(const UinputKeySender&) = delete;

    bool isAvailable() const override { return m_uinput != nullptr; }
    bool sendPaste(PasteChord chord) override;
    QString name() const override { return QStringLiteral("uinput"); }
    /// Why the device could not be made, or empty.
    QString error() const { return m_error; }

private:
    bool key(int code, int value);

    void* m_device = nullptr; // libevdev*
    void* m_uinput = nullptr; // libevdev_uinput*
    QString m_error;
};

} // namespace tamvex
