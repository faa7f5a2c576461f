#pragma once

#include "pipelines/OpenRouterService.h"
#include "pipelines/PipelinePreset.h"
#include "pipelines/SpeechPipeline.h"
#include "platform/Error.h"

#include <memory>
#include <optional>

namespace tamvex {

class AppState;

/// A plain error with a domain and a code, shown to the user by its text.
class DomainError : public TamvexError {
public:
    DomainError(QString domain, int code, QString text)
        : TamvexError(std::move(text)), m_domain(std::move(domain)), m_code(code) {}
    const QString& domain() const { return m_domain; }
    int code() const { return m_code; }

private:
    QString m_domain;
    int m_code;
};

/// Neither the user's own key nor a signed-in session: "Tamvex", 4.
DomainError notSignedInError();
/// The local preset without its model file: "Tamvex", -101.
DomainError modelNotDownloadedError();

/// What one dictation runs: the pipeline, and how its cloud client authenticates (none for local).
struct PipelineSetup {
    std::shared_ptr<SpeechPipeline> pipeline;
    std::optional<OpenRouterService::Mode> cloudMode;
};

/// The user's own key when it is to be used, else the signed-in session; throws notSignedInError.
OpenRouterService::Mode resolveCloudMode(const AppState& appState);
/// The cloud pipeline of `preset` (the settings' one when none), or of the user's own model
/// over their own key.
std::shared_ptr<SpeechPipeline> makeCloudPipeline(const AppState& appState, std::shared_ptr<OpenRouterService> service,
                                                  std::optional<PipelinePreset> preset = std::nullopt);
/// A new pipeline for the current settings, or for `preset` instead of the stored one (the
/// command line tries a preset without changing the setting). Throws notSignedInError or
/// modelNotDownloadedError.
PipelineSetup buildPipeline(const AppState& appState, std::optional<PipelinePreset> preset = std::nullopt);

/// The time limit of a run ran out; never reaches the user as such.
class TimeoutError : public std::exception {
public:
    const char* what() const noexcept override { return "time limit"; }
};

/// Runs `pipeline` on `path`; after `seconds` on `clock` the work in flight is aborted and,
/// once the pipeline has returned, TimeoutError is thrown. Other failures pass on.
QCoro::Task<SpeechResult> runWithTimeLimit(Clock& clock, std::shared_ptr<SpeechPipeline> pipeline, QString path,
                                           double seconds);

} // namespace tamvex
