#include "desktop/X11KeySource.h"

#include <QSocketNotifier>

#include <linux/input-event-codes.h>

#ifdef TAMVEX_HAVE_X11
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#endif

namespace tamvex {

namespace {
// X key codes are the kernel's plus 8.
constexpr int kX11KeycodeOffset = 8;
} // namespace

X11KeySource::X11KeySource(QObject* parent) : KeySource(parent) {}

X11KeySource::~X11KeySource() { stop(); }

bool X11KeySource::start() {
    if (m_display)
        return true;
#ifdef TAMVEX_HAVE_X11
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        m_reason = QStringLiteral("X11 raw key events: no X display");
        return false;
    }
    int event = 0, error = 0;
    int major = 2, minor = 0;
    if (!XQueryExtension(display, "XInputExtension", &m_opcode, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success) {
        m_reason = QStringLiteral("X11 raw key events: the X server has no XInput2");
        XCloseDisplay(display);
        return false;
    }
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawKeyPress);
    XISetMask(bits, XI_RawKeyRelease);
    XIEventMask mask{XIAllMasterDevices, int(sizeof bits), bits};
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
    XFlush(display);
    m_display = display;
    m_notifier = std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] { readEvents(); });
    return true;
#else
    m_reason = QStringLiteral("This build has no X11 support");
    return false;
#endif
}

void X11KeySource::stop() {
#ifdef TAMVEX_HAVE_X11
    if (!m_display)
        return;
    m_notifier.reset();
    XCloseDisplay(static_cast<Display*>(m_display));
    m_display = nullptr;
    emit deviceRemoved(0);
    emit availabilityChanged(false);
#endif
}

void X11KeySource::readEvents() {
#ifdef TAMVEX_HAVE_X11
    auto* display = static_cast<Display*>(m_display);
    while (display && XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        XGenericEventCookie* cookie = &event.xcookie;
        if (cookie->type != GenericEvent || cookie->extension != m_opcode || !XGetEventData(display, cookie))
            continue;
        if (cookie->evtype == XI_RawKeyPress || cookie->evtype == XI_RawKeyRelease) {
            const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
            int value = cookie->evtype == XI_RawKeyRelease ? 0 : 1;
            if (value == 1 && (raw->flags & XIKeyRepeat))
                value = 2;
            emit inputEvent(0, EV_KEY, raw->detail - kX11KeycodeOffset, value);
        }
        XFreeEventData(display, cookie);
    }
#endif
}

} // namespace tamvex
