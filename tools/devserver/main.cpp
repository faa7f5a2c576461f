#include "DevServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("tamvex-devserver");

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "The Tamvex service on loopback: account, analytics, recommend, speech proxy, OpenRouter's own\n"
        "chat path (/api/v1/chat/completions), models.\n"
        "Prints its base URL (with the chosen port) on the first line of standard output.");
    parser.addHelpOption();
    parser.addOption({"port", "Port to listen on; 0 picks a free one.", "port", "0"});
    parser.addOption({"host", "Address to listen on.", "address", "127.0.0.1"});
    parser.addOption({"data", "Folder for accounts, analytics.jsonl, devserver.json and models/.", "dir"});
    parser.addOption({"upstream",
                      "Forward chat requests of both roads to this OpenRouter-compatible chat-completions URL "
                      "(key from TAMVEX_DEVSERVER_UPSTREAM_KEY).",
                      "url"});
    parser.addOption({"openrouter-key",
                      "An API key that OpenRouter's own path accepts (repeatable; added to devserver.json's "
                      "\"openrouter_keys\").",
                      "key"});
    parser.addOption({"balance", "Starting balance of new users, in ø.", "tokens"});
    parser.process(app);

    bool portOk = false;
    const uint port = parser.value("port").toUInt(&portOk);
    const QHostAddress address(parser.value("host"));
    if (!portOk || port > 65535 || address.isNull()) {
        std::fprintf(stderr, "tamvex-devserver: bad --port or --host\n");
        return 2;
    }

    tamvex::devserver::DevServer server(parser.value("data"));
    if (parser.isSet("balance"))
        server.setStartingBalance(parser.value("balance").toDouble());
    if (parser.isSet("openrouter-key"))
        server.setOpenRouterKeys(server.openRouterKeys() + parser.values("openrouter-key"));
    if (parser.isSet("upstream"))
        server.setUpstream(QUrl(parser.value("upstream")), qEnvironmentVariable("TAMVEX_DEVSERVER_UPSTREAM_KEY"));

    const quint16 chosen = server.start(quint16(port), address);
    if (chosen == 0) {
        std::fprintf(stderr, "tamvex-devserver: cannot listen on %s:%u\n", qPrintable(address.toString()), port);
        return 1;
    }
    QTextStream out(stdout);
    out << "http://" << address.toString() << ':' << chosen << Qt::endl;
    QObject::connect(&server, &tamvex::devserver::DevServer::requestReceived, &server,
                     [](const QString& path) { std::fprintf(stderr, "%s\n", qPrintable(path)); });
    return app.exec();
}
