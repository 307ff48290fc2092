#include "core/NameText.h"

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
