#pragma once

#include "DevServer.h"
#include "account/Network.h"
#include "account/SorvelAPI.h"
#include "pipelines/BackendSelector.h"
#include "support/TestSupport.h"

#include <QNetworkAccessManager>

#include <optional>
#include <stdexcept>

namespace tamvex::test {

/// A dev server on a free loopback port, a manual clock and the shared network manager.
struct ServiceFixture {
    ServiceFixture() {
        if (server.start() == 0)
            throw std::runtime_error("dev server did not start");
    }
    devserver::DevServer server;
    ManualClock clock;
    QNetworkAccessManager& network = sharedNetworkManager();
};

/// A dev server, a settings sandbox, and a backend selector that sends every host to the server.
struct SelectorEnv {
    ServiceFixture host;
    TestEnv sandbox;
    BackendSelector selector{*sandbox.defaults, host.clock, host.network, ServiceHosts::allAt(host.server.baseUrl())};
};

/// A dev server, a settings sandbox and the account API pointed at the server.
struct AccountEnv {
    ServiceFixture f;
    TestEnv sandbox;
    SorvelAPI api{f.network, f.clock, *sandbox.defaults, f.server.baseUrl()};
};

/// A body of `n` characters that all differ by position, to check where text is cut.
inline QByteArray numberedBody(int n) {
    QByteArray body;
    for (int i = 0; body.size() < n; ++i)
        body.append(QByteArray::number(i % 10));
    return body.left(n);
}

} // namespace tamvex::test
