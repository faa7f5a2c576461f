// The chat request's cost on the client: reading a 1 MB recording, base64 and the JSON
// body (time and peak extra memory), and what OpenRouterService adds to a loopback
// round trip against tamvex-devserver compared with a bare POST of the same body.
#include "BenchSupport.h"
#include "account/Network.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/OpenRouterService.h"
#include "pipelines/PipelinePreset.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <fstream>
#include <malloc.h>
#include <optional>
#include <string>

using namespace tamvex;
using namespace tamvex::bench;

namespace {

constexpr qsizetype kAudioBytes = 1024 * 1024;

QString writeAudioFile(const QTemporaryDir& dir) {
    const QString path = dir.filePath("sample.m4a");
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    QByteArray bytes(kAudioBytes, '\0');
    for (qsizetype i = 0; i < bytes.size(); ++i)
        bytes[i] = char((i * 2654435761u) >> 13);
    file.write(bytes);
    return path;
}

void BM_BuildChatRequest1MB(benchmark::State& state) {
    QTemporaryDir dir;
    const QString path = writeAudioFile(dir);
    qint64 worstExtra = 0;
    qint64 bodySize = 0;
    for (auto _ : state) {
        const qint64 before = statusBytes("VmRSS:");
        resetPeak();
        const QList<ChatMessage> messages{{"system", {ChatContent::makeText(prompts::cleanupPrompt)}},
                                          {"user", {ChatContent::audioFile(path, "m4a")}}};
        const QByteArray body = encodeChatRequest("preset:fast-audio", messages, 0.2);
        benchmark::DoNotOptimize(body.data());
        bodySize = body.size();
        worstExtra = std::max(worstExtra, statusBytes("VmHWM:") - before);
    }
    state.counters["body_bytes"] = double(bodySize);
    state.counters["peak_extra_x_file"] = double(worstExtra) / double(kAudioBytes);
}

// The dev server started from the build tree, with one user.
struct DevServerProcess {
    QProcess process;
    QUrl base;
    QString token;
    DevServerProcess() {
        const QString exe = QCoreApplication::applicationDirPath() + "/../tools/devserver/tamvex-devserver";
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel); // its request log must not fill a pipe
        process.start(exe, {"--port", "0"});
        QDeadlineTimer deadline(5000);
        while (!process.canReadLine() && !deadline.hasExpired())
            process.waitForReadyRead(100);
        base = QUrl(QString::fromUtf8(process.readLine()).trimmed());
    }
    ~DevServerProcess() {
        process.terminate();
        process.waitForFinished(3000);
    }
};

void BM_ClientOverheadOnLoopback(benchmark::State& state) {
    DevServerProcess server;
    if (!server.base.isValid() || server.base.port() <= 0) {
        state.SkipWithError("tamvex-devserver is not built beside the benchmarks");
        return;
    }
    WallClock clock;
    QNetworkAccessManager& network = sharedNetworkManager();
    QNetworkRequest userRequest(QUrl(server.base.toString() + "/__dev/users"));
    userRequest.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    const HttpAnswer user =
        wait(sendRequest(network, clock, userRequest, "POST", R"({"phone":"+10000000000","balance_tokens":1e12})"));
    const QString token = QJsonDocument::fromJson(user.body).object().value("access_token").toString();

    QTemporaryDir dir;
    Defaults defaults(dir.filePath("settings.json"));
    BackendSelector selector(defaults, clock, network, ServiceHosts::allAt(server.base));
    selector.setLatencyMeasurer([](QUrl) -> QCoro::Task<double> { co_return -1.0; });
    const QList<ChatMessage> messages{{"system", {ChatContent::makeText(prompts::cleanupPrompt)}},
                                      {"user", {ChatContent::makeText("Проверка связи")}}};
    const QByteArray body = encodeChatRequest("preset:fast-audio", messages, 0.2);
    QNetworkRequest bare(QUrl(server.base.toString() + "/api/openrouter/v1/chat/completions"));
    bare.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    bare.setRawHeader("Authorization", "Bearer " + token.toUtf8());

    double bareSeconds = 0.0;
    double chatSeconds = 0.0;
    qint64 rounds = 0;
    for (auto _ : state) {
        const double t0 = clock.now();
        wait(sendRequest(network, clock, bare, "POST", body));
        const double t1 = clock.now();
        OpenRouterService service(OpenRouterService::Mode::proxy(token), selector);
        benchmark::DoNotOptimize(wait(service.chat("preset:fast-audio", messages, 0.2)).text.size());
        const double t2 = clock.now();
        bareSeconds += t1 - t0;
        chatSeconds += t2 - t1;
        ++rounds;
    }
    state.counters["bare_ms"] = bareSeconds * 1000.0 / double(rounds);
    state.counters["chat_ms"] = chatSeconds * 1000.0 / double(rounds);
    state.counters["client_overhead_ms"] = (chatSeconds - bareSeconds) * 1000.0 / double(rounds);
}

} // namespace

BENCHMARK(BM_BuildChatRequest1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClientOverheadOnLoopback)->Unit(benchmark::kMillisecond)->Iterations(200);

int main(int argc, char** argv) {
    return tamvex::bench::runMemoryAwareBenchmarks(argc, argv);
}
