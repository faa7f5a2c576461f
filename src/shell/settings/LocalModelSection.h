#pragma once

#include "pipelines/local/ModelDownloadState.h"
#include "pipelines/local/ModelSpeed.h"
#include "pipelines/local/WhisperModel.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace tamvex {

class ModelDownloader;
class ModelSelfTest;
class SettingsStore;

/// The settings pane's card over the model downloader: the model the local road uses, with
/// what each download state shows and what its one button does; then every model with its
/// size, languages and, once downloaded, its measured speed here, each downloaded, chosen or
/// deleted on its own; and a warning when the chosen model is too slow for this machine.
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
    /// One map per model, in declared order: the fields of Entry.
    Q_PROPERTY(QVariantList models READ models NOTIFY changed)
    /// Empty unless the chosen model was measured too slow here.
    Q_PROPERTY(QString warning READ warning NOTIFY changed)
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

    /// What one model's line is made of.
    struct EntryInput {
        WhisperModel model = WhisperModel::largeV3TurboQ5;
        ModelDownloadState state;           ///< of this model's transfer: idle when none runs for it
        std::optional<qint64> fileSize;     ///< none when its file is not in the folder
        std::optional<ModelSpeed> speed;    ///< kept self-test on this backend
        bool measuring = false;             ///< a self-test is queued or running
        QString measureFailure;             ///< why this run's self-test failed
        bool chosen = false;                ///< the user's choice
        bool inUse = false;                 ///< with no choice, the one the local road takes or proposes
        bool otherTransfer = false;         ///< another model's transfer runs
    };

    /// One model's line in the list.
    struct Entry {
        QString key;     ///< the model's raw value
        QString name;
        QString tag;     ///< "выбрана", "используется" (no choice, on disk), "рекомендуем" (no choice, to download)
        QString details; ///< "356 МБ · 25 европейских языков"
        QString phase;   ///< as Row::phase
        QString status;
        QString speed;   ///< the measured speed, or what the self-test is doing
        double progress = 0.0;
        bool chosen = false;
        bool current = false; ///< a dictation now would use it: chosen, or taken from the folder
        bool slow = false; ///< measured too slow for a 20 s dictation within the limit
        bool canDownload = false;
        bool canCancel = false;
        bool canChoose = false;
        bool canDelete = false;
        bool canMeasure = false;
        bool operator==(const Entry&) const = default;
        QVariantMap toMap() const;
    };

    /// The line of one model.
    static Entry entryFor(const EntryInput& input);
    /// The warning for `chosen` given the speeds kept on this backend: empty unless it was
    /// measured too slow; then what it would take, and the fastest model that would do.
    static QString warningFor(WhisperModel chosen, const QMap<WhisperModel, ModelSpeed>& speeds);

    /// `selfTest` measures downloaded models; none: no speeds are shown or measured.
    explicit LocalModelSection(ModelDownloader& downloader, ModelSelfTest* selfTest = nullptr,
                               QObject* parent = nullptr);

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
    const QList<Entry>& entries() const { return m_entries; }
    QVariantList models() const;
    QString warning() const { return m_warning; }

    /// Looks at the files on disk again and measures the downloaded models not yet measured
    /// here (the pane appearing).
    Q_INVOKABLE void refresh();
    /// The button: download, cancel or try again, as the row says.
    Q_INVOKABLE void press();
    /// One model's buttons, by its raw value; unknown names are ignored.
    Q_INVOKABLE void download(const QString& key);
    Q_INVOKABLE void cancel();
    /// The model becomes the local road's choice (its file must be there).
    Q_INVOKABLE void choose(const QString& key);
    /// Deletes the model's file, leaving every other file in the folder; deleting the chosen
    /// model forgets the choice.
    Q_INVOKABLE void remove(const QString& key);
    /// Measures the model again.
    Q_INVOKABLE void measure(const QString& key);

signals:
    void changed();

private:
    Hosts hosts() const;
    /// Builds everything again from the downloader, the settings and the self-test.
    void update();
    /// The downloader's state when its transfer is for `model`, idle otherwise.
    ModelDownloadState stateOf(WhisperModel model) const;
    QMap<WhisperModel, ModelSpeed> speeds() const;

    ModelDownloader& m_downloader;
    ModelSelfTest* m_selfTest = nullptr;
    SettingsStore* m_settings = nullptr;
    Row m_row;
    QList<Entry> m_entries;
    QString m_warning;
};

} // namespace tamvex
