#pragma once

#include "pipelines/local/WhisperModel.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

class AppState;
class ModelDownloader;
class WelcomeFlow;
namespace KeyboardShortcuts {
class Recorder;
}

/// What the onboarding needs to leave the user on a hotkey and a road that work here:
/// whether FN can be heard (else the step's recorder sets the hotkey), which way the next
/// dictation goes, and, when none can work, the two ways that need no account.
class OnboardingRoad : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The welcome window controller makes the road")
    Q_PROPERTY(bool functionKeyAvailable READ functionKeyAvailable NOTIFY changed)
    Q_PROPERTY(QString functionKeyNote READ functionKeyNote NOTIFY changed)
    /// "service", "ownKey", "local" or "none".
    Q_PROPERTY(QString road READ roadRaw NOTIFY changed)
    /// The road in words: "через сервис", "свой ключ", "на этом компьютере", empty for none.
    Q_PROPERTY(QString roadTitle READ roadTitle NOTIFY changed)
    /// The model download as the step shows it: "idle", "downloading", "verifying", "failed".
    Q_PROPERTY(QString downloadPhase READ downloadPhase NOTIFY changed)
    Q_PROPERTY(double downloadProgress READ downloadProgress NOTIFY changed)
    Q_PROPERTY(QString downloadText READ downloadText NOTIFY changed)
public:
    /// In this order: the names below are indexed by it.
    enum class Road { service, ownKey, local, none };

    OnboardingRoad(AppState& state, ModelDownloader& models, WelcomeFlow& flow, KeyboardShortcuts::Recorder& recorder,
                   QObject* parent = nullptr);

    /// The road of the next dictation: the local preset works with its model on disk, the
    /// cloud ones with the user's own key or else a signed-in account.
    static Road roadFor(bool localPreset, bool modelPresent, bool ownKey, bool signedIn);
    Road road() const;
    QString roadRaw() const;
    QString roadTitle() const;

    bool functionKeyAvailable() const;
    QString functionKeyNote() const;
    QString downloadPhase() const;
    double downloadProgress() const;
    QString downloadText() const;

    /// "Распознавать на этом компьютере": the local preset, and its model fetched when missing.
    Q_INVOKABLE void chooseLocal();
    /// "Ввести свой ключ OpenRouter": the key is stored as the settings pane stores it, and
    /// a non-empty one turns the service's key off; a local preset without its model gives
    /// way to the default one, which the key can serve.
    Q_INVOKABLE void enterOwnKey(const QString& key);
    /// "Отменить" under the download.
    Q_INVOKABLE void cancelDownload();

signals:
    void changed();

private:
    bool modelPresent() const;
    WhisperModel localModel() const;

    AppState& m_state;
    ModelDownloader& m_models;
    WelcomeFlow& m_flow;
};

} // namespace tamvex
