#include "cli/SettingsCommands.h"

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/LoginItem.h"
#include "platform/Paths.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>

namespace tamvex {

namespace {
QString printable(const QVariant& value) {
    if (!value.isValid())
        return {};
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? "true" : "false";
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(",");
    if (value.typeId() == QMetaType::Double)
        return QString::number(value.toDouble(), 'g', 17);
    return value.toString();
}

const char* kUsage = "Использование: tamvex settings get [КЛЮЧ] | tamvex settings set КЛЮЧ ЗНАЧЕНИЕ\n";
} // namespace

int runSettingsCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    const Paths paths = Paths::standard();
    Defaults defaults(paths.settingsFile());
    WallClock clock;
    AutostartLoginItem login(paths.autostartEntry(), QCoreApplication::applicationFilePath());
    SettingsStore store(defaults, clock, login);

    if (args.value(0) == "get" && args.size() <= 2) {
        if (args.size() == 1) {
            for (const QString& key : SettingsStore::keys())
                out << key << " = " << printable(store.valueForKey(key)) << "\n";
            return 0;
        }
        if (!SettingsStore::keys().contains(args[1])) {
            err << "Неизвестный ключ «" << args[1] << "». Ключи: " << SettingsStore::keys().join(", ") << "\n";
            return 2;
        }
        out << printable(store.valueForKey(args[1])) << "\n";
        return 0;
    }
    if (args.value(0) == "set" && args.size() == 3) {
        const QString error = store.assignFromText(args[1], args[2]);
        if (!error.isEmpty()) {
            err << error << "\n";
            return 2;
        }
        out << args[1] << " = " << printable(store.valueForKey(args[1])) << "\n";
        return 0;
    }
    err << kUsage;
    return 2;
}

} // namespace tamvex
