#include "KeyboardShortcuts/Recorder.h"

#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"

#include <QHash>

namespace tamvex::KeyboardShortcuts {

namespace {

// Modifier masks of the rules: "no modifiers at all" ignores caps lock and the keypad
// flag; "a real modifier" also ignores Shift and FN, which cannot make a shortcut alone.
constexpr quint64 kAnyModifierMask = 0xFFDE0000;
constexpr quint64 kRealModifierMask = 0xFF5C0000;

bool isDeletingKey(int keyCode) {
    return keyCode == KeyCode::deleteKey || keyCode == KeyCode::deleteForward;
}

// The flag a modifier key sets, for the keys from right Super (0x36) to FN (0x3F); 0 for
// any other key. A key's own press may arrive without its flag (X11 reports the state
// before the event), so the flag is taken from the key itself.
quint64 modifierFlagOfKey(int keyCode) {
    switch (keyCode) {
    case 0x36:
    case 0x37:
        return EventFlag::command;
    case 0x38:
    case 0x3C:
        return EventFlag::shift;
    case 0x39:
        return EventFlag::capsLock;
    case 0x3A:
    case 0x3D:
        return EventFlag::option;
    case 0x3B:
    case 0x3E:
        return EventFlag::control;
    case KeyCode::function:
        return EventFlag::function;
    default:
        return 0;
    }
}

constexpr quint64 kShownModifiers =
    EventFlag::control | EventFlag::option | EventFlag::shift | EventFlag::command | EventFlag::function;

quint64 qtModifierFlags(int qtModifiers) {
    quint64 flags = 0;
    if (qtModifiers & Qt::ShiftModifier)
        flags |= EventFlag::shift;
    if (qtModifiers & Qt::ControlModifier)
        flags |= EventFlag::control;
    if (qtModifiers & Qt::AltModifier)
        flags |= EventFlag::option;
    if (qtModifiers & Qt::MetaModifier)
        flags |= EventFlag::command;
    if (qtModifiers & Qt::KeypadModifier)
        flags |= EventFlag::numericPad;
    return flags;
}

} // namespace

QString recorderText(const QString& key) {
    static const QHash<QString, QString> texts{
        {"record_shortcut", QStringLiteral("Записать сочетание")},
        {"press_shortcut", QStringLiteral("Нажми сочетание")},
        {"keyboard_shortcut_used_by_menu_item",
         QStringLiteral("Это сочетание нельзя использовать: его уже занимает пункт меню «%1».")},
        {"keyboard_shortcut_used_by_system", QStringLiteral("Это сочетание уже занято системой.")},
        {"keyboard_shortcuts_can_be_changed",
         QStringLiteral("Большинство системных сочетаний можно изменить в настройках клавиатуры рабочего стола.")},
        {"force_use_shortcut", QStringLiteral("Всё равно использовать")},
        {"ok", QStringLiteral("ОК")},
        {"keyboard_shortcut_disallowed", QStringLiteral("Это сочетание нельзя использовать.")},
    };
    return texts.value(key, key);
}

QList<Shortcut> defaultSystemShortcuts() {
    constexpr int ctrl = CarbonModifier::control, alt = CarbonModifier::option;
    constexpr int shift = CarbonModifier::shift, super = CarbonModifier::command;
    // Virtual key codes of the ANSI layout: Tab 0x30, Space 0x31, Escape 0x35, F1 0x7A,
    // F2 0x78, F4 0x76, T 0x11, L 0x25, D 0x02, A 0x00, E 0x0E, arrows 0x7B-0x7E, Delete 0x75.
    return {
        {0x30, alt},        {0x30, alt | shift}, {0x30, super},      {0x30, ctrl | alt}, {0x31, super},
        {0x31, alt},        {0x31, ctrl},        {0x35, ctrl},       {0x7A, alt},        {0x78, alt},
        {0x76, alt},        {0x11, ctrl | alt},  {0x25, super},      {0x25, ctrl | alt}, {0x02, super},
        {0x00, super},      {0x0E, super},       {0x75, ctrl | alt}, {0x7B, ctrl | alt}, {0x7C, ctrl | alt},
        {0x7D, ctrl | alt}, {0x7E, ctrl | alt},  {0x7B, super},      {0x7C, super},      {0x7E, super},
        {0x7D, super},
    };
}

Recorder::Recorder(ShortcutRegistry& registry, Name name, QObject* parent)
    : QObject(parent), m_registry(registry), m_name(std::move(name)), m_systemShortcuts(defaultSystemShortcuts()) {
    connect(&m_registry, &ShortcutRegistry::shortcutByNameDidChange, this, [this](const QString& rawName) {
        if (rawName == m_name.rawValue)
            emit shortcutChanged();
    });
}

QString Recorder::displayText() const {
    const auto shortcut = m_registry.storedShortcut(m_name);
    return shortcut ? shortcut->displayText() : QString();
}

QString Recorder::text() const {
    const auto shortcut = m_registry.storedShortcut(m_name);
    return shortcut ? shortcut->screenText() : QString();
}

bool Recorder::hasShortcut() const {
    return m_registry.storedShortcut(m_name).has_value();
}

void Recorder::setActive(bool active) {
    if (active == m_active)
        return;
    m_active = active;
    m_pending.reset();
    setHeldModifiers(0);
    // While editing, pressing the current shortcut must not start a dictation.
    m_registry.setPaused(active);
    emit m_registry.recorderActiveStatusDidChange(active);
    emit activeChanged();
}

QString Recorder::placeholder() const {
    return recorderText(m_active ? "press_shortcut" : "record_shortcut");
}

Recorder::Outcome Recorder::handleKeyDown(int keyCode, quint64 eventFlags) {
    if (!m_active)
        return Outcome::ignored;
    if (const quint64 own = modifierFlagOfKey(keyCode)) {
        setHeldModifiers(eventFlags | own);
        return Outcome::modifierHeld;
    }
    setHeldModifiers(0);
    const bool noModifiers = (eventFlags & kAnyModifierMask) == 0;
    if (noModifiers && keyCode == KeyCode::escape) {
        setActive(false);
        return Outcome::cancelled;
    }
    if (noModifiers && isDeletingKey(keyCode)) {
        clear();
        return Outcome::cleared;
    }
    if ((eventFlags & kRealModifierMask) == 0 && !isFunctionKey(keyCode)) {
        emit beep();
        return Outcome::beeped;
    }
    if (!evdevFromKeyCode(keyCode)) {
        emit beep();
        return Outcome::beeped;
    }
    const Shortcut shortcut = Shortcut::fromEvent(keyCode, eventFlags);
    if (m_menuLookup) {
        if (const auto title = m_menuLookup(shortcut)) {
            emit alertRequested(recorderText("keyboard_shortcut_used_by_menu_item").arg(*title), QString(),
                                {recorderText("ok")});
            return Outcome::usedByMenuItem;
        }
    }
    const bool plainF12 = keyCode == KeyCode::f12 && shortcut.carbonModifiers == 0;
    if (!plainF12 && m_systemShortcuts.contains(shortcut)) {
        m_pending = shortcut;
        emit alertRequested(recorderText("keyboard_shortcut_used_by_system"),
                            recorderText("keyboard_shortcuts_can_be_changed"),
                            {recorderText("ok"), recorderText("force_use_shortcut")});
        return Outcome::usedBySystem;
    }
    take(shortcut);
    return Outcome::stored;
}

int Recorder::handleQtKey(int nativeScanCode, int qtModifiers) {
    // X11 and Wayland both hand out the kernel's key code plus 8.
    const auto keyCode = keyCodeFromEvdev(nativeScanCode - 8);
    const quint64 flags = qtModifierFlags(qtModifiers);
    if (!keyCode) {
        if (m_active)
            emit beep();
        return int(m_active ? Outcome::beeped : Outcome::ignored);
    }
    return int(handleKeyDown(*keyCode, flags));
}

void Recorder::handleQtKeyRelease(int nativeScanCode, int qtModifiers) {
    if (const auto keyCode = keyCodeFromEvdev(nativeScanCode - 8))
        handleKeyUp(*keyCode, qtModifierFlags(qtModifiers));
}

void Recorder::handleKeyUp(int keyCode, quint64 eventFlags) {
    if (!m_active)
        return;
    // The release may still report the released modifier as held.
    setHeldModifiers(eventFlags & ~modifierFlagOfKey(keyCode));
}

void Recorder::setHeldModifiers(quint64 eventFlags) {
    eventFlags &= kShownModifiers;
    if (eventFlags == m_heldModifiers)
        return;
    m_heldModifiers = eventFlags;
    emit heldModifiersChanged();
}

QString Recorder::heldModifiersText() const {
    QString text;
    if (m_heldModifiers & EventFlag::control)
        text += QStringLiteral("Ctrl+");
    if (m_heldModifiers & EventFlag::option)
        text += QStringLiteral("Alt+");
    if (m_heldModifiers & EventFlag::shift)
        text += QStringLiteral("Shift+");
    if (m_heldModifiers & EventFlag::command)
        text += QStringLiteral("Super+");
    if (m_heldModifiers & EventFlag::function)
        text += QStringLiteral("Fn+");
    return text;
}

void Recorder::forceUsePending() {
    if (const auto pending = std::exchange(m_pending, std::nullopt))
        take(*pending);
}

void Recorder::dismissPending() {
    m_pending.reset();
}

void Recorder::clear() {
    m_registry.storeShortcut(m_name, std::nullopt);
    emit changed(QString());
}

void Recorder::take(const Shortcut& shortcut) {
    m_registry.storeShortcut(m_name, shortcut);
    emit changed(shortcut.screenText());
    setActive(false);
}

} // namespace tamvex::KeyboardShortcuts
