#pragma once

#include <QObject>
#include <QString>

namespace tamvex {

class KeySender;

/// Whether this process may type into other applications (what a trusted accessibility
/// client is elsewhere), and the prompt that says how to grant it.
class InputAccess : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool trusted READ isTrusted NOTIFY changed)
    Q_PROPERTY(bool keyboardsReadable READ keyboardsReadable NOTIFY changed)
public:
    using QObject::QObject;

    /// True when synthetic keys reach other applications.
    virtual bool isTrusted() const = 0;
    /// True when the keyboards can be read, so FN hold-to-talk works (the `input` group).
    virtual bool keyboardsReadable() const { return true; }
    /// Shows the explanation of how to grant access (promptRequested); counts the prompts.
    void prompt();
    /// How many times the prompt was shown.
    int promptCount() const { return m_prompts; }
    /// The Russian explanation: the `input` group and the udev rule for /dev/uinput.
    static QString explanation();
    /// The shell commands of that explanation, one a line, for a copy button.
    static QString grantCommands();

signals:
    void changed();
    /// The shell shows `text` to the user.
    void promptRequested(const QString& text);

private:
    int m_prompts = 0;
};

/// Trusted when the session's key sender works: /dev/uinput is writable, or XTest is there.
class SystemInputAccess final : public InputAccess {
    Q_OBJECT
public:
    /// Asks `keys` whether it can send.
    explicit SystemInputAccess(const KeySender& keys, QObject* parent = nullptr);
    bool isTrusted() const override;
    bool keyboardsReadable() const override { return canReadKeyboards(); }
    /// True when some keyboard under /dev/input can be read (for FN hold-to-talk).
    static bool canReadKeyboards(const QString& directory = QStringLiteral("/dev/input"));

private:
    const KeySender& m_keys;
};

} // namespace tamvex
