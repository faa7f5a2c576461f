#pragma once

class QWindow;

namespace tamvex {

/// Asks an X11 window manager to keep `window` above every other window on every desktop,
/// out of the task bar and the window switcher. Call after create() and before the first
/// show(); elsewhere (offscreen, native Wayland) it does nothing.
void applyFloatingWindowHints(QWindow& window);

} // namespace tamvex
