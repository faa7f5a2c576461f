#pragma once

#include "platform/KeySender.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QDeadlineTimer>

#include <qcoro/qcorotask.h>

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

namespace tamvex::bench {

// Notes when the paste chord goes out.
class TimedKeys final : public KeySender {
public:
    bool isAvailable() const override { return true; }
    bool sendPaste(PasteChord) override {
        sentAt = clock.nsecsElapsed();
        return true;
    }
    QString name() const override { return "bench"; }
    QElapsedTimer clock;
    qint64 sentAt = -1;
};

/// A field of /proc/self/status ("VmRSS:", "VmHWM:") in bytes, or -1.
inline qint64 statusBytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0)
            return std::stoll(line.substr(std::string(field).size())) * 1024;
    return -1;
}

/// Resets the resident peak (VmHWM) to the current resident size.
inline void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

/// Runs the event loop until `task` gives its value; throws after 10 s.
template <class T> T wait(QCoro::Task<T>&& task) {
    std::optional<T> result;
    auto runner = [&]() -> QCoro::Task<void> { result.emplace(co_await std::move(task)); };
    auto keep = runner();
    QDeadlineTimer deadline(10000);
    while (!result && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    if (!result)
        throw std::runtime_error("timed out");
    return std::move(*result);
}

/// The main of a benchmark that needs Qt's application object and nothing else.
inline int runBenchmarks(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

/// The main of a benchmark that measures resident memory: large blocks come straight from
/// mmap and go back on free, so the resident peak shows each round.
inline int runMemoryAwareBenchmarks(int argc, char** argv) {
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
    return runBenchmarks(argc, argv);
}

} // namespace tamvex::bench
