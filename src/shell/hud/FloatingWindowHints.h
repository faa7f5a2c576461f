#pragma once

class QWindow;

namespace tamvex {

/// Asks an X11 window manager to keep `window` above every other window on every desktop,
/// out of the task bar and the window switcher. Call after create() and before the first
/// show(); elsewhere (offscreen, native Wayland) it does nothing.
void applyFloatingWindowHints(QWindow& window);

/// True when the windows are X11 windows of XWayland in a Wayland session. Call before
/// create(): there the window is left unmanaged, since the compositor's X window manager
/// may ignore its place (Weston puts it in a corner) and the hints above; an unmanaged
/// window keeps its place, stays above, is never focused and is in no task bar.
bool leaveUnmanaged(QWindow& window);

} // namespace tamvex
