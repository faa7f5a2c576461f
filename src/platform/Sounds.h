#pragma once

#include <QHash>
#include <QObject>
#include <QString>

class QSoundEffect;

namespace tamvex {

/// Plays the short named sounds ("Pop", "Purr", "Bottle", "Glass").
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;
    /// Plays the sound `name` at `volume` (0...1); an unknown name plays nothing.
    virtual void play(const QString& name, float volume) = 0;
};

/// The sounds shipped as resources, played through the default audio output.
/// Each is loaded on first use and kept; with no output device it stays silent.
class ResourceSounds final : public QObject, public SoundPlayer {
    Q_OBJECT
public:
    explicit ResourceSounds(QObject* parent = nullptr);
    void play(const QString& name, float volume) override;
    /// The names of the shipped sounds.
    static QStringList names();

private:
    QHash<QString, QSoundEffect*> m_effects;
};

} // namespace tamvex
