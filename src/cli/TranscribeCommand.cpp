#include "cli/TranscribeCommand.h"

#include "cli/CliSession.h"
#include "core/AppState.h"
#include "core/PipelineBuilding.h"
#include "core/RecordingConstants.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"
#include "platform/Error.h"
#include "shell/SettingsStore.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cmath>

namespace tamvex {

namespace {

const char* const kUsage = "Использование: tamvex transcribe ФАЙЛ [--preset fast|cheap|precise|local] [--json] "
                           "[--timeout СЕК]\n";

struct Options {
    QString file;
    std::optional<PipelinePreset> preset;
    bool json = false;
    double timeoutSec = RecordingConstants::transcribeTimeoutSec;
    QString error;
};

Options parseOptions(const QStringList& args) {
    Options o;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == "--json") {
            o.json = true;
        } else if (a == "--preset") {
            o.preset = presets::fromRawValue(args.value(i + 1));
            if (!o.preset) {
                o.error = "Неизвестный пресет «" + args.value(i + 1) + "»: нужен fast, cheap, precise или local.";
                return o;
            }
            ++i;
        } else if (a == "--timeout") {
            bool ok = false;
            o.timeoutSec = args.value(i + 1).toDouble(&ok);
            if (!ok || !std::isfinite(o.timeoutSec) || o.timeoutSec <= 0) {
                o.error = "После --timeout нужно число секунд больше нуля.";
                return o;
            }
            ++i;
        } else if (a.startsWith("--") || !o.file.isEmpty()) {
            o.error = "Лишний аргумент: " + a;
            return o;
        } else {
            o.file = a;
        }
    }
    if (o.file.isEmpty() && o.error.isEmpty())
        o.error = "Не указан файл.";
    return o;
}

// The pipelines send AAC in an .m4a, as the recorder writes it; anything else is re-encoded
// into `scratch`. Gives the path to send. Throws AudioDecodeError or AudioEncodeError.
QString asM4a(const QString& file, const QTemporaryDir& scratch) {
    AudioFileDecoder decoder(file, AudioFileEncoder::sampleRate);
    if (QFileInfo(file).suffix().compare("m4a", Qt::CaseInsensitive) == 0 && decoder.codecName() == "aac")
        return file;
    const QString target = scratch.filePath("transcribe.m4a");
    AudioFileEncoder encoder(target);
    std::vector<float> block;
    constexpr qsizetype kBlockFrames = 1 << 16;
    while (decoder.read(block, kBlockFrames) > 0) {
        encoder.write(block.data(), qsizetype(block.size()));
        block.clear();
    }
    encoder.finish();
    return target;
}

QJsonValue usageJson(const std::optional<UsageInfo>& usage) {
    if (!usage)
        return QJsonValue::Null;
    return QJsonObject{{"prompt_tokens", usage->promptTokens},
                       {"completion_tokens", usage->completionTokens},
                       {"total_tokens", usage->totalTokens},
                       {"cost_usd", usage->costUSD}};
}

} // namespace

int runTranscribeCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    if (args.value(0) == "--help" || args.value(0) == "-h") {
        out << kUsage;
        return 0;
    }
    const Options o = parseOptions(args);
    if (!o.error.isEmpty()) {
        err << o.error << "\n" << kUsage;
        return 2;
    }
    if (!QFileInfo(o.file).isFile()) {
        err << "Файл не найден: " << o.file << "\n";
        return 1;
    }
    keepLogsOutOfTheTerminal();
    QTemporaryDir scratch;
    QString audio;
    try {
        audio = asM4a(o.file, scratch);
    } catch (const TamvexError& e) {
        err << "Не удалось подготовить аудио из «" << o.file << "»: " << e.description() << "\n";
        return 1;
    }

    CliSession session;
    AppState& appState = session.appState();
    const PipelinePreset preset = o.preset.value_or(appState.settings().preset());
    try {
        QCoro::Task<void> loading = session.loadAccount();
        runToEnd(loading);
        const PipelineSetup setup = buildPipeline(appState, preset);
        const double startedAt = session.clock().now();
        QCoro::Task<SpeechResult> running = runWithTimeLimit(session.clock(), setup.pipeline, audio, o.timeoutSec);
        const SpeechResult result = runToEnd(running);
        const auto latencyMs = qint64((session.clock().now() - startedAt) * 1000.0);
        if (o.json) {
            const QJsonObject object{{"text", result.text},
                                     {"usage", usageJson(result.usage)},
                                     {"preset", presets::rawValue(preset)},
                                     {"latency_ms", latencyMs}};
            out << QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
        } else {
            out << result.text << "\n";
        }
        return 0;
    } catch (const TimeoutError&) {
        err << "LLM не ответил за " << QString::number(o.timeoutSec) << " сек.\n";
    } catch (const std::exception& e) {
        err << describeError(e) << "\n";
    }
    return 1;
}

} // namespace tamvex
