#include "shell/InputAccessPrompt.h"

#include "platform/InputAccess.h"
#include "platform/Log.h"
#include "shell/MainWindowController.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QScreen>
#include <QQuickWindow>

namespace tamvex {

InputAccessPrompt::InputAccessPrompt(Clock& clock, InputAccess& input, QObject* parent)
    : QObject(parent), m_row(clock, PermissionRow::inputSpec(input)) {
    connect(&input, &InputAccess::promptRequested, this, [this] { show(); });
}

InputAccessPrompt::~InputAccessPrompt() {
    m_window.reset();
}

void InputAccessPrompt::show() {
    if (m_timesShown > 0)
        return; // once per launch: a failing paste must not open it at every dictation
    ++m_timesShown;
    m_engine = std::make_unique<QQmlEngine>();
    m_window = createModuleWindow(*m_engine, QStringLiteral("Main/InputAccessWindow.qml"),
                                  {{QStringLiteral("row"), QVariant::fromValue(&m_row)}});
    if (!m_window)
        return;
    logInfo("Showing the input access window");
    m_window->setTitle(QStringLiteral("Доступ к вводу"));
    // It comes up beside the application the text was meant for without taking its focus:
    // the text waits in the clipboard there for Ctrl+V.
    m_window->setFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::WindowDoesNotAcceptFocus);
    // The commands in place and the check for a minute, as the row's own button does.
    m_row.request();
    connect(m_window.get(), &QWindow::visibleChanged, this, [this](bool visible) {
        if (!visible)
            m_row.disappear();
    });
    m_window->resize(width, height);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        m_window->setPosition(screen->availableGeometry().center() - QPoint(width / 2, height / 2));
    m_window->show();
    m_window->raise();
}

} // namespace tamvex
