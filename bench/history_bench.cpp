// The history's hot paths against a real file of 10 000 rows:
// add (upsert + count + prune), the first page, wordsLastWeek, the store's start,
// the insights computation over one page and over the whole table, and the home pane's list
// paged from the first page to the last.
#include "BenchSupport.h"
#include "history/HistoryDB.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "shell/main/HistoryListModel.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

using namespace tamvex;

namespace {

constexpr int kRows = 10000;

const char* const kVocabulary[] = {
    "привет", "сегодня", "встреча", "проект", "задача", "письмо", "клиент", "отчёт", "договор", "срочно",
    "завтра", "команда", "meeting", "release", "deploy", "review", "budget", "ёлка",   "данные", "сервер",
    "и",      "в",       "на",      "с",      "что",    "это",    "the",    "a",     "to",     "which"};

QString sampleText(int n) {
    // About forty words, mixed Russian and English, with punctuation and a line break.
    QString text;
    unsigned state = unsigned(n) * 2654435761u + 1u;
    for (int w = 0; w < 40; ++w) {
        state = state * 1103515245u + 12345u;
        text += QString::fromUtf8(kVocabulary[(state >> 16) % std::size(kVocabulary)]);
        text += (w % 13 == 12) ? QStringLiteral(".\n") : (w % 7 == 6 ? QStringLiteral(", ") : QStringLiteral(" "));
    }
    return text;
}

HistoryEntry sampleEntry(int n, const QDateTime& now, double secondsAgo) {
    HistoryEntry e;
    e.id = QUuid::createUuid();
    e.createdAt = now.addMSecs(-qint64(secondsAgo * 1000.0));
    e.durationSec = 14.0;
    e.text = sampleText(n);
    e.modelUsed = QStringLiteral("google/gemini-2.5-flash");
    e.costUSD = 0.00012;
    e.promptTokens = 900;
    e.completionTokens = 120;
    e.appContext = QStringLiteral("firefox");
    e.category = allTextCategories[size_t(n) % allTextCategories.size()];
    return e;
}

// One file of 10 000 rows, all within the last week (the worst case for wordsLastWeek),
// written once per process in a single transaction.
struct Fixture {
    QTemporaryDir dir;
    Paths paths = Paths::under(dir.path());
    ManualClock clock;

    Fixture() {
        paths.ensureDataDir();
        HistoryDB db(paths.dataFile("history.db"));
        const QDateTime now = clock.currentDateTime();
        db.exec("BEGIN;");
        for (int i = 0; i < kRows; ++i)
            db.upsert(sampleEntry(i, now, 30.0 * i));
        db.exec("COMMIT;");
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

void BM_StoreInit(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        HistoryStore store(f.paths, f.clock);
        store.init();
        benchmark::DoNotOptimize(store.entries().size());
    }
}

void BM_FirstPage(benchmark::State& state) {
    Fixture& f = fixture();
    HistoryDB db(f.paths.dataFile("history.db"));
    for (auto _ : state) {
        auto page = db.fetch(HistoryStore::pageSize, 0);
        benchmark::DoNotOptimize(page.size());
    }
}

void BM_WordsLastWeek(benchmark::State& state) {
    Fixture& f = fixture();
    HistoryStore store(f.paths, f.clock);
    store.init();
    for (auto _ : state)
        benchmark::DoNotOptimize(store.wordsLastWeek());
}

void BM_Add(benchmark::State& state) {
    Fixture& f = fixture();
    HistoryStore store(f.paths, f.clock);
    store.init();
    int n = 0;
    for (auto _ : state) {
        // Every add is the newest and, at the maximum, prunes the oldest row.
        f.clock.advance(1.0);
        store.add(sampleEntry(n++, f.clock.currentDateTime(), 0));
    }
}

void BM_InsightsCompute(benchmark::State& state) {
    Fixture& f = fixture();
    HistoryStore store(f.paths, f.clock);
    store.init();
    while (store.entries().size() < state.range(0) && store.hasMore())
        store.loadMore();
    InsightsStore insights(store, f.paths, f.clock);
    for (auto _ : state)
        insights.compute();
    state.counters["entries"] = double(store.entries().size());
}

// The list as the user scrolls to the end of the table: every page joins the rows shown.
void BM_ListPaging(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        HistoryStore store(f.paths, f.clock);
        store.init();
        HistoryListModel list(store, f.clock);
        state.ResumeTiming();
        while (list.canFetchMore({}))
            list.fetchMore({});
        benchmark::DoNotOptimize(list.rowCount());
    }
}

} // namespace

BENCHMARK(BM_StoreInit)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_FirstPage)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_WordsLastWeek)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ListPaging)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_Add)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_InsightsCompute)
    ->Arg(200)
    ->Arg(kRows)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

int main(int argc, char** argv) {
    return tamvex::bench::runBenchmarks(argc, argv);
}
