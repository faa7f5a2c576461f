#include "shell/settings/PermissionRow.h"

#include "platform/InputAccess.h"
#include "platform/MicrophoneAccess.h"

#include <QClipboard>
#include <QGuiApplication>

namespace tamvex {

PermissionRow::PermissionRow(Clock& clock, Spec spec, QObject* parent)
    : QObject(parent), m_spec(std::move(spec)), m_poll(clock, m_spec.read, m_spec.granted) {
    connect(&m_poll, &PermissionPoll::statusChanged, this, &PermissionRow::changed);
    connect(&m_poll, &PermissionPoll::runningChanged, this, &PermissionRow::changed);
}

PermissionRow::Spec PermissionRow::microphoneSpec(const MicrophoneAccess& microphone) {
    using Status = MicrophoneAccess::Status;
    return {QStringLiteral("Микрофон"), [&microphone] { return int(microphone.status()); }, int(Status::authorized),
            [](int status) {
                if (status == int(Status::authorized))
                    return QStringLiteral("Sorvel может записывать диктовку");
                return MicrophoneAccess::explanation(Status(status));
            },
            QString()};
}

PermissionRow::Spec PermissionRow::inputSpec(const InputAccess& input) {
    return {QStringLiteral("Доступ к вводу"), [&input] { return input.isTrusted() ? 1 : 0; }, 1,
            [](int) { return QStringLiteral("Чтобы вставлять распознанный текст в активное поле любого приложения"); },
            InputAccess::grantCommands()};
}

void PermissionRow::appear() {
    m_poll.refresh();
}

void PermissionRow::disappear() {
    m_poll.cancel();
}

void PermissionRow::request() {
    if (!m_spec.commands.isEmpty() && !m_commandsShown) {
        m_commandsShown = true;
        emit changed();
    }
    m_poll.start();
}

void PermissionRow::copyCommands() const {
    if (QClipboard* clipboard = QGuiApplication::clipboard())
        clipboard->setText(m_spec.commands);
}

} // namespace tamvex
