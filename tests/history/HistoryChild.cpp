// A separate process to be killed in the middle of writes:
//   history_child burst ROOT   adds entries for ever, printing each number once its add returned
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
    ManualClock clock;
    HistoryStore store(Paths::under(QString::fromLocal8Bit(argv[2])), clock);
    store.init();
    if (QString::fromLocal8Bit(argv[1]) != "burst" || !store.isAvailable())
        return 3;
    for (int i = 0; i < 1000000; ++i) {
        store.add(test::makeEntry(i, clock.currentDateTime(), -i, QStringLiteral("burst entry %1").arg(i)));
        std::printf("%d\n", i);
        std::fflush(stdout);
    }
    return 0;
}
