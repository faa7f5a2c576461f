// The local engine on whisper.cpp for real: a tiny model of the real size and layout with
// random weights (written into the build folder), so loading and compute are those of a real
// model and each 30 s window decodes to one token of text.
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/local/LocalWhisperPipeline.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"

#include <QProcessEnvironment>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class WhisperEngineTest : public QObject {
    Q_OBJECT
private:
    QString model;
    QString emptyModel;
    QString speech;
    QString shortSpeech;

    /// Why the engine can't be tested here, or empty when it can.
    QString engineMissing() const {
#ifndef TAMVEX_HAVE_WHISPER
        return "this build has no whisper.cpp (configure with -DTAMVEX_WHISPER_SOURCE=<archive>)";
#endif
        if (model.isEmpty())
            return "needs ../shared/tools/make_random_whisper.py and python3 at configure time";
        if (emptyModel.isEmpty() || speech.isEmpty() || shortSpeech.isEmpty())
            return "needs ../shared/testdata/for-tests-ggml-tiny.bin, jfk.wav and speech-ru-16k.wav";
        return {};
    }

private slots:
    void initTestCase() {
#ifdef TAMVEX_RANDOM_TINY_MODEL
        if (QFile::exists(TAMVEX_RANDOM_TINY_MODEL))
            model = TAMVEX_RANDOM_TINY_MODEL;
#endif
        emptyModel = testData("for-tests-ggml-tiny.bin");
        speech = testData("jfk.wav");
        shortSpeech = testData("speech-ru-16k.wav");
    }

    // The same samples and settings give the same text, in the library and in the command a
    // user runs; a model without weights computes nothing and gives no text, and no error.
    void theLibraryAndTheCommandLineGiveTheSameText() {
        if (const QString why = engineMissing(); !why.isEmpty())
            QSKIP(qPrintable(why));
        LogCapture log;
        auto engine = std::make_shared<WhisperEngine>(model);
        const QString text = syncWait(engine->transcribe(speech), 120000);
        QVERIFY2(!text.isEmpty() && text == text.trimmed(), qPrintable(text));
        QVERIFY(log.hasPrefix("Whisper: whisper_full ok in "));
        QVERIFY(log.hasPrefix("Whisper: read 176000 samples (~11.00s @ 16kHz), peak="));

        const CommandOutput cli =
            runProcess(TAMVEX_PROGRAM, {"transcribe-local", speech, "--model", model},
                       QProcessEnvironment::systemEnvironment(), {}, 120000);
        QCOMPARE(cli.code, 0);
        QCOMPARE(cli.out, text + "\n");

        // No samples: whisper.cpp is not called at all.
        log.clear();
        QCOMPARE(engine->transcribe(std::vector<float>{}), QString());
        QVERIFY(log.has("Whisper: empty samples buffer — returning empty text"));
        QVERIFY(!log.hasPrefix("Whisper: whisper_full"));

        auto weightless = std::make_shared<WhisperEngine>(emptyModel);
        QCOMPARE(syncWait(weightless->transcribe(shortSpeech), 60000), QString());
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
            const QString text = co_await t;
            order.append(name + (text.isEmpty() ? "" : ":text"));
        };
        QCoro::Task<void> a = run("a");
        QCoro::Task<void> b = run("b");
        // The main thread stays free while both wait their turn.
        QVERIFY(order.isEmpty());
        syncWait(std::move(a), 120000);
        syncWait(std::move(b), 120000);
        QCOMPARE(order, (QStringList{"a:text", "b:text"}));
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
        const auto first = syncWait(cache.engine(WhisperModel::largeV3TurboQ5), 60000);
        const auto second = syncWait(cache.engine(WhisperModel::largeV3TurboQ5));
        QVERIFY(first && first == second);

        // A model that fails to load leaves the loaded one in place.
        e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::mediumQ5), 60000); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelLoadFailed);
        QVERIFY2(e->description().startsWith("Не получилось загрузить модель: файл не является моделью whisper.cpp"),
                 qPrintable(e->description()));
        QCOMPARE(syncWait(cache.engine(WhisperModel::largeV3TurboQ5)), first);

        // Once loaded it is kept, even if the file goes away: two dictations, one load.
        where = dir.filePath("gone.bin");
        LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, cache);
        for (int i = 0; i < 2; ++i) {
            const SpeechResult result = syncWait(pipeline.process(shortSpeech), 120000);
            QVERIFY(!result.text.isEmpty());
            QVERIFY(!result.usage.has_value());
        }
        QCOMPARE(log.lines().filter("Whisper context loaded from").size(), 1);
        QCOMPARE(log.lines().filter("Whisper: whisper_full ok in").size(), 2);
    }
};

TAMVEX_TEST_CLASS(WhisperEngineTest)
#include "WhisperEngineTest.moc"
