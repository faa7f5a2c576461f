#include "platform/Sounds.h"

#include <QAudioDevice>
#include <QFile>
#include <QMediaDevices>
#include <QSoundEffect>
#include <QUrl>

// Resources of a static library are linked only when something names them.
static void initSoundResources() {
    static const bool done = [] {
        Q_INIT_RESOURCE(sounds);
        return true;
    }();
    Q_UNUSED(done);
}

namespace tamvex {

ResourceSounds::ResourceSounds(QObject* parent) : QObject(parent) {
    initSoundResources();
}

QStringList ResourceSounds::names() {
    initSoundResources();
    return {"Pop", "Purr", "Bottle", "Glass"};
}

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
