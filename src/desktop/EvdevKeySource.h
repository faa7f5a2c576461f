#pragma once

#include "desktop/KeySource.h"

#include <QHash>
#include <QString>

#include <memory>

class QSocketNotifier;
struct libevdev;

namespace tamvex {

/// Every keyboard under /dev/input/event*, read with libevdev and never grabbed. Keyboards
/// plugged in later (or made readable by udev a moment after they appear) are picked up
/// through inotify on the folder; a pulled one lets go of its keys.
class EvdevKeySource final : public KeySource {
    Q_OBJECT
public:
    /// Watches `directory` (the kernel's /dev/input by default).
    explicit EvdevKeySource(QString directory = QStringLiteral("/dev/input"), QObject* parent = nullptr);
    ~EvdevKeySource() override;

    bool start() override;
    void stop() override;
    bool isAvailable() const override { return !m_devices.isEmpty(); }
    QString name() const override { return QStringLiteral("evdev"); }
    /// True when some keyboard being read reports KEY_FN among its keys; most PC keyboards
    /// handle FN in their firmware and never send it.
    bool seesFunctionKey() const override;
    QString unavailableReason() const override;
    /// How many keyboards are being read.
    int keyboardCount() const { return int(m_devices.size()); }
    /// How many event devices exist but could not be opened for reading.
    int unreadableCount() const { return m_unreadable; }
    /// Takes an opened device (`fd` is watched, `dev` its libevdev state; both are owned
    /// from here on) when it is a keyboard or sends FN. False when it was refused and freed.
    bool adoptDevice(const QString& path, int fd, libevdev* dev);

private:
    struct Device;
    void scan();
    void openDevice(const QString& path);
    void closeDevice(const QString& path);
    void readDevice(const QString& path);
    void readInotify();

    QString m_directory;
    QHash<QString, std::shared_ptr<Device>> m_devices;
    int m_inotify = -1;
    std::unique_ptr<QSocketNotifier> m_inotifyNotifier;
    int m_nextId = 1;
    int m_unreadable = 0;
    bool m_started = false;
};

} // namespace tamvex
