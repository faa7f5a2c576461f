#include "desktop/X11Session.h"

#ifdef TAMVEX_HAVE_X11
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#endif

namespace tamvex {

#ifdef TAMVEX_HAVE_X11
namespace {

Display* openDisplay() {
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return nullptr;
    return XOpenDisplay(nullptr);
}

// Ignores errors such as BadWindow for a window that vanished while we looked at it.
int ignoreXError(Display*, XErrorEvent*) { return 0; }

Window activeWindow(Display* display) {
    const Atom property = XInternAtom(display, "_NET_ACTIVE_WINDOW", True);
    if (property != None) {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display, DefaultRootWindow(display), property, 0, 1, False, XA_WINDOW, &type, &format,
                               &count, &after, &data) == Success &&
            data) {
            const Window window = count == 1 && format == 32 ? *reinterpret_cast<Window*>(data) : None;
            XFree(data);
            if (window != None)
                return window;
        }
    }
    Window focus = None;
    int revert = 0;
    XGetInputFocus(display, &focus, &revert);
    return focus == PointerRoot ? None : focus;
}

} // namespace
#endif

X11KeySender::X11KeySender() {
#ifdef TAMVEX_HAVE_X11
    Display* display = openDisplay();
    int event = 0, error = 0, major = 0, minor = 0;
    if (display && !XTestQueryExtension(display, &event, &error, &major, &minor)) {
        XCloseDisplay(display);
        display = nullptr;
    }
    m_display = display;
#endif
}

X11KeySender::~X11KeySender() {
#ifdef TAMVEX_HAVE_X11
    if (m_display)
        XCloseDisplay(static_cast<Display*>(m_display));
#endif
}

bool X11KeySender::sendPaste(PasteChord chord) {
#ifdef TAMVEX_HAVE_X11
    auto* display = static_cast<Display*>(m_display);
    if (!display)
        return false;
    const KeyCode control = XKeysymToKeycode(display, XK_Control_L);
    const KeyCode shift = XKeysymToKeycode(display, XK_Shift_L);
    const KeyCode v = XKeysymToKeycode(display, XK_v);
    if (!control || !v || (chord == PasteChord::ctrlShiftV && !shift))
        return false;
    XTestFakeKeyEvent(display, control, True, CurrentTime);
    if (chord == PasteChord::ctrlShiftV)
        XTestFakeKeyEvent(display, shift, True, CurrentTime);
    XTestFakeKeyEvent(display, v, True, CurrentTime);
    XTestFakeKeyEvent(display, v, False, CurrentTime);
    if (chord == PasteChord::ctrlShiftV)
        XTestFakeKeyEvent(display, shift, False, CurrentTime);
    XTestFakeKeyEvent(display, control, False, CurrentTime);
    XSync(display, False);
    return true;
#else
    Q_UNUSED(chord);
    return false;
#endif
}

X11FrontmostApp::X11FrontmostApp() {
#ifdef TAMVEX_HAVE_X11
    m_display = openDisplay();
#endif
}

X11FrontmostApp::~X11FrontmostApp() {
#ifdef TAMVEX_HAVE_X11
    if (m_display)
        XCloseDisplay(static_cast<Display*>(m_display));
#endif
}

std::optional<FocusedWindow> X11FrontmostApp::focusedWindow() const {
#ifdef TAMVEX_HAVE_X11
    auto* display = static_cast<Display*>(m_display);
    if (!display)
        return std::nullopt;
    auto* previous = XSetErrorHandler(ignoreXError);
    std::optional<FocusedWindow> result;
    Window window = activeWindow(display);
    // The focus may sit on a child of the top-level window; WM_CLASS is on the top level.
    for (int depth = 0; window != None && depth < 16 && !result; ++depth) {
        XClassHint hint{};
        if (XGetClassHint(display, window, &hint)) {
            result = FocusedWindow{QString::fromLocal8Bit(hint.res_name), QString::fromLocal8Bit(hint.res_class)};
            XFree(hint.res_name);
            XFree(hint.res_class);
            break;
        }
        Window root = None, parent = None;
        Window* children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(display, window, &root, &parent, &children, &count))
            break;
        if (children)
            XFree(children);
        window = parent == root ? None : parent;
    }
    XSync(display, False);
    XSetErrorHandler(previous);
    return result;
#else
    return std::nullopt;
#endif
}

} // namespace tamvex
