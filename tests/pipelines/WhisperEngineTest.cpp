#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "pipelines/LocalWhisperEngineCache.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "pipelines/WhisperEngine.h"
#include "pipelines/WhisperEngineError.h"

#ifdef TAMVEX_HAVE_WHISPER
#include "pipelines/whisper_impl/WhisperParams.h"
#endif

#include <QFile>
#include <QTest>

#include <cstring>

using namespace tamvex;
using namespace tamvex::test;

namespace {

constexpr const char* kNoEngine = "this build has no whisper.cpp (configure with -DCMAKE_PREFIX_PATH=<its prefix>)";

} // namespace

class WhisperEngineTest : public QObject {
    Q_OBJECT
private:
    QString model;
    QString speech;
    QString shortSpeech;

    /// Why the engine can't be tested here, or empty when it can.
    QString engineMissing() const {
#ifndef TAMVEX_HAVE_WHISPER
        return kNoEngine;
#endif
        if (model.isEmpty() || speech.isEmpty())
            return "needs ../shared/testdata/for-tests-ggml-tiny.bin and jfk.wav";
        return {};
    }

private slots:
    void initTestCase() {
        model = testData("for-tests-ggml-tiny.bin");
        speech = testData("jfk.wav");
        shortSpeech = testData("speech-ru-16k.wav");
        if (shortSpeech.isEmpty())
            shortSpeech = speech;
    }

    void parametersAreSetExactlyAndTheRestLeftAlone() {
#ifndef TAMVEX_HAVE_WHISPER
        QSKIP(kNoEngine);
#else
        const whisper_context_params ctx = whisperContextParams();
        const whisper_context_params ctxDefault = whisper_context_default_params();
        QVERIFY(ctx.use_gpu && ctx.flash_attn);
        QCOMPARE(ctx.gpu_device, ctxDefault.gpu_device);
        QCOMPARE(ctx.dtw_token_timestamps, ctxDefault.dtw_token_timestamps);

        const char* language = "ru";
        const whisper_full_params p = whisperFullParams(3, language);
        const whisper_full_params d = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
        QCOMPARE(p.strategy, WHISPER_SAMPLING_GREEDY);
        QCOMPARE(p.n_threads, 3);
        QCOMPARE(p.offset_ms, 0);
        QVERIFY(!p.translate && p.no_context && !p.single_segment);
        QVERIFY(!p.print_special && !p.print_progress && !p.print_realtime && !p.print_timestamps);
        QVERIFY(p.language == language);
        QVERIFY(!p.detect_language && !p.suppress_blank);
        QCOMPARE(p.no_speech_thold, 0.0f);
        // Untouched: text context, prompts, temperatures, callbacks.
        QCOMPARE(p.n_max_text_ctx, d.n_max_text_ctx);
        QCOMPARE(p.duration_ms, d.duration_ms);
        QVERIFY(p.initial_prompt == d.initial_prompt && p.prompt_tokens == d.prompt_tokens);
        QCOMPARE(p.temperature, d.temperature);
        QCOMPARE(p.temperature_inc, d.temperature_inc);
        QCOMPARE(p.entropy_thold, d.entropy_thold);
        QCOMPARE(p.greedy.best_of, d.greedy.best_of);
        QVERIFY(p.new_segment_callback == d.new_segment_callback && p.abort_callback == d.abort_callback);
        QVERIFY(p.progress_callback == d.progress_callback && p.encoder_begin_callback == d.encoder_begin_callback);
#endif
    }

    void testModelLoadsAndRunsOnRealAudioToEmptyText() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        LogCapture log;
        auto engine = std::make_shared<WhisperEngine>(model);
        QVERIFY(log.has("Whisper context loaded from " + model));
        const QString text = syncWait(engine->transcribe(speech), 120000);
        QCOMPARE(text, QString());
        QVERIFY(log.hasPrefix("Whisper: whisper_full ok in "));

        // No samples: whisper.cpp is not called at all.
        log.clear();
        QCOMPARE(engine->transcribe(std::vector<float>{}), QString());
        QVERIFY(log.has("Whisper: empty samples buffer — returning empty text"));
        QVERIFY(!log.hasPrefix("Whisper: whisper_full"));
    }

    void callsQueueOnTheEnginesOwnThread() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        auto engine = std::make_shared<WhisperEngine>(model);
        // A bad audio file fails, and the engine stays usable for the calls after it.
        QTemporaryDir dir;
        const auto e =
            thrown<WhisperEngineError>([&] { syncWait(engine->transcribe(dir.filePath("missing.m4a")), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::audioReadFailed);
        QStringList order;
        auto run = [&](QString name) -> QCoro::Task<void> {
            QCoro::Task<QString> t = engine->transcribe(shortSpeech);
            co_await t;
            order.append(name);
        };
        QCoro::Task<void> a = run("a");
        QCoro::Task<void> b = run("b");
        // The main thread stays free while both wait their turn.
        QVERIFY(order.isEmpty());
        syncWait(std::move(a), 120000);
        syncWait(std::move(b), 120000);
        QCOMPARE(order, (QStringList{"a", "b"}));
    }

    void wrongFilesAreRefusedWithoutCrashing() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        QTemporaryDir dir;
        auto expectLoadFailure = [](const QString& path, const QString& words) {
            const auto e = thrown<WhisperEngineError>([&] { WhisperEngine engine(path); });
            QVERIFY2(e && e->kind() == WhisperEngineError::Kind::modelLoadFailed, qPrintable(path));
            QVERIFY2(e->description().startsWith("Не получилось загрузить модель: ") &&
                         e->description().contains(words),
                     qPrintable(e->description()));
        };
        // An audio file, a file too short to hold the magic, a folder.
        expectLoadFailure(speech, "не является моделью whisper.cpp");
        QVERIFY(writeFile(dir.filePath("tiny.bin"), "lmg"));
        expectLoadFailure(dir.filePath("tiny.bin"), "не является моделью whisper.cpp");
        expectLoadFailure(dir.path(), dir.path());
    }

    void cacheLoadsOnceAndThePipelineGivesNoUsage() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        QTemporaryDir dir;
        QString where = dir.filePath("absent.bin");
        LocalWhisperEngineCache cache([&](WhisperModel m) { return m == WhisperModel::mediumQ5 ? speech : where; });

        auto e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::largeV3TurboQ5), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelNotLoaded);
        QCOMPARE(e->description(), QString("Локальная модель не загружена"));

        where = model;
        LogCapture log;
        const auto first = syncWait(cache.engine(WhisperModel::largeV3TurboQ5));
        const auto second = syncWait(cache.engine(WhisperModel::largeV3TurboQ5));
        QVERIFY(first && first == second);
        QCOMPARE(log.lines().filter("Whisper context loaded from").size(), 1);

        // A model that fails to load leaves the loaded one in place.
        e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::mediumQ5), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelLoadFailed);
        QCOMPARE(syncWait(cache.engine(WhisperModel::largeV3TurboQ5)), first);
        QCOMPARE(log.lines().filter("Whisper context loaded from").size(), 1);

        // Once loaded it is kept, even if the file goes away.
        where = dir.filePath("gone.bin");
        QCOMPARE(syncWait(cache.engine(WhisperModel::largeV3TurboQ5)), first);

        LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, cache);
        const SpeechResult result = syncWait(pipeline.process(shortSpeech), 120000);
        QCOMPARE(result.text, QString());
        QVERIFY(!result.usage.has_value());
    }
};

TAMVEX_TEST_CLASS(WhisperEngineTest)
#include "WhisperEngineTest.moc"
