#include "shell/hud/FloatingWindowHints.h"

#include <QGuiApplication>
#include <QWindow>

#ifdef TAMVEX_HAVE_X11
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#endif

namespace tamvex {

void applyFloatingWindowHints(QWindow& window) {
#ifdef TAMVEX_HAVE_X11
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    Display* display = x11 ? x11->display() : nullptr;
    if (!display)
        return;
    const auto id = static_cast<Window>(window.winId());
    auto atom = [display](const char* name) { return XInternAtom(display, name, False); };
    // Before the first map, the window itself holds _NET_WM_STATE; Qt adds its own
    // "above" to what it finds there when it maps the window.
    Atom states[] = {atom("_NET_WM_STATE_ABOVE"), atom("_NET_WM_STATE_STICKY"), atom("_NET_WM_STATE_SKIP_TASKBAR"),
                     atom("_NET_WM_STATE_SKIP_PAGER")};
    XChangeProperty(display, id, atom("_NET_WM_STATE"), XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(states), 4);
    long allDesktops = 0xFFFFFFFF;
    XChangeProperty(display, id, atom("_NET_WM_DESKTOP"), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&allDesktops), 1);
    XFlush(display);
#else
    (void)window;
#endif
}

bool leaveUnmanaged(QWindow& window) {
    const bool xwayland =
        QGuiApplication::platformName() == QLatin1String("xcb") && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (xwayland)
        window.setFlag(Qt::X11BypassWindowManagerHint);
    return xwayland;
}

} // namespace tamvex
