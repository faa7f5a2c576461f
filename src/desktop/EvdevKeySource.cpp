#include "desktop/EvdevKeySource.h"

#include "platform/Log.h"

#include <QDir>
#include <QSocketNotifier>

#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#ifdef TAMVEX_HAVE_EVDEV
#include <libevdev/libevdev.h>
#endif

namespace tamvex {

namespace {
// The paste chord's own virtual keyboard must not be read back as the user's keys.
const char* kOwnVirtualKeyboard = "Tamvex virtual keyboard";
} // namespace

struct EvdevKeySource::Device {
    int id = 0;
    int fd = -1;
    bool fnKey = false;
#ifdef TAMVEX_HAVE_EVDEV
    libevdev* dev = nullptr;
#endif
    std::unique_ptr<QSocketNotifier> notifier;
    ~Device() {
        // May run inside the notifier's own signal: let the event loop delete it.
        if (notifier) {
            notifier->setEnabled(false);
            notifier.release()->deleteLater();
        }
#ifdef TAMVEX_HAVE_EVDEV
        if (dev)
            libevdev_free(dev);
#endif
        if (fd >= 0)
            ::close(fd);
    }
};

EvdevKeySource::EvdevKeySource(QString directory, QObject* parent)
    : KeySource(parent), m_directory(std::move(directory)) {}

EvdevKeySource::~EvdevKeySource() {
    stop();
}

QString EvdevKeySource::unavailableReason() const {
#ifndef TAMVEX_HAVE_EVDEV
    return QStringLiteral("This build has no libevdev: keyboards under /dev/input are not read");
#else
    if (m_unreadable > 0)
        return QStringLiteral("No keyboard readable under %1 (%2 devices need the `input` group): "
                              "FN hold-to-talk is off until the user joins it")
            .arg(m_directory)
            .arg(m_unreadable);
    return QStringLiteral("No keyboard found under %1").arg(m_directory);
#endif
}

bool EvdevKeySource::start() {
    if (m_started)
        return isAvailable();
    m_started = true;
#ifdef TAMVEX_HAVE_EVDEV
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify >= 0) {
        // A new node first belongs to root; udev's chmod (IN_ATTRIB) makes it readable.
        if (inotify_add_watch(m_inotify, QFile::encodeName(m_directory).constData(),
                              IN_CREATE | IN_ATTRIB | IN_DELETE) < 0) {
            ::close(m_inotify);
            m_inotify = -1;
        } else {
            m_inotifyNotifier = std::make_unique<QSocketNotifier>(m_inotify, QSocketNotifier::Read);
            connect(m_inotifyNotifier.get(), &QSocketNotifier::activated, this, [this] { readInotify(); });
        }
    }
    scan();
#endif
    return isAvailable();
}

void EvdevKeySource::stop() {
    m_inotifyNotifier.reset();
    if (m_inotify >= 0)
        ::close(m_inotify);
    m_inotify = -1;
    const QStringList paths = m_devices.keys();
    for (const QString& path : paths)
        closeDevice(path);
    m_started = false;
}

void EvdevKeySource::scan() {
    m_unreadable = 0;
    const QStringList names = QDir(m_directory).entryList({"event*"}, QDir::System | QDir::Files);
    for (const QString& name : names)
        openDevice(m_directory + "/" + name);
}

void EvdevKeySource::openDevice(const QString& path) {
#ifdef TAMVEX_HAVE_EVDEV
    if (m_devices.contains(path))
        return;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (errno == EACCES || errno == EPERM)
            ++m_unreadable;
        return;
    }
    libevdev* dev = nullptr;
    if (libevdev_new_from_fd(fd, &dev) < 0) {
        ::close(fd);
        return; // not an evdev node
    }
    adoptDevice(path, fd, dev);
#else
    Q_UNUSED(path);
#endif
}

bool EvdevKeySource::adoptDevice(const QString& path, int fd, libevdev* dev) {
#ifdef TAMVEX_HAVE_EVDEV
    auto device = std::make_shared<Device>();
    device->fd = fd;
    device->dev = dev;
    const char* deviceName = libevdev_get_name(device->dev);
    const bool keyboard =
        libevdev_has_event_code(device->dev, EV_KEY, KEY_A) && libevdev_has_event_code(device->dev, EV_KEY, KEY_Z);
    const bool fnKey = libevdev_has_event_code(device->dev, EV_KEY, KEY_FN);
    if ((!keyboard && !fnKey) || qstrcmp(deviceName, kOwnVirtualKeyboard) == 0 || m_devices.contains(path))
        return false; // the destructor frees and closes it
    device->fnKey = fnKey;
    const bool wasAvailable = isAvailable();
    const bool sawFn = seesFunctionKey();
    device->id = m_nextId++;
    device->notifier = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
    connect(device->notifier.get(), &QSocketNotifier::activated, this, [this, path] { readDevice(path); });
    m_devices.insert(path, device);
    logInfo(QStringLiteral("Keyboard added: %1 (%2)").arg(QString::fromUtf8(deviceName), path));
    if (!wasAvailable)
        emit availabilityChanged(true);
    if (fnKey && !sawFn)
        emit functionKeyChanged();
    return true;
#else
    Q_UNUSED(path);
    Q_UNUSED(dev);
    if (fd >= 0)
        ::close(fd);
    return false;
#endif
}

bool EvdevKeySource::seesFunctionKey() const {
    return std::any_of(m_devices.begin(), m_devices.end(), [](const auto& device) { return device->fnKey; });
}

void EvdevKeySource::closeDevice(const QString& path) {
    const auto device = m_devices.take(path);
    if (!device)
        return;
    emit deviceRemoved(device->id);
    logInfo("Keyboard removed: " + path);
    if (m_devices.isEmpty())
        emit availabilityChanged(false);
    if (device->fnKey && !seesFunctionKey())
        emit functionKeyChanged();
}

void EvdevKeySource::readDevice(const QString& path) {
#ifdef TAMVEX_HAVE_EVDEV
    const auto device = m_devices.value(path);
    if (!device)
        return;
    input_event event{};
    unsigned flags = LIBEVDEV_READ_FLAG_NORMAL;
    for (;;) {
        const int rc = libevdev_next_event(device->dev, flags, &event);
        if (rc == LIBEVDEV_READ_STATUS_SYNC) {
            // Events were dropped: libevdev replays the difference to the current state.
            flags = LIBEVDEV_READ_FLAG_SYNC;
            if (event.type == EV_KEY)
                emit inputEvent(device->id, event.type, event.code, event.value);
            continue;
        }
        if (rc == -EAGAIN) {
            if (flags == LIBEVDEV_READ_FLAG_SYNC) {
                flags = LIBEVDEV_READ_FLAG_NORMAL;
                continue;
            }
            return;
        }
        if (rc < 0) {
            closeDevice(path); // unplugged (ENODEV) or unreadable
            return;
        }
        if (event.type == EV_KEY)
            emit inputEvent(device->id, event.type, event.code, event.value);
    }
#else
    Q_UNUSED(path);
#endif
}

void EvdevKeySource::readInotify() {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t length = ::read(m_inotify, buffer, sizeof buffer);
        if (length <= 0)
            return;
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += ssize_t(sizeof(inotify_event) + event->len);
            const QString name = event->len ? QFile::decodeName(event->name) : QString();
            if (!name.startsWith("event"))
                continue;
            const QString path = m_directory + "/" + name;
            if (event->mask & IN_DELETE)
                closeDevice(path);
            else
                openDevice(path);
        }
    }
}

} // namespace tamvex
