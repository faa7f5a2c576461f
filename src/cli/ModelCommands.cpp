#include "cli/ModelCommands.h"

#include "cli/CliSession.h"

#include "core/RecordingConstants.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/LocalWhisperPipeline.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSelfTest.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"
#include "pipelines/local/SpeechDetectorModel.h"
#include "platform/Clock.h"
#include "platform/Error.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <exception>
#include <optional>

#include <unistd.h>

namespace tamvex {

namespace {

QString modelUsage() {
    QStringList names;
    for (WhisperModel model : whisperModels::all())
        names.append(whisperModels::rawValue(model) + " (" + whisperModels::displayName(model) + ", " +
                     whisperModels::languages(model) + ")");
    return "Использование: tamvex model status|download|verify|delete [МОДЕЛЬ] [--json]\n"
           "               tamvex model speed [МОДЕЛЬ] [--again] [--json]: скорость скачанной модели здесь\n"
           "Модели (по умолчанию первая):\n  " +
           names.join("\n  ") + "\n";
}
const char* kTranscribeUsage = "Использование: tamvex transcribe-local ФАЙЛ [--model ПУТЬ_К_МОДЕЛИ] "
                               "[--vad ПУТЬ_К_ДЕТЕКТОРУ | --no-vad]\n";

QString megabytes(qint64 bytes) {
    return QString::number(std::round(double(bytes) / 1e6), 'f', 0) + " МБ";
}

void printJson(QTextStream& out, const QJsonObject& object) {
    out << QJsonDocument(object).toJson(QJsonDocument::Compact) << "\n";
}

std::atomic<bool> gInterrupted{false};

extern "C" void onInterrupt(int) {
    gInterrupted = true;
}

int status(ModelDownloader& downloader, WhisperModel model, bool json, QTextStream& out) {
    const ModelDescriptor d = downloader.descriptor(model);
    const QString path = downloader.localURL(model);
    const std::optional<qint64> size = downloader.fileSize(model);
    if (json) {
        printJson(out, {{"model", whisperModels::rawValue(model)},
                        {"file", path},
                        {"present", size.has_value()},
                        {"size_bytes", size ? QJsonValue(double(*size)) : QJsonValue()},
                        {"expected_bytes", double(d.expectedBytes)},
                        {"expected_sha256", d.expectedSHA256},
                        {"url", d.downloadURL.toString()},
                        {"mirror_url", d.mirrorURL.toString()},
                        {"engine_available", WhisperEngine::isAvailable()},
                        {"engine_backend", WhisperEngine::backendName()}});
        return 0;
    }
    out << "Модель: " << whisperModels::rawValue(model) << "\n"
        << "Файл: " << path << "\n"
        << "Состояние: " << (size ? "загружена, " + megabytes(*size) : QString("не загружена")) << "\n"
        << "Ожидаемый размер: ~" << megabytes(d.expectedBytes) << "\n"
        << "Источник: " << d.downloadURL.toString() << "\n"
        << "Запасной источник: " << d.mirrorURL.toString() << "\n"
        << "Локальный движок: "
        << (WhisperEngine::isAvailable() ? "есть в этой сборке, работает на " + WhisperEngine::backendName()
                                         : QString("нет в этой сборке (собрано без whisper.cpp)"))
        << "\n";
    return 0;
}

/// True when `stream` writes to a terminal, where a bar can redraw itself in place.
bool isTerminal(QTextStream& stream) {
    const auto* file = qobject_cast<QFile*>(stream.device());
    return file && file->handle() >= 0 && ::isatty(file->handle());
}

int download(ModelDownloader& downloader, WhisperModel model, bool json, QTextStream& out, QTextStream& err) {
    const qint64 expected = downloader.descriptor(model).expectedBytes;
    const bool terminal = isTerminal(err);
    QEventLoop loop;
    int lastStep = -1;
    bool lineOpen = false;
    bool started = false; // the first bar waits for the "started" log line
    auto closeLine = [&] {
        if (lineOpen)
            err << "\n";
        lineOpen = false;
    };
    auto show = [&](const ModelDownloadState& s) {
        if (json || !started)
            return;
        if (s.kind() == ModelDownloadState::Kind::downloading) {
            // A terminal redraws one line per 0.1 %; a log file gets a line per 10 %.
            const int step = int(s.progress() * (terminal ? 1000 : 10));
            if (step == lastStep)
                return;
            lastStep = step;
            if (terminal) {
                err << "\r" << modelProgressLine(s.progress(), expected);
                lineOpen = true;
            } else {
                err << modelProgressLine(s.progress(), expected) << "\n";
            }
            if (s.progress() >= 1.0)
                closeLine();
            err << Qt::flush;
        } else if (s.kind() == ModelDownloadState::Kind::verifying) {
            closeLine();
            err << "Проверяю контрольную сумму…\n" << Qt::flush;
        }
    };
    auto finished = [](const ModelDownloadState& s) {
        return s.kind() == ModelDownloadState::Kind::completed || s.kind() == ModelDownloadState::Kind::failed ||
               s.kind() == ModelDownloadState::Kind::idle;
    };
    // Which host the bytes come from, as the downloader moves from the main host to the mirror.
    QString lastSource;
    const QMetaObject::Connection watchSource =
        QObject::connect(&downloader, &ModelDownloader::sourceChanged, &loop, [&](const QString& host) {
            if (host.isEmpty())
                return;
            lastSource = host;
            if (json)
                return;
            closeLine();
            err << "Загружаю с " << host << "\n" << Qt::flush;
        });
    const QMetaObject::Connection watch =
        QObject::connect(&downloader, &ModelDownloader::stateChanged, &loop, [&](const ModelDownloadState& s) {
            show(s);
            if (finished(s))
                loop.quit();
        });
    // Ctrl+C cancels cleanly, so no partial file is left behind.
    gInterrupted = false;
    const auto previous = std::signal(SIGINT, onInterrupt);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (gInterrupted)
            downloader.cancel();
    });
    poll.start(100);
    downloader.download(model);
    started = true;
    show(downloader.state());
    if (!finished(downloader.state()))
        loop.exec();
    poll.stop();
    std::signal(SIGINT, previous);
    QObject::disconnect(watch);
    QObject::disconnect(watchSource);
    closeLine();

    const ModelDownloadState s = downloader.state();
    const QString path = downloader.localURL(model);
    if (json) {
        QJsonObject o{{"model", whisperModels::rawValue(model)}, {"file", path}};
        if (!lastSource.isEmpty())
            o["source"] = lastSource;
        o["state"] = s.kind() == ModelDownloadState::Kind::completed ? "completed"
                     : s.kind() == ModelDownloadState::Kind::failed  ? "failed"
                                                                     : "cancelled";
        if (s.kind() == ModelDownloadState::Kind::failed)
            o["reason"] = s.reason();
        printJson(out, o);
    }
    switch (s.kind()) {
    case ModelDownloadState::Kind::completed:
        if (!json)
            out << "Модель загружена и проверена: " << path << "\n";
        return 0;
    case ModelDownloadState::Kind::failed:
        err << "Не удалось загрузить модель: " << s.reason() << "\n";
        return 1;
    default:
        err << "Загрузка отменена.\n";
        return 1;
    }
}

int verify(ModelDownloader& downloader, WhisperModel model, bool json, QTextStream& out, QTextStream& err) {
    const QString path = downloader.localURL(model);
    const bool present = downloader.fileSize(model).has_value();
    const std::optional<QString> digest = present ? downloader.sha256Hex(model) : std::nullopt;
    const bool valid = digest && digest->toLower() == downloader.descriptor(model).expectedSHA256.toLower();
    if (json) {
        printJson(out, {{"model", whisperModels::rawValue(model)},
                        {"file", path},
                        {"present", present},
                        {"valid", valid},
                        {"sha256", digest ? QJsonValue(*digest) : QJsonValue()}});
        return valid ? 0 : 1;
    }
    if (valid) {
        out << "Модель в порядке: " << path << "\n";
        return 0;
    }
    if (!present)
        err << "Модель не загружена: " << path << "\n";
    else if (!digest)
        err << "Не удалось прочитать файл модели: " << path << "\n";
    else
        err << "Файл модели повреждён (SHA-256 не совпадает): " << path
            << "\nУдали его (tamvex model delete) и загрузи заново (tamvex model download).\n";
    return 1;
}

int remove(ModelDownloader& downloader, WhisperModel model, bool json, QTextStream& out, QTextStream& err) {
    const QString path = downloader.localURL(model);
    const bool present = downloader.fileSize(model).has_value();
    const bool deleted = downloader.deleteModel(model);
    if (json)
        printJson(out, {{"model", whisperModels::rawValue(model)}, {"file", path}, {"deleted", deleted}});
    else if (deleted)
        out << "Модель удалена: " << path << "\n";
    else if (!present)
        out << "Модели нет, удалять нечего: " << path << "\n";
    else
        err << "Не удалось удалить модель: " << path << "\n";
    return deleted || !present ? 0 : 1;
}

// The self-test of the settings card, from the terminal: the kept figure, or a measurement.
int speed(ModelDownloader& downloader, WhisperModel model, bool again, bool json, QTextStream& out,
          QTextStream& err) {
    const QString path = downloader.localURL(model);
    if (!downloader.fileSize(model)) {
        err << "Модель не загружена: " << path << "\nСначала: tamvex model download " << whisperModels::rawValue(model)
            << "\n";
        return 1;
    }
    LocalWhisperEngineCache cache([&downloader](WhisperModel m) { return downloader.localURL(m); });
    WallClock clock;
    ModelSelfTest selfTest(cache, ModelSpeedRecord(downloader.speedRecordPath()), clock,
                           LocalHardware::current().backend);
    const bool measured = again || !selfTest.speed(model);
    if (measured) {
        if (!json)
            err << "Проверяем скорость " << whisperModels::displayName(model) << " на "
                << selfTest.backend() << "…\n";
        QEventLoop loop;
        QObject::connect(&selfTest, &ModelSelfTest::finished, &loop, &QEventLoop::quit);
        selfTest.request(model, true);
        if (selfTest.isPending(model))
            loop.exec();
    }
    const std::optional<ModelSpeed> kept = selfTest.speed(model);
    if (!kept || (measured && !selfTest.failure(model).isEmpty())) {
        err << "Не удалось проверить скорость: " << selfTest.failure(model) << "\n";
        return 1;
    }
    const double limit = RecordingConstants::transcribeTimeoutSec;
    const double dictation = kept->secondsFor(speedRuleDictationSeconds);
    const bool finishes = kept->canFinish(speedRuleDictationSeconds, limit);
    if (json) {
        printJson(out, {{"model", whisperModels::rawValue(model)},
                        {"backend", selfTest.backend()},
                        {"speech_s", kept->speechSeconds},
                        {"elapsed_s", kept->elapsedSeconds},
                        {"measured_now", measured},
                        {"dictation_20s_s", dictation},
                        {"finishes_within_limit", finishes}});
        return 0;
    }
    out << whisperModels::displayName(model) << " на " << selfTest.backend() << ": " << kept->text() << ".\n"
        << "20 с диктовки — около " << QLocale(QLocale::Russian).toString(dictation, 'f', 1) << " с: "
        << (finishes ? "успевает" : "не успевает") << " за " << limit << " с."
        << (measured ? "" : " (измерено раньше; заново: --again)") << "\n";
    return 0;
}

} // namespace

QString modelProgressLine(double progress, qint64 expectedBytes, int width) {
    const double p = std::clamp(progress, 0.0, 1.0);
    const int filled = int(std::floor(p * width));
    return "[" + QString(filled, '#') + QString(width - filled, '-') + "] " +
           QString::number(int(std::floor(p * 100))).rightJustified(3) + " %  " +
           QString::number(std::floor(p * double(expectedBytes) / 1e6), 'f', 0) + " из ~" + megabytes(expectedBytes);
}

int runModelCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    return runModelCommand(args, out, err, ModelDownloader::shared());
}

int runModelCommand(const QStringList& args, QTextStream& out, QTextStream& err, ModelDownloader& downloader) {
    QStringList rest = args;
    const bool json = rest.removeAll("--json") > 0;
    const bool again = rest.removeAll("--again") > 0;
    const QString verb = rest.value(0);
    if (rest.size() > 2 || !QStringList{"status", "download", "verify", "delete", "speed"}.contains(verb) ||
        (again && verb != "speed")) {
        err << modelUsage();
        return 2;
    }
    WhisperModel model = WhisperModel::largeV3TurboQ5;
    if (rest.size() == 2) {
        const std::optional<WhisperModel> named = whisperModels::fromRawValue(rest[1]);
        if (!named) {
            err << "Неизвестная модель «" << rest[1] << "».\n" << modelUsage();
            return 2;
        }
        model = *named;
    }
    if (verb == "status")
        return status(downloader, model, json, out);
    if (verb == "download")
        return download(downloader, model, json, out, err);
    if (verb == "verify")
        return verify(downloader, model, json, out, err);
    if (verb == "speed")
        return speed(downloader, model, again, json, out, err);
    return remove(downloader, model, json, out, err);
}

int runTranscribeLocal(const QStringList& args, QTextStream& out, QTextStream& err) {
    QString file;
    QString modelPath;
    QString detectorPath;
    bool detectSpeech = true;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--model" && i + 1 < args.size()) {
            modelPath = args[++i];
        } else if (args[i] == "--vad" && i + 1 < args.size()) {
            detectorPath = args[++i];
        } else if (args[i] == "--no-vad") {
            detectSpeech = false;
        } else if (file.isEmpty() && !args[i].startsWith("--")) {
            file = args[i];
        } else {
            err << kTranscribeUsage;
            return 2;
        }
    }
    if (file.isEmpty()) {
        err << kTranscribeUsage;
        return 2;
    }
    // What is not named comes from the models folder, where `tamvex model download` puts it.
    const QString directory = modelPath.isEmpty() || (detectSpeech && detectorPath.isEmpty())
                                  ? ModelDownloader::shared().modelsDirectory()
                                  : QString();
    if (modelPath.isEmpty())
        modelPath = directory + "/" + whisperModels::fileName(WhisperModel::largeV3TurboQ5);
    if (detectorPath.isEmpty() && detectSpeech)
        detectorPath = directory + "/" + speechDetectorModel().fileName;
    // Either kind of model file: the engine cache tells whisper and Parakeet apart by the header.
    LocalWhisperEngineCache ownCache([modelPath](WhisperModel) { return modelPath; }, detectorPath);
    LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, ownCache, detectSpeech);
    try {
        QCoro::Task<SpeechResult> task = pipeline.process(file);
        const SpeechResult result = runToEnd(task);
        out << result.text << "\n";
        return 0;
    } catch (const WhisperEngineError& e) {
        err << e.description() << "\n";
        if (e.kind() == WhisperEngineError::Kind::modelNotLoaded)
            err << "Загрузи её: tamvex model download (или укажи файл: --model ПУТЬ)\n";
        return 1;
    } catch (const std::exception& e) {
        err << describeError(e) << "\n";
        return 1;
    }
}

} // namespace tamvex
