// A separate process for the tests that a test process cannot do to itself:
// being killed in the middle of writes, or running as another user.
//   history_child burst ROOT   adds entries for ever, printing each number once its add returned
//   history_child open ROOT    opens the store and prints what it found
#include "HistoryFixtures.h"
#include "history/HistoryStore.h"
#include "platform/Clock.h"

#include <QCoreApplication>

#include <cstdio>

using namespace tamvex;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    const QString mode = QString::fromLocal8Bit(argv[1]);
    ManualClock clock;
    HistoryStore store(Paths::under(QString::fromLocal8Bit(argv[2])), clock);
    store.init();
    if (mode == "open") {
        std::printf("available=%d entries=%d\n", store.isAvailable() ? 1 : 0, int(store.entries().size()));
        store.add(test::makeEntry(999999, clock.currentDateTime(), 0));
        return 0;
    }
    if (mode != "burst" || !store.isAvailable())
        return 3;
    for (int i = 0; i < 1000000; ++i) {
        store.add(test::makeEntry(i, clock.currentDateTime(), -i, QStringLiteral("burst entry %1").arg(i)));
        std::printf("%d\n", i);
        std::fflush(stdout);
    }
    return 0;
}
