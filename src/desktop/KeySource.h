#pragma once

#include <QObject>
#include <QString>

namespace tamvex {

/// Where key events of the whole desktop come from (evdev devices, the X server), or the
/// edges of named shortcuts that the desktop itself binds (the GlobalShortcuts portal).
/// A source only observes: it never grabs or swallows a key.
class KeySource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// Starts watching; true when keys can be delivered now.
    virtual bool start() = 0;
    /// Stops watching and lets go of every device (deviceRemoved for each).
    virtual void stop() = 0;
    /// True when keys can be delivered now.
    virtual bool isAvailable() const = 0;
    /// True while the source is still waiting for the desktop's answer: it may become
    /// available in a moment, so a worse source should not be chosen yet.
    virtual bool isPending() const { return false; }
    /// How the source is named in the log ("evdev", "X11", "GlobalShortcuts portal").
    virtual QString name() const = 0;
    /// True when the source can see the FN key (KEY_FN).
    virtual bool seesFunctionKey() const = 0;
    /// A line that says why the source is not available, or empty.
    virtual QString unavailableReason() const { return {}; }

signals:
    /// One input event of a device, as in struct input_event.
    void inputEvent(int device, int type, int code, int value);
    /// The desktop pressed (true) or released a named shortcut it binds for us.
    void shortcutEdge(const QString& rawName, bool pressed);
    /// A device went away; its held keys count as released.
    void deviceRemoved(int device);
    /// The source became available or stopped being so (a keyboard plugged or pulled).
    void availabilityChanged(bool available);
    /// seesFunctionKey() changed: a keyboard that sends FN was plugged or pulled.
    void functionKeyChanged();
};

} // namespace tamvex
