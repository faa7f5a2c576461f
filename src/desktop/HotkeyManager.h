#pragma once

#include "desktop/FunctionKeyMonitor.h"

#include <QObject>
#include <QPointer>

namespace tamvex {

class KeyInput;
class RecordingCoordinator;
class SettingsStore;
namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// Connects the active record hotkey, FN or the custom shortcut "sorvelRecordAlternative",
/// to the coordinator, and switches between them when the hotkey mode is assigned.
class HotkeyManager : public QObject {
    Q_OBJECT
public:
    /// Wires `coordinator` to FN (through `input`) or to the custom shortcut of `shortcuts`.
    HotkeyManager(RecordingCoordinator& coordinator, SettingsStore& settings, KeyInput& input,
                  KeyboardShortcuts::ShortcutRegistry& shortcuts, QObject* parent = nullptr);

    /// Called once at launch: starts the key input, applies the mode, registers the
    /// custom shortcut's handlers once and follows the mode setting.
    void start();
    /// Turns the FN monitor on or off to match useFnHotkey, and logs the mode.
    void applyMode();

    FunctionKeyMonitor& fnMonitor() { return m_fnMonitor; }
    bool alternativeWired() const { return m_alternativeWired; }

private:
    RecordingCoordinator& m_coordinator;
    QPointer<SettingsStore> m_settings;
    KeyInput& m_input;
    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    FunctionKeyMonitor m_fnMonitor;
    bool m_alternativeWired = false;
    QMetaObject::Connection m_modeObserver;
};

} // namespace tamvex
