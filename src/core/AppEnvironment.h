#pragma once

#include "desktop/AudioRecorder.h"
#include "platform/Paths.h"

namespace tamvex {

class Clock;
class Defaults;
class FrontmostApp;
class LoginItem;
class SoundPlayer;

/// The platform pieces the system is built on. The application passes the real ones;
/// tests pass a manual clock, a sandboxed folder and silent stand-ins.
struct AppEnvironment {
    Clock& clock;
    Defaults& defaults;
    Paths paths;
    SoundPlayer& sounds;
    LoginItem& loginItem;
    /// Makes the audio input of each new recording.
    AudioRecorder::InputFactory audioInput;
    /// Tells which application is in front; null where nobody can say.
    const FrontmostApp* frontmostApp = nullptr;
};

} // namespace tamvex
