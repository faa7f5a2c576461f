#include "history/Words.h"

#include <QChar>

namespace tamvex {

bool isWordSeparator(char32_t c) {
    if (c < 0x80)
        return c == u' ' || (c >= 0x09 && c <= 0x0D);
    // Qt's notion of space is the Separator categories plus U+0085: exactly the blanks and line breaks.
    return QChar::isSpace(c);
}

qint64 countWords(QStringView text) {
    qint64 words = 0;
    bool inWord = false;
    // Every separator lies in the BMP, so UTF-16 units can be tested one by one.
    for (const QChar ch : text) {
        const bool separator = isWordSeparator(ch.unicode());
        if (!separator && !inWord)
            ++words;
        inWord = !separator;
    }
    return words;
}

void forEachLetterRun(QStringView text, qsizetype minLength, const std::function<void(const QString&)>& visit) {
    const QString lower = text.toString().toLower();
    const qsizetype n = lower.size();
    qsizetype start = -1;
    qsizetype characters = 0;
    auto flush = [&](qsizetype end) {
        if (start >= 0 && characters > minLength)
            visit(lower.mid(start, end - start));
        start = -1;
        characters = 0;
    };
    for (qsizetype i = 0; i < n;) {
        char32_t c = lower[i].unicode();
        qsizetype width = 1;
        if (QChar::isHighSurrogate(c) && i + 1 < n && lower[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(lower[i], lower[i + 1]);
            width = 2;
        }
        bool letter;
        bool mark = false;
        if (c < 0x80) {
            letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        } else {
            mark = QChar::isMark(c);
            letter = mark || QChar::isLetter(c);
        }
        if (letter) {
            if (start < 0)
                start = i;
            // A combining mark belongs to the character before it, as the user sees it.
            if (!mark || characters == 0)
                ++characters;
        } else {
            flush(i);
        }
        i += width;
    }
    flush(n);
}

} // namespace tamvex
