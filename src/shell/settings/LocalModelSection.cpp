#include "shell/settings/LocalModelSection.h"

#include "core/RecordingConstants.h"
#include "pipelines/ServiceHosts.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSelfTest.h"
#include "shell/SettingsStore.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace tamvex {

namespace {

// Decimal units, as a file manager counts a file's size.
QString sizeText(qint64 bytes) {
    const QLocale russian(QLocale::Russian);
    if (bytes >= 1000LL * 1000 * 1000)
        return russian.toString(double(bytes) / 1e9, 'f', 1) + QStringLiteral(" ГБ");
    return russian.toString(std::round(double(bytes) / 1e6), 'f', 0) + QStringLiteral(" МБ");
}

constexpr double kLimitSeconds = RecordingConstants::transcribeTimeoutSec;

QString secondsText(double seconds) {
    return QLocale(QLocale::Russian).toString(std::round(seconds), 'f', 0) + QStringLiteral(" с");
}

} // namespace

QVariantMap LocalModelSection::Entry::toMap() const {
    return {{QStringLiteral("key"), key},
            {QStringLiteral("name"), name},
            {QStringLiteral("tag"), tag},
            {QStringLiteral("details"), details},
            {QStringLiteral("phase"), phase},
            {QStringLiteral("status"), status},
            {QStringLiteral("speed"), speed},
            {QStringLiteral("progress"), progress},
            {QStringLiteral("chosen"), chosen},
            {QStringLiteral("current"), current},
            {QStringLiteral("slow"), slow},
            {QStringLiteral("canDownload"), canDownload},
            {QStringLiteral("canCancel"), canCancel},
            {QStringLiteral("canChoose"), canChoose},
            {QStringLiteral("canDelete"), canDelete},
            {QStringLiteral("canMeasure"), canMeasure}};
}

LocalModelSection::Entry LocalModelSection::entryFor(const EntryInput& in) {
    using Kind = ModelDownloadState::Kind;
    Entry e;
    e.key = whisperModels::rawValue(in.model);
    e.name = whisperModels::displayName(in.model);
    e.details = sizeText(whisperModels::expectedBytes(in.model)) + QStringLiteral(" · ") + whisperModels::languages(in.model);
    e.chosen = in.chosen;
    if (in.chosen)
        e.tag = QStringLiteral("выбрана");
    else if (in.inUse)
        e.tag = in.fileSize ? QStringLiteral("используется") : QStringLiteral("рекомендуем");
    switch (in.state.kind()) {
    case Kind::downloading:
        e.phase = QStringLiteral("downloading");
        e.progress = std::clamp(in.state.progress(), 0.0, 1.0);
        e.status = QStringLiteral("Скачивается · %1%").arg(qint64(e.progress * 100.0));
        e.canCancel = true;
        return e;
    case Kind::verifying:
        e.phase = QStringLiteral("verifying");
        e.status = QStringLiteral("Проверяем целостность файла…");
        return e;
    case Kind::failed:
        e.phase = QStringLiteral("failed");
        e.status = QStringLiteral("Ошибка скачивания: ") + in.state.reason();
        e.canDownload = !in.otherTransfer;
        return e;
    case Kind::idle:
    case Kind::completed:
        break;
    }
    if (!in.fileSize) {
        e.phase = QStringLiteral("notDownloaded");
        e.status = QStringLiteral("Не скачана");
        e.canDownload = !in.otherTransfer;
        return e;
    }
    e.phase = QStringLiteral("ready");
    e.current = in.chosen || in.inUse;
    e.status = QStringLiteral("Скачана");
    e.canChoose = !in.chosen;
    e.canDelete = true;
    if (in.measuring) {
        e.speed = QStringLiteral("Проверяем скорость на этом компьютере…");
    } else if (in.speed) {
        e.speed = in.speed->text();
        e.slow = !in.speed->canFinish(speedRuleDictationSeconds, kLimitSeconds);
        e.canMeasure = true;
    } else if (!in.measureFailure.isEmpty()) {
        e.speed = QStringLiteral("Скорость не проверена: ") + in.measureFailure;
        e.canMeasure = true;
    } else {
        e.speed = QStringLiteral("Скорость ещё не проверена");
        e.canMeasure = true;
    }
    return e;
}

QString LocalModelSection::warningFor(WhisperModel chosen, const QMap<WhisperModel, ModelSpeed>& speeds) {
    const auto measured = speeds.constFind(chosen);
    if (measured == speeds.cend() || measured->canFinish(speedRuleDictationSeconds, kLimitSeconds))
        return {};
    QString text = QStringLiteral("%1 не успевает на этом компьютере: 20 с диктовки распознаются около %2, а "
                                  "предел — %3.")
                       .arg(whisperModels::displayName(chosen), secondsText(measured->secondsFor(speedRuleDictationSeconds)),
                            secondsText(kLimitSeconds));
    if (const auto fastest = fastestModelThatCanFinish(speeds, speedRuleDictationSeconds, kLimitSeconds))
        return text + QStringLiteral(" Успевает %1: %2.").arg(whisperModels::displayName(*fastest),
                                                             speeds.value(*fastest).text());
    // Nothing measured keeps up: the smallest model not yet tried is the one to try.
    std::optional<WhisperModel> untried;
    for (WhisperModel m : whisperModels::all())
        if (!speeds.contains(m) && (!untried || whisperModels::expectedBytes(m) < whisperModels::expectedBytes(*untried)))
            untried = m;
    if (untried)
        return text + QStringLiteral(" Ни одна из проверенных моделей не успевает — попробуйте %1.")
                          .arg(whisperModels::displayName(*untried));
    return text + QStringLiteral(" Ни одна модель не успевает здесь — для диктовки выберите облачный режим.");
}


LocalModelSection::Row LocalModelSection::rowFor(const ModelDownloadState& state, std::optional<qint64> fileSize,
                                                 const Hosts& hosts, const QString& modelName) {
    using Kind = ModelDownloadState::Kind;
    switch (state.kind()) {
    case Kind::downloading: {
        const double progress = std::clamp(state.progress(), 0.0, 1.0);
        const QString from = hosts.active.isEmpty() ? QString() : QStringLiteral("Загрузка с ") + hosts.active;
        return {QStringLiteral("downloading"), QString(), QStringLiteral("Скачивается ") + modelName, from,
                QString::number(qint64(progress * 100.0)) + QStringLiteral("%"), progress,
                QStringLiteral("Отменить"), QString()};
    }
    case Kind::verifying:
        return {QStringLiteral("verifying"), QString(), QString(), QStringLiteral("Проверяем целостность файла…")};
    case Kind::failed:
        return {QStringLiteral("failed"), QStringLiteral("exclamationmark.triangle.fill"), QString(),
                QStringLiteral("Ошибка скачивания: ") + state.reason(), QString(), 0.0,
                QStringLiteral("Попробовать снова"), QStringLiteral("arrow.clockwise")};
    case Kind::idle:
    case Kind::completed:
        break;
    }
    // Idle or proved: what counts is whether the file is there.
    if (fileSize)
        return {QStringLiteral("ready"), QStringLiteral("checkmark.seal.fill"), modelName,
                QStringLiteral("Готово · занимает ") + sizeText(*fileSize)};
    // The service's own host is named as the service; one a self-hoster set is named as it is.
    const QString main = hosts.main == QUrl(QStringLiteral(TAMVEX_DEFAULT_MAIN_URL)).host()
                             ? QStringLiteral("серверов Sorvel")
                             : hosts.main;
    return {QStringLiteral("notDownloaded"), QString(), QString(),
            QStringLiteral("Скачается %1 с %2, запасной источник — зеркало %3. Один раз — потом распознавание "
                           "работает оффлайн.")
                .arg(modelName, main, hosts.mirror),
            QString(), 0.0, QStringLiteral("Скачать модель"), QStringLiteral("arrow.down.circle.fill")};
}

LocalModelSection::LocalModelSection(ModelDownloader& downloader, ModelSelfTest* selfTest, QObject* parent)
    : QObject(parent), m_downloader(downloader), m_selfTest(selfTest) {
    connect(&m_downloader, &ModelDownloader::stateChanged, this, [this](const ModelDownloadState& state) {
        // A model just proved is measured at once, while the user still looks at the card.
        if (state.kind() == ModelDownloadState::Kind::completed && m_selfTest && m_downloader.model())
            m_selfTest->request(*m_downloader.model());
        update();
    });
    connect(&m_downloader, &ModelDownloader::sourceChanged, this, &LocalModelSection::update);
    if (m_selfTest)
        connect(m_selfTest, &ModelSelfTest::changed, this, &LocalModelSection::update);
    update();
}

void LocalModelSection::followSettings(SettingsStore& settings) {
    m_settings = &settings;
    connect(&settings, &SettingsStore::changed, this, &LocalModelSection::update);
    update();
}

WhisperModel LocalModelSection::model() const {
    if (!m_settings)
        return WhisperModel::largeV3TurboQ5;
    const WhisperModel model = chooseLocalModel(
        m_settings->localModel(), [this](WhisperModel m) { return m_downloader.fileSize(m).has_value(); },
        LocalHardware::current());
    // A proposal this machine already measured too slow gives way to one it measured fast enough.
    if (m_settings->localModel() || m_downloader.fileSize(model))
        return model;
    return correctedBySpeed(model, speeds(), speedRuleDictationSeconds, kLimitSeconds);
}

QVariantList LocalModelSection::models() const {
    QVariantList list;
    for (const Entry& e : m_entries)
        list.append(e.toMap());
    return list;
}

ModelDownloadState LocalModelSection::stateOf(WhisperModel model) const {
    return m_downloader.model() == model ? m_downloader.state() : ModelDownloadState::idle();
}

QMap<WhisperModel, ModelSpeed> LocalModelSection::speeds() const {
    return m_selfTest ? m_selfTest->speeds() : QMap<WhisperModel, ModelSpeed>();
}

void LocalModelSection::update() {
    const WhisperModel current = model();
    Row row = rowFor(stateOf(current), m_downloader.fileSize(current), hosts(), modelName());
    const bool transfer = m_downloader.state().kind() == ModelDownloadState::Kind::downloading ||
                          m_downloader.state().kind() == ModelDownloadState::Kind::verifying;
    const QMap<WhisperModel, ModelSpeed> kept = speeds();
    QList<Entry> entries;
    for (WhisperModel m : whisperModels::all()) {
        EntryInput in;
        in.model = m;
        in.state = stateOf(m);
        in.fileSize = m_downloader.fileSize(m);
        if (kept.contains(m))
            in.speed = kept.value(m);
        in.measuring = m_selfTest && m_selfTest->isPending(m);
        in.measureFailure = m_selfTest ? m_selfTest->failure(m) : QString();
        in.chosen = m_settings && m_settings->localModel() == m;
        in.inUse = m_settings && !m_settings->localModel() && m == current;
        in.otherTransfer = transfer && m_downloader.model() != m;
        entries.append(entryFor(in));
    }
    QString warning = m_settings && m_settings->localModel() ? warningFor(current, kept) : QString();
    if (row == m_row && entries == m_entries && warning == m_warning)
        return;
    m_row = std::move(row);
    m_entries = std::move(entries);
    m_warning = std::move(warning);
    emit changed();
}

void LocalModelSection::refresh() {
    if (m_selfTest)
        m_selfTest->reload();
    update();
    if (!m_selfTest)
        return;
    for (WhisperModel m : whisperModels::all())
        if (m_downloader.fileSize(m))
            m_selfTest->request(m);
}

LocalModelSection::Hosts LocalModelSection::hosts() const {
    const ModelDescriptor d = m_downloader.descriptor(model());
    return {m_downloader.source(), d.downloadURL.host(), d.mirrorURL.host()};
}

void LocalModelSection::press() {
    const QString phase = m_row.phase;
    if (phase == QLatin1String("downloading"))
        m_downloader.cancel();
    else if (phase == QLatin1String("notDownloaded") || phase == QLatin1String("failed"))
        download(whisperModels::rawValue(model()));
}

void LocalModelSection::download(const QString& key) {
    const auto chosen = whisperModels::fromRawValue(key);
    if (!chosen)
        return;
    // The first download becomes the choice, so the dictation looks for the file being fetched.
    if (m_settings && !m_settings->localModel())
        m_settings->setLocalModel(*chosen);
    m_downloader.download(*chosen);
}

void LocalModelSection::cancel() {
    m_downloader.cancel();
}

void LocalModelSection::choose(const QString& key) {
    const auto chosen = whisperModels::fromRawValue(key);
    if (chosen && m_settings && m_downloader.fileSize(*chosen))
        m_settings->setLocalModel(*chosen);
}

void LocalModelSection::remove(const QString& key) {
    const auto model = whisperModels::fromRawValue(key);
    if (!model)
        return;
    if (m_downloader.model() == model && m_downloader.state().kind() == ModelDownloadState::Kind::downloading)
        m_downloader.cancel();
    m_downloader.deleteModel(*model);
    if (m_settings && m_settings->localModel() == model)
        m_settings->setLocalModel(std::nullopt);
    update();
}

void LocalModelSection::measure(const QString& key) {
    if (const auto model = whisperModels::fromRawValue(key); model && m_selfTest && m_downloader.fileSize(*model))
        m_selfTest->request(*model, true);
}

} // namespace tamvex
