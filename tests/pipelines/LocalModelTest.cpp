// The local model without whisper.cpp. The model downloader and `tamvex model` over real loopback
// HTTP: the development server for whole answers, and a raw socket peer for what it cannot do
// (stalls, drops, no Content-Length). Then what holds with or without the engine: what it is fed
// (any audio file as 16 kHz mono float), the thread rule, the model file check, and the refusal
// of a build that has no engine. The decoder's formats, rates, channel mixing and untouched float
// mono are tested with it (audio_test); here, real speech and what the whisper reader adds.
#include "desktop/AudioTestSupport.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "DevServer.h"
#include "cli/ModelCommands.h"
#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSpeedRecord.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"

#include <QCryptographicHash>
#include <QDir>
#include <QSignalSpy>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using Kind = ModelDownloadState::Kind;

namespace {

/// Deterministic bytes standing in for a model file.
QByteArray patternBytes(qint64 size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        bytes[i] = char(((quint64(i) * 2654435761ULL) >> 13) & 0xff);
    return bytes;
}

/// Size and SHA-256 of patternBytes used as the good model file; computed by another tool,
/// so the digest code under test is checked against an outside answer.
constexpr qint64 kPatternSize = 2 * 1048576 + 12345;
const char* const kPatternSha256 = "a59d310887a52a0015468e9b8aea9c3955bfd9b39c2c23219371461c465df0d2";

/// A peer that reads one request per connection and writes `head` (a 200 with a Content-Length
/// of `length`, left out when negative) and the first `sent` bytes of the good file; the test
/// writes the rest by hand through `last`.
class RawHttpPeer : public QObject {
public:
    QPointer<QTcpSocket> last;

    RawHttpPeer(qint64 length, qint64 sent) {
        // Each test makes one connection, so one buffer holds its request.
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [=, this] {
            QTcpSocket* socket = m_server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::readyRead, this, [=, this] {
                m_request.append(socket->readAll());
                if (last || !m_request.contains("\r\n\r\n"))
                    return;
                last = socket;
                QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
                if (length >= 0)
                    head += "Content-Length: " + QByteArray::number(length) + "\r\n";
                socket->write(head + "\r\n" + patternBytes(sent));
            });
        });
        m_server.listen(QHostAddress::LocalHost, 0);
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1/models/small.bin").arg(m_server.serverPort()); }

private:
    QTcpServer m_server;
    QByteArray m_request;
};

/// The development server with the good file as its model "small.bin" (any other name is a 404).
struct ModelServer {
    ModelServer() {
        writeFile(dir.filePath("models/small.bin"), body);
        server.start();
    }
    QString url(const QString& file = "small.bin") const { return server.baseUrl().toString() + "/models/" + file; }
    int requests() const { return int(server.received().size()); }

    QTemporaryDir dir;
    QByteArray body = patternBytes(kPatternSize);
    devserver::DevServer server{dir.path()};
};

/// One downloader under a sandbox, fetching its model (any WhisperModel) from `url`; every state
/// it passes through is noted.
struct DownloaderRig {
    explicit DownloaderRig(const QString& url, const QString& digest = kPatternSha256, const QString& mirror = {})
        : url(url), mirror(mirror) {
        network.setProxy(QNetworkProxy::NoProxy);
        downloader = std::make_unique<ModelDownloader>(env.paths, clock, &network, [this, digest](WhisperModel) {
            return ModelDescriptor{"small.bin", kPatternSize, digest, QUrl(this->url), QUrl(this->mirror)};
        });
        QObject::connect(downloader.get(), &ModelDownloader::stateChanged,
                         [this](const ModelDownloadState& s) { states.append(s); });
    }
    void download() { downloader->download(WhisperModel::largeV3TurboQ5); }
    bool waitForEnd(int ms = 15000) {
        return spinUntil(
            [this] {
                const auto k = downloader->state().kind();
                return k == Kind::completed || k == Kind::failed;
            },
            ms);
    }
    QString target() const { return downloader->localURL(WhisperModel::largeV3TurboQ5); }
    QString part() const { return target() + ".part"; }
    bool leftNothing() const { return !QFile::exists(target()) && !QFile::exists(part()); }
    /// The states passed through, each once, a download of any progress as "downloading".
    QStringList printed() const {
        QStringList out;
        for (const auto& s : states)
            out.append(s.kind() == Kind::downloading ? "downloading" : s.toString());
        out.removeDuplicates();
        return out;
    }
    /// `tamvex model ARGS` over this downloader.
    CommandOutput model(const QStringList& args) {
        return captureCommand(
            [&](QTextStream& out, QTextStream& err) { return runModelCommand(args, out, err, *downloader); });
    }

    QString url;
    QString mirror;
    TestEnv env;
    ManualClock clock; // only its limits read it
    QNetworkAccessManager network;
    std::unique_ptr<ModelDownloader> downloader;
    QList<ModelDownloadState> states;
};

QJsonObject json(const CommandOutput& o) {
    return QJsonDocument::fromJson(o.out.toUtf8()).object();
}

CommandOutput transcribe(const QStringList& args) {
    return captureCommand([&](QTextStream& out, QTextStream& err) { return runTranscribeLocal(args, out, err); });
}

} // namespace

class LocalModelTest : public QObject {
    Q_OBJECT
private slots:
    // Read once per process by the host table, so it is set before anything asks.
    void initTestCase() {
        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9");
        qputenv("TAMVEX_MODEL_MIRROR_URL", "http://127.0.0.1:9/mirror/");
    }

    // The digest itself is checked against the outside answer by every completed download.
    void unreadablePathsHaveNoDigest() {
        TestEnv env;
        QCOMPARE(ModelDownloader::sha256HexOfFile(env.root.filePath("missing.bin")), std::nullopt);
        // A folder opens on Linux but cannot be read: no digest rather than a wrong one.
        QCOMPARE(ModelDownloader::sha256HexOfFile(env.root.path()), std::nullopt);
    }

    void presentFileIsProvedWithoutTheNetworkOrHealedByRefetching() {
        ModelServer server;
        DownloaderRig rig(server.url());
        writeFile(rig.target(), server.body);
        rig.download();
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.printed(), (QStringList{"verifying", "completed"}));
        QCOMPARE(server.requests(), 0);

        // A damaged file: deleted and fetched again without being asked.
        rig.states.clear();
        writeFile(rig.target(), QByteArray("truncated") + server.body.left(1000));
        rig.download();
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.printed(), (QStringList{"verifying", "downloading", "completed"}));
        QCOMPARE(server.requests(), 1);
        QCOMPARE(fileBytes(rig.target()), server.body);
    }

    void cancelMidTransferGivesIdleAndLeavesNothing() {
        RawHttpPeer peer(kPatternSize, 100000);
        DownloaderRig rig(peer.url());
        rig.download();
        QVERIFY(spinUntil([&] { return rig.downloader->state().progress() > 0.0; }));
        QVERIFY(QFile::exists(rig.part()));
        rig.downloader->cancel();
        QCOMPARE(rig.downloader->state(), ModelDownloadState::idle());
        // The aborted reply's end, when it comes, is no failure.
        QVERIFY(!spinUntil([&] { return rig.downloader->state() != ModelDownloadState::idle(); }, 200));
        for (const auto& s : rig.states)
            QVERIFY(s.kind() != Kind::failed);
        QVERIFY(rig.leftNothing());
    }

    void droppedConnectionShowsTheNetworksOwnWords() {
        RawHttpPeer peer(kPatternSize, 1000);
        DownloaderRig rig(peer.url());
        rig.download();
        QVERIFY(spinUntil([&] { return peer.last != nullptr; }));
        peer.last->disconnectFromHost();
        QVERIFY(rig.waitForEnd());
        const QString reason = rig.downloader->state().reason();
        QCOMPARE(rig.downloader->state().kind(), Kind::failed);
        QVERIFY2(!reason.isEmpty() && reason[0].unicode() < 128, qPrintable(reason));
        QVERIFY(rig.leftNothing());
    }

    // The main host, when it refuses the connection or has no such file, gives way to the
    // mirror; the command line says where the bytes come from.
    void aMainHostThatCantServeGivesWayToTheMirror() {
        ModelServer mirror;
        const QString mirrorUrl = mirror.server.localhostUrl().toString() + "/models/small.bin";
        for (const QString& main : {QString("http://127.0.0.1:9/models/small.bin"), mirror.url("gone.bin")}) {
            DownloaderRig rig(main, kPatternSha256, mirrorUrl);
            const CommandOutput o = rig.model({"download"});
            QCOMPARE(o.code, 0);
            QVERIFY2(o.err.contains("Загружаю с localhost\n") && !o.err.contains("Загружаю с 127.0.0.1"),
                     qPrintable(o.err));
            QCOMPARE(fileBytes(rig.target()), mirror.body);
            QCOMPARE(rig.downloader->source(), QString());
        }
    }

    // Once a model is proved, the small files beside it are fetched too, from the main host or
    // their mirror; a bad one is not kept and the model stays ready.
    void companionsFollowAProvedModel() {
        ModelServer server;
        const QByteArray detector = patternBytes(5000);
        writeFile(server.dir.filePath("models/vad.bin"), detector);
        const QString digest = QCryptographicHash::hash(detector, QCryptographicHash::Sha256).toHex();
        for (const bool good : {true, false}) {
            DownloaderRig rig(server.url());
            const ModelDescriptor vad{"vad.bin", 5000, good ? digest : QString(64, 'a'), QUrl(server.url("gone.bin")),
                                      QUrl(server.url("vad.bin"))};
            rig.downloader->setCompanions({vad});
            QSignalSpy ready(rig.downloader.get(), &ModelDownloader::companionReady);
            LogCapture log;
            rig.download();
            QVERIFY(rig.waitForEnd());
            QCOMPARE(rig.downloader->state(), ModelDownloadState::completed());
            const QString path = rig.downloader->companionPath(vad);
            if (good) {
                QVERIFY(spinUntil([&] { return ready.count() == 1; }));
                QCOMPARE(fileBytes(path), detector);
            } else {
                QVERIFY(spinUntil([&] { return log.hasPrefix("Companion file SHA-256 mismatch"); }));
                QVERIFY(!QFile::exists(path) && !QFile::exists(path + ".part"));
                QCOMPARE(rig.downloader->state(), ModelDownloadState::completed());
            }
        }
    }

    // Each ends in `failed` with words a user can act on, and leaves no model file behind.
    void badAnswersAndDisksFailWithAReason() {
        ModelServer server;
        server.server.script("/models/page.bin",
                             {200, "<!doctype html><title>Вход в сеть</title>", "text/html; charset=utf-8"});
        const struct {
            const char* name;
            QString url;
            QString digest;
            std::function<void(DownloaderRig&)> prepare;
            QString reasonStart;
        } cases[] = {
            // The page is saved as it came, and its digest refuses it.
            {"a web page", server.url("page.bin"), kPatternSha256, {}, ModelDownloader::corruptedText()},
            {"a wrong digest", server.url(), QString(64, '0'), {}, ModelDownloader::corruptedText()},
            {"a full disk", server.url(), kPatternSha256,
             [](DownloaderRig& r) { QVERIFY(QFile::link("/dev/full", r.part())); },
             "Не удалось сохранить файл: No space left on device"},
            {"a models folder that can't be written", server.url(), kPatternSha256,
             [](DownloaderRig& r) {
                 const QString dir = QFileInfo(r.target()).path();
                 QVERIFY(QDir(dir).removeRecursively() && writeFile(dir, "not a folder"));
             },
             "Не удалось сохранить файл: "},
        };
        for (const auto& c : cases) {
            DownloaderRig rig(c.url, c.digest);
            if (c.prepare)
                c.prepare(rig);
            rig.download();
            QVERIFY2(rig.waitForEnd(), c.name);
            const QString reason = rig.downloader->state().reason();
            QVERIFY2(reason.startsWith(c.reasonStart), qPrintable(QString(c.name) + ": " + reason));
            QVERIFY2(!QFileInfo(rig.target()).isFile() && !QFileInfo::exists(rig.part()), c.name);
        }
    }

    void unknownTotalKeepsProgressAtZeroUntilTheEnd() {
        RawHttpPeer peer(-1, 1000000);
        DownloaderRig rig(peer.url());
        rig.download();
        // The .part on disk lags what arrived: QFile keeps writes under 16 KiB in its own buffer
        // until the next flush, so a byte count could wait forever. Any data on disk will do:
        // with a total guessed from anywhere, progress would already be above zero.
        QVERIFY(spinUntil([&] { return QFileInfo(rig.target() + ".part").size() > 0; }));
        QCOMPARE(rig.downloader->state(), ModelDownloadState::downloading(0.0));
        peer.last->write(patternBytes(kPatternSize).mid(1000000));
        peer.last->disconnectFromHost();
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.downloader->state(), ModelDownloadState::completed());
        QCOMPARE(fileBytes(rig.target()), patternBytes(kPatternSize));
    }

    void silenceOfSixtySecondsEndsTheTransferInVirtualTime() {
        RawHttpPeer peer(kPatternSize, 5000);
        DownloaderRig rig(peer.url());
        rig.download();
        QVERIFY(spinUntil([&] { return qRound64(rig.downloader->state().progress() * kPatternSize) == 5000; }));
        rig.clock.advance(59.99);
        QCOMPARE(rig.downloader->state().kind(), Kind::downloading);
        rig.clock.advance(0.01);
        QCOMPARE(rig.downloader->state(), ModelDownloadState::failed("Превышен лимит времени на запрос."));
        QVERIFY(rig.leftNothing());
    }

    void wholeTransferStopsAtAnHourEvenWhileDataFlows() {
        RawHttpPeer peer(kPatternSize, 0);
        DownloaderRig rig(peer.url());
        rig.download();
        QVERIFY(spinUntil([&] { return peer.last != nullptr; }));
        // A byte every 50 virtual seconds keeps the 60 s silence limit from firing.
        for (int sent = 1; sent <= 71; ++sent) {
            rig.clock.advance(50.0);
            peer.last->write("x");
            QVERIFY(spinUntil([&] {
                const auto& s = rig.downloader->state();
                return s.kind() == Kind::downloading && qRound64(s.progress() * kPatternSize) == sent;
            }));
        }
        rig.clock.advance(3599.99 - rig.clock.now());
        QCOMPARE(rig.downloader->state().kind(), Kind::downloading);
        rig.clock.advance(0.01);
        QCOMPARE(rig.downloader->state(), ModelDownloadState::failed("Превышен лимит времени на запрос."));
    }

    void moveFailureSaysTheFileCouldNotBeSaved() {
        ModelServer server;
        DownloaderRig rig(server.url());
        // A non-empty folder where the file belongs can't be removed or replaced.
        QVERIFY(QDir().mkpath(rig.target() + "/blocker"));
        // Found present, it fails its digest, can't be deleted, is fetched, can't be replaced.
        rig.download();
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.printed(), (QStringList{"verifying", "downloading", rig.downloader->state().toString()}));
        QVERIFY2(rig.downloader->state().reason().startsWith("Не удалось сохранить файл: "),
                 qPrintable(rig.downloader->state().reason()));
        QVERIFY(!QFile::exists(rig.part()));
    }

    // Where they are kept is proved by the local mode finding them (app_state_test).
    void realModelsComeFromTheMainHostThenTheMirror() {
        TestEnv env;
        WallClock clock;
        ModelDownloader downloader(env.paths, clock);
        const ModelDescriptor d = downloader.descriptor(WhisperModel::mediumQ5);
        QCOMPARE(d.downloadURL.toString(), QString("http://127.0.0.1:9/models/ggml-medium-q5_0.bin"));
        QCOMPARE(d.mirrorURL.toString(), QString("http://127.0.0.1:9/mirror/ggml-medium-q5_0.bin"));
    }

    void fetchCheckAndDeleteFromTheTerminal() {
        ModelServer server;
        DownloaderRig rig(server.url(), QString(kPatternSha256).toUpper()); // the case of a digest does not matter
        for (const QStringList& args : {QStringList{}, QStringList{"fetch"}, QStringList{"status", "a", "b"}}) {
            const CommandOutput misuse = rig.model(args);
            QCOMPARE(misuse.code, 2);
            QVERIFY2(misuse.err.contains("Использование: tamvex model"), qPrintable(misuse.err));
        }
        QCOMPARE(transcribe({"a.m4a", "--model"}).code, 2);

        CommandOutput o = rig.model({"verify"});
        QCOMPARE(o.code, 1);
        QVERIFY(o.err.startsWith("Модель не загружена: "));

        o = rig.model({"download"});
        QCOMPARE(o.code, 0);
        // Not a terminal: a plain line per tenth, then the check.
        QVERIFY2(
            o.err.contains("\n[##############################] 100 %  2 из ~2 МБ\nПроверяю контрольную сумму…\n") &&
                !o.err.contains("\r"),
            qPrintable(o.err));
        QVERIFY2(o.err.count("] ") <= 11, qPrintable(o.err));
        QCOMPARE(o.out, "Модель загружена и проверена: " + rig.target() + "\n");
        QCOMPARE(rig.printed(), (QStringList{"downloading", "verifying", "completed"}));
        double last = 0.0;
        for (const auto& s : rig.states) {
            if (s.kind() != Kind::downloading)
                break;
            QVERIFY(s.progress() >= last);
            last = s.progress();
        }
        QCOMPARE(fileBytes(rig.target()), server.body);
        QVERIFY(!QFile::exists(rig.target() + ".part"));
        QCOMPARE(server.requests(), 1);

        QVERIFY(writeFile(rig.target(), fileBytes(rig.target()).replace(1000, 1, "x")));
        o = rig.model({"verify"});
        QCOMPARE(o.code, 1);
        QVERIFY(o.err.contains("повреждён"));

        o = rig.model({"delete", "--json"});
        QCOMPARE(json(o)["deleted"].toBool(), true);
        QVERIFY(!QFile::exists(rig.target()));
    }

    // The server's error page is saved, then refused by its digest.
    void aFailedDownloadExitsWithTheReasonAndLeavesNothing() {
        ModelServer server;
        DownloaderRig rig(server.url("gone.bin"));
        const CommandOutput o = rig.model({"download", "--json"});
        QCOMPARE(o.code, 1);
        QCOMPARE(json(o)["reason"].toString(), QString("Файл повреждён при загрузке. Попробуй ещё раз."));
        QVERIFY(rig.leftNothing());
    }

    // With the engine, the local pipeline's run is whisper_engine_test's.
    void transcribeLocalWithoutTheEngineSaysSoInRussian() {
        if (WhisperEngine::isAvailable())
            QSKIP("this build has whisper.cpp; the refusal belongs to builds without it");
        // A build without the engine refuses before it looks at any file.
        const CommandOutput o = transcribe({"absent.m4a", "--model", "absent.bin"});
        QCOMPARE(o.code, 1);
        QVERIFY2(o.err.contains("нет локального распознавания"), qPrintable(o.err));
    }

    // What the recorder never writes still reaches the engine as 16 kHz mono: 11 s of speech.
    void anMp3BecomesSixteenKilohertzMono() {
        const QString mp3 = testData("jfk.mp3");
        if (mp3.isEmpty())
            QSKIP("jfk.mp3 is missing from ../shared/testdata");
        const std::vector<float> samples = readAudioSamples(mp3);
        QVERIFY2(std::abs(qint64(samples.size()) - 176000) <= 1200, qPrintable(QString::number(samples.size())));
        QVERIFY(rms(samples) > 0.01);
    }

    void unreadableFilesFailWithTheDecodersWords() {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("notes.wav"), "This is a shopping list, not a recording.\n"));
        const auto e = thrown<WhisperEngineError>([&] { readAudioSamples(dir.filePath("notes.wav")); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::audioReadFailed);
        QVERIFY2(e->description().contains("Invalid data found"), qPrintable(e->description()));
        QCOMPARE(e->description(), "Не получилось прочитать аудио: " + e->detail());
    }

    // The user's choice first; with none, a model already on disk keeps working; with none on
    // disk, the model this machine runs best.
    void theLocalModelIsTheChoiceThenWhatIsThereThenWhatRunsBest() {
        using M = WhisperModel;
        const struct {
            std::optional<M> chosen;
            QList<M> onDisk;
            QString backend;
            bool parakeet;
            M expected;
        } cases[] = {
            {M::baseQ5_1, {M::largeV3TurboQ5}, "CPU", true, M::baseQ5_1},
            {{}, {M::parakeetV3Q8, M::largeV3TurboQ5}, "CPU", true, M::largeV3TurboQ5},
            {{}, {M::parakeetV3Q8}, "Vulkan0 (Radeon)", true, M::parakeetV3Q8},
            {{}, {}, "CPU", true, M::parakeetV3Q4},
            {{}, {}, "Vulkan0 (Radeon)", true, M::largeV3TurboQ5},
            {{}, {}, "CPU", false, M::largeV3TurboQ5}, // a build without Parakeet
        };
        for (const auto& c : cases) {
            const M got = chooseLocalModel(
                c.chosen, [&](M m) { return c.onDisk.contains(m); }, LocalHardware{c.backend, c.parakeet});
            QCOMPARE(whisperModels::rawValue(got), whisperModels::rawValue(c.expected));
        }
        // Parakeet comes from its own mirror; TAMVEX_MODEL_MIRROR_URL replaces every mirror.
        QCOMPARE(whisperModels::mirrorURL(M::parakeetV3Q4).toString(),
                 QString("http://127.0.0.1:9/mirror/ggml-parakeet-tdt-0.6b-v3-q4_0.bin"));
        QCOMPARE(whisperModels::kind(M::parakeetV3Q8), LocalEngineKind::parakeet);
    }

    // 20 s of dictation within 25 s: 10 s of sample recognised in 12.5 s is exactly on the edge.
    void speedIsShownForTenSecondsAndJudgedForTwenty() {
        const struct {
            double speech, elapsed;
            QString text;
            bool finishes;
        } cases[] = {
            {10.0, 12.5, "10 с речи — за 13 с", true},
            {10.0, 12.51, "10 с речи — за 13 с", false},
            {10.56, 1.4, "10 с речи — за 1,3 с", true},
            {5.0, 0.7, "10 с речи — за 1,4 с", true},
            {10.0, 9.949, "10 с речи — за 9,9 с", true},
            {10.0, 9.96, "10 с речи — за 10 с", true},
            {10.0, 0.004, "10 с речи — за менее 0,1 с", true},
            {10.0, 76.0, "10 с речи — за 76 с", false},
            {0.0, 1.0, "10 с речи — за менее 0,1 с", false}, // no sample: never "fast"
            {10.0, std::nan(""), "10 с речи — за менее 0,1 с", false},
        };
        for (const auto& c : cases) {
            const ModelSpeed speed{c.speech, c.elapsed};
            QCOMPARE(speed.text(), c.text);
            QCOMPARE(speed.canFinish(20.0, 25.0), c.finishes);
        }
        QCOMPARE(ModelSpeed({10.0, 3.0}).secondsFor(20.0), 6.0);

        // The fastest that finishes, and a proposal measured too slow gives way to it.
        using M = WhisperModel;
        const QMap<M, ModelSpeed> speeds{{M::largeV3TurboQ5, {10.0, 76.0}},
                                         {M::parakeetV3Q8, {10.0, 3.3}},
                                         {M::parakeetV3Q4, {10.0, 2.2}},
                                         {M::mediumQ5, {10.0, 40.0}}};
        QCOMPARE(fastestModelThatCanFinish(speeds, 20.0, 25.0), std::optional(M::parakeetV3Q4));
        QCOMPARE(fastestModelThatCanFinish({{M::largeV3TurboQ5, {10.0, 76.0}}}, 20.0, 25.0), std::nullopt);
        const struct {
            M proposal;
            QMap<M, ModelSpeed> speeds;
            M expected;
        } proposals[] = {
            {M::largeV3TurboQ5, speeds, M::parakeetV3Q4},
            {M::largeV3TurboQ5, {}, M::largeV3TurboQ5},                               // not measured
            {M::largeV3TurboQ5, {{M::largeV3TurboQ5, {10.0, 12.5}}}, M::largeV3TurboQ5}, // fast enough
            {M::largeV3TurboQ5, {{M::largeV3TurboQ5, {10.0, 76.0}}}, M::largeV3TurboQ5}, // nothing better
            {M::parakeetV3Q8, speeds, M::parakeetV3Q8},
        };
        for (const auto& c : proposals)
            QCOMPARE(whisperModels::rawValue(correctedBySpeed(c.proposal, c.speeds, 20.0, 25.0)),
                     whisperModels::rawValue(c.expected));
    }

    // Kept per model and backend; a file that isn't what we wrote counts as empty and is
    // written over; a folder that can't be written says so.
    void speedsAreKeptPerBackendAndABadFileIsMeasuredAgain() {
        QTemporaryDir dir;
        const QString path = dir.filePath("data/model-speeds.json");
        ModelSpeedRecord record(path);
        QCOMPARE(record.speed(WhisperModel::baseQ5_1, "CPU"), std::nullopt);
        QVERIFY(record.store(WhisperModel::baseQ5_1, "CPU", {10.56, 3.1}));
        QVERIFY(record.store(WhisperModel::baseQ5_1, "Vulkan0 (Radeon)", {10.56, 0.2}));
        QVERIFY(record.store(WhisperModel::parakeetV3Q4, "CPU", {10.56, 2.2}));
        QVERIFY(record.store(WhisperModel::baseQ5_1, "CPU", {10.56, 2.9})); // measured again
        ModelSpeedRecord reread(path);
        QCOMPARE(reread.speed(WhisperModel::baseQ5_1, "CPU"), std::optional(ModelSpeed{10.56, 2.9}));
        QCOMPARE(reread.speed(WhisperModel::baseQ5_1, "Vulkan0 (Radeon)"), std::optional(ModelSpeed{10.56, 0.2}));
        QCOMPARE(reread.speeds("CPU").keys(), (QList<WhisperModel>{WhisperModel::parakeetV3Q4, WhisperModel::baseQ5_1}));

        for (const QByteArray& bad : {QByteArray("{not json"), QByteArray("[1,2]"),
                                      QByteArray(R"({"models":{"ggml-base-q5_1":{"CPU":{"speech_s":"x"}}}})")}) {
            QVERIFY(writeFile(path, bad));
            QVERIFY(reread.speeds("CPU").isEmpty());
            QVERIFY(reread.store(WhisperModel::mediumQ5, "CPU", {10.0, 40.0}));
            QCOMPARE(reread.speeds("CPU").keys(), QList<WhisperModel>{WhisperModel::mediumQ5});
        }
        LogCapture log;
        QVERIFY(!ModelSpeedRecord("/dev/full/model-speeds.json").store(WhisperModel::mediumQ5, "CPU", {10.0, 40.0}));
        QVERIFY2(log.lines().join('\n').contains("can't keep the speed of ggml-medium-q5_0"), qPrintable(log.lines().join('\n')));
    }

    void threadsLeaveTwoProcessorsAndStopAtEight() {
        for (const auto& [processors, threads] : {std::pair{1, 1}, {3, 1}, {5, 3}, {10, 8}, {32, 8}})
            QCOMPARE(whisperThreadCount(processors), threads);
    }

    void onlyFilesWithTheGgmlMagicPassAsModels() {
        QTemporaryDir dir;
        QString why;
        QVERIFY(!looksLikeWhisperModel(dir.filePath("missing.bin"), &why));
        QVERIFY2(why.contains("No such file"), qPrintable(why));
        QVERIFY(writeFile(dir.filePath("be.bin"), "ggml-but-big-endian"));
        QVERIFY(!looksLikeWhisperModel(dir.filePath("be.bin"), &why));
        QVERIFY2(why.contains("не является моделью whisper.cpp"), qPrintable(why));
        if (const QString model = testData("for-tests-ggml-tiny.bin"); !model.isEmpty())
            QVERIFY(looksLikeWhisperModel(model));
    }
};

TAMVEX_TEST_CLASS(LocalModelTest)
#include "LocalModelTest.moc"
