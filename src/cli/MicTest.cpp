#include "cli/MicTest.h"

#include "core/DropRules.h"
#include "core/RecordingConstants.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/Clock.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <functional>

namespace tamvex {

namespace {

struct Options {
    double seconds = 3.0;
    QString audioInput;
    QByteArray device;
    bool json = false;
    bool listDevices = false;
};

constexpr double maxSeconds = 3600.0;

/// Parses the words after "mic-test"; returns an error text in Russian, empty when fine.
QString parse(const QStringList& args, Options& options) {
    for (int i = 0; i < args.size(); ++i) {
        const QString& word = args[i];
        auto value = [&](QString& into) {
            if (i + 1 >= args.size())
                return false;
            into = args[++i];
            return true;
        };
        QString text;
        if (word == "--json") {
            options.json = true;
        } else if (word == "--list-devices") {
            options.listDevices = true;
        } else if (word == "--seconds") {
            bool ok = false;
            if (!value(text))
                return QStringLiteral("после --seconds нужно число секунд");
            options.seconds = text.toDouble(&ok);
            if (!ok || !(options.seconds > 0) || options.seconds > maxSeconds)
                return QStringLiteral("--seconds: нужно число от 0 до %1, а не «%2»").arg(maxSeconds).arg(text);
        } else if (word == "--audio-input") {
            if (!value(options.audioInput))
                return QStringLiteral("после --audio-input нужен путь к звуковому файлу");
        } else if (word == "--device") {
            if (!value(text))
                return QStringLiteral("после --device нужен идентификатор устройства");
            options.device = text.toUtf8();
        } else {
            return QStringLiteral("неизвестный параметр «%1»").arg(word);
        }
    }
    return {};
}

void listDevices(QTextStream& out) {
    const auto devices = MicrophoneInput::availableDevices();
    if (devices.isEmpty())
        out << "Устройств записи звука не найдено.\n";
    for (const QAudioDevice& d : devices)
        out << QString::fromUtf8(d.id()) << "\t" << d.description() << (d.isDefault() ? "\t(по умолчанию)" : "")
            << "\n";
}

} // namespace

int runMicTest(const QStringList& args, QTextStream& out, QTextStream& err) {
    Options options;
    if (const QString problem = parse(args, options); !problem.isEmpty()) {
        err << "mic-test: " << problem << "\n"
            << "Использование: tamvex mic-test [--seconds N] [--audio-input ФАЙЛ] [--device ID] [--list-devices] "
               "[--json]\n";
        err.flush();
        return 2;
    }
    if (options.listDevices) {
        listDevices(out);
        out.flush();
        return 0;
    }

    WallClock clock;
    AudioRecorder::InputFactory factory;
    if (!options.audioInput.isEmpty())
        factory = [&clock, file = options.audioInput] { return std::make_unique<FileAudioInput>(clock, file, 1.0); };
    else
        factory = [device = options.device] { return std::make_unique<MicrophoneInput>(device); };
    AudioRecorder recorder(clock, factory, QDir::tempPath());

    try {
        recorder.start();
    } catch (const AudioRecorderError& e) {
        err << e.description() << "\n";
        err.flush();
        return 1;
    }
    if (!options.json) {
        err << QStringLiteral("Запись %1 с…\n").arg(options.seconds, 0, 'g', 4);
        err.flush();
    }

    // The same beat as the HUD's level reader: the peak is the highest of these readings.
    QEventLoop loop;
    std::function<void()> readLevel = [&] {
        recorder.readLevel();
        clock.schedule(RecordingConstants::levelReadIntervalSec, readLevel);
    };
    clock.schedule(RecordingConstants::levelReadIntervalSec, readLevel);
    clock.schedule(options.seconds, [&] { loop.quit(); });
    loop.exec();

    const AudioRecorder::RecordingResult result = recorder.stop();
    const DropVerdict verdict = judgeRecording(result.duration, result.peakPower);
    const qint64 size = QFileInfo(result.url).size();

    if (options.json) {
        QJsonArray reasons;
        for (const QString& r : verdict.reasons().split(", ", Qt::SkipEmptyParts))
            reasons.append(r);
        const QJsonObject report{
            {"file", result.url},
            {"size_bytes", size},
            {"duration_sec", std::round(result.duration * 100.0) / 100.0},
            {"peak_db", std::round(double(result.peakPower) * 10.0) / 10.0},
            {"dropped", verdict.dropped()},
            {"reason_short", verdict.isShort},
            {"reason_quiet", verdict.isQuiet},
            {"reason_suspicious", verdict.isSuspicious},
            {"reasons", reasons},
            {"message", verdict.message()},
        };
        out << QJsonDocument(report).toJson(QJsonDocument::Indented);
    } else {
        out << "Файл: " << result.url << " (" << size << " байт)\n";
        out << "Длительность: " << QString::number(result.duration, 'f', 2) << " с\n";
        out << "Пик: " << QString::number(double(result.peakPower), 'f', 1) << " дБ\n";
        if (verdict.dropped())
            out << "Итог: запись была бы отброшена (" << verdict.reasons() << "): «" << verdict.message() << "»\n";
        else
            out << "Итог: запись прошла бы проверку и ушла бы на распознавание\n";
    }
    out.flush();
    return 0;
}

} // namespace tamvex
