#include "platform/LoginItem.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace tamvex {

AutostartLoginItem::AutostartLoginItem(QString entryPath, QString executable)
    : m_entryPath(std::move(entryPath)), m_executable(std::move(executable)) {}

LoginItem::Status AutostartLoginItem::status() const {
    return QFileInfo::exists(m_entryPath) ? Status::enabled : Status::notRegistered;
}

QString AutostartLoginItem::entryText() const {
    QString exec = m_executable;
    // Desktop entries split Exec on spaces: quote a path that has any.
    if (exec.contains(' '))
        exec = '"' + exec + '"';
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Tamvex\n"
                          "Comment=Голосовой ввод текста\n"
                          "Exec=%1\n"
                          "Icon=tamvex\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(exec);
}

void AutostartLoginItem::registerItem() {
    const QString dir = QFileInfo(m_entryPath).absolutePath();
    if (!QDir().mkpath(dir))
        throw TamvexError(QStringLiteral("Не удалось создать папку автозапуска %1").arg(dir));
    QSaveFile file(m_entryPath);
    if (!file.open(QIODevice::WriteOnly))
        throw TamvexError(QStringLiteral("Не удалось записать %1: %2").arg(m_entryPath, file.errorString()));
    file.write(entryText().toUtf8());
    if (!file.commit())
        throw TamvexError(QStringLiteral("Не удалось записать %1: %2").arg(m_entryPath, file.errorString()));
}

void AutostartLoginItem::unregisterItem() {
    QFile file(m_entryPath);
    if (file.exists() && !file.remove())
        throw TamvexError(QStringLiteral("Не удалось удалить %1: %2").arg(m_entryPath, file.errorString()));
}

} // namespace tamvex
