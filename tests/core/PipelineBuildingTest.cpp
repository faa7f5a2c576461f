#include "core/PipelineBuilding.h"
#include "account/AccountStore.h"
#include "pipelines/CloudPipelines.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"

#include <QDir>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class PipelineBuildingTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        // Nothing listens there: a refresh of a stored token fails at once, leaving no user.
        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9");
        qputenv("TAMVEX_STT_URL", "http://127.0.0.1:9");
    }

    void choices_data() {
        QTest::addColumn<QString>("preset");
        QTest::addColumn<bool>("embedded");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("account"); // "", "token" (no user yet), "user"
        QTest::addColumn<QString>("custom");
        QTest::addColumn<QString>("modelFile"); // a file in the models folder, or ""
        QTest::addColumn<QString>("expected");  // error code, or mode + pipeline + models
        const auto row = [](const char* name, const char* preset, bool embedded, const char* key, const char* account,
                            const char* custom, const char* modelFile, const char* expected) {
            QTest::newRow(name) << QString(preset) << embedded << QString(key) << QString(account) << QString(custom)
                                << QString(modelFile) << QString(expected);
        };
        const char* large = "ggml-large-v3-turbo-q5_0.bin";
        row("own key, signed out", "fast", false, "sk-1", "", "", "", "direct single preset:fast-audio");
        row("embedded key wins over a stored key and a custom model", "fast", true, "sk-1", "user", "my/model", "",
            "proxy single preset:fast-audio");
        row("key of blanks is no key", "precise", false, " \t ", "user", "", "", "proxy single preset:precise-audio");
        row("key of blanks, signed out", "fast", false, "  ", "", "", "", "error 4");
        row("token without a loaded user", "fast", true, "", "token", "", "", "error 4");
        row("custom model of blanks and breaks", "fast", false, "sk-1", "", " \n\t", "",
            "direct single preset:fast-audio");
        row("custom model makes cheap one request", "cheap", false, "sk-1", "", " my/model\n", "",
            "direct single my/model");
        row("cheap through the service", "cheap", true, "", "user", "", "",
            "proxy two preset:cheap-audio preset:cheap-cleanup");
        row("local needs no login and ignores the custom model", "local", true, "", "", "my/model", large, "local");
        row("local without the large model", "local", false, "sk-1", "user", "", "ggml-medium-q5_0.bin", "error -101");
    }

    void choices() {
        QFETCH(QString, preset);
        QFETCH(bool, embedded);
        QFETCH(QString, key);
        QFETCH(QString, account);
        QFETCH(QString, custom);
        QFETCH(QString, modelFile);
        QFETCH(QString, expected);
        AppFixture f;
        AppState& state = *f.state;
        state.settings().setPresetRaw(preset);
        state.settings().setUseEmbeddedKey(embedded);
        state.settings().setApiKey(key);
        state.settings().setCustomModelId(custom);
        if (account == "user")
            state.account().setSession("tok", UserDTO{1, "+7999", 1000, 0});
        else if (account == "token")
            state.account().setToken("tok");
        if (!modelFile.isEmpty()) {
            const QString dir = f.env.paths.dataFile("models");
            QDir().mkpath(dir);
            QFile file(dir + "/" + modelFile);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }

        QString got;
        try {
            const PipelineSetup setup = buildPipeline(state);
            if (setup.cloudMode)
                got = setup.cloudMode->kind == OpenRouterService::Mode::Kind::proxy ? "proxy " : "direct ";
            if (auto* single = dynamic_cast<SinglePassPipeline*>(setup.pipeline.get())) {
                got += "single " + single->model();
                QCOMPARE(single->systemPrompt(), prompts::cleanupPrompt);
            } else if (auto* two = dynamic_cast<TwoStagePipeline*>(setup.pipeline.get())) {
                got += "two " + two->sttModel() + " " + two->cleanupModel();
            } else if (dynamic_cast<LocalWhisperPipeline*>(setup.pipeline.get())) {
                got += "local";
            }
            if (setup.cloudMode && setup.cloudMode->kind == OpenRouterService::Mode::Kind::direct)
                QCOMPARE(setup.cloudMode->secret, key); // trimmed only when the request is built
        } catch (const DomainError& e) {
            got = "error " + QString::number(e.code());
            QCOMPARE(e.domain(), QString("Tamvex"));
            QCOMPARE(e.description(),
                     e.code() == 4 ? notSignedInError().description() : modelNotDownloadedError().description());
        }
        QCOMPARE(got, expected);
        spinUntil([&] { return !state.account().isRefreshing(); });
    }
};

TAMVEX_TEST_CLASS(PipelineBuildingTest)
#include "PipelineBuildingTest.moc"
