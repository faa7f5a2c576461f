#include "history/HistoryEntry.h"

#include <QJsonValue>

#include <cmath>

namespace tamvex {

namespace {
struct CategoryInfo {
    const char* raw;
    const char* title;
    const char* symbol;
    const char* color;
};

constexpr CategoryInfo kCategories[] = {
    {"docs", "Документы", "doc.text", "green"},
    {"messages", "Сообщения", "bubble.left.and.bubble.right", "blue"},
    {"tasks", "Задачи", "checklist", "orange"},
    {"emails", "Письма", "envelope", "pink"},
    {"ideas", "Идеи", "lightbulb", "purple"},
    {"code", "Код", "chevron.left.forwardslash.chevron.right", "cyan"},
    {"notes", "Заметки", "note.text", "yellow"},
    {"other", "Другое", "tray", "gray"},
};

const CategoryInfo& info(TextCategory category) { return kCategories[int(category)]; }

std::optional<QString> optionalText(const QJsonObject& o, const char* key, bool& ok) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (v.isUndefined() || v.isNull())
        return std::nullopt;
    if (!v.isString())
        ok = false;
    return v.toString();
}

std::optional<double> optionalDouble(const QJsonObject& o, const char* key, bool& ok) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (v.isUndefined() || v.isNull())
        return std::nullopt;
    if (!v.isDouble())
        ok = false;
    return v.toDouble();
}

std::optional<qint64> optionalInteger(const QJsonObject& o, const char* key, bool& ok) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (v.isUndefined() || v.isNull())
        return std::nullopt;
    const double d = v.toDouble();
    // A fraction or a non-number is a decoding error, as for any typed decoder.
    if (!v.isDouble() || d != std::floor(d) || std::abs(d) > 9.0e15)
        ok = false;
    return qint64(d);
}
} // namespace

QString categoryRawValue(TextCategory category) { return QString::fromLatin1(info(category).raw); }

std::optional<TextCategory> categoryFromRawValue(QStringView raw) {
    for (TextCategory c : allTextCategories)
        if (raw == QLatin1String(info(c).raw))
            return c;
    return std::nullopt;
}

QString categoryTitle(TextCategory category) { return QString::fromUtf8(info(category).title); }

QString categorySymbol(TextCategory category) { return QString::fromLatin1(info(category).symbol); }

QString categoryColorName(TextCategory category) { return QString::fromLatin1(info(category).color); }

QString uuidText(const QUuid& id) { return id.toString(QUuid::WithoutBraces).toUpper(); }

std::optional<QUuid> parseUuid(QStringView text) {
    if (text.size() != 36)
        return std::nullopt;
    for (int i = 0; i < 36; ++i) {
        const char16_t c = text[i].unicode();
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        const bool hex = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
        if (dash ? c != u'-' : !hex)
            return std::nullopt;
    }
    return QUuid::fromString(text);
}

QString isoDateText(const QDateTime& date) {
    const QDateTime utc = date.toUTC();
    return utc.toString(utc.time().msec() ? Qt::ISODateWithMs : Qt::ISODate);
}

QDateTime parseIsoDate(const QString& text) {
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    // A date without a zone is local time in Qt; ISO-8601 interchange requires the zone.
    if (!date.isValid() || date.timeSpec() == Qt::LocalTime)
        return {};
    return date.toUTC();
}

QDateTime dateFromSeconds(double seconds) {
    if (!std::isfinite(seconds))
        return QDateTime::fromMSecsSinceEpoch(0, Qt::UTC);
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), Qt::UTC);
}

double secondsSince1970(const QDateTime& date) { return double(date.toMSecsSinceEpoch()) / 1000.0; }

QJsonObject HistoryEntry::toJson() const {
    QJsonObject o;
    o["id"] = uuidText(id);
    o["createdAt"] = isoDateText(createdAt);
    o["durationSec"] = durationSec;
    o["text"] = text;
    if (errorMessage)
        o["errorMessage"] = *errorMessage;
    if (modelUsed)
        o["modelUsed"] = *modelUsed;
    if (costUSD)
        o["costUSD"] = *costUSD;
    if (promptTokens)
        o["promptTokens"] = *promptTokens;
    if (completionTokens)
        o["completionTokens"] = *completionTokens;
    if (appContext)
        o["appContext"] = *appContext;
    if (category)
        o["category"] = categoryRawValue(*category);
    if (audioPath)
        o["audioPath"] = *audioPath;
    return o;
}

std::optional<HistoryEntry> HistoryEntry::fromJson(const QJsonObject& o) {
    const QJsonValue id = o.value("id"), created = o.value("createdAt"), duration = o.value("durationSec"),
                     text = o.value("text");
    if (!id.isString() || !created.isString() || !duration.isDouble() || !text.isString())
        return std::nullopt;
    HistoryEntry e;
    const auto uuid = parseUuid(id.toString());
    e.createdAt = parseIsoDate(created.toString());
    if (!uuid || !e.createdAt.isValid())
        return std::nullopt;
    e.id = *uuid;
    e.durationSec = duration.toDouble();
    e.text = text.toString();
    bool ok = true;
    e.errorMessage = optionalText(o, "errorMessage", ok);
    e.modelUsed = optionalText(o, "modelUsed", ok);
    e.costUSD = optionalDouble(o, "costUSD", ok);
    e.promptTokens = optionalInteger(o, "promptTokens", ok);
    e.completionTokens = optionalInteger(o, "completionTokens", ok);
    e.appContext = optionalText(o, "appContext", ok);
    e.audioPath = optionalText(o, "audioPath", ok);
    if (const auto raw = optionalText(o, "category", ok)) {
        e.category = categoryFromRawValue(*raw);
        if (!e.category)
            ok = false;
    }
    if (!ok)
        return std::nullopt;
    return e;
}

} // namespace tamvex
