#include "platform/Sounds.h"

#include <QAudioDevice>
#include <QFile>
#include <QMediaDevices>
#include <QSoundEffect>
#include <QUrl>

namespace tamvex {

ResourceSounds::ResourceSounds(QObject* parent) : QObject(parent) {}

QStringList ResourceSounds::names() { return {"Pop", "Purr", "Bottle", "Glass"}; }

void ResourceSounds::play(const QString& name, float volume) {
    if (QMediaDevices::defaultAudioOutput().isNull())
        return;
    QSoundEffect* effect = m_effects.value(name);
    if (!effect) {
        const QString resource = ":/sounds/" + name + ".wav";
        if (!QFile::exists(resource))
            return;
        effect = new QSoundEffect(this);
        effect->setSource(QUrl("qrc" + resource));
        m_effects.insert(name, effect);
    }
    effect->setVolume(volume);
    effect->play();
}

} // namespace tamvex
