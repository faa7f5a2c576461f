#pragma once

#include "KeyboardShortcuts/Shortcut.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

namespace tamvex::KeyboardShortcuts {

class ShortcutRegistry;

/// The Russian text of a recorder message key ("record_shortcut", "ok", ...); the key
/// itself when unknown.
QString recorderText(const QString& key);

/// Well-known shortcuts of the GNOME and KDE desktops that a recorded shortcut would clash with.
QList<Shortcut> defaultSystemShortcuts();

/// The logic of the shortcut field of the settings pane: what a key press while the field
/// is editing does to the stored shortcut. The QML field forwards its focus and key
/// presses here and shows the texts, beeps and alerts this model asks for.
class Recorder : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(ShortcutRecorder)
    QML_UNCREATABLE("The settings pane makes the recorder")
    /// The stored shortcut as a Linux screen shows it ("Ctrl+Alt+D"), or empty.
    Q_PROPERTY(QString text READ text NOTIFY shortcutChanged)
    Q_PROPERTY(bool hasShortcut READ hasShortcut NOTIFY shortcutChanged)
    Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY activeChanged)
    Q_PROPERTY(QString placeholder READ placeholder NOTIFY activeChanged)
    /// The modifiers held while editing, as the field shows them before the key ("Ctrl+Alt+").
    Q_PROPERTY(QString heldModifiersText READ heldModifiersText NOTIFY heldModifiersChanged)
public:
    /// What a key press did.
    enum class Outcome { ignored, cancelled, cleared, beeped, usedByMenuItem, usedBySystem, stored, modifierHeld };
    Q_ENUM(Outcome)

    /// Looks up the title of the application's menu item with this shortcut, if any.
    using MenuLookup = std::function<std::optional<QString>(const Shortcut&)>;

    /// A recorder of `name`'s shortcut in `registry`.
    Recorder(ShortcutRegistry& registry, Name name, QObject* parent = nullptr);

    /// Sets where menu-item clashes are looked up (none by default).
    void setMenuLookup(MenuLookup lookup) { m_menuLookup = std::move(lookup); }
    /// Replaces the list of the desktop's own shortcuts.
    void setSystemShortcuts(QList<Shortcut> shortcuts) { m_systemShortcuts = std::move(shortcuts); }

    /// The stored shortcut's display text with the Mac glyphs ("⌃⌥D"), or empty: for logs.
    QString displayText() const;
    /// The stored shortcut in Linux form ("Ctrl+Alt+D"), or empty: what the field shows.
    QString text() const;
    /// True when a shortcut is stored.
    bool hasShortcut() const;
    /// True while the field has the editing focus.
    bool isActive() const { return m_active; }
    /// Gives (true) or takes (false) the editing focus; shortcuts are paused meanwhile.
    void setActive(bool active);
    /// "record_shortcut" when idle, "press_shortcut" while editing, in Russian.
    QString placeholder() const;

    /// A key press while editing: virtual key code and event flags. A modifier key's own
    /// press only changes the held modifiers; the shortcut is taken at the first other key.
    Outcome handleKeyDown(int keyCode, quint64 eventFlags);
    /// A key release while editing: a released modifier leaves the held ones.
    void handleKeyUp(int keyCode, quint64 eventFlags);
    /// The held modifiers in Linux form, empty when none.
    QString heldModifiersText() const;
    /// A key press as QML sees it: the native scan code (X11/Wayland: evdev + 8) and Qt's modifiers.
    Q_INVOKABLE int handleQtKey(int nativeScanCode, int qtModifiers);
    /// A key release as QML sees it.
    Q_INVOKABLE void handleQtKeyRelease(int nativeScanCode, int qtModifiers);
    /// The answer "force_use_shortcut" to the system-clash alert: takes the shortcut anyway.
    Q_INVOKABLE void forceUsePending();
    /// The answer "ok" to the system-clash alert: gives the shortcut up.
    Q_INVOKABLE void dismissPending();
    /// Clears the stored shortcut (the field's cancel button).
    Q_INVOKABLE void clear();

signals:
    void shortcutChanged();
    void activeChanged();
    void heldModifiersChanged();
    /// The press was refused without words: the field beeps.
    void beep();
    /// An alert to show: its text, the informative text and its buttons, first the default.
    void alertRequested(const QString& text, const QString& informativeText, const QStringList& buttons);
    /// A shortcut was stored or cleared by the user (onChange), with its Linux form.
    void changed(const QString& text);

private:
    void take(const Shortcut& shortcut);
    void setHeldModifiers(quint64 eventFlags);

    ShortcutRegistry& m_registry;
    Name m_name;
    MenuLookup m_menuLookup;
    QList<Shortcut> m_systemShortcuts;
    std::optional<Shortcut> m_pending;
    bool m_active = false;
    quint64 m_heldModifiers = 0;
};

} // namespace tamvex::KeyboardShortcuts
