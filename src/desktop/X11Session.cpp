#include "desktop/X11Session.h"

#ifdef TAMVEX_HAVE_X11
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <linux/input-event-codes.h>

#include <cstring>
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

// X keycodes are the kernel's key codes plus 8 on every server that uses evdev keycodes.
constexpr int kEvdevOffset = 8;

// The keyboard as the server has it at this moment: key names and symbols of every group.
class Keyboard {
public:
    explicit Keyboard(Display* display) : m_xkb(XkbGetMap(display, XkbKeySymsMask, XkbUseCoreKbd)) {
        if (m_xkb && XkbGetNames(display, XkbKeyNamesMask, m_xkb) != Success) {
            XkbFreeKeyboard(m_xkb, XkbAllComponentsMask, True);
            m_xkb = nullptr;
        }
    }
    ~Keyboard() {
        if (m_xkb)
            XkbFreeKeyboard(m_xkb, XkbAllComponentsMask, True);
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    bool loaded() const { return m_xkb && m_xkb->names && m_xkb->names->keys; }
    /// The key at an XKB position ("AB04" is the key that reads V on a US keyboard), or 0.
    KeyCode named(const char* name) const {
        for (int code = m_xkb->min_key_code; code <= m_xkb->max_key_code; ++code)
            if (std::strncmp(m_xkb->names->keys[code].name, name, XkbKeyNameLength) == 0)
                return KeyCode(code);
        return 0;
    }
    /// True when one of the layouts types `symbol` (unshifted) on `code`.
    bool types(KeyCode code, KeySym symbol, int onlyGroup = -1) const {
        const int groups = XkbKeyNumGroups(m_xkb, code);
        for (int group = 0; group < groups; ++group)
            if ((onlyGroup < 0 || group == onlyGroup) && XkbKeySymEntry(m_xkb, code, 0, group) == symbol)
                return true;
        return false;
    }
    /// The first key that types `symbol` in the first layout, or 0.
    KeyCode typing(KeySym symbol) const {
        for (int code = m_xkb->min_key_code; code <= m_xkb->max_key_code; ++code)
            if (types(KeyCode(code), symbol, 0))
                return KeyCode(code);
        return 0;
    }
    /// The highest keycode with nothing bound in any layout (keys in use all have symbols), or 0.
    KeyCode unused() const {
        for (int code = m_xkb->max_key_code; code > m_xkb->min_key_code; --code)
            if (XkbKeyNumGroups(m_xkb, code) == 0)
                return KeyCode(code);
        return 0;
    }

private:
    XkbDescPtr m_xkb = nullptr;
};

// The key that acts as `modifier` now (an option may have moved Ctrl to Caps Lock), else the
// key at its usual position.
KeyCode modifierKey(Display* display, KeySym modifier, int evdevCode) {
    const KeyCode code = XKeysymToKeycode(display, modifier);
    return code ? code : KeyCode(evdevCode + kEvdevOffset);
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
    if (!m_display)
        return;
    auto* display = static_cast<Display*>(m_display);
    if (m_boundKey) {
        KeySym nothing = NoSymbol;
        XChangeKeyboardMapping(display, m_boundKey, 1, &nothing, 1);
    }
    XCloseDisplay(display);
#endif
}

unsigned char X11KeySender::pasteKey() {
#ifdef TAMVEX_HAVE_X11
    auto* display = static_cast<Display*>(m_display);
    const Keyboard keyboard(display);
    if (!keyboard.loaded()) {
        const KeyCode v = XKeysymToKeycode(display, XK_v);
        return v ? v : KeyCode(KEY_V + kEvdevOffset);
    }
    // The key by its position, not by what the active layout types on it: with us,ru switched
    // to Russian it types "м", and applications still read Ctrl on it as Ctrl+V.
    KeyCode position = keyboard.named("AB04");
    if (!position)
        position = KeyCode(KEY_V + kEvdevOffset);
    if (keyboard.types(position, XK_v))
        return position;
    // A Latin layout with V elsewhere (Dvorak), or the key bound below by an earlier paste.
    if (const KeyCode elsewhere = keyboard.typing(XK_v))
        return elsewhere;
    // No layout types "v" at all (Russian alone): applications would read Ctrl+М. A keycode with
    // nothing bound is bound to v while we run, so no key the user types on changes meaning.
    const KeyCode free = keyboard.unused();
    if (!free)
        return 0;
    KeySym v[2] = {XK_v, XK_V};
    XChangeKeyboardMapping(display, free, 2, v, 1);
    XSync(display, False);
    m_boundKey = free;
    return free;
#else
    return 0;
#endif
}

bool X11KeySender::sendPaste(PasteChord chord) {
#ifdef TAMVEX_HAVE_X11
    auto* display = static_cast<Display*>(m_display);
    if (!display)
        return false;
    const KeyCode control = modifierKey(display, XK_Control_L, KEY_LEFTCTRL);
    const KeyCode shift = modifierKey(display, XK_Shift_L, KEY_LEFTSHIFT);
    const KeyCode v = pasteKey();
    if (!v)
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
