#pragma once

#include "pipelines/local/ModelDownloadState.h"
#include "pipelines/local/WhisperModel.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace tamvex {

class ModelDownloader;
class SettingsStore;

/// The settings pane's card over the model downloader for the one local model: what each
/// download state shows, and what its one button does.
class LocalModelSection : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The settings pane makes the section")
    Q_PROPERTY(QString modelName READ modelName NOTIFY changed)
    /// "notDownloaded", "downloading", "verifying", "ready" or "failed".
    Q_PROPERTY(QString phase READ phase NOTIFY changed)
    Q_PROPERTY(QString symbol READ symbol NOTIFY changed)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString text READ text NOTIFY changed)
    Q_PROPERTY(QString percentText READ percentText NOTIFY changed)
    Q_PROPERTY(double progress READ progress NOTIFY changed)
    /// Empty when the state has no button.
    Q_PROPERTY(QString buttonText READ buttonText NOTIFY changed)
    Q_PROPERTY(QString buttonSymbol READ buttonSymbol NOTIFY changed)
public:
    /// What one state shows.
    struct Row {
        QString phase;
        QString symbol;
        QString title;
        QString text;
        QString percentText;
        double progress = 0.0;
        QString buttonText;
        QString buttonSymbol;
        bool operator==(const Row&) const = default;
    };

    /// Where the bytes come from: the host of the running transfer, and the two it may be.
    struct Hosts {
        QString active; ///< empty when no transfer runs
        QString main;
        QString mirror;
    };

    /// The row of `state` with the model file's size on disk (none when there is no file) and
    /// the hosts it is fetched from.
    static Row rowFor(const ModelDownloadState& state, std::optional<qint64> fileSize, const Hosts& hosts,
                      const QString& name = whisperModels::displayName(WhisperModel::largeV3TurboQ5));

    explicit LocalModelSection(ModelDownloader& downloader, QObject* parent = nullptr);

    /// Shows the model the settings choose (or the one this machine runs best, stored as the
    /// choice when its download starts) instead of the default large model.
    void followSettings(SettingsStore& settings);
    /// The model the card is about.
    WhisperModel model() const;
    /// Its name, e.g. "Whisper Large V3 Turbo (Q5)".
    QString modelName() const { return whisperModels::displayName(model()); }

    const Row& row() const { return m_row; }
    QString phase() const { return m_row.phase; }
    QString symbol() const { return m_row.symbol; }
    QString title() const { return m_row.title; }
    QString text() const { return m_row.text; }
    QString percentText() const { return m_row.percentText; }
    double progress() const { return m_row.progress; }
    QString buttonText() const { return m_row.buttonText; }
    QString buttonSymbol() const { return m_row.buttonSymbol; }

    /// Looks at the file on disk again (the pane appearing).
    Q_INVOKABLE void refresh();
    /// The button: download, cancel or try again, as the row says.
    Q_INVOKABLE void press();

signals:
    void changed();

private:
    Hosts hosts() const;

    ModelDownloader& m_downloader;
    SettingsStore* m_settings = nullptr;
    Row m_row;
};

} // namespace tamvex
