#include "pipelines/CloudPipelines.h"
#include "history/TextClassifier.h"
#include "pipelines/PipelinePreset.h"
#include "support/ChatAnswers.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

// The usage of every chatAnswer.
const UsageInfo kUsage{120, 12, 132, 0.001};

/// The bodies of the chat requests the server was sent.
QList<QJsonObject> chatRequests(const devserver::DevServer& server) {
    QList<QJsonObject> out;
    for (const auto& r : server.received(kProxyPath))
        out.append(QJsonDocument::fromJson(r.body).object());
    return out;
}

struct Rig : SelectorEnv {
    std::shared_ptr<OpenRouterService> service =
        std::make_shared<OpenRouterService>(OpenRouterService::Mode::proxy("tok"), selector);
    QString audio = sandbox.root.filePath("sorvel-test.m4a");
    QByteArray audioBytes = QByteArray("\x00\xff\x10 fake m4a \xd0\x9f", 16);
    QJsonObject audioPart{{"type", "input_audio"},
                          {"input_audio", QJsonObject{{"data", QString(audioBytes.toBase64())}, {"format", "m4a"}}}};

    Rig() {
        if (!writeFile(audio, audioBytes))
            throw std::runtime_error("cannot write the audio");
    }
    void reply(const QByteArray& body) { host.server.script(kProxyPath, Script{200, body, "application/json", 0, 1}); }
};

QJsonObject textPart(const QString& text) {
    return {{"type", "text"}, {"text", text}};
}

/// The whole body of a chat request: a system prompt and the user's parts.
QJsonObject chatBody(const QString& model, double temperature, const QString& system, const QJsonArray& userParts) {
    const QJsonArray messages{QJsonObject{{"role", "system"}, {"content", QJsonArray{textPart(system)}}},
                              QJsonObject{{"role", "user"}, {"content", userParts}}};
    return {{"model", model},
            {"messages", messages},
            {"temperature", temperature},
            {"usage", QJsonObject{{"include", true}}}};
}

} // namespace

class CloudPipelinesTest : public QObject {
    Q_OBJECT
private slots:
    void singlePassSendsTheFileOnceAndTrims() {
        Rig rig;
        rig.reply(chatAnswer("\n  Привет, мир. \n"));
        SinglePassPipeline pipeline(rig.service, "preset:fast-audio", prompts::cleanupPrompt);
        const SpeechResult result = syncWait(pipeline.process(rig.audio));
        QCOMPARE(result.text, QString("Привет, мир."));
        QCOMPARE(result.usage, std::optional<UsageInfo>(kUsage));

        QCOMPARE(chatRequests(rig.host.server),
                 QList{chatBody("preset:fast-audio", 0.2, prompts::cleanupPrompt,
                                {textPart("Транскрибируй и почисти эту голосовую диктовку."), rig.audioPart})});
    }

    void twoStageAnswersAndUsage() {
        const UsageInfo both{240, 24, 264, 0.002};
        const QString noContent = "OpenRouter вернул пустой ответ.";
        // Answers, the transcript stage two is sent (none: no second request), text, failure, usage.
        const std::tuple<QByteArrayList, QString, QString, QString, std::optional<UsageInfo>> cases[] = {
            // Both stages, usage summed.
            {{chatAnswer(" привет мир \n"), chatAnswer(" Привет, мир. ")}, "привет мир", "Привет, мир.", "", both},
            // Stage one blank: no second request.
            {{chatAnswer(" ")}, "", "", "", kUsage},
            // Stage two without usage keeps stage one's.
            {{chatAnswer("раз два"), chatAnswer("Раз, два.", false)}, "раз два", "Раз, два.", "", kUsage},
            // Stage two fails: the transcript is lost.
            {{chatAnswer("раз"), chatAnswer("")}, "раз", "", noContent, std::nullopt},
        };
        for (const auto& [answers, transcript, text, error, usage] : cases) {
            Rig rig;
            for (const QByteArray& a : answers)
                rig.reply(a);
            TwoStagePipeline pipeline(rig.service, "preset:cheap-audio", "preset:cheap-cleanup", prompts::cleanupPrompt,
                                      prompts::verbatimPrompt);
            try {
                const SpeechResult result = syncWait(pipeline.process(rig.audio));
                QVERIFY2(error.isEmpty(), "expected a failure");
                QCOMPARE(result.text, text);
                QCOMPARE(result.usage, usage);
            } catch (const OpenRouterError& e) {
                QCOMPARE(e.description(), error);
            }
            // Stage two carries the trimmed transcript and no audio.
            QList<QJsonObject> expected{chatBody("preset:cheap-audio", 0.0, prompts::verbatimPrompt,
                                                 {textPart("Распознай эту речь."), rig.audioPart})};
            if (!transcript.isEmpty())
                expected << chatBody("preset:cheap-cleanup", 0.2, prompts::cleanupPrompt, {textPart(transcript)});
            QCOMPARE(chatRequests(rig.host.server), expected);
        }
    }

    void missingFileSendsNothing() {
        Rig rig;
        // Both pipelines read the file through ChatContent::audioFile before any request.
        TwoStagePipeline twoStage(rig.service, "a", "b", "c", "d");
        QVERIFY_THROWS_EXCEPTION(TamvexError, syncWait(twoStage.process(rig.sandbox.root.filePath("none.m4a"))));
        QVERIFY(rig.host.server.received().isEmpty());
    }
};

// Its own class, so its own process: after missingFileSendsNothing in one process, its first request crashed.
class TextClassifierTest : public QObject {
    Q_OBJECT
private slots:
    // Short texts are not asked about; an answer is one word, any case, a stop and spaces aside.
    void classifierAnswersBecomeCategories() {
        const QString eight = "раз два три четыре пять шесть семь восемь";
        // Text, status, answer, category, whether it was asked.
        const std::tuple<QString, int, QString, TextCategory, bool> cases[] = {
            {"раз два три четыре пять шесть семь", 200, "docs", TextCategory::other, false},
            {eight, 200, " Docs.\n", TextCategory::docs, true},
            {eight, 200, "docs notes", TextCategory::other, true},
            {eight, 500, "down", TextCategory::other, true},
        };
        for (const auto& [text, status, reply, category, asked] : cases) {
            SelectorEnv env;
            env.host.server.script(kProxyPath,
                                   Script{status, status == 200 ? chatAnswer(reply, false) : reply.toUtf8()});
            LogCapture log;
            TextClassifier classifier(
                std::make_shared<OpenRouterService>(OpenRouterService::Mode::proxy("t"), env.selector),
                "google/gemini-2.5-flash-lite");
            QCOMPARE(syncWait(classifier.classify(text)), category);
            const auto body = chatBody("google/gemini-2.5-flash-lite", 0.0, TextClassifier::prompt, {textPart(text)});
            QCOMPARE(chatRequests(env.host.server), asked ? QList{body} : QList<QJsonObject>{});
            QCOMPARE(log.hasPrefix("classify failed: "), status != 200);
        }
    }
};

TAMVEX_TEST_CLASS(CloudPipelinesTest)
TAMVEX_TEST_CLASS(TextClassifierTest)
#include "CloudPipelinesTest.moc"
