#pragma once

#include "shell/main/PermissionPoll.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <functional>

namespace tamvex {

class Clock;
class InputAccess;
class MicrophoneAccess;

/// One permission row of the settings pane: a title, a subtitle that follows the status, a
/// check mark once granted, and a "Запросить" button that polls the status for a minute.
/// A row may carry the steps that grant the permission, shown in place when asked.
class PermissionRow : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The settings pane makes its permission rows")
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString subtitle READ subtitle NOTIFY changed)
    Q_PROPERTY(bool granted READ granted NOTIFY changed)
    Q_PROPERTY(bool polling READ polling NOTIFY changed)
    /// The commands that grant the permission, empty when the row has none.
    Q_PROPERTY(QString commands READ commands CONSTANT)
    /// True once the button asked for the commands.
    Q_PROPERTY(bool commandsShown READ commandsShown NOTIFY changed)
public:
    /// The status as an integer, the status that counts as granted, and the subtitle of each.
    struct Spec {
        QString title;
        std::function<int()> read;
        int granted = 1;
        std::function<QString(int)> subtitle;
        QString commands;
    };

    PermissionRow(Clock& clock, Spec spec, QObject* parent = nullptr);

    /// The microphone row: authorized is granted; otherwise the subtitle says what to fix.
    static Spec microphoneSpec(const MicrophoneAccess& microphone);
    /// The input access row: the `input` group and /dev/uinput, with the commands.
    static Spec inputSpec(const InputAccess& input);

    QString title() const { return m_spec.title; }
    QString subtitle() const { return m_spec.subtitle(m_poll.status()); }
    bool granted() const { return m_poll.status() == m_spec.granted; }
    bool polling() const { return m_poll.isRunning(); }
    QString commands() const { return m_spec.commands; }
    bool commandsShown() const { return m_commandsShown; }
    /// How many rounds the last poll ran.
    int rounds() const { return m_poll.rounds(); }

    /// The row appeared: reads the status once.
    Q_INVOKABLE void appear();
    /// The row went away: the poll ends.
    Q_INVOKABLE void disappear();
    /// The button: shows the commands, if any, and polls at most 60 rounds of 1 s.
    Q_INVOKABLE void request();
    /// Puts the commands on the clipboard.
    Q_INVOKABLE void copyCommands() const;

signals:
    void changed();

private:
    Spec m_spec;
    PermissionPoll m_poll;
    bool m_commandsShown = false;
};

} // namespace tamvex
