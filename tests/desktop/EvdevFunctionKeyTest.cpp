#include "desktop/EvdevKeySource.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QTest>

#include <libevdev/libevdev.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

using namespace tamvex;

namespace {
/// Hands `source` an in-memory evdev device with the given keys, a pipe end standing in for its node.
bool adopt(EvdevKeySource& source, const QString& path, const char* name, std::initializer_list<unsigned> keys) {
    int fds[2];
    if (::pipe(fds) != 0)
        return false;
    ::close(fds[1]);
    libevdev* dev = libevdev_new();
    libevdev_set_name(dev, name);
    libevdev_enable_event_type(dev, EV_KEY);
    for (unsigned key : keys)
        libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
    return source.adoptDevice(path, fds[0], dev);
}
} // namespace

class EvdevFunctionKeyTest : public QObject {
    Q_OBJECT
private slots:
    void functionKeyIsSeenOnlyWhenAKeyboardReportsIt() {
        // No real keyboards here: a folder of non-devices is read without a crash, and reported.
        QTemporaryDir dir;
        QVERIFY(test::writeFile(dir.filePath("event0"), "not a device"));
        EvdevKeySource source(dir.path());
        QVERIFY(!source.start());
        QCOMPARE(source.keyboardCount(), 0);
        QVERIFY(source.unavailableReason().contains(dir.path()));
        QVERIFY(!source.seesFunctionKey()); // no keyboard at all

        QVERIFY(adopt(source, "/dev/input/event1", "PC keyboard", {KEY_A, KEY_Z, KEY_LEFTCTRL}));
        QVERIFY(source.isAvailable());
        QVERIFY(!source.seesFunctionKey()); // FN handled in the keyboard's firmware
        QVERIFY(!adopt(source, "/dev/input/event2", "Mouse", {BTN_LEFT}));
        QVERIFY(!adopt(source, "/dev/input/event3", "Tamvex virtual keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(!source.seesFunctionKey());
        QVERIFY(adopt(source, "/dev/input/event4", "Laptop keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(source.seesFunctionKey());
        QCOMPARE(source.keyboardCount(), 2);
        source.stop(); // every device let go
        QVERIFY(!source.seesFunctionKey());
    }
};

TAMVEX_TEST_CLASS(EvdevFunctionKeyTest)
#include "EvdevFunctionKeyTest.moc"
