#pragma once

#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioTestSupport.h"
#include "desktop/TextInjector.h"
#include "support/AppFixture.h"

#include <cmath>

namespace tamvex::test {

/// A coordinator over a sandboxed AppState whose microphone plays a sine of RMS level `toneDb`
/// dBFS, `seconds` long (or a file that is missing), and whose paste goes to fake keys and clipboard.
struct CoordinatorRig {
    explicit CoordinatorRig(double toneDb = -9.0, double seconds = 10.0, bool missingFile = false)
        : fixture([this] { return std::make_unique<FileAudioInput>(fixture.clock, tonePath, 1.0); }) {
        tonePath = fixture.env.root.filePath(missingFile ? "missing.wav" : "tone.wav");
        const double amplitude = toneDb <= -160 ? 0.0 : std::sqrt(2.0) * std::pow(10.0, toneDb / 20.0);
        if (!missingFile)
            writeWav(tonePath, sine(220.0, amplitude, seconds, 16000), 16000, 1);
    }

    QString tonePath;
    AppFixture fixture;
    FakeClipboard clipboard;
    FakeKeys keys;
    FakeAccess access;
    std::unique_ptr<RecordingCoordinator> coordinator = std::make_unique<RecordingCoordinator>(
        *fixture.state, std::make_unique<TextInjector>(fixture.clock, clipboard, keys, access));
};

} // namespace tamvex::test
