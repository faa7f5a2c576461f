#include "platform/InputAccess.h"

#include "platform/KeySender.h"
#include "platform/Log.h"

#include <QDir>
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
const char* const kGroupCommand = "sudo usermod -aG input $USER";
const char* const kRuleCommand = "sudo cp 60-tamvex-uinput.rules /etc/udev/rules.d/ && sudo modprobe uinput";
const char* const kReloadCommand = "sudo udevadm control --reload && sudo udevadm trigger --sysname-match=uinput";
} // namespace

QString InputAccess::explanation() {
    return QStringLiteral("Tamvex нужен доступ к клавиатуре, чтобы слышать клавишу диктовки и вставлять текст.\n\n"
                          "1. Добавь себя в группу input:  %1\n"
                          "2. Установи правило udev для /dev/uinput (файл 60-tamvex-uinput.rules лежит в share/tamvex "
                          "установки или в packaging/ исходников):\n"
                          "   %2\n"
                          "   %3\n"
                          "3. Выйди из системы и войди снова.\n\n"
                          "На X11 вставка работает и без этого; на Wayland без доступа можно назначить "
                          "команду «tamvex ctl toggle» на сочетание клавиш в настройках рабочего стола.")
        .arg(QLatin1String(kGroupCommand), QLatin1String(kRuleCommand), QLatin1String(kReloadCommand));
}

QString InputAccess::grantCommands() {
    return QStringList{kGroupCommand, kRuleCommand, kReloadCommand}.join(u'\n');
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
