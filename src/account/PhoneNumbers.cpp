#include "account/PhoneNumbers.h"

namespace tamvex {

namespace {
// Every character that counts as a number (Arabic-Indic digits too), as its ASCII digit.
QString digitsOf(const QString& text) {
    QString digits;
    for (const QChar c : text) {
        const int value = c.digitValue();
        if (value >= 0)
            digits += QChar(u'0' + value);
    }
    if (digits.startsWith(u'8'))
        digits[0] = u'7';
    return digits;
}
} // namespace

QString normalizePhone(const QString& text) {
    const QString digits = digitsOf(text);
    return digits.isEmpty() ? QString() : QStringLiteral("+") + digits;
}

QString formatPhoneInput(const QString& text) {
    const QString all = digitsOf(text);
    if (all.isEmpty())
        return {};
    if (!all.startsWith(u'7'))
        return QStringLiteral("+") + all.left(15);
    const QString d = all.left(11);
    const qsizetype n = d.size();
    QString out = QStringLiteral("+7");
    if (n >= 2)
        out += QStringLiteral(" (") + d.mid(1, 3);
    if (n >= 4)
        out += u')';
    if (n > 4)
        out += u' ' + d.mid(4, 3);
    if (n >= 8)
        out += u'-' + d.mid(7, 2);
    if (n >= 10)
        out += u'-' + d.mid(9, 2);
    return out;
}

QString phoneCountry(const QString& normalized) {
    if (normalized.startsWith(QLatin1String("+7")))
        return QStringLiteral("RU");
    if (normalized.startsWith(QLatin1String("+1")))
        return QStringLiteral("US");
    if (normalized.startsWith(u'+'))
        return normalized.mid(1, 2);
    return QStringLiteral("unknown");
}

int phoneDigitCount(const QString& text) {
    int count = 0;
    for (const QChar c : text)
        count += c.digitValue() >= 0 ? 1 : 0;
    return count;
}

} // namespace tamvex
