#include "account/SorvelDTO.h"

#include "account/JsonFields.h"

#include <QJsonDocument>

namespace tamvex {

using namespace json;

namespace {
QByteArray compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
} // namespace

UserDTO UserDTO::fromJson(const QJsonObject& o) {
    return {requiredInt(o, "id"), requiredString(o, "phone"), requiredDouble(o, "balance_tokens"),
            requiredInt(o, "created_at")};
}

QJsonObject UserDTO::toJson() const {
    return {{"id", id}, {"phone", phone}, {"balance_tokens", balance_tokens}, {"created_at", created_at}};
}

MeResponse MeResponse::fromJson(const QJsonObject& o) {
    return {UserDTO::fromJson(requiredObject(o, "user"))};
}

OkResponse OkResponse::fromJson(const QJsonObject& o) {
    return {requiredBool(o, "ok")};
}

QByteArray PhoneBody::encode() const {
    QJsonObject o{{"phone", phone}};
    if (device_id)
        o.insert("device_id", *device_id);
    if (app)
        o.insert("app", *app);
    return compact(o);
}

QByteArray PhoneCodeBody::encode() const {
    return compact({{"phone", phone}, {"code", code}});
}

RequestCodeResponse RequestCodeResponse::fromJson(const QJsonObject& o) {
    return {requiredBool(o, "ok"),         requiredString(o, "phone"),  requiredString(o, "bot_username"),
            requiredString(o, "bot_link"), optionalString(o, "status"), optionalString(o, "dev_code")};
}

VerifyResponse VerifyResponse::fromJson(const QJsonObject& o) {
    return {requiredString(o, "access_token"), UserDTO::fromJson(requiredObject(o, "user"))};
}

ActivationStatusResponse ActivationStatusResponse::fromJson(const QJsonObject& o) {
    return {requiredBool(o, "activated"), requiredBool(o, "code_ready")};
}

QByteArray YandexExchangeBody::encode() const {
    QJsonObject o{{"code", code}, {"redirect_uri", redirect_uri}};
    if (device_id)
        o.insert("device_id", *device_id);
    return compact(o);
}

AppleExchangeResponse AppleExchangeResponse::fromJson(const QJsonObject& o) {
    return {requiredString(o, "access_token"), UserDTO::fromJson(requiredObject(o, "user")), optionalBool(o, "is_new")};
}

InsufficientResp InsufficientResp::fromJson(const QJsonObject& o) {
    return {requiredString(o, "error"), optionalDouble(o, "balance")};
}

} // namespace tamvex
