#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>

namespace tamvex {

class KeyInput;

/// Watches the FN key, which gives no key event of its own, only a change of the modifier
/// flags, and turns its flag into one key-down and one key-up per real change.
class FunctionKeyMonitor : public QObject {
    Q_OBJECT
public:
    /// Watches the merged keyboards of `input`.
    explicit FunctionKeyMonitor(KeyInput& input, QObject* parent = nullptr);
    ~FunctionKeyMonitor() override;

    /// Starts watching; does nothing when already started.
    void start();
    /// Stops watching and forgets the FN state, without calling onKeyUp.
    void stop();
    /// One modifier-flags change: FN is the bit 0x800000.
    void handleFlagsChanged(quint64 modifierFlags);

    bool isPressed() const { return m_isPressed; }
    bool isEnabled() const { return m_enabled; }

    /// Called when FN goes down.
    std::function<void()> onKeyDown = [] {};
    /// Called when FN comes up.
    std::function<void()> onKeyUp = [] {};

private:
    KeyInput& m_input;
    QMetaObject::Connection m_monitor;
    bool m_isPressed = false;
    bool m_enabled = false;
};

} // namespace tamvex
