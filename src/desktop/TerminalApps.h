#pragma once

#include "platform/FrontmostApp.h"
#include "platform/KeySender.h"

#include <QStringList>

#include <optional>

namespace tamvex {

/// The WM_CLASS names (instance or class, compared without case) of terminal emulators,
/// where Ctrl+V pastes nothing and Ctrl+Shift+V pastes. The one list of them.
const QStringList& terminalWindowClasses();

/// True when the window belongs to a terminal emulator.
bool isTerminalWindow(const FocusedWindow& window);

/// The paste chord for the focused window: Ctrl+Shift+V in terminals, Ctrl+V elsewhere
/// and when the focused window cannot be known.
PasteChord pasteChordFor(const std::optional<FocusedWindow>& window);

} // namespace tamvex
