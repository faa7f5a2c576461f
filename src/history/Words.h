#pragma once

#include <QString>
#include <QStringView>

#include <functional>

namespace tamvex {

/// True for white space and line breaks (U+0009 to U+000D, U+0085, U+2028, U+2029, the blanks).
bool isWordSeparator(char32_t codePoint);

/// The number of characters as a reader counts them (grapheme clusters): an emoji, or a
/// letter with a combining accent, is one.
qsizetype countCharacters(const QString& text);
/// The first `n` characters of `text`, never half of one.
QString leftCharacters(const QString& text, qsizetype n);

/// The number of words: pieces left after splitting at white space and line breaks, empties dropped.
qint64 countWords(QStringView text);
/// countWords over UTF-8 bytes, for text straight from the database.
qint64 countWordsUtf8(const char* data, qsizetype size);

/// The number of maximal runs of letters and digits (combining marks stay in their run);
/// every other character separates.
qint64 countLetterDigitRuns(QStringView text);

/// Calls `visit` for each run of letters (Unicode L and M) longer than `minLength` characters;
/// every other character, digits included, splits. The caller lower-cases the text first.
void forEachLetterRun(QStringView text, qsizetype minLength, const std::function<void(QStringView)>& visit);

} // namespace tamvex
