#include "desktop/UinputKeySender.h"

#include <QFile>

#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

#include <cstring>

#ifdef TAMVEX_HAVE_EVDEV
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#endif

namespace tamvex {

UinputKeySender::UinputKeySender(const QString& devicePath) {
#ifdef TAMVEX_HAVE_EVDEV
    const int fd = ::open(QFile::encodeName(devicePath).constData(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        m_error = QString::fromLocal8Bit(std::strerror(errno));
        return;
    }
    libevdev* device = libevdev_new();
    // The name lets our own key reader skip this keyboard.
    libevdev_set_name(device, "Tamvex virtual keyboard");
    libevdev_enable_event_type(device, EV_KEY);
    // A full set of keys, so that compositors treat the device as a keyboard.
    for (int code = KEY_ESC; code <= KEY_MICMUTE; ++code)
        libevdev_enable_event_code(device, EV_KEY, code, nullptr);
    libevdev_uinput* uinput = nullptr;
    const int rc = libevdev_uinput_create_from_device(device, fd, &uinput);
    if (rc < 0) {
        m_error = QString::fromLocal8Bit(std::strerror(-rc));
        libevdev_free(device);
        ::close(fd);
        return;
    }
    m_device = device;
    m_uinput = uinput;
#else
    Q_UNUSED(devicePath);
    m_error = QStringLiteral("this build has no libevdev");
#endif
}

UinputKeySender::~UinputKeySender() {
#ifdef TAMVEX_HAVE_EVDEV
    if (m_uinput) {
        const int fd = libevdev_uinput_get_fd(static_cast<libevdev_uinput*>(m_uinput));
        libevdev_uinput_destroy(static_cast<libevdev_uinput*>(m_uinput));
        ::close(fd);
    }
    if (m_device)
        libevdev_free(static_cast<libevdev*>(m_device));
#endif
}

bool UinputKeySender::key(int code, int value) {
#ifdef TAMVEX_HAVE_EVDEV
    auto* uinput = static_cast<libevdev_uinput*>(m_uinput);
    return libevdev_uinput_write_event(uinput, EV_KEY, code, value) == 0 &&
           libevdev_uinput_write_event(uinput, EV_SYN, SYN_REPORT, 0) == 0;
#else
    Q_UNUSED(code);
    Q_UNUSED(value);
    return false;
#endif
}

bool UinputKeySender::sendPaste(PasteChord chord) {
    if (!m_uinput)
        return false;
    const bool shift = chord == PasteChord::ctrlShiftV;
    bool ok = key(KEY_LEFTCTRL, 1);
    if (shift)
        ok = key(KEY_LEFTSHIFT, 1) && ok;
    ok = key(KEY_V, 1) && ok;
    ok = key(KEY_V, 0) && ok;
    if (shift)
        ok = key(KEY_LEFTSHIFT, 0) && ok;
    // Always let go of Ctrl, even after a failed write, so it never sticks.
    return key(KEY_LEFTCTRL, 0) && ok;
}

} // namespace tamvex
