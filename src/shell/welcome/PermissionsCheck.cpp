#include "shell/welcome/PermissionsCheck.h"

#include "platform/InputAccess.h"
#include "platform/Log.h"
#include "platform/MicrophoneAccess.h"

#include <QPointer>

namespace tamvex {

PermissionsCheck::PermissionsCheck(Clock& clock, const MicrophoneAccess& microphone, InputAccess& input,
                                   QObject* parent)
    : QObject(parent), m_clock(clock), m_microphone(microphone), m_input(input) {}

PermissionsCheck::~PermissionsCheck() {
    disappear();
}

void PermissionsCheck::read() {
    const bool mic = m_microphone.isAuthorized();
    const bool trusted = m_input.isTrusted();
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
    // The microphone needs no prompt here: input access, the one that does, follows by itself.
    if (m_micGranted == true && !m_accessibilityGranted) {
        QPointer<PermissionsCheck> self(this);
        m_prompt = m_clock.schedule(accessPromptDelaySec, [self] {
            if (!self)
                return;
            self->m_prompt.reset();
            if (!self->m_input.isTrusted())
                self->m_input.prompt();
        });
    }
}

void PermissionsCheck::disappear() {
    if (m_prompt)
        m_clock.cancelTimer(*std::exchange(m_prompt, std::nullopt));
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
