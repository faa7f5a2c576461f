#pragma once

#include "platform/Clock.h"
#include "platform/Error.h"

#include <QObject>
#include <QString>

#include <qcoro/qcorotask.h>

#include <memory>

namespace tamvex {

class Clipboard;
class FrontmostApp;
class InputAccess;
class KeySender;

/// Why a paste could not be done.
class TextInjectorError : public TamvexError {
public:
    enum class Kind { accessibilityNotGranted, eventSourceFailed, clipboardNotOwned, focusedWindowNotX11 };

    /// The error of `kind` with its Russian text.
    explicit TextInjectorError(Kind kind);
    Kind kind() const { return m_kind; }
    /// The Russian text of `kind`.
    static QString describe(Kind kind);

private:
    Kind m_kind;
};

/// Puts a finished text into the focused field the way a user would: the text goes on the
/// clipboard, the paste chord is pressed, and the clipboard is given back as it was.
class TextInjector : public QObject {
    Q_OBJECT
public:
    /// How long the target application gets to read the clipboard before it is restored.
    static constexpr double restoreDelaySec = 0.25;

    /// An injector over the given platform pieces; `frontmost` may be null (Ctrl+V always).
    TextInjector(Clock& clock, Clipboard& clipboard, KeySender& keys, InputAccess& access,
                 const FrontmostApp* frontmost = nullptr, QObject* parent = nullptr);
    ~TextInjector() override;

    /// The real pieces of this session: the system clipboard and a uinput keyboard made now
    /// (XTest when uinput is not writable); `frontmost` (the application's one, may be null)
    /// tells which window the chord goes to.
    static std::unique_ptr<TextInjector> createForSession(Clock& clock, const FrontmostApp* frontmost);

    /// Pastes `text` (not empty) and restores the clipboard after 0.25 s. Throws
    /// TextInjectorError; a cancelled wait returns at once, leaving the text on the clipboard.
    QCoro::Task<void> inject(QString text, Cancellation cancellation = {});

    /// On a Wayland session XTest reaches X11 windows alone: while it is the sender, a paste into
    /// any other window is refused (the text stays on the clipboard) rather than lost unseen.
    void setWaylandSession(bool wayland) { m_wayland = wayland; }

    /// The access check, for the permissions row.
    InputAccess& inputAccess() { return m_access; }
    /// The clipboard the paste goes through; a failed paste leaves the text there.
    Clipboard& clipboard() { return m_clipboard; }
    /// The key sender in use, for the log.
    const KeySender& keySender() const { return m_keys; }

private:
    struct Owned;
    TextInjector(std::unique_ptr<Owned> owned, Clock& clock, const FrontmostApp* frontmost);

    std::unique_ptr<Owned> m_owned;
    Clock& m_clock;
    Clipboard& m_clipboard;
    KeySender& m_keys;
    InputAccess& m_access;
    const FrontmostApp* m_frontmost;
    bool m_wayland = false;
};

} // namespace tamvex
