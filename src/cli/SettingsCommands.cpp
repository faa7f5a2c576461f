#include "cli/SettingsCommands.h"

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/LoginItem.h"
#include "platform/Paths.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>

#include <algorithm>

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

// A secret echoed back is shown by its last characters only, enough to tell two keys apart.
QString shown(const QString& key, const QVariant& value) {
    const QString text = printable(value);
    if (key != SettingsKeys::apiKey || text.isEmpty())
        return text;
    return QStringLiteral("…") + text.right(std::min<qsizetype>(4, text.size() / 4));
}

const char* kUsage = "Использование: tamvex settings get [КЛЮЧ] | tamvex settings set КЛЮЧ ЗНАЧЕНИЕ\n"
                     "ЗНАЧЕНИЕ «-» читается из стандартного ввода (одна строка): так ключ API не попадает в "
                     "историю команд.\n";
} // namespace

int runSettingsCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    QTextStream in(stdin);
    return runSettingsCommand(args, in, out, err);
}

int runSettingsCommand(const QStringList& args, QTextStream& in, QTextStream& out, QTextStream& err) {
    const Paths paths = Paths::standard();
    Defaults defaults(paths.settingsFile());
    WallClock clock;
    AutostartLoginItem login(paths.autostartEntry(), QCoreApplication::applicationFilePath());
    SettingsStore store(defaults, clock, login);
    const QString key = SettingsStore::keyForName(args.value(1));

    if (args.value(0) == "get" && args.size() <= 2) {
        if (args.size() == 1) {
            // A listing gets pasted into bug reports: the key shows as `set` echoes it. Asked
            // for by name, it is given whole.
            for (const QString& each : SettingsStore::keys())
                out << each << " = " << shown(each, store.valueForKey(each)) << "\n";
            return 0;
        }
        if (!SettingsStore::keys().contains(key)) {
            err << "Неизвестный ключ «" << args[1] << "». Ключи: " << SettingsStore::keys().join(", ") << "\n";
            return 2;
        }
        out << printable(store.valueForKey(key)) << "\n";
        return 0;
    }
    if (args.value(0) == "set" && args.size() == 3) {
        QString value = args[2];
        if (value == QLatin1String("-")) {
            value = in.readLine(); // without its line break
            if (value.isNull()) {
                err << "Значение не пришло: стандартный ввод пуст.\n";
                return 2;
            }
        }
        const QString error = store.assignFromText(key, value);
        if (!error.isEmpty()) {
            err << error << "\n";
            return 2;
        }
        out << key << " = " << shown(key, store.valueForKey(key)) << "\n";
        return 0;
    }
    err << kUsage;
    return 2;
}

} // namespace tamvex
