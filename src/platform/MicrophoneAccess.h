#pragma once

#include <QString>

namespace tamvex {

/// Whether the microphone can be used, for the permissions row of the settings and onboarding.
class MicrophoneAccess {
public:
    /// The state of the microphone permission.
    enum class Status { authorized, noDevice, unavailable };

    virtual ~MicrophoneAccess() = default;
    /// Authorized when a default input device exists and can be opened.
    virtual Status status() const = 0;
    bool isAuthorized() const { return status() == Status::authorized; }
    /// The Russian text for a status that is not authorized (empty when authorized).
    static QString explanation(Status status);
};

/// The real check through Qt Multimedia (PulseAudio / PipeWire).
class SystemMicrophoneAccess final : public MicrophoneAccess {
public:
    Status status() const override;
};

} // namespace tamvex
