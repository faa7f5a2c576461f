#include "support/TestMain.h"
#include "pipelines/CloudPipelines.h"
#include "pipelines/PipelinePreset.h"
#include "services/ServiceFixture.h"
#include "support/ChatAnswers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

QByteArray answer(const QString& content, const QString& usage = {}) {
    QJsonObject message{{"role", "assistant"}, {"content", content}};
    QJsonObject body{{"choices", QJsonArray{QJsonObject{{"message", message}}}}};
    if (!usage.isEmpty()) {
        const QStringList n = usage.split(',');
        body.insert("usage", QJsonObject{{"prompt_tokens", n[0].toInt()},
                                         {"completion_tokens", n[1].toInt()},
                                         {"total_tokens", n[2].toInt()},
                                         {"cost", n[3].toDouble()}});
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

struct Rig : SelectorEnv {
    std::shared_ptr<OpenRouterService> service =
        std::make_shared<OpenRouterService>(OpenRouterService::Mode::proxy("tok"), selector);
    QString audio = sandbox.root.filePath("sorvel-test.m4a");
    QByteArray audioBytes = QByteArray("\x00\xff\x10 fake m4a \xd0\x9f", 16);

    Rig() {
        QFile f(audio);
        if (!f.open(QIODevice::WriteOnly) || f.write(audioBytes) != audioBytes.size())
            throw std::runtime_error("cannot write the audio");
    }
    void reply(const QByteArray& body) { host.server.script(kProxyPath, Script{200, body, "application/json", 0, 1}); }
    QList<QJsonObject> requests() const {
        QList<QJsonObject> out;
        for (const auto& r : host.server.received(kProxyPath))
            out.append(QJsonDocument::fromJson(r.body).object());
        return out;
    }
};

QJsonObject textPart(const QString& text) {
    return {{"type", "text"}, {"text", text}};
}

QJsonArray messages(const QString& system, const QJsonArray& userParts) {
    return {QJsonObject{{"role", "system"}, {"content", QJsonArray{textPart(system)}}},
            QJsonObject{{"role", "user"}, {"content", userParts}}};
}

} // namespace

class CloudPipelinesTest : public QObject {
    Q_OBJECT
private slots:
    void singlePassSendsTheFileOnceAndTrims() {
        Rig rig;
        rig.reply(answer("\n  Привет, мир. \n", "10,5,15,0.001"));
        SinglePassPipeline pipeline(rig.service, "preset:fast-audio", prompts::cleanupPrompt);
        const SpeechResult result = syncWait(pipeline.process(rig.audio));
        QCOMPARE(result.text, QString("Привет, мир."));
        QCOMPARE(result.usage, std::optional<UsageInfo>(UsageInfo{10, 5, 15, 0.001}));

        const QList<QJsonObject> sent = rig.requests();
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0].value("model").toString(), QString("preset:fast-audio"));
        QCOMPARE(sent[0].value("temperature").toDouble(), 0.2);
        const QJsonObject audioPart{
            {"type", "input_audio"},
            {"input_audio", QJsonObject{{"data", QString::fromLatin1(rig.audioBytes.toBase64())}, {"format", "m4a"}}}};
        QCOMPARE(sent[0].value("messages").toArray(),
                 messages(prompts::cleanupPrompt,
                          {textPart("Транскрибируй и почисти эту голосовую диктовку."), audioPart}));
        // One line of base64, no breaks, straight in the body.
        QVERIFY(rig.host.server.received(kProxyPath)[0].body.contains(rig.audioBytes.toBase64()));
    }

    void twoStageAnswersAndUsage_data() {
        QTest::addColumn<QByteArrayList>("answers");
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error");
        QTest::addColumn<std::optional<UsageInfo>>("usage");
        const auto both = UsageInfo{30, 13, 43, 0.003};
        QTest::newRow("both stages, usage summed")
            << QByteArrayList{answer(" привет мир \n", "10,5,15,0.001"), answer(" Привет, мир. ", "20,8,28,0.002")}
            << 2 << "Привет, мир." << "" << std::optional<UsageInfo>(both);
        QTest::newRow("stage one blank: no second request")
            << QByteArrayList{answer(" ", "10,5,15,0.001")} << 1 << "" << ""
            << std::optional<UsageInfo>(UsageInfo{10, 5, 15, 0.001});
        QTest::newRow("stage one empty: no content")
            << QByteArrayList{answer("", "10,5,15,0.001")} << 1 << "" << "OpenRouter вернул пустой ответ."
            << std::optional<UsageInfo>();
        QTest::newRow("stage two without usage keeps stage one's")
            << QByteArrayList{answer("раз два", "10,5,15,0.001"), answer("Раз, два.")} << 2 << "Раз, два."
            << "" << std::optional<UsageInfo>(UsageInfo{10, 5, 15, 0.001});
        QTest::newRow("stage two blank: empty text, summed usage")
            << QByteArrayList{answer("раз", "10,5,15,0.001"), answer(" \n ", "20,8,28,0.002")} << 2 << "" << ""
            << std::optional<UsageInfo>(both);
        QTest::newRow("stage two fails: the transcript is lost")
            << QByteArrayList{answer("раз", "10,5,15,0.001"), answer("")} << 2 << ""
            << "OpenRouter вернул пустой ответ." << std::optional<UsageInfo>();
    }

    void twoStageAnswersAndUsage() {
        QFETCH(QByteArrayList, answers);
        QFETCH(int, requests);
        QFETCH(QString, text);
        QFETCH(QString, error);
        QFETCH(std::optional<UsageInfo>, usage);
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
        const QList<QJsonObject> sent = rig.requests();
        QCOMPARE(sent.size(), requests);
        QCOMPARE(sent[0].value("model").toString(), QString("preset:cheap-audio"));
        QCOMPARE(sent[0].value("temperature").toDouble(), 0.0);
        const QJsonArray first = sent[0].value("messages").toArray();
        QCOMPARE(first[0].toObject().value("content").toArray()[0].toObject(), textPart(prompts::verbatimPrompt));
        QCOMPARE(first[1].toObject().value("content").toArray()[0].toObject(), textPart("Распознай эту речь."));
        if (requests == 2) {
            // Stage two carries the trimmed transcript and no audio.
            QCOMPARE(sent[1].value("model").toString(), QString("preset:cheap-cleanup"));
            QCOMPARE(sent[1].value("temperature").toDouble(), 0.2);
            const QString transcript = QJsonDocument::fromJson(answers[0])
                                           .object()["choices"][0]["message"]["content"]
                                           .toString()
                                           .trimmed();
            QCOMPARE(sent[1].value("messages").toArray(),
                     messages(prompts::cleanupPrompt, {textPart(transcript)}));
        }
    }

    void missingFileSendsNothing() {
        Rig rig;
        for (bool twoStage : {false, true}) {
            std::unique_ptr<SpeechPipeline> pipeline;
            if (twoStage)
                pipeline = std::make_unique<TwoStagePipeline>(rig.service, "a", "b", "c", "d");
            else
                pipeline = std::make_unique<SinglePassPipeline>(rig.service, "a", "b");
            QVERIFY_THROWS_EXCEPTION(TamvexError, syncWait(pipeline->process(rig.sandbox.root.filePath("none.m4a"))));
        }
        QVERIFY(rig.host.server.received().isEmpty());
    }
};

TAMVEX_TEST_CLASS(CloudPipelinesTest)
#include "CloudPipelinesTest.moc"
