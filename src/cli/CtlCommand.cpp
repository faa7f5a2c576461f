#include "cli/CtlCommand.h"

#include "desktop/ControlService.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QHash>

namespace tamvex {

namespace {
const char* kUsage = "Использование: tamvex ctl press|release|toggle\n"
                     "  press    — как нажатие клавиши диктовки\n"
                     "  release  — как её отпускание\n"
                     "  toggle   — начать или закончить запись\n";
} // namespace

int runCtlCommand(const QStringList& args, QTextStream& out, QTextStream& err, QDBusConnection bus) {
    static const QHash<QString, QString> methods{{"press", "Press"}, {"release", "Release"}, {"toggle", "Toggle"}};
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        out << kUsage;
        return 0;
    }
    if (args.size() != 1 || !methods.contains(args[0])) {
        err << kUsage;
        return 2;
    }
    if (!bus.isConnected() || !bus.interface()) {
        err << "Нет сессионной шины D-Bus: tamvex ctl работает только внутри сеанса рабочего стола.\n";
        return 1;
    }
    if (!bus.interface()->isServiceRegistered(ControlService::serviceName).value()) {
        err << "Tamvex не запущен: запусти приложение и повтори команду.\n";
        return 1;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(ControlService::serviceName, ControlService::objectPath,
                                                       ControlService::interfaceName, methods.value(args[0]));
    const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        err << "Tamvex не ответил: " << reply.errorMessage() << "\n";
        return 1;
    }
    return 0;
}

} // namespace tamvex
