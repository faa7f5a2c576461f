#include "history/Words.h"

#include <QChar>
#include <QTextBoundaryFinder>

#include <array>

namespace tamvex {

namespace {
inline bool separator(char32_t c) {
    if (c < 0x80)
        return c == u' ' || (c >= 0x09 && c <= 0x0D);
    // No blank lies between U+00A1 and U+167F: most text (Cyrillic included) never reaches Qt's tables.
    if (c < 0x1680)
        return c == 0x85 || c == 0xA0;
    // Qt's notion of space is the Separator categories plus U+0085: exactly the blanks and line breaks.
    return QChar::isSpace(c);
}
} // namespace

bool isWordSeparator(char32_t c) { return separator(c); }

qsizetype countCharacters(const QString& text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

QString leftCharacters(const QString& text, qsizetype n) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype taken = 0; taken < n; ++taken)
        if (finder.toNextBoundary() == -1)
            return text;
    return text.left(finder.position());
}

qint64 countWords(QStringView text) {
    qint64 words = 0;
    bool inWord = false;
    // Every separator lies in the BMP, so UTF-16 units can be tested one by one.
    for (const QChar ch : text) {
        const bool blank = separator(ch.unicode());
        words += !blank && !inWord;
        inWord = !blank;
    }
    return words;
}

qint64 countWordsUtf8(const char* data, qsizetype size) {
    // Per byte: 1 for an ASCII blank, 2 for a lead byte whose sequences can be blanks
    // (C2 for U+0085 and U+00A0, E1–E3 for U+1680 and U+2000–U+3000), 0 for the rest.
    // Any other byte, continuation bytes included, is part of a non-blank character, and
    // inside a word one such character more or less changes no count.
    static constexpr auto kinds = [] {
        std::array<unsigned char, 256> k{};
        for (int b : {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x20})
            k[size_t(b)] = 1;
        for (int b : {0xC2, 0xE1, 0xE2, 0xE3})
            k[size_t(b)] = 2;
        return k;
    }();
    const auto* p = reinterpret_cast<const unsigned char*>(data);
    const auto* end = p + size;
    qint64 words = 0;
    bool inWord = false;
    while (p < end) {
        const unsigned char lead = *p++;
        bool blank = kinds[lead] == 1;
        if (kinds[lead] == 2) {
            char32_t c = lead >= 0xE0 ? lead & 0x0F : lead & 0x1F;
            // A malformed sequence ends early and reads as some non-blank character.
            for (int extra = lead >= 0xE0 ? 2 : 1; extra > 0 && p < end && (*p & 0xC0) == 0x80; --extra, ++p)
                c = (c << 6) | (*p & 0x3F);
            blank = separator(c);
        }
        words += !blank && !inWord;
        inWord = !blank;
    }
    return words;
}

namespace {

// The code point at `i`, a surrogate pair taken whole; `width` is how many QChars it spans.
char32_t codePointAt(QStringView text, qsizetype i, qsizetype& width) {
    const char32_t c = text[i].unicode();
    width = 1;
    if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
        width = 2;
        return QChar::surrogateToUcs4(text[i], text[i + 1]);
    }
    return c;
}

} // namespace

qint64 countLetterDigitRuns(QStringView text) {
    qint64 runs = 0;
    bool inRun = false;
    qsizetype width = 1;
    for (qsizetype i = 0; i < text.size(); i += width) {
        const char32_t c = codePointAt(text, i, width);
        if (QChar::isLetterOrNumber(c)) {
            runs += inRun ? 0 : 1;
            inRun = true;
        } else if (!(inRun && QChar::isMark(c))) {
            inRun = false; // a decomposed "й" keeps its breve inside the word
        }
    }
    return runs;
}

void forEachLetterRun(QStringView text, qsizetype minLength, const std::function<void(QStringView)>& visit) {
    const qsizetype n = text.size();
    qsizetype start = -1;
    qsizetype characters = 0;
    auto flush = [&](qsizetype end) {
        if (start >= 0 && characters > minLength)
            visit(text.sliced(start, end - start));
        start = -1;
        characters = 0;
    };
    for (qsizetype i = 0; i < n;) {
        qsizetype width = 1;
        const char32_t c = codePointAt(text, i, width);
        bool letter;
        bool mark = false;
        if (c < 0x80) {
            letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        } else if (c >= 0x0400 && c <= 0x04FF) {
            // The Cyrillic block: letters, combining marks at U+0483–U+0489, and one sign.
            mark = c >= 0x0483 && c <= 0x0489;
            letter = c != 0x0482;
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
