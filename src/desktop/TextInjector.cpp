#include "desktop/TextInjector.h"

#include "desktop/KeyInput.h"
#include "desktop/TerminalApps.h"
#include "desktop/UinputKeySender.h"
#include "desktop/X11Session.h"
#include "platform/Clipboard.h"
#include "platform/InputAccess.h"
#include "platform/Log.h"

namespace tamvex {

TextInjectorError::TextInjectorError(Kind kind) : TamvexError(describe(kind)), m_kind(kind) {}

QString TextInjectorError::describe(Kind kind) {
    switch (kind) {
    case Kind::accessibilityNotGranted:
        // The prompt that the same failure raises shows these steps with a copy button.
        return QStringLiteral("Нет доступа к вводу с клавиатуры. Как его дать — в окне «Доступ к вводу»: "
                              "группа input и правило udev для /dev/uinput, затем войти в систему заново.");
    case Kind::eventSourceFailed:
        return QStringLiteral("Не удалось отправить нажатие клавиш: виртуальная клавиатура (uinput/XTest) недоступна.");
    case Kind::focusedWindowNotX11:
        return QStringLiteral("Окно в фокусе — не X11, а без /dev/uinput вставить в него нельзя. Текст в буфере обмена.");
    case Kind::clipboardNotOwned:
        return QStringLiteral("Не удалось занять буфер обмена: другая программа не отдала его. Текст не вставлен.");
    }
    return {};
}

namespace {

/// Picks uinput, else XTest, once at start. The RemoteDesktop portal's keyboard is no third
/// choice: it reaches native Wayland windows, but the clipboard this Xwayland client sets does
/// not reach them while they have the focus, so its Ctrl+V would paste stale contents.
class SessionKeySender final : public KeySender {
public:
    SessionKeySender() {
        if (!m_uinput.isAvailable() && !qEnvironmentVariableIsEmpty("DISPLAY"))
            m_x11 = std::make_unique<X11KeySender>();
    }
    bool isAvailable() const override { return active() != nullptr; }
    bool sendPaste(PasteChord chord) override { return active() && active()->sendPaste(chord); }
    QString name() const override { return active() ? active()->name() : QStringLiteral("none"); }
    QString uinputError() const { return m_uinput.error(); }

private:
    KeySender* active() const {
        if (m_uinput.isAvailable())
            return const_cast<UinputKeySender*>(&m_uinput);
        if (m_x11 && m_x11->isAvailable())
            return m_x11.get();
        return nullptr;
    }
    UinputKeySender m_uinput;
    std::unique_ptr<X11KeySender> m_x11;
};

} // namespace

struct TextInjector::Owned {
    SystemClipboard clipboard;
    SessionKeySender keys;
    SystemInputAccess access{keys};
};

TextInjector::TextInjector(Clock& clock, Clipboard& clipboard, KeySender& keys, InputAccess& access,
                           const FrontmostApp* frontmost, QObject* parent)
    : QObject(parent), m_clock(clock), m_clipboard(clipboard), m_keys(keys), m_access(access),
      m_frontmost(frontmost) {}

TextInjector::TextInjector(std::unique_ptr<Owned> owned, Clock& clock, const FrontmostApp* frontmost)
    : m_owned(std::move(owned)), m_clock(clock), m_clipboard(m_owned->clipboard), m_keys(m_owned->keys),
      m_access(m_owned->access), m_frontmost(frontmost) {}

TextInjector::~TextInjector() = default;

std::unique_ptr<TextInjector> TextInjector::createForSession(Clock& clock, const FrontmostApp* frontmost) {
    auto owned = std::make_unique<Owned>();
    const QString sender = owned->keys.name();
    const QString uinputError = owned->keys.uinputError();
    auto injector = std::unique_ptr<TextInjector>(new TextInjector(std::move(owned), clock, frontmost));
    injector->setWaylandSession(KeyInput::isWaylandSession());
    logInfo("Paste keys: " + sender + (uinputError.isEmpty() ? QString() : " (uinput: " + uinputError + ")") +
            (sender == QLatin1String("XTest") && KeyInput::isWaylandSession()
                 ? " — on Wayland XTest reaches X11 windows only; other windows get the text on the clipboard"
                 : QString()));
    return injector;
}

QCoro::Task<void> TextInjector::inject(QString text, Cancellation cancellation) {
    if (!m_access.isTrusted()) {
        m_access.prompt();
        throw TextInjectorError(TextInjectorError::Kind::accessibilityNotGranted);
    }
    const std::optional<FocusedWindow> focused = m_frontmost ? m_frontmost->focusedWindow() : std::nullopt;
    if (m_wayland && m_keys.name() == QLatin1String("XTest") && !focused) {
        logInfo("Paste skipped: the focused window is not an X11 one, and XTest reaches X11 windows only");
        throw TextInjectorError(TextInjectorError::Kind::focusedWindowNotX11);
    }
    const ClipboardSnapshot snapshot = m_clipboard.snapshot();
    m_clipboard.clear();
    // Pressing the chord now would paste what another program holds.
    if (!m_clipboard.setText(text))
        throw TextInjectorError(TextInjectorError::Kind::clipboardNotOwned);
    const PasteChord chord = pasteChordFor(focused);
    if (!m_keys.sendPaste(chord))
        throw TextInjectorError(TextInjectorError::Kind::eventSourceFailed);
    if (!co_await m_clock.sleep(restoreDelaySec, cancellation))
        co_return;
    // An empty clipboard before keeps the dictated text.
    if (snapshot.isEmpty())
        co_return;
    m_clipboard.clear();
    m_clipboard.restore(snapshot);
}

} // namespace tamvex
