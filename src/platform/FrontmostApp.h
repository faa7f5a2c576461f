#pragma once

#include <QString>

#include <optional>

namespace tamvex {

/// The window that has the keyboard focus.
struct FocusedWindow {
    QString instanceName; ///< WM_CLASS instance ("gnome-terminal-server")
    QString className;    ///< WM_CLASS class ("Gnome-terminal")
};

/// Tells which application is in front; absent where the session cannot say (Wayland).
class FrontmostApp {
public:
    virtual ~FrontmostApp() = default;
    /// The focused window, if it can be known.
    virtual std::optional<FocusedWindow> focusedWindow() const = 0;
};

} // namespace tamvex
