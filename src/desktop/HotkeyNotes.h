#pragma once

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/AppState.h"

#include <QString>

#include <optional>

namespace tamvex::hotkeyNotes {

/// What the user is told when the record hotkey cannot work everywhere in this session.
struct Situation {
    KeyboardShortcuts::Delivery delivery = KeyboardShortcuts::Delivery::unknown;
    bool useFn = true;    ///< the hotkey mode is FN
    bool fnHeard = false; ///< some keyboard being read sends FN
};

/// The HUD card said once at launch, or none when the chosen hotkey works in every window.
/// `hotkey` is the hotkey's display name for the key cap.
std::optional<NudgeContent> launchCard(const Situation& situation, const QString& hotkey);
/// The settings pane's warning under the hotkey choice, for either mode, or empty.
QString sessionNote(const Situation& situation);
/// What the FN choice says when FN cannot be heard here, or empty.
QString functionKeyNote(const Situation& situation);

} // namespace tamvex::hotkeyNotes
