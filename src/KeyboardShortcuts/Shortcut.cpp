#include "KeyboardShortcuts/Shortcut.h"

#include "KeyboardShortcuts/KeyCodes.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace tamvex::KeyboardShortcuts {

namespace {

struct ModifierPair {
    quint64 flag;
    int carbon;
};

const ModifierPair kModifiers[] = {
    {EventFlag::command, CarbonModifier::command},
    {EventFlag::shift, CarbonModifier::shift},
    {EventFlag::option, CarbonModifier::option},
    {EventFlag::control, CarbonModifier::control},
    {EventFlag::function, CarbonModifier::function},
};

std::optional<int> integerField(const QJsonObject& object, const char* key) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (std::floor(number) != number || number < 0 || number > 0x7FFFFFFF)
        return std::nullopt;
    return int(number);
}

} // namespace

Shortcut Shortcut::fromEvent(int keyCode, quint64 eventFlags) {
    Shortcut shortcut{keyCode, 0};
    for (const ModifierPair& pair : kModifiers)
        if (eventFlags & pair.flag)
            shortcut.carbonModifiers |= pair.carbon;
    return shortcut;
}

quint64 Shortcut::eventFlags() const {
    quint64 flags = 0;
    for (const ModifierPair& pair : kModifiers)
        if (carbonModifiers & pair.carbon)
            flags |= pair.flag;
    return flags;
}

QString Shortcut::toJson() const {
    const QJsonObject object{{"carbonKeyCode", carbonKeyCode}, {"carbonModifiers", carbonModifiers}};
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

std::optional<Shortcut> Shortcut::fromJson(const QString& json) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const auto key = integerField(document.object(), "carbonKeyCode");
    const auto modifiers = integerField(document.object(), "carbonModifiers");
    if (!key || !modifiers)
        return std::nullopt;
    return Shortcut{*key, *modifiers};
}

QString Shortcut::displayText() const {
    QString text;
    if (carbonModifiers & CarbonModifier::control)
        text += QStringLiteral("⌃");
    if (carbonModifiers & CarbonModifier::option)
        text += QStringLiteral("⌥");
    if (carbonModifiers & CarbonModifier::shift)
        text += QStringLiteral("⇧");
    if (carbonModifiers & CarbonModifier::command)
        text += QStringLiteral("⌘");
    if (carbonModifiers & CarbonModifier::function)
        text += QStringLiteral("🌐︎");
    if (const auto special = specialKeyForCode(carbonKeyCode))
        return text + symbolOfSpecialKey(*special);
    return text + ansiCharacter(carbonKeyCode).toUpper();
}

QString Shortcut::screenText() const {
    QString text;
    if (carbonModifiers & CarbonModifier::control)
        text += QStringLiteral("Ctrl+");
    if (carbonModifiers & CarbonModifier::option)
        text += QStringLiteral("Alt+");
    if (carbonModifiers & CarbonModifier::shift)
        text += QStringLiteral("Shift+");
    if (carbonModifiers & CarbonModifier::command)
        text += QStringLiteral("Super+");
    if (carbonModifiers & CarbonModifier::function)
        text += QStringLiteral("Fn+");
    if (const auto special = specialKeyForCode(carbonKeyCode))
        return text + screenNameOfSpecialKey(*special);
    return text + ansiCharacter(carbonKeyCode).toUpper();
}

QString storageKey(const Name& name) { return QStringLiteral("KeyboardShortcuts_") + name.rawValue; }

} // namespace tamvex::KeyboardShortcuts
