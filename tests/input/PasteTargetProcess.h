#pragma once

#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>

#include <optional>

namespace tamvex::test {

/// The other application of the paste tests: input_paste_target, a focused line edit in its
/// own process, driven by lines on its standard input.
class PasteTargetProcess {
public:
    using Types = QMap<QString, QByteArray>;

    /// Starts input_paste_target (its path is compiled in) under the current DISPLAY.
    PasteTargetProcess() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "xcb");
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(TAMVEX_PASTE_TARGET_PATH), {});
        ready = wait("ready", 30000).has_value(); // a Qt start on a loaded machine can take seconds
    }
    ~PasteTargetProcess() {
        m_process.write("quit\n");
        if (!m_process.waitForFinished(3000))
            m_process.kill();
    }

    /// Sends a command and waits for the answer starting with `prefix`, serving our own
    /// clipboard meanwhile (the target may be reading it from us).
    QByteArray ask(const QByteArray& command, const QByteArray& prefix) {
        m_process.write(command + "\n");
        return wait(prefix).value_or(QByteArray());
    }
    void setClipboard(const Types& types) {
        QJsonObject object;
        for (auto it = types.begin(); it != types.end(); ++it)
            object.insert(it.key(), QString::fromLatin1(it.value().toBase64()));
        ask("set-clipboard " + QJsonDocument(object).toJson(QJsonDocument::Compact).toBase64(), "ok");
    }
    Types clipboard() {
        const QByteArray json = QByteArray::fromBase64(ask("dump-clipboard", "clipboard"));
        Types types;
        const QJsonObject object = QJsonDocument::fromJson(json).object();
        const QStringList protocol{"TARGETS", "MULTIPLE", "TIMESTAMP", "SAVE_TARGETS"};
        for (auto it = object.begin(); it != object.end(); ++it)
            if (!protocol.contains(it.key())) // answered by whichever process owns the clipboard
                types.insert(it.key(), QByteArray::fromBase64(it.value().toString().toLatin1()));
        return types;
    }
    /// The line edit's text.
    QString text() { return QString::fromUtf8(QByteArray::fromBase64(ask("text", "text"))); }
    bool ready = false;

private:
    std::optional<QByteArray> wait(const QByteArray& prefix, int ms = 10000) {
        std::optional<QByteArray> found;
        spinUntil(
            [&] {
                while (!found && m_process.canReadLine())
                    if (const QByteArray line = m_process.readLine().trimmed(); line.startsWith(prefix))
                        found = line.mid(prefix.size()).trimmed();
                return found.has_value();
            },
            ms);
        return found;
    }
    QProcess m_process;
};

} // namespace tamvex::test
