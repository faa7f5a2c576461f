#include "cli/HistoryCommands.h"

#include "cli/CliSession.h"
#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "desktop/ControlService.h"
#include "history/Formatting.h"
#include "history/HistoryDB.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "platform/Clock.h"
#include "platform/Paths.h"

#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>

namespace tamvex {

namespace {

constexpr int kDefaultListLimit = 20;
// A retry runs the pipeline under its 25 s limit, after building it and perhaps waiting for
// a slow host: far beyond the bus's own default of 25 s.
constexpr int kRetryCallTimeoutMs = 5 * 60 * 1000;
// How long a finished retry waits for its background classification to store the category.
constexpr double kClassificationWaitSec = 30.0;

const char* const kHistoryUsage = "Использование:\n"
                                  "  tamvex history list [--limit N] [--json]\n"
                                  "  tamvex history show ID [--json]\n"
                                  "  tamvex history retry ID [--json]\n"
                                  "  tamvex history export --json\n";
const char* const kInsightsUsage = "Использование: tamvex insights [--json] [--recompute]\n";

struct Options {
    QStringList positional;
    bool json = false;
    bool recompute = false;
    std::optional<int> limit;
    QString error;
};

// A whole number above zero. Past what an int holds it can only mean "all of them": capped.
std::optional<int> positiveCount(const QString& text) {
    if (text.isEmpty() || !std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; }))
        return std::nullopt;
    bool fits = false;
    const qulonglong n = text.toULongLong(&fits);
    if (fits && n == 0)
        return std::nullopt;
    return fits && n < qulonglong(std::numeric_limits<int>::max()) ? int(n) : std::numeric_limits<int>::max();
}

Options parseOptions(const QStringList& args, bool allowLimit, bool allowRecompute) {
    Options o;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == "--json") {
            o.json = true;
        } else if (a == "--recompute" && allowRecompute) {
            o.recompute = true;
        } else if (a == "--limit" && allowLimit) {
            const auto n = positiveCount(args.value(i + 1));
            if (!n) {
                o.error = "После --limit нужно целое число больше нуля.";
                return o;
            }
            o.limit = *n;
            ++i;
        } else if (a.startsWith("--")) {
            o.error = "Неизвестный параметр: " + a;
            return o;
        } else {
            o.positional.append(a);
        }
    }
    return o;
}

QString oneLine(const QString& text, int maxLength) {
    QString line = text.simplified();
    if (line.size() > maxLength)
        line = line.left(maxLength - 1) + "…";
    return line;
}

QString localTime(const QDateTime& date) { return date.toLocalTime().toString("yyyy-MM-dd HH:mm"); }

void writeJson(QTextStream& out, const QJsonDocument& doc) { out << QString::fromUtf8(doc.toJson(QJsonDocument::Indented)); }

QJsonArray toJsonArray(const QList<HistoryEntry>& entries) {
    QJsonArray array;
    for (const HistoryEntry& e : entries)
        array.append(e.toJson());
    return array;
}

// Runs `read` on the application's database opened read-only. A missing file is an empty
// history and `read` is not called; false (with a message on `err`) when the file cannot be read.
bool readHistory(const Paths& paths, QTextStream& err, const std::function<void(HistoryDB&)>& read) {
    const QString path = paths.dataFile("history.db");
    if (!QFileInfo::exists(path))
        return true;
    try {
        HistoryDB db = HistoryDB::openReadOnly(path);
        read(db);
        return true;
    } catch (const HistoryDBError& e) {
        err << "Не удалось прочитать историю (" << path << "): " << e.message() << "\n";
        return false;
    }
}

void printEntry(QTextStream& out, const HistoryEntry& e) {
    out << "ID:           " << uuidText(e.id) << "\n";
    out << "Создано:      " << localTime(e.createdAt) << "\n";
    out << "Длительность: " << QString::asprintf("%.1f с", e.durationSec) << "\n";
    if (e.modelUsed)
        out << "Модель:       " << *e.modelUsed << "\n";
    if (e.appContext)
        out << "Приложение:   " << *e.appContext << "\n";
    if (e.category)
        out << "Категория:    " << categoryTitle(*e.category) << "\n";
    if (e.costUSD)
        out << "Стоимость:    " << QString::asprintf("$%.6f", *e.costUSD) << "\n";
    if (e.promptTokens || e.completionTokens)
        out << "Токены:       " << e.promptTokens.value_or(0) << " + " << e.completionTokens.value_or(0) << "\n";
    if (e.errorMessage)
        out << "Ошибка:       " << *e.errorMessage << "\n";
    if (e.audioPath)
        out << "Аудио:        " << *e.audioPath << "\n";
    out << "Текст:\n" << (e.text.isEmpty() ? QStringLiteral("(пусто)") : e.text) << "\n";
}

int listCommand(const Paths& paths, const Options& o, QTextStream& out, QTextStream& err) {
    QList<HistoryEntry> entries;
    qint64 total = 0;
    if (!readHistory(paths, err, [&](HistoryDB& db) {
            entries = db.fetch(o.limit.value_or(kDefaultListLimit), 0);
            total = db.count();
        }))
        return 1;
    if (o.json) {
        writeJson(out, QJsonDocument(toJsonArray(entries)));
        return 0;
    }
    if (entries.isEmpty()) {
        out << "История пуста.\n";
        return 0;
    }
    for (const HistoryEntry& e : entries) {
        const QString what = e.text.isEmpty() ? "Ошибка: " + e.errorMessage.value_or("нет текста") : e.text;
        out << uuidText(e.id).left(8) << "  " << localTime(e.createdAt) << "  "
            << QString::asprintf("%5.1f с", e.durationSec) << "  "
            << (e.category ? categoryTitle(*e.category) : QStringLiteral("—")).leftJustified(9) << "  " << oneLine(what, 80)
            << "\n";
    }
    out << "Показано " << entries.size() << " из " << total << ".\n";
    return 0;
}

// The one entry whose id is `wanted` or starts with it (the list shows eight characters);
// none, with the reason on `err`, when no entry or several match or the file can't be read.
std::optional<HistoryEntry> findEntry(const Paths& paths, const QString& wanted, QTextStream& err) {
    const QString prefix = wanted.toUpper();
    QList<HistoryEntry> matches;
    if (!readHistory(paths, err, [&](HistoryDB& db) {
            for (HistoryEntry& e : db.fetch())
                if (uuidText(e.id).startsWith(prefix))
                    matches.append(std::move(e));
        }))
        return std::nullopt;
    if (matches.isEmpty()) {
        err << "Запись не найдена: " << wanted << "\n";
        return std::nullopt;
    }
    if (matches.size() > 1) {
        err << "Под «" << wanted << "» подходят несколько записей; укажите больше символов ID.\n";
        return std::nullopt;
    }
    return matches.first();
}

// The entry that the ID argument of `show` and `retry` names; none with the exit code in
// `failure`: 2 when the argument is missing, 1 when it names no single entry.
std::optional<HistoryEntry> namedEntry(const Paths& paths, const Options& o, QTextStream& err, int& failure) {
    failure = 2;
    if (o.positional.size() != 2) {
        err << kHistoryUsage;
        return std::nullopt;
    }
    failure = 1;
    return findEntry(paths, o.positional[1], err);
}

int showCommand(const Paths& paths, const Options& o, QTextStream& out, QTextStream& err) {
    int failure = 0;
    const std::optional<HistoryEntry> entry = namedEntry(paths, o, err, failure);
    if (!entry)
        return failure;
    if (o.json)
        writeJson(out, QJsonDocument(entry->toJson()));
    else
        printEntry(out, *entry);
    return 0;
}

struct RetryOutcome {
    bool succeeded = false;
    QString message; ///< the new text, or the error
};

// Asks the running instance to retry, so that one process owns the history. None, with the
// reason on `err`, when the call itself failed.
std::optional<RetryOutcome> retryInRunningInstance(QDBusConnection bus, const QUuid& id, QTextStream& err) {
    QDBusMessage call = QDBusMessage::createMethodCall(ControlService::serviceName, ControlService::objectPath,
                                                       ControlService::interfaceName, "Retry");
    call << uuidText(id);
    QDBusPendingCallWatcher watcher(bus.asyncCall(call, kRetryCallTimeoutMs));
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    if (!watcher.isFinished())
        loop.exec();
    const QDBusMessage reply = watcher.reply();
    const QList<QVariant> values = reply.arguments();
    if (reply.type() == QDBusMessage::ErrorMessage || values.size() != 2) {
        err << "Tamvex не ответил: " << (reply.errorMessage().isEmpty() ? "неожиданный ответ" : reply.errorMessage())
            << "\n";
        return std::nullopt;
    }
    return RetryOutcome{values[0].toBool(), values[1].toString()};
}

// Runs the retry in this process, over the user's own history and settings, and waits for
// the classification so that the category lands before the process ends.
RetryOutcome retryHere(const QUuid& id) {
    CliSession session;
    AppState& appState = session.appState();
    appState.history().loadUntilFound(id);
    QCoro::Task<void> loading = session.loadAccount();
    runToEnd(loading);
    RecordingCoordinator coordinator(appState);
    std::optional<RetryOutcome> outcome;
    QObject::connect(&coordinator, &RecordingCoordinator::retryFinished,
                     [&](const QUuid&, bool succeeded, const QString& message) {
                         outcome = RetryOutcome{succeeded, message};
                     });
    QCoro::Task<void> retry = coordinator.retryTranscription(id);
    runToEnd(retry);
    if (coordinator.pendingClassifications() > 0) {
        QEventLoop loop;
        QObject::connect(&coordinator, &RecordingCoordinator::classificationFinished, &loop, [&] {
            if (coordinator.pendingClassifications() == 0)
                loop.quit();
        });
        const Clock::TimerId limit = session.clock().schedule(kClassificationWaitSec, [&] { loop.quit(); });
        loop.exec();
        session.clock().cancelTimer(limit);
    }
    return outcome.value_or(RetryOutcome{false, QStringLiteral("Повтор не завершился.")});
}

int retryCommand(const Paths& paths, const Options& o, QTextStream& out, QTextStream& err) {
    int failure = 0;
    const std::optional<HistoryEntry> entry = namedEntry(paths, o, err, failure);
    if (!entry)
        return failure;
    keepLogsOutOfTheTerminal();
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Asking the bus daemon only: never blocks on an instance that does not answer.
    const bool instanceRuns = bus.isConnected() && bus.interface() &&
                              bus.interface()->isServiceRegistered(ControlService::serviceName).value();
    const std::optional<RetryOutcome> outcome =
        instanceRuns ? retryInRunningInstance(bus, entry->id, err) : std::optional(retryHere(entry->id));
    if (!outcome)
        return 1;
    if (o.json) {
        const std::optional<HistoryEntry> after = findEntry(paths, uuidText(entry->id), err);
        if (after)
            writeJson(out, QJsonDocument(after->toJson()));
    } else if (outcome->succeeded) {
        out << outcome->message << "\n";
    }
    if (!outcome->succeeded) {
        err << outcome->message << "\n";
        return 1;
    }
    return 0;
}

int exportCommand(const Paths& paths, QTextStream& out, QTextStream& err) {
    QList<HistoryEntry> entries;
    if (!readHistory(paths, err, [&](HistoryDB& db) { entries = db.fetch(); }))
        return 1;
    writeJson(out, QJsonDocument(toJsonArray(entries)));
    return 0;
}

void printInsights(QTextStream& out, const Insights& s, const QDateTime& now) {
    out << insightsUpdatedCaption(s.generatedAt, now) << "\n\n";
    for (const InsightTile& tile : insightsCards(s))
        out << tile.title << ": " << tile.value << " (" << tile.subtitle << ")\n";
    out << "\n" << weeklyGoal(s.wordsLastWeek).label << " — " << weeklyGoal(s.wordsLastWeek).caption << "\n";
    out << "\nКатегории:\n";
    const auto shares = categoryShares(s.categoryBreakdown);
    if (shares.isEmpty())
        out << "  " << categoriesEmptyText() << "\n";
    for (const CategoryShare& row : shares)
        out << "  " << categoryTitle(row.category) << ": " << row.percentText << " (" << row.words << ")\n";
    out << "\nЧасто использую:\n";
    const auto words = sortedTopWords(s.topWords);
    if (words.isEmpty())
        out << "  " << topWordsEmptyText() << "\n";
    for (const auto& [word, count] : words)
        out << "  " << word << ": " << count << "\n";
    out << "\nАктивность за месяц (слов по дням):\n";
    const auto grid = activityGrid(s.heatmap, now);
    for (qsizetype row = 0; row < grid.size(); row += 7) {
        out << "  " << grid[row].date.toString("dd.MM") << "–" << grid[row + 6].date.toString("dd.MM") << ":";
        for (qsizetype i = row; i < row + 7; ++i)
            out << " " << QString::number(grid[i].words).rightJustified(5);
        out << "\n";
    }
}

} // namespace

int runHistoryCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    const Options o = parseOptions(args, args.value(0) == "list", false);
    if (!o.error.isEmpty()) {
        err << o.error << "\n" << kHistoryUsage;
        return 2;
    }
    const Paths paths = Paths::standard();
    const QString sub = o.positional.value(0);
    if (sub == "list" && o.positional.size() == 1)
        return listCommand(paths, o, out, err);
    if (sub == "show")
        return showCommand(paths, o, out, err);
    if (sub == "retry")
        return retryCommand(paths, o, out, err);
    if (sub == "export" && o.positional.size() == 1)
        return exportCommand(paths, out, err);
    err << kHistoryUsage;
    return 2;
}

int runInsightsCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    const Options o = parseOptions(args, false, true);
    if (!o.error.isEmpty() || !o.positional.isEmpty()) {
        err << (o.error.isEmpty() ? "Лишний аргумент: " + o.positional.first() : o.error) << "\n" << kInsightsUsage;
        return 2;
    }
    const Paths paths = Paths::standard();
    const QString file = paths.dataFile("insights.json");
    WallClock clock;
    const QDateTime now = clock.currentDateTime();
    std::optional<Insights> snapshot = InsightsStore::load(file);
    if (o.recompute) {
        QList<HistoryEntry> page;
        // The same set as the application's: the newest page.
        if (!readHistory(paths, err, [&](HistoryDB& db) { page = db.fetch(HistoryStore::pageSize, 0); }))
            return 1;
        snapshot = computeInsights(page, now, snapshot ? snapshot->llmSummary : std::nullopt);
        if (paths.ensureDataDir().isEmpty() || !InsightsStore::save(*snapshot, file)) {
            err << "Не удалось сохранить " << file << "\n";
            return 1;
        }
    }
    if (o.json) {
        out << (snapshot ? QString::fromUtf8(snapshot->toJson()) : QStringLiteral("null\n"));
        return 0;
    }
    if (!insightsDashboardVisible(snapshot)) {
        const auto [title, text] = insightsPlaceholder();
        out << title << "\n" << text << "\n";
        if (!snapshot)
            out << "Чтобы посчитать по истории: tamvex insights --recompute\n";
        return 0;
    }
    printInsights(out, *snapshot, now);
    return 0;
}

} // namespace tamvex
