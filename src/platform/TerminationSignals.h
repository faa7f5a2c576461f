#pragma once

#include <functional>

namespace tamvex {

/// Calls `onSignal` on the calling thread's event loop when the process receives SIGTERM, SIGINT
/// or SIGHUP (a session that ends, Ctrl+C in a terminal, a closed terminal), so that the program
/// leaves through its normal quit instead of dying with its windows and devices open. A second
/// call replaces the callback. Needs the application object. Returns false, with the reason
/// logged, when it cannot listen.
bool onTerminationSignals(std::function<void()> onSignal);

} // namespace tamvex
