#pragma once

#include "platform/Clock.h"
#include "shell/settings/PermissionRow.h"

#include <QObject>

#include <QVariant>
#include <QtQml/qqmlregistration.h>
#include <qcoro/qcorotask.h>

#include <optional>

namespace tamvex {

class InputAccess;
class MicrophoneAccess;

/// The onboarding's permissions step over the settings pane's two permission rows: while
/// shown, it reads both every second, and on appearing shows how to grant input access by
/// itself once the microphone is there.
class PermissionsCheck : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The welcome window controller makes the check")
    /// null until known, then true or false.
    Q_PROPERTY(QVariant micGranted READ micGrantedValue NOTIFY changed)
    Q_PROPERTY(bool accessibilityGranted READ accessibilityGranted NOTIFY changed)
    Q_PROPERTY(bool running READ isRunning NOTIFY runningChanged)
    Q_PROPERTY(tamvex::PermissionRow* microphone READ microphone CONSTANT)
    Q_PROPERTY(tamvex::PermissionRow* input READ input CONSTANT)
public:
    static constexpr double tickSec = 1.0;
    /// The pause before the input-access request follows a granted microphone.
    static constexpr double accessPromptDelaySec = 0.5;

    PermissionsCheck(Clock& clock, const MicrophoneAccess& microphone, InputAccess& input, QObject* parent = nullptr);
    ~PermissionsCheck() override;

    std::optional<bool> micGranted() const { return m_micGranted; }
    QVariant micGrantedValue() const { return m_micGranted ? QVariant(*m_micGranted) : QVariant(); }
    bool accessibilityGranted() const { return m_accessibilityGranted; }
    bool isRunning() const { return m_ticks.has_value(); }
    PermissionRow* microphone() { return &m_microphoneRow; }
    PermissionRow* input() { return &m_inputRow; }

    /// The step appeared: read both, start the 1 s ticks, and ask for input access when due.
    Q_INVOKABLE void appear();
    /// The step went away: the ticks, the rows' polls and a pending request end.
    Q_INVOKABLE void disappear();
    /// Reads both permissions now.
    Q_INVOKABLE void read();

signals:
    void changed();
    void runningChanged();

private:
    QCoro::Task<void> tickLoop(Cancellation cancellation);

    Clock& m_clock;
    PermissionRow m_microphoneRow;
    PermissionRow m_inputRow;
    std::optional<bool> m_micGranted;
    bool m_accessibilityGranted = false;
    std::optional<Cancellation> m_ticks;
    std::optional<Clock::TimerId> m_prompt;
};

} // namespace tamvex
