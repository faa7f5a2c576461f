#include "platform/InputAccess.h"

#include "platform/KeySender.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QStringList>

#include <fcntl.h>
#include <unistd.h>

namespace tamvex {

void InputAccess::prompt() {
    ++m_prompts;
    logInfo("Input access missing: asking the user to grant it");
    emit promptRequested(explanation());
}

namespace {
// Where the package puts the rule; a build from source has it in its packaging folder.
const char* const kInstalledRule = "/usr/lib/udev/rules.d/60-tamvex-uinput.rules";
} // namespace

QString InputAccess::grantCommands() {
    QStringList lines{QStringLiteral("sudo usermod -aG input $USER")};
    if (!QFile::exists(QLatin1String(kInstalledRule)))
        lines << QStringLiteral("sudo cp %1 /etc/udev/rules.d/").arg(QLatin1String(TAMVEX_SOURCE_RULE));
    lines << QStringLiteral("sudo modprobe uinput")
          << QStringLiteral("sudo udevadm control --reload && sudo udevadm trigger --sysname-match=uinput");
    return lines.join(u'\n');
}

QString InputAccess::explanation() {
    QString steps;
    for (const QString& line : grantCommands().split(u'\n').mid(1))
        steps += QStringLiteral("   ") + line + u'\n';
    return QStringLiteral("Tamvex нужен доступ к клавиатуре, чтобы слышать клавишу диктовки и вставлять текст.\n\n"
                          "1. Добавь себя в группу input:  sudo usermod -aG input $USER\n"
                          "2. Включи правило udev для /dev/uinput:\n"
                          "%1"
                          "3. Выйди из системы и войди снова.\n\n"
                          "На X11 вставка работает и без этого; на Wayland без доступа можно назначить "
                          "команду «tamvex ctl toggle» на сочетание клавиш в настройках рабочего стола.")
        .arg(steps);
}

SystemInputAccess::SystemInputAccess(const KeySender& keys, QObject* parent) : InputAccess(parent), m_keys(keys) {}

bool SystemInputAccess::isTrusted() const { return m_keys.isAvailable(); }

bool SystemInputAccess::canReadKeyboards(const QString& directory) {
    const QStringList names = QDir(directory).entryList({"event*"}, QDir::System | QDir::Files);
    for (const QString& name : names) {
        const int fd = ::open(QFile::encodeName(directory + "/" + name).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) {
            ::close(fd);
            return true;
        }
    }
    return false;
}

} // namespace tamvex
