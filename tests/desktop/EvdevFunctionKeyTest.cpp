#include "support/TestMain.h"
#include "desktop/EvdevKeySource.h"

#include <QTest>

#include <libevdev/libevdev.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

using namespace tamvex;

namespace {
// An in-memory evdev device with the given keys, and a pipe end standing in for its node.
struct StandInDevice {
    int fd = -1;
    libevdev* dev = nullptr;
};
StandInDevice standIn(const char* name, std::initializer_list<unsigned> keys) {
    int fds[2];
    if (::pipe(fds) != 0)
        return {};
    ::close(fds[1]);
    libevdev* dev = libevdev_new();
    libevdev_set_name(dev, name);
    libevdev_enable_event_type(dev, EV_KEY);
    for (unsigned key : keys)
        libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
    return {fds[0], dev};
}
bool adopt(EvdevKeySource& source, const QString& path, StandInDevice d) {
    return source.adoptDevice(path, d.fd, d.dev);
}
} // namespace

class EvdevFunctionKeyTest : public QObject {
    Q_OBJECT
private slots:
    void functionKeyIsSeenOnlyWhenAKeyboardReportsIt() {
        EvdevKeySource source(QStringLiteral("/nonexistent"));
        QVERIFY(!source.seesFunctionKey()); // no keyboard at all
        QVERIFY(adopt(source, "/dev/input/event1", standIn("PC keyboard", {KEY_A, KEY_Z, KEY_LEFTCTRL})));
        QVERIFY(source.isAvailable());
        QVERIFY(!source.seesFunctionKey()); // FN handled in the keyboard's firmware
        QVERIFY(!adopt(source, "/dev/input/event2", standIn("Mouse", {BTN_LEFT})));
        QVERIFY(!adopt(source, "/dev/input/event3", standIn("Tamvex virtual keyboard", {KEY_A, KEY_Z, KEY_FN})));
        QVERIFY(!source.seesFunctionKey());
        QVERIFY(adopt(source, "/dev/input/event4", standIn("Laptop keyboard", {KEY_A, KEY_Z, KEY_FN})));
        QVERIFY(source.seesFunctionKey());
        QCOMPARE(source.keyboardCount(), 2);
        source.stop(); // every device let go
        QVERIFY(!source.seesFunctionKey());
    }
};

TAMVEX_TEST_CLASS(EvdevFunctionKeyTest)
#include "EvdevFunctionKeyTest.moc"
