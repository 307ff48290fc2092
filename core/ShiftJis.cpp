#include "core/ShiftJis.h"

#include <cerrno>
#include <iconv.h>

namespace {

// One descriptor per direction for the life of the process: iconv_open is far
// more expensive than a conversion, and the program has one thread.
class Converter {
public:
    Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
    ~Converter() {
        if (valid())
            iconv_close(cd_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

    // Converts as much as possible; returns the errno that stopped it (0 when done).
    int run(const char*& in, size_t& inLeft, QByteArray& out) {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        char buf[1024];
        while (inLeft > 0) {
            char* o = buf;
            size_t oLeft = sizeof buf;
            size_t r = iconv(cd_, const_cast<char**>(&in), &inLeft, &o, &oLeft);
            out.append(buf, o - buf);
            if (r == static_cast<size_t>(-1) && errno != E2BIG)
                return errno;
        }
        return 0;
    }

private:
    iconv_t cd_;
};

Converter& toCp932() {
    static Converter c("CP932", "UTF-8");
    return c;
}

Converter& fromCp932() {
    static Converter c("UTF-8", "CP932");
    return c;
}

bool isAscii(const char* p, qsizetype n) {
    for (qsizetype i = 0; i < n; ++i)
        if (static_cast<unsigned char>(p[i]) >= 0x80)
            return false;
    return true;
}

// Length of the UTF-8 sequence that starts with lead byte c (1 for stray bytes).
size_t utf8SequenceLength(unsigned char c) {
    if (c >= 0xF0)
        return 4;
    if (c >= 0xE0)
        return 3;
    if (c >= 0xC0)
        return 2;
    return 1;
}

} // namespace

namespace ShiftJis {

QByteArray Encode(QStringView text) {
    QByteArray utf8 = text.toUtf8();
    if (isAscii(utf8.constData(), utf8.size()))
        return utf8;
    QByteArray out;
    out.reserve(utf8.size());
    Converter& c = toCp932();
    if (!c.valid())
        return text.toLatin1();
    const char* in = utf8.constData();
    size_t left = static_cast<size_t>(utf8.size());
    while (c.run(in, left, out) != 0) {
        // An unmappable (or, after toUtf8, impossible) character: one "?" for it.
        size_t skip = std::min(left, utf8SequenceLength(static_cast<unsigned char>(*in)));
        out.append('?');
        in += skip;
        left -= skip;
    }
    return out;
}

QString Decode(QByteArrayView bytes) {
    if (isAscii(bytes.data(), bytes.size()))
        return QString::fromLatin1(bytes);
    QByteArray out;
    out.reserve(bytes.size() * 3 / 2);
    Converter& c = fromCp932();
    if (!c.valid())
        return QString::fromLatin1(bytes);
    const char* in = bytes.data();
    size_t left = static_cast<size_t>(bytes.size());
    while (c.run(in, left, out) != 0) {
        // EILSEQ or a lead byte cut off at the end (EINVAL): drop one byte.
        out.append("\xEF\xBF\xBD");
        ++in;
        --left;
    }
    return QString::fromUtf8(out);
}

QString RoundTrip(QStringView text) {
    return Decode(Encode(text));
}

QString Unmappable(QStringView text) {
    QString out;
    for (qsizetype i = 0; i < text.size();) {
        const qsizetype n = text[i].isHighSurrogate() && i + 1 < text.size() ? 2 : 1;
        const QStringView c = text.sliced(i, n);
        i += n;
        if (c[0].unicode() < 0x80 || Encode(c) != "?")
            continue;
        if (!out.contains(c))
            out += c;
    }
    return out;
}

qsizetype ByteLength(QStringView text) {
    bool ascii = true;
    for (QChar ch : text)
        if (ch.unicode() >= 0x80) {
            ascii = false;
            break;
        }
    return ascii ? text.size() : Encode(text).size();
}

} // namespace ShiftJis

QString WideSpaces(int n) {
    return n > 0 ? QString(n, QChar(0x3000)) : QString();
}
