#pragma once

#include <QString>

namespace tamvex {

/// The number as the service takes it: "+" and the digits, a leading 8 read as 7; empty
/// when the text has no digit.
QString normalizePhone(const QString& text);

/// The phone field's display form: a Russian number (first digit 7, or 8) in the mask
/// "+7 (999) 123-45-67" with at most 11 digits, any other "+" and at most 15 digits.
QString formatPhoneInput(const QString& text);

/// The country of a normalized number for analytics: "RU", "US", the two characters after
/// "+", or "unknown".
QString phoneCountry(const QString& normalized);

/// How many digits the text holds.
int phoneDigitCount(const QString& text);

} // namespace tamvex
