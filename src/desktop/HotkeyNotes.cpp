#include "desktop/HotkeyNotes.h"

#include "core/Nudges.h"

namespace tamvex::hotkeyNotes {

namespace {
using KeyboardShortcuts::Delivery;

// The two ways to a hotkey heard in every window, when the keyboards cannot be read.
const QString kWaysOut = QStringLiteral(
    "Чтобы горячая клавиша работала в любом окне, добавь себя в группу input "
    "(sudo usermod -aG input $USER, затем войди в систему заново) или назначь в настройках рабочего "
    "стола сочетание на команду «tamvex ctl toggle».");

bool fnLost(const Situation& s) { return s.useFn && !s.fnHeard && s.delivery != Delivery::unknown; }
} // namespace

std::optional<NudgeContent> launchCard(const Situation& s, const QString& hotkey) {
    switch (s.delivery) {
    case Delivery::focusedX11Only:
        return NudgeContent{QStringLiteral("keyboard"), QStringLiteral("Горячая клавиша слышна не везде"),
                            QStringLiteral("Сейчас Tamvex слышит клавиши, только пока в фокусе окно X11. ") + kWaysOut,
                            hotkey};
    case Delivery::none:
        return NudgeContent{QStringLiteral("keyboard"), QStringLiteral("Горячая клавиша не слышна"),
                            QStringLiteral("Tamvex не может читать клавиатуру в этой сессии. ") + kWaysOut, hotkey};
    case Delivery::desktop:
        if (fnLost(s))
            return NudgeContent{QStringLiteral("keyboard"), QStringLiteral("Клавиша FN здесь не работает"),
                                functionKeyNote(s), QStringLiteral("FN")};
        return std::nullopt;
    case Delivery::keys:
        if (fnLost(s))
            return nudges::functionKeyUnavailableCard();
        return std::nullopt;
    case Delivery::unknown:
        break;
    }
    return std::nullopt;
}

QString sessionNote(const Situation& s) {
    switch (s.delivery) {
    case Delivery::focusedX11Only:
        return QStringLiteral("Клавиши слышны, только пока в фокусе окно X11 (Xwayland). ") + kWaysOut;
    case Delivery::none:
        return QStringLiteral("Tamvex не может читать клавиатуру в этой сессии. ") + kWaysOut;
    default:
        return {};
    }
}

QString functionKeyNote(const Situation& s) {
    if (!fnLost(s))
        return {};
    if (s.delivery == Delivery::desktop)
        return QStringLiteral("В этой сессии Wayland сочетание передаёт сам рабочий стол (портал GlobalShortcuts), "
                              "а клавишу FN он передать не может. Выбери «Своя комбинация» — её назначит "
                              "рабочий стол.");
    return QStringLiteral("Клавиша FN сюда не доходит: клавиатуры, которые Tamvex может читать, её не передают "
                          "(многие обрабатывают FN сами), а X11 не передаёт её вовсе. Выбери «Своя комбинация» "
                          "и задай сочетание.");
}

} // namespace tamvex::hotkeyNotes
