// Another application for the paste test: a focused QLineEdit in its own process, driven
// by lines on stdin and answering on stdout.
#include <QApplication>
#include <QClipboard>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QSocketNotifier>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace {

void reply(const QByteArray& line) {
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

class ChordLog : public QObject {
public:
    QStringList chords;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress) {
            auto* key = static_cast<QKeyEvent*>(event);
            if (key->key() == Qt::Key_V) {
                QString chord;
                if (key->modifiers() & Qt::ControlModifier)
                    chord += "ctrl+";
                if (key->modifiers() & Qt::ShiftModifier)
                    chord += "shift+";
                chords << chord + "V";
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QLineEdit edit;
    ChordLog chords;
    edit.installEventFilter(&chords);
    edit.resize(400, 40);
    edit.show();
    edit.activateWindow();
    edit.setFocus();

    QTimer readiness;
    QObject::connect(&readiness, &QTimer::timeout, [&] {
        if (edit.isActiveWindow() && edit.hasFocus()) {
            readiness.stop();
            reply("ready");
        } else {
            edit.activateWindow();
        }
    });
    readiness.start(50);

    QByteArray buffer;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char chunk[65536];
        const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (n <= 0) {
            app.quit();
            return;
        }
        buffer.append(chunk, n);
        while (buffer.contains('\n')) {
            const int end = buffer.indexOf('\n');
            const QByteArray line = buffer.left(end);
            buffer.remove(0, end + 1);
            const int space = line.indexOf(' ');
            const QByteArray command = space < 0 ? line : line.left(space);
            const QByteArray argument = space < 0 ? QByteArray() : line.mid(space + 1);
            if (command == "set-clipboard") {
                auto* data = new QMimeData;
                const QJsonObject types = QJsonDocument::fromJson(QByteArray::fromBase64(argument)).object();
                for (auto it = types.begin(); it != types.end(); ++it)
                    data->setData(it.key(), QByteArray::fromBase64(it.value().toString().toLatin1()));
                QGuiApplication::clipboard()->setMimeData(data);
                reply("ok");
            } else if (command == "clear-clipboard") {
                QGuiApplication::clipboard()->clear();
                reply("ok");
            } else if (command == "dump-clipboard") {
                QJsonObject types;
                if (const QMimeData* data = QGuiApplication::clipboard()->mimeData())
                    for (const QString& format : data->formats())
                        types.insert(format, QString::fromLatin1(data->data(format).toBase64()));
                reply("clipboard " + QJsonDocument(types).toJson(QJsonDocument::Compact).toBase64());
            } else if (command == "text") {
                reply("text " + edit.text().toUtf8().toBase64());
            } else if (command == "keys") {
                reply("keys " + chords.chords.join(',').toUtf8());
            } else if (command == "quit") {
                app.quit();
            }
        }
    });
    return app.exec();
}
