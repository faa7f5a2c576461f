#include "desktop/TerminalApps.h"

namespace tamvex {

const QStringList& terminalWindowClasses() {
    static const QStringList classes{
        "gnome-terminal",  "gnome-terminal-server", "org.gnome.Console", "kgx",        "org.gnome.Ptyxis",
        "ptyxis",          "konsole",               "yakuake",           "xterm",      "uxterm",
        "urxvt",           "rxvt",                  "kitty",             "alacritty",  "terminator",
        "tilix",           "xfce4-terminal",        "lxterminal",        "mate-terminal", "qterminal",
        "terminology",     "org.wezfurlong.wezterm", "wezterm",          "st",         "st-256color",
        "foot",            "footclient",            "sakura",            "guake",      "tilda",
        "cool-retro-term", "deepin-terminal",       "blackbox",          "com.raggesilver.BlackBox",
        "contour",         "hyper",                 "tabby",             "warp",       "ghostty",
        "com.mitchellh.ghostty", "io.elementary.terminal", "roxterm",    "eterm",      "aterm",
    };
    return classes;
}

bool isTerminalWindow(const FocusedWindow& window) {
    const QStringList& classes = terminalWindowClasses();
    return classes.contains(window.instanceName, Qt::CaseInsensitive) ||
           classes.contains(window.className, Qt::CaseInsensitive);
}

PasteChord pasteChordFor(const std::optional<FocusedWindow>& window) {
    return window && isTerminalWindow(*window) ? PasteChord::ctrlShiftV : PasteChord::ctrlV;
}

} // namespace tamvex
