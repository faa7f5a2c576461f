#pragma once

#include "desktop/KeySource.h"

#include <memory>

class QSocketNotifier;

namespace tamvex {

/// The X server's raw key events (XInput2), seen whichever window has the focus and
/// without grabbing. X11 key codes stop at 255, so KEY_FN never arrives this way: on
/// this source the hold-to-talk key is the custom shortcut.
class X11KeySource final : public KeySource {
    Q_OBJECT
public:
    explicit X11KeySource(QObject* parent = nullptr);
    ~X11KeySource() override;

    bool start() override;
    void stop() override;
    bool isAvailable() const override { return m_display != nullptr; }
    QString name() const override { return QStringLiteral("X11"); }
    bool seesFunctionKey() const override { return false; }
    QString unavailableReason() const override { return m_reason; }

private:
    void readEvents();

    void* m_display = nullptr; // Display*, kept opaque so Xlib's macros stay out of headers
    int m_opcode = 0;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QString m_reason;
};

} // namespace tamvex
