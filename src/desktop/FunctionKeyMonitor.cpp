#include "desktop/FunctionKeyMonitor.h"

#include "KeyboardShortcuts/Shortcut.h"
#include "desktop/KeyInput.h"

namespace tamvex {

FunctionKeyMonitor::FunctionKeyMonitor(KeyInput& input, QObject* parent) : QObject(parent), m_input(input) {}

FunctionKeyMonitor::~FunctionKeyMonitor() { stop(); }

void FunctionKeyMonitor::start() {
    if (m_enabled)
        return;
    // One subscription covers what the global and local monitors do elsewhere: the key
    // sources see every keyboard whichever window, ours included, has the focus.
    m_monitor = connect(&m_input, &KeyInput::flagsChanged, this, &FunctionKeyMonitor::handleFlagsChanged);
    m_enabled = true;
}

void FunctionKeyMonitor::stop() {
    if (m_monitor)
        disconnect(m_monitor);
    m_monitor = {};
    m_isPressed = false;
    m_enabled = false;
}

void FunctionKeyMonitor::handleFlagsChanged(quint64 modifierFlags) {
    const bool pressed = (modifierFlags & KeyboardShortcuts::EventFlag::function) != 0;
    // Other modifiers changing while FN is held give no edge.
    if (pressed == m_isPressed)
        return;
    m_isPressed = pressed;
    if (pressed)
        onKeyDown();
    else
        onKeyUp();
}

} // namespace tamvex
