#include "shell/QuitController.h"

#include "shell/SettingsStore.h"

#include <QApplication>
#include <QCheckBox>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPushButton>

namespace tamvex {

QuitController::QuitController(SettingsStore& settings, std::function<DialogResult()> ask,
                               std::function<void()> closeWindows, std::function<void()> terminate)
    : m_settings(settings), m_ask(std::move(ask)), m_closeWindows(std::move(closeWindows)),
      m_terminate(std::move(terminate)) {}

bool QuitController::applicationShouldTerminate() {
    using B = SettingsStore::CmdQBehavior;
    switch (m_settings.cmdQBehavior()) {
    case B::quit:
        return true;
    case B::minimize:
        minimize();
        return false;
    case B::ask:
        break;
    }
    const DialogResult result = m_ask();
    switch (result.answer) {
    case Answer::quit:
        if (result.dontAskAgain)
            m_settings.setCmdQBehavior(B::quit);
        // Qt has no deferred answer to a quit request: the button itself ends the process.
        m_terminate();
        break;
    case Answer::minimize:
        if (result.dontAskAgain)
            m_settings.setCmdQBehavior(B::minimize);
        minimize();
        break;
    case Answer::cancel:
        break;
    }
    return false;
}

void QuitController::minimize() {
    if (m_closeWindows)
        m_closeWindows();
    if (m_settings.showInDock())
        m_settings.setShowInDock(false);
}

QuitController::DialogResult QuitController::runDialog() {
    QMessageBox box;
    box.setIcon(QMessageBox::Question);
    box.setWindowTitle(QStringLiteral("Tamvex"));
    box.setText(QStringLiteral("Выйти из Sorvel?"));
    box.setInformativeText(QStringLiteral("Sorvel живёт в трее. Если просто свернуть — горячая клавиша записи "
                                          "продолжит работать. Если выйти — записи не будут начинаться."));
    QPushButton* minimize = box.addButton(QStringLiteral("Свернуть в трей"), QMessageBox::AcceptRole);
    QPushButton* quit = box.addButton(QStringLiteral("Выйти"), QMessageBox::DestructiveRole);
    box.addButton(QStringLiteral("Отмена"), QMessageBox::RejectRole);
    box.setDefaultButton(minimize);
    auto* check = new QCheckBox(QStringLiteral("Не спрашивать в следующий раз"));
    box.setCheckBox(check);
    box.activateWindow();
    box.exec();
    DialogResult result;
    result.dontAskAgain = check->isChecked();
    if (box.clickedButton() == minimize)
        result.answer = Answer::minimize;
    else if (box.clickedButton() == quit)
        result.answer = Answer::quit;
    return result;
}

QuitShortcut::QuitShortcut(std::function<void()> onQuit, QObject* parent)
    : QObject(parent), m_onQuit(std::move(onQuit)) {}

bool QuitShortcut::isQuitKey(const QKeyEvent& event) {
    // The X key code of the Q position on PC keyboards (evdev KEY_Q + 8).
    constexpr quint32 qPosition = 24;
    const Qt::KeyboardModifiers mods =
        event.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier);
    return mods == Qt::ControlModifier && (event.key() == Qt::Key_Q || event.nativeScanCode() == qPosition);
}

bool QuitShortcut::eventFilter(QObject* watched, QEvent* event) {
    // A window sees the press first and passes it on to its items: act once, at the window.
    // Not while a dialog is up: Ctrl+Q in the quit question must not ask again.
    if (event->type() == QEvent::KeyPress && watched->isWindowType() && !QGuiApplication::modalWindow() &&
        isQuitKey(*static_cast<QKeyEvent*>(event))) {
        m_onQuit();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

} // namespace tamvex
