#pragma once

#include "account/AccountStore.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSelfTest.h"
#include "platform/MicrophoneAccess.h"
#include "shell/SettingsStore.h"
#include "shell/ShellWindows.h"
#include "support/AppFixture.h"

#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStringList>

namespace tamvex::test {

inline HistoryEntry entryAt(const QDateTime& when, const QString& text = QStringLiteral("text"),
                            std::optional<QString> error = std::nullopt) {
    HistoryEntry e;
    e.id = QUuid::createUuid();
    e.createdAt = when;
    e.text = text;
    e.errorMessage = std::move(error);
    return e;
}

class FixedMicrophone final : public MicrophoneAccess {
public:
    Status current = Status::authorized;
    Status status() const override {
        ++reads;
        return current;
    }
    /// How many times the status was read: each is a microphone check of the desktop's.
    mutable int reads = 0;
};

/// Both windows over a sandboxed AppState, with a browser that opens nothing.
struct WindowFixture {
    AppFixture app;
    FixedMicrophone microphone;
    FakeAccess input;
    /// Where the local model comes from; unset, the real one.
    ModelDownloader::DescriptorProvider describeModel;
    ModelDownloader models{app.state->environment().paths, app.clock, nullptr, [this](WhisperModel model) {
                               return describeModel ? describeModel(model) : whisperModels::descriptor(model);
                           }};
    /// The models' speeds, kept in the sandbox; a file there is measured when the pane appears.
    LocalWhisperEngineCache modelCache{[this](WhisperModel model) { return models.localURL(model); }};
    ModelSelfTest selfTest{modelCache, ModelSpeedRecord(models.speedRecordPath()), app.clock, QStringLiteral("CPU")};
    ShellWindows windows{*app.state,
                         ShellWindows::Config{.toggleRecording = [] {},
                                              .openUrl = [](const QUrl&) { return true; },
                                              .yandexHost = QUrl("http://127.0.0.1:9"),
                                              .topUpUrl = QUrl("http://127.0.0.1:9/topup"),
                                              .models = &models,
                                              .selfTest = &selfTest},
                         microphone, input};

    /// A week of sample dictations and the insights computed from them.
    void seedSampleData() {
        const QDateTime now = app.clock.currentDateTime();
        const QStringList texts{
            "Напомни команде про созвон в четверг в 11:00 и пришли повестку",
            "Привет! Завтра буду в офисе к десяти, захвачу документы по проекту",
            "Сделать ревью пулреквеста с новым экраном настроек\n- проверить тексты\n- проверить отступы",
            "Идея: показывать в трее сколько слов надиктовано за день",
            "Письмо клиенту: спасибо за встречу, отправляю коммерческое предложение во вложении",
        };
        const TextCategory categories[] = {TextCategory::tasks, TextCategory::messages, TextCategory::code,
                                           TextCategory::ideas, TextCategory::emails};
        for (int day = 6; day >= 0; --day) {
            for (int i = 0; i < 3; ++i) {
                const int n = (day + i) % texts.size();
                HistoryEntry e = entryAt(now.addDays(-day).addSecs(-3600 * (i + 1)), texts.at(n));
                e.durationSec = 8 + i;
                e.category = categories[n];
                e.costUSD = 0.0004 * (i + 1);
                app.state->history().add(e);
            }
        }
        HistoryEntry failed =
            entryAt(now.addSecs(-60), {}, "Сервер не ответил за 25 секунд. Запись сохранена — попробуй ещё раз.");
        failed.durationSec = 4;
        app.state->history().add(failed);
        app.state->insights().compute();
    }
};

/// The texts of the visible Text items under `item`, depth first.
inline QStringList visibleTexts(const QQuickItem* item) {
    QStringList texts;
    if (!item || !item->isVisible())
        return texts;
    const QVariant text = item->property("text");
    if (text.typeId() == QMetaType::QString && !text.toString().isEmpty())
        texts << text.toString();
    for (const QQuickItem* child : item->childItems())
        texts << visibleTexts(child);
    return texts;
}

/// The first item named `name` under `item`.
inline QQuickItem* findItem(QQuickItem* item, const QString& name) {
    if (!item)
        return nullptr;
    if (item->objectName() == name)
        return item;
    for (QQuickItem* child : item->childItems())
        if (QQuickItem* found = findItem(child, name))
            return found;
    return nullptr;
}

/// How many different colours a picture has: a blank window has one or two.
inline int colourCount(const QImage& image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4)
            colours.insert(image.pixel(x, y));
    return int(colours.size());
}

} // namespace tamvex::test
