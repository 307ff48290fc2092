#include "infrared/formats/FormatText.h"

using namespace Qt::StringLiterals;

namespace IrFormatText {

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::vector<Line> SplitLines(QByteArrayView bytes) {
    std::vector<Line> lines;
    qsizetype start = 0;
    int number = 1;
    while (start <= bytes.size()) {
        qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            end = bytes.size();
        lines.push_back({number++, bytes.sliced(start, end - start).trimmed()});
        start = end + 1;
    }
    return lines;
}

std::vector<QByteArrayView> Words(QByteArrayView line) {
    std::vector<QByteArrayView> words;
    qsizetype i = 0;
    while (i < line.size()) {
        while (i < line.size() && IsSpace(line[i]))
            ++i;
        qsizetype begin = i;
        while (i < line.size() && !IsSpace(line[i]))
            ++i;
        if (i > begin)
            words.push_back(line.sliced(begin, i - begin));
    }
    return words;
}

std::vector<QByteArrayView> Fields(QByteArrayView text, char separator) {
    std::vector<QByteArrayView> fields;
    for (;;) {
        const qsizetype end = text.indexOf(separator);
        fields.push_back((end < 0 ? text : text.first(end)).trimmed());
        if (end < 0)
            return fields;
        text = text.sliced(end + 1);
    }
}

QString At(const QString& fileName, int line, const QString& what) {
    return line > 0 ? u"%1:%2: %3"_s.arg(fileName).arg(line).arg(what)
                    : u"%1: %2"_s.arg(fileName, what);
}

QString Quote(QByteArrayView word) {
    QString text = QString::fromUtf8(word.first(std::min<qsizetype>(word.size(), 40)));
    for (QChar& c : text)
        if (!c.isPrint())
            c = u'?';
    return u"'"_s + text + (word.size() > 40 ? u"...'"_s : u"'"_s);
}

std::optional<uint64_t> Number(QByteArrayView word, uint64_t limit) {
    if (word.isEmpty() || word.size() > 20)
        return std::nullopt;
    uint64_t v = 0;
    for (char c : word) {
        if (c < '0' || c > '9')
            return std::nullopt;
        v = v * 10 + uint64_t(c - '0');
        if (v > limit)
            return std::nullopt;
    }
    return v;
}

std::optional<uint64_t> HexNumber(QByteArrayView word, uint64_t limit) {
    if (word.startsWith("0x") || word.startsWith("0X"))
        word = word.sliced(2);
    if (word.isEmpty() || word.size() > 16)
        return std::nullopt;
    uint64_t v = 0;
    for (char c : word) {
        int d = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
        if (d < 0)
            return std::nullopt;
        v = v << 4 | uint64_t(d);
    }
    if (v > limit)
        return std::nullopt;
    return v;
}

} // namespace IrFormatText
