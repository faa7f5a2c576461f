#include "shell/welcome/PermissionsCheck.h"

#include <QPointer>

namespace tamvex {

PermissionsCheck::PermissionsCheck(Clock& clock, const MicrophoneAccess& microphone, InputAccess& input,
                                   QObject* parent)
    : QObject(parent), m_clock(clock), m_microphoneRow(clock, PermissionRow::microphoneSpec(microphone)),
      m_inputRow(clock, PermissionRow::inputSpec(input)) {}

PermissionsCheck::~PermissionsCheck() {
    disappear();
}

void PermissionsCheck::read() {
    m_microphoneRow.appear();
    m_inputRow.appear();
    const bool mic = m_microphoneRow.granted();
    const bool trusted = m_inputRow.granted();
    if (m_micGranted == mic && m_accessibilityGranted == trusted)
        return;
    m_micGranted = mic;
    m_accessibilityGranted = trusted;
    emit changed();
}

void PermissionsCheck::appear() {
    disappear();
    read();
    m_ticks = Cancellation();
    emit runningChanged();
    tickLoop(*m_ticks);
    // The microphone needs no prompt here: input access, the one that does, follows by itself,
    // as the row's own button would: its commands in place, re-checked for a minute.
    if (m_micGranted == true && !m_accessibilityGranted) {
        QPointer<PermissionsCheck> self(this);
        m_prompt = m_clock.schedule(accessPromptDelaySec, [self] {
            if (!self)
                return;
            self->m_prompt.reset();
            if (!self->m_inputRow.granted())
                self->m_inputRow.request();
        });
    }
}

void PermissionsCheck::disappear() {
    if (m_prompt)
        m_clock.cancelTimer(*std::exchange(m_prompt, std::nullopt));
    m_microphoneRow.disappear();
    m_inputRow.disappear();
    if (!m_ticks)
        return;
    const Cancellation ticks = *std::exchange(m_ticks, std::nullopt);
    ticks.cancel();
    emit runningChanged();
}

QCoro::Task<void> PermissionsCheck::tickLoop(Cancellation cancellation) {
    for (;;) {
        const bool slept = co_await m_clock.sleep(tickSec, cancellation);
        if (!slept || cancellation.isCancelled())
            co_return;
        read();
    }
}

} // namespace tamvex
