#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace tamvex {

Q_NAMESPACE

/// How speech becomes text: three cloud presets and the local one.
enum class PipelinePreset { fast, cheap, precise, local };
Q_ENUM_NS(PipelinePreset)

namespace presets {

/// Every preset in declared order.
QList<PipelinePreset> all();
/// "fast", "cheap", "precise", "local".
QString rawValue(PipelinePreset preset);
/// The preset of a raw text, or none for an unknown text.
std::optional<PipelinePreset> fromRawValue(const QString& raw);
/// The row title in settings; also the display name in history and analytics.
QString title(PipelinePreset preset);
QString subtitle(PipelinePreset preset);
QString costLine(PipelinePreset preset);
/// Routing labels sent as model names; the local preset sends none.
QStringList routingLabels(PipelinePreset preset);
/// Temperatures of the requests, in request order.
QList<double> temperatures(PipelinePreset preset);

} // namespace presets

/// The system prompts of the requests.
namespace prompts {
/// Every single pass and the cleanup stage.
extern const QString cleanupPrompt;
/// The speech stage of the two-stage pipeline.
extern const QString verbatimPrompt;
} // namespace prompts

} // namespace tamvex
