#include "pipelines/local/ModelSelfTest.h"

#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/LocalEngine.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/WhisperEngineError.h"
#include "platform/Clock.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>

// Resources of a static library are linked only when something names them.
static void initSampleResource() {
    static const bool done = [] {
        Q_INIT_RESOURCE(selftest);
        return true;
    }();
    Q_UNUSED(done);
}

namespace tamvex {

ModelSelfTest::ModelSelfTest(LocalWhisperEngineCache& cache, ModelSpeedRecord record, Clock& clock, QString backend,
                             QObject* parent)
    : QObject(parent), m_cache(cache), m_record(std::move(record)), m_speeds(m_record.speeds(backend)), m_clock(clock),
      m_backend(std::move(backend)) {}

ModelSelfTest::~ModelSelfTest() {
    *m_alive = false;
    *m_stop = true;
}

ModelSelfTest& ModelSelfTest::shared() {
    // Never destroyed, like the engine cache it measures through.
    static ModelSelfTest* instance = new ModelSelfTest(
        LocalWhisperEngineCache::shared(), ModelSpeedRecord(ModelDownloader::shared().speedRecordPath()), *new WallClock,
        LocalHardware::current().backend);
    return *instance;
}

std::optional<ModelSpeed> ModelSelfTest::speed(WhisperModel model) const {
    const auto found = m_speeds.constFind(model);
    return found == m_speeds.cend() ? std::nullopt : std::optional(*found);
}

void ModelSelfTest::reload() {
    QMap<WhisperModel, ModelSpeed> kept = m_record.speeds(m_backend);
    if (kept == m_speeds)
        return;
    m_speeds = std::move(kept);
    emit changed();
}

void ModelSelfTest::request(WhisperModel model, bool again) {
    if (isPending(model) || (!again && (m_failures.contains(model) || speed(model))))
        return;
    m_failures.remove(model);
    m_queue.append(model);
    emit changed();
    if (!m_draining)
        drain();
}

QString ModelSelfTest::samplePath() {
    if (m_sample)
        return m_sample->fileName();
    initSampleResource();
    QFile resource(QStringLiteral(":/selftest/speech-sample-ru.ogg"));
    auto file = std::make_unique<QTemporaryFile>(QDir::tempPath() + QStringLiteral("/tamvex-speech-sample-XXXXXX.ogg"));
    if (!resource.open(QIODevice::ReadOnly) || !file->open() || file->write(resource.readAll()) != resource.size() ||
        !file->flush())
        throw WhisperEngineError::audioReadFailed(QStringLiteral("не удалось подготовить образец речи: ") +
                                                  file->errorString());
    m_sampleSeconds = double(readAudioSamples(file->fileName()).size()) / whisperSampleRate;
    m_sample = std::move(file);
    return m_sample->fileName();
}

QCoro::Task<void> ModelSelfTest::drain() {
    const std::shared_ptr<bool> alive = m_alive;
    m_draining = true;
    while (!m_queue.isEmpty()) {
        const WhisperModel model = m_queue.first();
        const QString name = whisperModels::rawValue(model);
        try {
            const QString sample = samplePath();
            logInfo(QStringLiteral("Model self-test: %1 on %2").arg(name, m_backend));
            QCoro::Task<std::shared_ptr<LocalEngine>> load = m_cache.engine(model);
            const std::shared_ptr<LocalEngine> engine = co_await load;
            if (!*alive)
                co_return;
            const double started = m_clock.now();
            QCoro::Task<QString> run = engine->transcribe(sample, nullptr, m_stop);
            co_await run;
            if (!*alive)
                co_return;
            const ModelSpeed measured{m_sampleSeconds, m_clock.secondsSince(started)};
            m_speeds.insert(model, measured);
            m_record.store(model, m_backend, measured);
            logInfo(QStringLiteral("Model self-test: %1 on %2 recognised %3 s of speech in %4 s")
                        .arg(name, m_backend)
                        .arg(measured.speechSeconds, 0, 'f', 1)
                        .arg(measured.elapsedSeconds, 0, 'f', 2));
        } catch (const std::exception& e) {
            if (!*alive)
                co_return;
            m_failures.insert(model, describeError(e));
            logError(QStringLiteral("Model self-test of %1 failed: %2").arg(name, describeError(e)));
        }
        m_queue.removeFirst();
        emit finished(model);
        emit changed();
    }
    // The shared instance lives as long as the process: the sample's file goes with the queue.
    m_sample.reset();
    m_draining = false;
}

} // namespace tamvex
