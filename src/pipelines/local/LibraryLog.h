#pragma once

namespace tamvex {

/// Routes whisper.cpp's and Parakeet's own log lines into the application's log (its chatter
/// at debug level, off by default; warnings and errors visible). Safe to call many times.
void routeLibraryLogs();

} // namespace tamvex
