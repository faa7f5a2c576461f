// What holds with or without whisper.cpp: the thread rule, the model file check, and the
// refusal of a build that has no engine.
#include "support/TestMain.h"
#include "WhisperTestSupport.h"
#include "support/TestSupport.h"

#include "pipelines/LocalWhisperEngineCache.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "pipelines/WhisperEngine.h"
#include "pipelines/WhisperEngineError.h"

#include <QFile>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class WhisperRulesTest : public QObject {
    Q_OBJECT
private:
    QString model = testData("for-tests-ggml-tiny.bin");

private slots:
    void threadsLeaveTwoProcessorsAndStopAtEight() {
        for (const auto& [processors, threads] : {std::pair{1, 1}, {3, 1}, {5, 3}, {10, 8}, {32, 8}})
            QCOMPARE(whisperThreadCount(processors), threads);
    }

    void onlyFilesWithTheGgmlMagicPassAsModels() {
        QTemporaryDir dir;
        QString why;
        QVERIFY(!looksLikeWhisperModel(dir.filePath("missing.bin"), &why));
        QVERIFY2(why.contains("No such file"), qPrintable(why));
        QFile bigEndian(dir.filePath("be.bin"));
        QVERIFY(bigEndian.open(QIODevice::WriteOnly));
        bigEndian.write("ggml-but-big-endian");
        bigEndian.close();
        QVERIFY(!looksLikeWhisperModel(bigEndian.fileName(), &why));
        QVERIFY2(why.contains("не является моделью whisper.cpp"), qPrintable(why));
        if (!model.isEmpty())
            QVERIFY(looksLikeWhisperModel(model));
    }

    void withoutTheLibraryTheLocalPipelineSaysSoInRussian() {
#ifdef TAMVEX_HAVE_WHISPER
        QSKIP("this build has whisper.cpp; the refusal belongs to builds without it");
#else
        QVERIFY(!WhisperEngine::isAvailable());
        QTemporaryDir dir;
        LocalWhisperEngineCache cache([&](WhisperModel) { return dir.filePath("absent.bin"); });
        LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, cache);
        const auto e = engineFailure(pipeline.process(dir.filePath("audio.m4a")));
        QVERIFY(e.has_value());
        QCOMPARE(e->kind(), WhisperEngineError::Kind::engineUnavailable);
        QVERIFY(e->description().contains("нет локального распознавания"));
#endif
    }
};

TAMVEX_TEST_CLASS(WhisperRulesTest)
#include "WhisperRulesTest.moc"
