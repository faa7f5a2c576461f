#include "account/JsonFields.h"

#include <QJsonDocument>
#include <QJsonValue>

#include <cmath>
#include <limits>

namespace tamvex::json {

namespace {

[[noreturn]] void fail(const QString& key, const char* what) {
    throw DecodeFailure(QString("\"%1\": %2").arg(key, what).toStdString());
}

bool isNull(const QJsonValue& v) {
    return v.isUndefined() || v.isNull();
}

// A JSON number with no fraction that fits 64 bits; 12.0 counts, 12.5 does not.
std::optional<qint64> exactInteger(const QJsonValue& v) {
    if (!v.isDouble())
        return std::nullopt;
    const QVariant variant = v.toVariant();
    if (variant.typeId() == QMetaType::LongLong)
        return variant.toLongLong();
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::floor(d) != d || d < -9.2233720368547758e18 || d >= 9.2233720368547758e18)
        return std::nullopt;
    return qint64(d);
}

} // namespace

QJsonObject parseObject(const QByteArray& body) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodeFailure(error.errorString().toStdString());
    if (!document.isObject())
        throw DecodeFailure("not a JSON object");
    return document.object();
}

std::optional<QString> optionalString(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (isNull(v))
        return std::nullopt;
    if (!v.isString())
        fail(key, "not a text");
    return v.toString();
}

std::optional<qint64> optionalInt(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (isNull(v))
        return std::nullopt;
    auto value = exactInteger(v);
    if (!value)
        fail(key, "not an integer");
    return value;
}

std::optional<double> optionalDouble(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (isNull(v))
        return std::nullopt;
    if (!v.isDouble())
        fail(key, "not a number");
    return v.toDouble();
}

std::optional<bool> optionalBool(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (isNull(v))
        return std::nullopt;
    if (!v.isBool())
        fail(key, "not a boolean");
    return v.toBool();
}

std::optional<QJsonObject> optionalObject(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (isNull(v))
        return std::nullopt;
    if (!v.isObject())
        fail(key, "not an object");
    return v.toObject();
}

QString requiredString(const QJsonObject& object, const QString& key) {
    if (auto v = optionalString(object, key))
        return *v;
    fail(key, "missing");
}

qint64 requiredInt(const QJsonObject& object, const QString& key) {
    if (auto v = optionalInt(object, key))
        return *v;
    fail(key, "missing");
}

double requiredDouble(const QJsonObject& object, const QString& key) {
    if (auto v = optionalDouble(object, key))
        return *v;
    fail(key, "missing");
}

bool requiredBool(const QJsonObject& object, const QString& key) {
    if (auto v = optionalBool(object, key))
        return *v;
    fail(key, "missing");
}

QJsonObject requiredObject(const QJsonObject& object, const QString& key) {
    if (auto v = optionalObject(object, key))
        return *v;
    fail(key, "missing");
}

QJsonArray requiredArray(const QJsonObject& object, const QString& key) {
    const QJsonValue v = object.value(key);
    if (!v.isArray())
        fail(key, isNull(v) ? "missing" : "not an array");
    return v.toArray();
}

QByteArray quoted(const QString& text) {
    QByteArray out;
    const QByteArray utf8 = text.toUtf8();
    out.reserve(utf8.size() + 2);
    out.append('"');
    for (char c : utf8) {
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out.append("\\u00");
                out.append("0123456789abcdef"[(c >> 4) & 0xf]);
                out.append("0123456789abcdef"[c & 0xf]);
            } else {
                out.append(c);
            }
        }
    }
    out.append('"');
    return out;
}

} // namespace tamvex::json
