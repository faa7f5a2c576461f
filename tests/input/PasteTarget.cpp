// Another application for the paste test: a focused QLineEdit in its own process, driven
// by lines on stdin and answering on stdout.
#include <QApplication>
#include <QClipboard>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QMimeData>
#include <QTimer>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

namespace {

void reply(const QByteArray& line) {
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QLineEdit edit;
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

    const auto handle = [&](const QByteArray& line) {
        const QByteArray command = line.split(' ').constFirst();
        const QByteArray argument = line.mid(command.size() + 1);
        if (command == "set-clipboard") {
            auto* data = new QMimeData;
            const QJsonObject types = QJsonDocument::fromJson(QByteArray::fromBase64(argument)).object();
            for (auto it = types.begin(); it != types.end(); ++it)
                data->setData(it.key(), QByteArray::fromBase64(it.value().toString().toLatin1()));
            QGuiApplication::clipboard()->setMimeData(data);
            reply("ok");
        } else if (command == "dump-clipboard") {
            // Qt keeps the types of another program's clipboard until it hears that the owner
            // changed; that news may still wait behind this command. A round trip brings it
            // in, and the event loop must then handle it: a paste just read the clipboard, so
            // the types cached are the pasted text's.
            QGuiApplication::sync();
            QCoreApplication::processEvents();
            QJsonObject types;
            if (const QMimeData* data = QGuiApplication::clipboard()->mimeData())
                for (const QString& format : data->formats())
                    types.insert(format, QString::fromLatin1(data->data(format).toBase64()));
            reply("clipboard " + QJsonDocument(types).toJson(QJsonDocument::Compact).toBase64());
        } else if (command == "text") {
            reply("text " + edit.text().toUtf8().toBase64());
        } else if (command == "quit") {
            app.quit();
        }
    };
    // Lines are read on a thread of their own and handled on the GUI thread; the end of the
    // input ends the program.
    std::thread([&app, handle] {
        for (std::string line; std::getline(std::cin, line);)
            QMetaObject::invokeMethod(&app, [handle, line] { handle(QByteArray::fromStdString(line)); });
        QMetaObject::invokeMethod(&app, &QCoreApplication::quit);
    }).detach();
    return app.exec();
}
