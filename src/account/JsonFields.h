#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <optional>
#include <stdexcept>

namespace tamvex::json {

/// Thrown when an answer does not have the expected shape; callers turn it into their own error.
class DecodeFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The body parsed as one JSON object; throws DecodeFailure for anything else.
QJsonObject parseObject(const QByteArray& body);

/// Required fields: a missing, null or mistyped value throws DecodeFailure.
QString requiredString(const QJsonObject& object, const QString& key);
qint64 requiredInt(const QJsonObject& object, const QString& key);
double requiredDouble(const QJsonObject& object, const QString& key);
bool requiredBool(const QJsonObject& object, const QString& key);
QJsonObject requiredObject(const QJsonObject& object, const QString& key);
QJsonArray requiredArray(const QJsonObject& object, const QString& key);

/// Optional fields: absent or null gives none; a value of another type throws DecodeFailure.
std::optional<QString> optionalString(const QJsonObject& object, const QString& key);
std::optional<qint64> optionalInt(const QJsonObject& object, const QString& key);
std::optional<double> optionalDouble(const QJsonObject& object, const QString& key);
std::optional<bool> optionalBool(const QJsonObject& object, const QString& key);
std::optional<QJsonObject> optionalObject(const QJsonObject& object, const QString& key);

/// A JSON text literal, quoted and escaped, as UTF-8.
QByteArray quoted(const QString& text);

} // namespace tamvex::json
