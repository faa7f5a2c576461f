// Xlib's macros (None, KeyPress, ...) clash with Qt's names: kept apart from the tests.
#include "XkbLayout.h"

#include <QProcess>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace tamvex::test {

int useKeyboardLayout(const QStringList& arguments, int group) {
    if (QProcess::execute("setxkbmap", arguments) != 0)
        return -1;
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return -1;
    XkbStateRec state{};
    const bool locked = XkbLockGroup(display, XkbUseCoreKbd, unsigned(group)) &&
                        (XSync(display, False), XkbGetState(display, XkbUseCoreKbd, &state) == Success);
    XCloseDisplay(display);
    return locked ? state.locked_group : -1;
}

} // namespace tamvex::test
