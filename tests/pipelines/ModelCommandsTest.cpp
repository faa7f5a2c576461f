#include "support/TestMain.h"
#include "ModelTestServers.h"
#include "support/TestSupport.h"

#include "cli/ModelCommands.h"
#include "pipelines/WhisperEngine.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

QJsonObject json(const CommandOutput& o) { return QJsonDocument::fromJson(o.out.toUtf8()).object(); }

/// `tamvex model ARGS` over a sandboxed downloader whose model is served as `file` by a local server.
struct Cli {
    explicit Cli(const QString& file = "small.bin") : rig(server.base() + "/models/" + file) {}
    CommandOutput model(const QStringList& args) {
        return captureCommand([&](QTextStream& out, QTextStream& err) { return runModelCommand(args, out, err, *rig.downloader); });
    }
    QString path() const { return rig.target(); }

    ModelServer server;
    DownloaderRig rig;
};

CommandOutput transcribe(const QStringList& args) {
    return captureCommand([&](QTextStream& out, QTextStream& err) { return runTranscribeLocal(args, out, err); });
}

} // namespace

class ModelCommandsTest : public QObject {
    Q_OBJECT
private slots:
    void progressLineShowsShareAndMegabytes() {
        QCOMPARE(modelProgressLine(0.0, 574041195, 10), QString("[----------]   0 %  0 из ~574 МБ"));
        QCOMPARE(modelProgressLine(0.5, 574041195, 10), QString("[#####-----]  50 %  287 из ~574 МБ"));
        QCOMPARE(modelProgressLine(1.0, 574041195, 10), QString("[##########] 100 %  574 из ~574 МБ"));
    }

    void misuseIsRefusedWithTheUsage() {
        Cli cli;
        for (const QStringList& args : {QStringList{}, QStringList{"fetch"}, QStringList{"status", "ggml-tiny"},
                                        QStringList{"status", "a", "b"}}) {
            const CommandOutput o = cli.model(args);
            QCOMPARE(o.code, 2);
            QVERIFY2(o.err.contains("Использование: tamvex model"), qPrintable(o.err));
        }
        QCOMPARE(transcribe({}).code, 2);
        QCOMPARE(transcribe({"a.m4a", "--model"}).code, 2);
    }

    void fetchCheckAndDeleteFromTheTerminal() {
        Cli cli;
        CommandOutput o = cli.model({"status", "--json"});
        QCOMPARE(o.code, 0);
        QCOMPARE(json(o)["present"].toBool(), false);
        QCOMPARE(json(o)["file"].toString(), cli.path());
        QCOMPARE(json(o)["engine_available"].toBool(), WhisperEngine::isAvailable());

        o = cli.model({"verify"});
        QCOMPARE(o.code, 1);
        QVERIFY(o.err.startsWith("Модель не загружена: "));

        o = cli.model({"download"});
        QCOMPARE(o.code, 0);
        // Not a terminal: a plain line per tenth, then the check.
        QVERIFY2(
            o.err.contains("\n[##############################] 100 %  2 из ~2 МБ\nПроверяю контрольную сумму…\n") &&
                !o.err.contains("\r"),
            qPrintable(o.err));
        QVERIFY(o.err.count("] ") <= 11);
        QCOMPARE(o.out, "Модель загружена и проверена: " + cli.path() + "\n");

        o = cli.model({"status"});
        QVERIFY2(o.out.contains("Состояние: загружена, 2 МБ"), qPrintable(o.out));

        o = cli.model({"verify", "--json"});
        QCOMPARE(o.code, 0);
        QCOMPARE(json(o)["sha256"].toString(), QString(kPatternSha256));

        QFile file(cli.path());
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.seek(1000);
        file.write("x");
        file.close();
        o = cli.model({"verify"});
        QCOMPARE(o.code, 1);
        QVERIFY(o.err.contains("повреждён"));

        o = cli.model({"delete"});
        QCOMPARE(o.code, 0);
        QCOMPARE(o.out, "Модель удалена: " + cli.path() + "\n");
        o = cli.model({"delete", "--json"});
        QCOMPARE(o.code, 0);
        QCOMPARE(json(o)["deleted"].toBool(), false);
        QVERIFY(!QFile::exists(cli.path()));
    }

    void aFailedDownloadExitsWithTheReason() {
        Cli cli("not-there.bin");
        const CommandOutput o = cli.model({"download", "--json"});
        QCOMPARE(o.code, 1);
        QCOMPARE(json(o)["reason"].toString(), QString("Файл повреждён при загрузке. Попробуй ещё раз."));
    }

    void transcribeLocalRunsTheLocalPipelineOnAFile() {
        const QString model = testData("for-tests-ggml-tiny.bin");
        const QString speech = testData("speech-ru-16k.wav");
        if (model.isEmpty() || speech.isEmpty())
            QSKIP("needs ../shared/testdata/for-tests-ggml-tiny.bin and speech-ru-16k.wav");
        if (!WhisperEngine::isAvailable()) {
            const CommandOutput o = transcribe({speech, "--model", model});
            QCOMPARE(o.code, 1);
            QVERIFY2(o.err.contains("нет локального распознавания"), qPrintable(o.err));
            return;
        }
        CommandOutput o = transcribe({speech, "--model", model});
        QCOMPARE(o.code, 0);
        QCOMPARE(o.out, QString("\n")); // the test model has no weights: no words
        o = transcribe({speech, "--model", speech});
        QCOMPARE(o.code, 1);
        QVERIFY2(o.err.startsWith("Не получилось загрузить модель: "), qPrintable(o.err));
    }
};

TAMVEX_TEST_CLASS(ModelCommandsTest)
#include "ModelCommandsTest.moc"
