#include "shell/MenuBarController.h"

#include "core/AppState.h"
#include "history/Formatting.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"
#include "shell/SymbolIcons.h"

#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

namespace tamvex {

namespace {
// Template images of the Mac take the panel's text colour. A tray cannot tell us its panel's
// colour, so ours are light with a dark halo: they read on a dark panel and a light one.
const QColor templateColor(0xf2, 0xf2, 0xf7);
const QColor templateOutline(0x1c, 0x1c, 0x1e);
const QColor recordingColor = QColor::fromRgbF(1.0f, 0.55f, 0.45f);

QAction* addAction(QMenu& menu, const QString& title, const QString& key, const std::function<void()>& action) {
    QAction* item = menu.addAction(title);
    if (!key.isEmpty())
        item->setShortcut(QKeySequence(QStringLiteral("Ctrl+") + key.toUpper()));
    QObject::connect(item, &QAction::triggered, &menu, [action] {
        if (action)
            action();
    });
    return item;
}
} // namespace

MenuBarController::MenuBarController(AppState& appState, Actions actions, QObject* parent)
    : QObject(parent), m_appState(appState), m_actions(std::move(actions)), m_statusMenu(std::make_unique<QMenu>()) {
    QMenu& menu = *m_statusMenu;
    addAction(menu, QStringLiteral("Запись (зажми горячую клавишу)"), {}, m_actions.toggleRecording);
    menu.addSeparator();
    addAction(menu, QStringLiteral("Открыть Sorvel…"), QStringLiteral(","), m_actions.openMain);
    addAction(menu, QStringLiteral("Проверить обновления…"), {}, m_actions.checkForUpdates);
    menu.addSeparator();
    addAction(menu, QStringLiteral("Выйти из Sorvel"), QStringLiteral("q"), m_actions.terminate);

    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        logInfo("No system tray in this session: the menu opens from the HUD's handle");
        return;
    }
    m_tray = std::make_unique<QSystemTrayIcon>();
    m_tray->setToolTip(QStringLiteral("Tamvex"));
    m_tray->setContextMenu(m_statusMenu.get());
    connect(&appState, &AppState::recordingStateChanged, this, &MenuBarController::updateIcon);
    updateIcon();
    m_tray->show();
}

MenuBarController::~MenuBarController() = default;

QString MenuBarController::iconSymbol(RecordingState::Case state, bool trayIconExists) {
    switch (state) {
    case RecordingState::Case::idle:
        return trayIconExists ? QStringLiteral("TrayIcon") : QStringLiteral("circle.fill");
    case RecordingState::Case::recording:
        return QStringLiteral("pawprint.circle.fill");
    case RecordingState::Case::processing:
        return QStringLiteral("waveform");
    case RecordingState::Case::error:
        return QStringLiteral("exclamationmark.triangle.fill");
    }
    return QStringLiteral("circle.fill");
}

QString MenuBarController::usageLine(double totalSpentUSD, qint64 totalRequests) {
    return QStringLiteral("Sorvel · ") + formatTokens(totalSpentUSD * 250000) + QStringLiteral(" · ") +
           QString::number(totalRequests) + QStringLiteral(" req");
}

QIcon MenuBarController::stateIcon(RecordingState::Case state, bool trayIconExists) {
    const QString symbol = iconSymbol(state, trayIconExists);
    switch (state) {
    case RecordingState::Case::recording:
        return SymbolIcons::icon(symbol, recordingColor); // keeps its colour
    case RecordingState::Case::processing:
    case RecordingState::Case::error:
        return SymbolIcons::icon(symbol, templateColor, templateOutline);
    case RecordingState::Case::idle:
        break;
    }
    return SymbolIcons::icon(symbol, templateColor);
}

void MenuBarController::updateIcon() {
    if (m_tray)
        m_tray->setIcon(stateIcon(m_appState.recordingState().kind(), SymbolIcons::exists(QStringLiteral("TrayIcon"))));
}

std::unique_ptr<QMenu> MenuBarController::buildPointerMenu() {
    auto menu = std::make_unique<QMenu>();
    const SettingsStore& settings = m_appState.settings();
    menu->addAction(usageLine(settings.totalSpentUSD(), settings.totalRequests()))->setEnabled(false);
    menu->addSeparator();
    auto open = [this](MainSection section) {
        return [this, section] {
            m_appState.setMainSection(section);
            if (m_actions.openMain)
                m_actions.openMain();
        };
    };
    addAction(*menu, QStringLiteral("Главная"), {}, open(MainSection::home));
    // The history lives on the home section.
    addAction(*menu, QStringLiteral("История"), QStringLiteral("h"), open(MainSection::home));
    addAction(*menu, QStringLiteral("Инсайты"), {}, open(MainSection::insights));
    addAction(*menu, QStringLiteral("Аккаунт"), {}, open(MainSection::account));
    addAction(*menu, QStringLiteral("Настройки"), QStringLiteral(","), open(MainSection::settings));
    menu->addSeparator();
    addAction(*menu, QStringLiteral("Онбординг…"), {}, m_actions.openWelcome);
    addAction(*menu, QStringLiteral("Проверить обновления…"), {}, m_actions.checkForUpdates);
    menu->addSeparator();
    addAction(*menu, QStringLiteral("Выйти из Sorvel"), QStringLiteral("q"), m_actions.terminate);
    return menu;
}

void MenuBarController::popUpPointerMenu() {
    // The last menu may still be closing: let the event loop delete it.
    if (m_pointerMenu)
        m_pointerMenu.release()->deleteLater();
    m_pointerMenu = buildPointerMenu();
    m_pointerMenu->popup(QCursor::pos());
}

} // namespace tamvex
