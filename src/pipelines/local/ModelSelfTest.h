#pragma once

#include "pipelines/local/ModelSpeed.h"
#include "pipelines/local/ModelSpeedRecord.h"
#include "pipelines/local/WhisperModel.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <qcoro/qcorotask.h>

#include <atomic>
#include <memory>
#include <optional>

class QTemporaryFile;

namespace tamvex {

class Clock;
class LocalWhisperEngineCache;

/// Measures how fast a downloaded model recognises speech on this machine, once per model
/// and whisper.cpp backend: a bundled sample of about 10 s of Russian speech, recognised by
/// the model already loaded (as a dictation finds it), on the engine's thread after whatever
/// runs there. One model at a time; requests queue. Lives on the main thread.
class ModelSelfTest : public QObject {
    Q_OBJECT
public:
    /// Loads models through `cache`, keeps results in `record` under `backend`, times with `clock`.
    ModelSelfTest(LocalWhisperEngineCache& cache, ModelSpeedRecord record, Clock& clock, QString backend,
                  QObject* parent = nullptr);
    /// Stops a Parakeet run at its next step; a whisper run finishes on its own thread.
    ~ModelSelfTest() override;

    /// The process-wide one, over the shared engine cache and the user's data folder.
    static ModelSelfTest& shared();

    const QString& backend() const { return m_backend; }
    /// The kept speed of `model` on this backend.
    std::optional<ModelSpeed> speed(WhisperModel model) const;
    /// Every kept speed on this backend, read from the record once.
    const QMap<WhisperModel, ModelSpeed>& speeds() const { return m_speeds; }
    /// Queued or being measured.
    bool isPending(WhisperModel model) const { return m_queue.contains(model); }
    /// Why the last measurement of `model` in this run failed; empty when it did not.
    QString failure(WhisperModel model) const { return m_failures.value(model); }

    /// Reads the kept speeds again: `tamvex model speed` may have measured meanwhile.
    void reload();
    /// Measures `model` unless a speed is kept, it is pending, or it failed in this run;
    /// `again` measures it anyway.
    void request(WhisperModel model, bool again = false);

signals:
    /// A model was queued, measured or failed.
    void changed();
    /// The measurement of `model` ended, kept or failed.
    void finished(tamvex::WhisperModel model);

private:
    QCoro::Task<void> drain();
    /// The sample out of the program's resources, in a file the engine can read; throws
    /// WhisperEngineError::audioReadFailed.
    QString samplePath();

    LocalWhisperEngineCache& m_cache;
    ModelSpeedRecord m_record;
    QMap<WhisperModel, ModelSpeed> m_speeds;
    Clock& m_clock;
    const QString m_backend;
    QList<WhisperModel> m_queue; ///< the first is measured now
    bool m_draining = false;
    QMap<WhisperModel, QString> m_failures;
    std::unique_ptr<QTemporaryFile> m_sample;
    double m_sampleSeconds = 0.0;
    std::shared_ptr<std::atomic<bool>> m_stop = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace tamvex
