#include "core/NameText.h"

#include <algorithm>
#include <iterator>

bool HasControlOrBrokenChar(QStringView text) {
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x20 || (c >= 0x7f && c <= 0x9f))
            return true;
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() &&
            QChar::isLowSurrogate(text[i + 1].unicode())) {
            ++i;
            continue;
        }
        if (QChar::isSurrogate(c))
            return true;
    }
    return false;
}

QString FileNameOf(QStringView name, bool whole) {
    QString out;
    out.reserve(name.size() + 1);
    for (QChar c : name) {
        const char16_t u = c.unicode();
        const bool bad = u < 0x20 || u == 0x7f || (u >= 0x80 && u <= 0x9f) ||
                         QStringView(u"/\\:*?\"<>|").contains(c);
        out += bad ? u'_' : c;
    }
    if (!whole)
        return out;
    for (qsizetype i = 0; i < out.size() && out[i] == u'.'; ++i)
        out[i] = u'_';
    if (out.isEmpty())
        return QStringLiteral("_");
    // Windows and Samba refuse these as names whatever follows the first dot.
    const QString stem = out.section(u'.', 0, 0).trimmed().toUpper();
    constexpr QStringView reserved[]{u"CON", u"PRN", u"AUX", u"NUL"};
    const bool numbered = stem.size() == 4 &&
                          (stem.startsWith(u"COM") || stem.startsWith(u"LPT")) && stem[3] >= u'1' &&
                          stem[3] <= u'9';
    if (numbered || std::find(std::begin(reserved), std::end(reserved), stem) != std::end(reserved))
        out.prepend(u'_');
    return out;
}
