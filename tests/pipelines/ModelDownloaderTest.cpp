#include "support/TestMain.h"
#include "ModelTestServers.h"
#include "support/TestSupport.h"

#include "pipelines/ModelDownloader.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

using Kind = ModelDownloadState::Kind;

/// The states a downloader went through, each once, a download of any progress as "downloading".
QStringList printed(const DownloaderRig& rig) {
    QStringList out;
    for (const auto& s : rig.states)
        out.append(s.kind() == Kind::downloading ? "downloading" : s.toString());
    out.removeDuplicates();
    return out;
}

} // namespace

class ModelDownloaderTest : public QObject {
    Q_OBJECT
private slots:
    // Read once per process by the host table, so it is set before anything asks.
    void initTestCase() { qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9"); }

    void digestIsStreamedAndMatchesAnOutsideAnswer() {
        TestEnv env;
        const QString path = env.root.filePath("pattern.bin");
        writeFile(path, patternBytes(kPatternSize));
        QCOMPARE(ModelDownloader::sha256HexOfFile(path), std::optional<QString>(kPatternSha256));
        writeFile(env.root.filePath("empty.bin"), {});
        QCOMPARE(ModelDownloader::sha256HexOfFile(env.root.filePath("empty.bin")),
                 std::optional<QString>("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
        QCOMPARE(ModelDownloader::sha256HexOfFile(env.root.filePath("missing.bin")), std::nullopt);
        // A folder opens on Linux but cannot be read: no digest rather than a wrong one.
        QCOMPARE(ModelDownloader::sha256HexOfFile(env.root.path()), std::nullopt);
    }

    void goodFileCompletesThroughVerifying() {
        ModelServer server;
        DownloaderRig rig(server.url(), QString(kPatternSha256).toUpper()); // the case of a digest does not matter
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(printed(rig), (QStringList{"downloading", "verifying", "completed"}));
        QCOMPARE(rig.states.first(), ModelDownloadState::downloading(0.0));
        double last = 0.0;
        for (const auto& s : rig.states) {
            if (s.kind() != Kind::downloading)
                break;
            QVERIFY(s.progress() >= last);
            last = s.progress();
        }
        QCOMPARE(last, 1.0);
        QCOMPARE(fileBytes(rig.target()), server.body);
        QVERIFY(!QFile::exists(rig.target() + ".part"));
        QCOMPARE(rig.downloader->fileSize(WhisperModel::largeV3TurboQ5), std::optional<qint64>(kPatternSize));
        QCOMPARE(server.requests(), 1);
    }

    void errorPageIsSavedThenRefusedByItsDigest() {
        ModelServer server;
        DownloaderRig rig(server.base() + "/models/gone.bin");
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.downloader->state(), ModelDownloadState::failed("Файл повреждён при загрузке. Попробуй ещё раз."));
        QVERIFY(!QFile::exists(rig.target()));
        QVERIFY(!QFile::exists(rig.target() + ".part"));
    }

    void presentFileIsProvedWithoutTheNetworkOrHealedByRefetching() {
        ModelServer server;
        DownloaderRig rig(server.url());
        writeFile(rig.target(), server.body);
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(printed(rig), (QStringList{"verifying", "completed"}));
        QCOMPARE(server.requests(), 0);

        // A damaged file: deleted and fetched again without being asked.
        rig.states.clear();
        writeFile(rig.target(), QByteArray("truncated") + server.body.left(1000));
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(printed(rig), (QStringList{"verifying", "downloading", "completed"}));
        QCOMPARE(server.requests(), 1);
        QCOMPARE(fileBytes(rig.target()), server.body);
    }

    void cancelMidTransferGivesIdleAndLeavesNothing() {
        RawHttpPeer peer;
        peer.onRequest = [](QTcpSocket* s) {
            s->write(okHeaders(kPatternSize));
            s->write(patternBytes(kPatternSize).left(100000));
        };
        DownloaderRig rig(peer.url());
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(spinUntil([&] { return rig.downloader->state().progress() > 0.0; }));
        QVERIFY(QFile::exists(rig.target() + ".part"));
        rig.downloader->cancel();
        QCOMPARE(rig.downloader->state(), ModelDownloadState::idle());
        // The aborted reply's end, when it comes, is no failure.
        QVERIFY(!spinUntil([&] { return rig.downloader->state() != ModelDownloadState::idle(); }, 200));
        for (const auto& s : rig.states)
            QVERIFY(s.kind() != Kind::failed);
        QVERIFY(!QFile::exists(rig.target() + ".part"));
        QVERIFY(!QFile::exists(rig.target()));
        QCOMPARE(rig.downloader->model(), std::optional(WhisperModel::largeV3TurboQ5));

        // With nothing running it only says idle.
        rig.downloader->cancel();
        QCOMPARE(rig.downloader->state(), ModelDownloadState::idle());
    }

    void droppedConnectionShowsTheNetworksOwnWords() {
        RawHttpPeer peer;
        peer.onRequest = [](QTcpSocket* s) {
            s->write(okHeaders(kPatternSize));
            s->write(patternBytes(1000));
            s->flush();
            s->disconnectFromHost();
        };
        DownloaderRig rig(peer.url());
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        const QString reason = rig.downloader->state().reason();
        QCOMPARE(rig.downloader->state().kind(), Kind::failed);
        QVERIFY2(!reason.isEmpty() && reason[0].unicode() < 128, qPrintable(reason));
        QVERIFY(!QFile::exists(rig.target() + ".part"));
        QVERIFY(!QFile::exists(rig.target()));
    }

    void unknownTotalKeepsProgressAtZeroUntilTheEnd() {
        RawHttpPeer peer;
        const QByteArray body = patternBytes(kPatternSize);
        peer.onRequest = [&](QTcpSocket* s) {
            s->write(okHeaders(-1));
            s->write(body.left(1000000));
        };
        DownloaderRig rig(peer.url());
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(spinUntil([&] { return QFileInfo(rig.target() + ".part").size() >= 1000000; }));
        QCOMPARE(rig.downloader->state(), ModelDownloadState::downloading(0.0));
        peer.last->write(body.mid(1000000));
        peer.last->disconnectFromHost();
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.downloader->state(), ModelDownloadState::completed());
        QCOMPARE(fileBytes(rig.target()), body);
    }

    void silenceOfSixtySecondsEndsTheTransferInVirtualTime() {
        RawHttpPeer peer;
        peer.onRequest = [](QTcpSocket* s) {
            s->write(okHeaders(kPatternSize));
            s->write(patternBytes(5000));
        };
        ManualClock clock;
        DownloaderRig rig(peer.url(), kPatternSha256, &clock);
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(spinUntil([&] { return qRound64(rig.downloader->state().progress() * kPatternSize) == 5000; }));
        clock.advance(59.99);
        QCOMPARE(rig.downloader->state().kind(), Kind::downloading);
        clock.advance(0.01);
        QCOMPARE(rig.downloader->state(), ModelDownloadState::failed("Превышен лимит времени на запрос."));
        QVERIFY(!QFile::exists(rig.target() + ".part"));
    }

    void wholeTransferStopsAtAnHourEvenWhileDataFlows() {
        RawHttpPeer peer;
        peer.onRequest = [](QTcpSocket* s) { s->write(okHeaders(kPatternSize)); };
        ManualClock clock;
        DownloaderRig rig(peer.url(), kPatternSha256, &clock);
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(spinUntil([&] { return peer.last != nullptr; }));
        qint64 sent = 0;
        // A byte every 50 virtual seconds keeps the 60 s silence limit from firing.
        for (int i = 0; i < 71; ++i) {
            clock.advance(50.0);
            peer.last->write("x");
            ++sent;
            QVERIFY(spinUntil([&] {
                const auto& s = rig.downloader->state();
                return s.kind() == Kind::downloading && qRound64(s.progress() * kPatternSize) == sent;
            }));
        }
        clock.advance(3599.99 - clock.now());
        QCOMPARE(rig.downloader->state().kind(), Kind::downloading);
        clock.advance(0.01);
        QCOMPARE(rig.downloader->state(), ModelDownloadState::failed("Превышен лимит времени на запрос."));
    }

    void moveFailureSaysTheFileCouldNotBeSaved() {
        ModelServer server;
        DownloaderRig rig(server.url());
        // A non-empty folder where the file belongs can't be removed or replaced.
        QVERIFY(QDir().mkpath(rig.target() + "/blocker"));
        // Found present, it fails its digest, can't be deleted, is fetched, can't be replaced.
        rig.downloader->download(WhisperModel::largeV3TurboQ5);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(printed(rig), (QStringList{"verifying", "downloading", rig.downloader->state().toString()}));
        QCOMPARE(rig.downloader->state().kind(), Kind::failed);
        QVERIFY2(rig.downloader->state().reason().startsWith("Не удалось сохранить файл: "),
                 qPrintable(rig.downloader->state().reason()));
        QVERIFY(!QFile::exists(rig.target() + ".part"));
    }

    void realModelsLiveWhereTheEngineLooksAndComeFromTheMainHost() {
        TestEnv env;
        WallClock clock;
        ModelDownloader downloader(env.paths, clock);
        QCOMPARE(downloader.localURL(WhisperModel::largeV3TurboQ5),
                 env.paths.dataDir + "/models/ggml-large-v3-turbo-q5_0.bin");
        QVERIFY(QFileInfo(env.paths.dataDir + "/models").isDir());
        const ModelDescriptor d = downloader.descriptor(WhisperModel::mediumQ5);
        QCOMPARE(d.fileName, QString("ggml-medium-q5_0.bin"));
        QCOMPARE(d.expectedBytes, 539212467);
        QCOMPARE(d.downloadURL.toString(), QString("http://127.0.0.1:9/models/ggml-medium-q5_0.bin"));
        QCOMPARE(whisperModels::fromRawValue("ggml-large-v3-turbo-q5_0"), std::optional(WhisperModel::largeV3TurboQ5));
        QCOMPARE(whisperModels::fromRawValue("ggml-large-v3-turbo-q5_0.bin"), std::nullopt);
    }
};

TAMVEX_TEST_CLASS(ModelDownloaderTest)
#include "ModelDownloaderTest.moc"
