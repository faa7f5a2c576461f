#include "cli/CommandLine.h"

#include "cli/CtlCommand.h"
#include "cli/HistoryCommands.h"
#include "cli/MicTest.h"
#include "cli/ModelCommands.h"
#include "cli/SettingsCommands.h"
#include "cli/TranscribeCommand.h"

#include <QFileInfo>
#include <QTextStream>

#include <cstdio>

namespace tamvex {

namespace {
const char* kHelp =
    "Tamvex — голосовой ввод текста.\n"
    "\n"
    "  tamvex [--audio-input ФАЙЛ]          запустить приложение (ФАЙЛ вместо микрофона)\n"
    "  tamvex --version                     версия\n"
    "  tamvex ctl press|release|toggle      управлять запущенным приложением (для сочетаний рабочего стола)\n"
    "  tamvex settings get [КЛЮЧ]           значение настройки (или все)\n"
    "  tamvex settings set КЛЮЧ ЗНАЧЕНИЕ    изменить настройку\n"
    "  tamvex mic-test [--seconds N] [--audio-input ФАЙЛ] [--json]\n"
    "                                       проверить запись: длительность, пик, отбросится ли\n"
    "  tamvex transcribe ФАЙЛ [--preset P] [--json] [--timeout СЕК]\n"
    "                                       распознать файл, как диктовку (без истории и вставки)\n"
    "  tamvex history list [--limit N] [--json] | show ID [--json] | export --json\n"
    "  tamvex history retry ID [--json]     повторить неудачную диктовку по сохранённой записи\n"
    "  tamvex insights [--json] [--recompute]\n"
    "  tamvex model status|download|verify|delete [--json]\n"
    "                                       локальная модель whisper\n"
    "  tamvex transcribe-local ФАЙЛ [--model ПУТЬ]\n"
    "                                       распознать файл локально\n";
} // namespace

int runCommandLine(const QStringList& args, CommandLineRequest& request) {
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QString command = args.value(0);
    const QStringList rest = args.mid(1);

    if (command == "--version" || command == "-v") {
        out << "tamvex " << TAMVEX_VERSION << " (" << TAMVEX_BUILD_NUMBER << ")\n";
        return 0;
    }
    if (command == "--help" || command == "-h" || command == "help") {
        out << kHelp;
        return 0;
    }
    if (command == "settings")
        return runSettingsCommand(rest, out, err);
    if (command == "history")
        return runHistoryCommand(rest, out, err);
    if (command == "insights")
        return runInsightsCommand(rest, out, err);
    if (command == "ctl")
        return runCtlCommand(rest, out, err);
    if (command == "mic-test")
        return runMicTest(rest, out, err);
    if (command == "model")
        return runModelCommand(rest, out, err);
    if (command == "transcribe")
        return runTranscribeCommand(rest, out, err);
    if (command == "transcribe-local")
        return runTranscribeLocal(rest, out, err);

    // No subcommand: the application, with its own options.
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--audio-input" && i + 1 < args.size()) {
            request.audioInputFile = args[++i];
            if (!QFileInfo::exists(request.audioInputFile)) {
                err << "Файл не найден: " << request.audioInputFile << "\n";
                return 2;
            }
        } else if (args[i].startsWith("tamvex://")) {
            request.forwardedArguments.append(args[i]); // a sign-in link for the running instance
        } else {
            err << "Неизвестная команда «" << args[i] << "»\n\n" << kHelp;
            return 2;
        }
    }
    request.startApplication = true;
    return -1;
}

} // namespace tamvex
