#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

#include <optional>

namespace tamvex {

class RecordingCoordinator;

/// The running application's handle on the session bus, "org.tamvex.Tamvex": the desktop's
/// own shortcuts drive dictation through it (`tamvex ctl`), and a second start hands its
/// arguments over through it. Owning the name is also what makes this the only instance.
class ControlService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tamvex.Tamvex")
public:
    static constexpr const char* serviceName = "org.tamvex.Tamvex";
    static constexpr const char* objectPath = "/org/tamvex/Tamvex";
    static constexpr const char* interfaceName = "org.tamvex.Tamvex";

    /// Serves `coordinator`'s edges and toggle.
    explicit ControlService(RecordingCoordinator& coordinator, QObject* parent = nullptr);
    ~ControlService() override;

    /// Exports the object and takes the name on `bus`; false when another instance has it
    /// or there is no bus (then the application still runs, without remote control).
    bool registerOn(QDBusConnection bus = QDBusConnection::sessionBus());

public slots:
    /// The hotkey went down.
    Q_SCRIPTABLE void Press();
    /// The hotkey came up.
    Q_SCRIPTABLE void Release();
    /// Starts or stops a recording.
    Q_SCRIPTABLE void Toggle();
    /// A second start's arguments (a tamvex:// URL among them).
    Q_SCRIPTABLE void Activate(const QStringList& arguments);
    /// Retries the failed history entry `id` (a full UUID), so that the history has one
    /// writer. Answers only when the retry has ended, with (bool succeeded, QString message):
    /// the new text, or the Russian error. Callers give the call a long timeout.
    Q_SCRIPTABLE void Retry(const QString& id, const QDBusMessage& message);

signals:
    /// Arguments handed over by a second start; `urls` are its tamvex:// links.
    void activated(const QStringList& arguments, const QStringList& urls);

private:
    RecordingCoordinator& m_coordinator;
    std::optional<QDBusConnection> m_bus;
};

/// For main: when an instance already owns the name, hands it `arguments` and returns
/// true (this process then exits); false when this process is the first.
bool forwardToRunningInstance(const QStringList& arguments,
                              QDBusConnection bus = QDBusConnection::sessionBus());

} // namespace tamvex
