#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

namespace tamvex {

/// What a dictation was about; set after the fact by the classifier.
enum class TextCategory { docs, messages, tasks, emails, ideas, code, notes, other };

/// Every category, in declared order.
constexpr std::array<TextCategory, 8> allTextCategories{TextCategory::docs,  TextCategory::messages,
                                                        TextCategory::tasks, TextCategory::emails,
                                                        TextCategory::ideas, TextCategory::code,
                                                        TextCategory::notes, TextCategory::other};

/// The stored form ("docs", "messages", ...), used in the database, JSON and insights keys.
QString categoryRawValue(TextCategory category);
/// The category of a stored form; none for any other text.
std::optional<TextCategory> categoryFromRawValue(QStringView raw);
/// The Russian title shown in the panes.
QString categoryTitle(TextCategory category);
/// The symbol name shown beside the title.
QString categorySymbol(TextCategory category);
/// The colour of the category as a colour name ("green", "blue", ...).
QString categoryColorName(TextCategory category);

/// One dictation, successful or failed.
struct HistoryEntry {
    QUuid id;
    QDateTime createdAt;
    double durationSec = 0.0;
    QString text;
    std::optional<QString> errorMessage;
    std::optional<QString> modelUsed;
    std::optional<double> costUSD;
    std::optional<qint64> promptTokens;
    std::optional<qint64> completionTokens;
    std::optional<QString> appContext;
    std::optional<TextCategory> category;
    std::optional<QString> audioPath;

    bool operator==(const HistoryEntry&) const = default;

    /// The JSON form of the legacy history file: one key per field, ISO-8601 dates, absent optionals.
    QJsonObject toJson() const;
    /// Decodes the JSON form; none when a required key is missing or any key has a wrong type.
    static std::optional<HistoryEntry> fromJson(const QJsonObject& object);
};

/// The canonical 36-character upper-case form of a UUID.
QString uuidText(const QUuid& id);
/// Parses the 36-character hyphenated form (either case); none for anything else.
std::optional<QUuid> parseUuid(QStringView text);

/// An ISO-8601 UTC text of a date (milliseconds only when there are any).
QString isoDateText(const QDateTime& date);
/// Parses an ISO-8601 date with a zone ("Z" or an offset); an invalid date for anything else.
QDateTime parseIsoDate(const QString& text);

/// A date from seconds since 1970, to the millisecond.
QDateTime dateFromSeconds(double seconds);
/// Seconds since 1970 of a date.
double secondsSince1970(const QDateTime& date);

} // namespace tamvex

Q_DECLARE_METATYPE(tamvex::HistoryEntry)
