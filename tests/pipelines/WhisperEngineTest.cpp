#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "pipelines/LocalWhisperEngineCache.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "pipelines/WhisperEngine.h"
#include "pipelines/WhisperEngineError.h"

#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class WhisperEngineTest : public QObject {
    Q_OBJECT
private:
    QString model;
    QString speech;
    QString shortSpeech;

    /// Why the engine can't be tested here, or empty when it can.
    QString engineMissing() const {
#ifndef TAMVEX_HAVE_WHISPER
        return "this build has no whisper.cpp (configure with -DCMAKE_PREFIX_PATH=<its prefix>)";
#endif
        if (model.isEmpty() || speech.isEmpty() || shortSpeech.isEmpty())
            return "needs ../shared/testdata/for-tests-ggml-tiny.bin, jfk.wav and speech-ru-16k.wav";
        return {};
    }

private slots:
    void initTestCase() {
        model = testData("for-tests-ggml-tiny.bin");
        speech = testData("jfk.wav");
        shortSpeech = testData("speech-ru-16k.wav");
    }

    void testModelLoadsAndRunsOnRealAudioToEmptyText() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        LogCapture log;
        auto engine = std::make_shared<WhisperEngine>(model);
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

    void cacheLoadsOnceAndThePipelineGivesNoUsage() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        QTemporaryDir dir;
        QString where = dir.filePath("absent.bin");
        LocalWhisperEngineCache cache([&](WhisperModel m) { return m == WhisperModel::mediumQ5 ? speech : where; });

        auto e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::largeV3TurboQ5), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelNotLoaded);

        where = model;
        LogCapture log;
        const auto first = syncWait(cache.engine(WhisperModel::largeV3TurboQ5));
        const auto second = syncWait(cache.engine(WhisperModel::largeV3TurboQ5));
        QVERIFY(first && first == second);
        QCOMPARE(log.lines().filter("Whisper context loaded from").size(), 1);

        // A model that fails to load leaves the loaded one in place.
        e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::mediumQ5), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelLoadFailed);
        QVERIFY2(e->description().startsWith("Не получилось загрузить модель: файл не является моделью whisper.cpp"),
                 qPrintable(e->description()));
        QCOMPARE(syncWait(cache.engine(WhisperModel::largeV3TurboQ5)), first);

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
