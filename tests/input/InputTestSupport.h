#pragma once

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "desktop/KeyInput.h"
#include "support/CoordinatorRig.h"

#include <linux/input-event-codes.h>

#include <memory>

namespace tamvex::test {

/// A key source driven by the test: events are emitted as a device would give them.
class FakeKeySource final : public KeySource {
    Q_OBJECT
public:
    explicit FakeKeySource(QString name = QStringLiteral("evdev"), bool available = true, bool seesFn = true)
        : m_name(std::move(name)), m_available(available), m_seesFn(seesFn) {}
    bool start() override { return m_available; }
    bool isPending() const override { return m_pending; }
    void stop() override {}
    bool isAvailable() const override { return m_available; }
    QString name() const override { return m_name; }
    bool seesFunctionKey() const override { return m_seesFn; }
    QString unavailableReason() const override { return m_available ? QString() : "No keyboard (test)"; }

    /// One key event of `device`.
    void key(int device, int code, int value) { emit inputEvent(device, EV_KEY, code, value); }
    /// Any input event of `device`, as read from its node.
    void event(int device, int type, int code, int value) { emit inputEvent(device, type, code, value); }
    void unplug(int device) { emit deviceRemoved(device); }
    void setAvailable(bool available) {
        m_available = available;
        m_pending = false;
        emit availabilityChanged(available);
    }
    /// Still waiting for the desktop's answer, as the portal is after start.
    void setPending() { m_pending = true; }
    /// A named shortcut's edge, as the portal gives it.
    void edge(const QString& rawName, bool pressed) { emit shortcutEdge(rawName, pressed); }

private:
    QString m_name;
    bool m_available;
    bool m_seesFn;
    bool m_pending = false;
};

/// A FakeKeySource for keyInput(), with `out` left pointing at it.
inline std::unique_ptr<FakeKeySource> fakeSource(FakeKeySource*& out, QString name = QStringLiteral("evdev"),
                                                 bool available = true, bool seesFn = true) {
    auto source = std::make_unique<FakeKeySource>(std::move(name), available, seesFn);
    out = source.get();
    return source;
}

/// Key input over `sources`, in their order of preference, waiting on `clock`.
template <class... Sources>
std::unique_ptr<KeyInput> keyInput(KeyboardShortcuts::ShortcutRegistry& registry, Clock& clock, bool wayland,
                                   std::unique_ptr<Sources>... sources) {
    std::vector<std::unique_ptr<KeySource>> list;
    (list.push_back(std::move(sources)), ...);
    return std::make_unique<KeyInput>(registry, clock, std::move(list), wayland);
}

/// A sandboxed shortcut registry whose alternative shortcut notes its edges in `edges`.
struct ShortcutRig {
    ShortcutRig() {
        registry.onKeyDown(KeyboardShortcuts::sorvelRecordAlternative, [this] { edges << "down"; });
        registry.onKeyUp(KeyboardShortcuts::sorvelRecordAlternative, [this] { edges << "up"; });
    }
    TestEnv env;
    ManualClock clock;
    KeyboardShortcuts::ShortcutRegistry registry{*env.defaults};
    QStringList edges;
};

} // namespace tamvex::test
