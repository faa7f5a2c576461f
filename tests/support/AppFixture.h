#pragma once

#include "core/AppEnvironment.h"
#include "core/AppState.h"
#include "platform/LoginItem.h"
#include "support/PlatformFakes.h"
#include "support/TestSupport.h"

#include <memory>

namespace tamvex::test {

/// An AppState in a sandbox: manual clock, noted sounds, a temporary data folder and
/// settings file, and whatever audio input the test gives.
struct AppFixture {
    explicit AppFixture(AudioRecorder::InputFactory input = {})
        : login(env.paths.autostartEntry(), "/usr/bin/tamvex"),
          state(std::make_unique<AppState>(
              AppEnvironment{clock, *env.defaults, env.paths, sounds, login, std::move(input), &front})) {}
    TestEnv env;
    ManualClock clock;
    RecordingSounds sounds;
    AutostartLoginItem login;
    FakeFront front; ///< no window in front until a test puts one there
    std::unique_ptr<AppState> state;
};

} // namespace tamvex::test
