#include "shell/MainWindowController.h"

#include "core/AppState.h"
#include "platform/Log.h"
#include "shell/QmlModule.h"

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>

namespace tamvex {

std::unique_ptr<QQuickWindow> createModuleWindow(QQmlEngine& engine, const QString& file,
                                                 const QVariantMap& properties) {
    setUpQmlEngine(engine);
    QQmlComponent component(&engine, qmlModuleUrl(file));
    if (!component.isReady()) {
        // Creating from a component with errors crashes in Qt 6.4.
        logError(QStringLiteral("window %1 could not be built: %2").arg(file, component.errorString()));
        return nullptr;
    }
    std::unique_ptr<QObject> object(component.createWithInitialProperties(properties));
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    if (!window) {
        logError(QStringLiteral("window %1 could not be built: %2").arg(file, component.errorString()));
        return nullptr;
    }
    object.release();
    return std::unique_ptr<QQuickWindow>(window);
}

void showCentred(QQuickWindow& window, QSize size) {
    window.resize(size);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window.setPosition(screen->availableGeometry().center() - QPoint(size.width() / 2, size.height() / 2));
    bringToFront(window);
}

void bringToFront(QQuickWindow& window) {
    window.show();
    window.raise();
    window.requestActivate();
}

MainWindowController::MainWindowController(AppState& state, MainWindowModel::Hooks hooks, QObject* parent)
    : QObject(parent), m_state(&state), m_hooks(std::move(hooks)) {}

MainWindowController::~MainWindowController() {
    // The window's items refer to the model: the window goes first.
    m_window.reset();
    m_model.reset();
}

void MainWindowController::show() {
    if (m_window) {
        bringToFront(*m_window);
        return;
    }
    if (!m_state)
        return;
    if (!m_engine)
        m_engine = std::make_unique<QQmlEngine>();
    m_model = std::make_unique<MainWindowModel>(*m_state, m_hooks);
    m_window = createModuleWindow(*m_engine, QStringLiteral("Main/MainWindow.qml"),
                                  {{QStringLiteral("model"), QVariant::fromValue(m_model.get())}});
    if (!m_window) {
        m_model.reset();
        return;
    }
    m_window->setTitle(QStringLiteral("Tamvex"));
    m_window->setMinimumSize(QSize(minimumWidth, minimumHeight));
    showCentred(*m_window, QSize(width, height));
}

} // namespace tamvex
