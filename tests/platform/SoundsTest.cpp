#include "platform/Sounds.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QTest>

using namespace tamvex;

class SoundsTest : public QObject {
    Q_OBJECT
private slots:
    void everyNamedSoundIsAShortWav() {
        for (const QString& name : ResourceSounds::names()) {
            QFile file(":/sounds/" + name + ".wav");
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            const QByteArray bytes = file.readAll();
            QVERIFY2(bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WAVE", qPrintable(name));
            // Short enough never to overlap the next gesture.
            QVERIFY2(bytes.size() < 48000, qPrintable(name));
        }
    }
};

TAMVEX_TEST_CLASS(SoundsTest)
#include "SoundsTest.moc"
