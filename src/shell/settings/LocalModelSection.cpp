#include "shell/settings/LocalModelSection.h"

#include "pipelines/local/ModelDownloader.h"
#include "pipelines/ServiceHosts.h"
#include "pipelines/local/LocalModelChoice.h"
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
} // namespace


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

LocalModelSection::LocalModelSection(ModelDownloader& downloader, QObject* parent)
    : QObject(parent), m_downloader(downloader) {
    connect(&m_downloader, &ModelDownloader::stateChanged, this, &LocalModelSection::refresh);
    connect(&m_downloader, &ModelDownloader::sourceChanged, this, &LocalModelSection::refresh);
    m_row = rowFor(m_downloader.state(), m_downloader.fileSize(model()), hosts(), modelName());
}

void LocalModelSection::followSettings(SettingsStore& settings) {
    m_settings = &settings;
    connect(&settings, &SettingsStore::changed, this, &LocalModelSection::refresh);
    refresh();
}

WhisperModel LocalModelSection::model() const {
    if (!m_settings)
        return WhisperModel::largeV3TurboQ5;
    return chooseLocalModel(
        m_settings->localModel(), [this](WhisperModel m) { return m_downloader.fileSize(m).has_value(); },
        LocalHardware::current());
}

void LocalModelSection::refresh() {
    Row row = rowFor(m_downloader.state(), m_downloader.fileSize(model()), hosts(), modelName());
    if (row == m_row)
        return;
    m_row = std::move(row);
    emit changed();
}

LocalModelSection::Hosts LocalModelSection::hosts() const {
    const ModelDescriptor d = m_downloader.descriptor(model());
    return {m_downloader.source(), d.downloadURL.host(), d.mirrorURL.host()};
}

void LocalModelSection::press() {
    const QString phase = m_row.phase;
    if (phase == QLatin1String("downloading"))
        m_downloader.cancel();
    else if (phase == QLatin1String("notDownloaded") || phase == QLatin1String("failed")) {
        const WhisperModel chosen = model();
        // The proposal becomes the choice, so the dictation looks for the file being fetched.
        if (m_settings && !m_settings->localModel())
            m_settings->setLocalModel(chosen);
        m_downloader.download(chosen);
    }
}

} // namespace tamvex
