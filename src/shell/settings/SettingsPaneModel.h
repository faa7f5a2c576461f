#pragma once

#include "KeyboardShortcuts/Recorder.h"
#include "desktop/HotkeyNotes.h"
#include "shell/settings/LocalModelSection.h"
#include "shell/settings/PermissionRow.h"

#include <QObject>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

class AppState;
class InputAccess;
class MicrophoneAccess;
class ModelDownloader;
class ModelSelfTest;

/// What the settings pane needs beyond the settings store: the shortcut recorder, whether
/// FN can be heard here, the local model, the permission rows and the quit choices.
class SettingsPaneModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The main window model makes the settings pane's model")
    Q_PROPERTY(tamvex::KeyboardShortcuts::Recorder* recorder READ recorder CONSTANT)
    /// False once the key input found that no keyboard here can send FN.
    Q_PROPERTY(bool functionKeyAvailable READ functionKeyAvailable NOTIFY functionKeyChanged)
    /// What the FN choice says when FN cannot be heard, else empty.
    Q_PROPERTY(QString functionKeyNote READ functionKeyNote NOTIFY functionKeyChanged)
    /// A warning for either mode when the hotkey is not heard in every window here, else empty.
    Q_PROPERTY(QString sessionNote READ sessionNote NOTIFY functionKeyChanged)
    /// The trigger the desktop assigned to the custom shortcut (GlobalShortcuts portal), else empty.
    Q_PROPERTY(QString desktopTrigger READ desktopTrigger NOTIFY functionKeyChanged)
    Q_PROPERTY(tamvex::LocalModelSection* localModel READ localModel CONSTANT)
    Q_PROPERTY(tamvex::PermissionRow* microphone READ microphone CONSTANT)
    Q_PROPERTY(tamvex::PermissionRow* input READ input CONSTANT)
    /// The Ctrl+Q choices in order: {raw, title}.
    Q_PROPERTY(QVariantList quitChoices READ quitChoices CONSTANT)
public:
    SettingsPaneModel(AppState& state, const MicrophoneAccess& microphone, const InputAccess& input,
                      ModelDownloader& models, ModelSelfTest* selfTest = nullptr, QObject* parent = nullptr);

    KeyboardShortcuts::Recorder* recorder() { return &m_recorder; }
    bool functionKeyAvailable() const;
    QString functionKeyNote() const;
    QString sessionNote() const;
    QString desktopTrigger() const;
    /// What a screen says where no keyboard here can send FN.
    static QString functionKeyMissingText();
    LocalModelSection* localModel() { return &m_localModel; }
    PermissionRow* microphone() { return &m_microphone; }
    PermissionRow* input() { return &m_input; }
    static QVariantList quitChoices();

    /// The pane appeared: the rows and the model card read their state once.
    Q_INVOKABLE void appear();
    /// The pane went away: the polls end and the recorder lets go.
    Q_INVOKABLE void disappear();
    /// A Ctrl+Q choice by its raw value.
    Q_INVOKABLE void chooseQuitBehavior(const QString& raw);

signals:
    /// What FN, the session's key source or the desktop's binding allow may have changed.
    void functionKeyChanged();

private:
    hotkeyNotes::Situation situation() const;

    AppState& m_state;
    KeyboardShortcuts::Recorder m_recorder;
    LocalModelSection m_localModel;
    PermissionRow m_microphone;
    PermissionRow m_input;
};

} // namespace tamvex
