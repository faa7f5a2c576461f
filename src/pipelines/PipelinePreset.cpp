#include "pipelines/PipelinePreset.h"

namespace tamvex {

namespace presets {

QList<PipelinePreset> all() {
    return {PipelinePreset::fast, PipelinePreset::cheap, PipelinePreset::precise, PipelinePreset::local};
}

QString rawValue(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
        return QStringLiteral("fast");
    case PipelinePreset::cheap:
        return QStringLiteral("cheap");
    case PipelinePreset::precise:
        return QStringLiteral("precise");
    case PipelinePreset::local:
        return QStringLiteral("local");
    }
    return {};
}

std::optional<PipelinePreset> fromRawValue(const QString& raw) {
    for (PipelinePreset p : all())
        if (rawValue(p) == raw)
            return p;
    return std::nullopt;
}

QString title(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
        return QStringLiteral("Быстрая");
    case PipelinePreset::cheap:
        return QStringLiteral("Эконом");
    case PipelinePreset::precise:
        return QStringLiteral("Точная");
    case PipelinePreset::local:
        return QStringLiteral("Локально");
    }
    return {};
}

QString subtitle(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
        return QStringLiteral("Самая быстрая модель на данный момент");
    case PipelinePreset::cheap:
        return QStringLiteral("STT + дешёвый cleanup, два запроса");
    case PipelinePreset::precise:
        return QStringLiteral("Топ качество распознавания");
    case PipelinePreset::local:
        return QStringLiteral("whisper.cpp на устройстве, без интернета");
    }
    return {};
}

QString costLine(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
        return QStringLiteral("~250 ø / диктовка");
    case PipelinePreset::cheap:
        return QStringLiteral("~200 ø / диктовка");
    case PipelinePreset::precise:
        return QStringLiteral("~1250 ø / диктовка");
    case PipelinePreset::local:
        return QStringLiteral("Без траты токенов, без интернета, полностью конфиденциально");
    }
    return {};
}

QStringList routingLabels(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
        return {QStringLiteral("preset:fast-audio")};
    case PipelinePreset::cheap:
        return {QStringLiteral("preset:cheap-audio"), QStringLiteral("preset:cheap-cleanup")};
    case PipelinePreset::precise:
        return {QStringLiteral("preset:precise-audio")};
    case PipelinePreset::local:
        return {};
    }
    return {};
}

QList<double> temperatures(PipelinePreset preset) {
    switch (preset) {
    case PipelinePreset::fast:
    case PipelinePreset::precise:
        return {0.2};
    case PipelinePreset::cheap:
        return {0.0, 0.2};
    case PipelinePreset::local:
        return {};
    }
    return {};
}

} // namespace presets

namespace prompts {

const QString cleanupPrompt = QStringLiteral(
    "Распознай речь и оформи. Убери паразиты, повторы, оговорки. Пунктуация, заглавные, абзацы по смыслу, "
    "перечисления — списком. Тишина → пустая строка, не придумывай. Смешение ru/en сохраняй как есть, не "
    "переводи. Только текст.");

const QString verbatimPrompt =
    QStringLiteral("Распознай речь дословно, ничего не добавляй и не убирай. Если только тишина — верни пустую строку. "
                   "Сохраняй смешение русского и английского как есть.");

} // namespace prompts

} // namespace tamvex
