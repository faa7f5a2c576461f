#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace tamvex {

// Wire records of the main service. Keys are the field names, snake_case. Decoding throws
// json::DecodeFailure when a required field is missing or mistyped; unknown keys are ignored.

/// The signed-in user.
struct UserDTO {
    qint64 id = 0;
    QString phone;
    double balance_tokens = 0.0;
    qint64 created_at = 0;

    /// Reads a user object.
    static UserDTO fromJson(const QJsonObject& object);
    /// The object form, as the service sends it.
    QJsonObject toJson() const;
    bool operator==(const UserDTO&) const = default;
};

/// Answer of GET /api/me.
struct MeResponse {
    UserDTO user;
    /// Reads the answer object.
    static MeResponse fromJson(const QJsonObject& object);
};

/// A bare acknowledgement.
struct OkResponse {
    bool ok = false;
    /// Reads the answer object.
    static OkResponse fromJson(const QJsonObject& object);
};

/// Body of request-code.
struct PhoneBody {
    QString phone;
    std::optional<QString> device_id;
    std::optional<QString> app;
    /// The JSON body; absent fields are left out.
    QByteArray encode() const;
};

/// Body of verify.
struct PhoneCodeBody {
    QString phone;
    QString code;
    /// The JSON body.
    QByteArray encode() const;
};

/// Answer of request-code.
struct RequestCodeResponse {
    bool ok = false;
    QString phone;
    QString bot_username;
    QString bot_link;
    std::optional<QString> status;   ///< "code_sent" when the bot already delivered the code
    std::optional<QString> dev_code; ///< a development server hands the code back
    /// Reads the answer object.
    static RequestCodeResponse fromJson(const QJsonObject& object);
};

/// Answer of verify.
struct VerifyResponse {
    QString access_token;
    UserDTO user;
    /// Reads the answer object.
    static VerifyResponse fromJson(const QJsonObject& object);
};

/// Answer of check-activation.
struct ActivationStatusResponse {
    bool activated = false;
    bool code_ready = false;
    /// Reads the answer object.
    static ActivationStatusResponse fromJson(const QJsonObject& object);
};

/// Body of the Yandex code exchange.
struct YandexExchangeBody {
    QString code;
    QString redirect_uri;
    std::optional<QString> device_id;
    /// The JSON body; absent fields are left out.
    QByteArray encode() const;
};

/// Answer of the Yandex code exchange (the name is historical).
struct AppleExchangeResponse {
    QString access_token;
    UserDTO user;
    std::optional<bool> is_new;
    /// Reads the answer object.
    static AppleExchangeResponse fromJson(const QJsonObject& object);
};

/// Body of a 402 answer; only the balance is used.
struct InsufficientResp {
    QString error;
    std::optional<double> balance;
    /// Reads the answer object.
    static InsufficientResp fromJson(const QJsonObject& object);
};

} // namespace tamvex
