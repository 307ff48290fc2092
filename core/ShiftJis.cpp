#include "core/ShiftJis.h"

#include <algorithm>

#include <cerrno>
#include <iconv.h>
#include <vector>

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

// The CP932 code of one BMP character ("?" when it has none), looked up once
// and kept: a page is mostly the same few hundred characters, and iconv per
// character costs far more than the table.
quint32 cp932Code(char16_t u) {
    static std::vector<quint32> known(0x10000, 0); // code + 1, 0 while unknown
    quint32& slot = known[u];
    if (slot == 0) {
        quint32 code = '?';
        Converter& c = toCp932();
        const QByteArray utf8 = QStringView(&u, 1).toUtf8();
        QByteArray bytes;
        const char* in = utf8.constData();
        size_t left = size_t(utf8.size());
        if (!c.valid())
            code = u <= 0xFF ? u : '?';
        else if (c.run(in, left, bytes) == 0 && (bytes.size() == 1 || bytes.size() == 2))
            code = bytes.size() == 1 ? quint8(bytes[0]) : quint8(bytes[0]) << 8 | quint8(bytes[1]);
        slot = code + 1;
    }
    return slot - 1;
}

} // namespace

namespace ShiftJis {

QByteArray Encode(QStringView text) {
    QByteArray out(text.size() * 2, Qt::Uninitialized);
    char* o = out.data();
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        if (u < 0x80) {
            *o++ = char(u);
        } else if (QChar::isSurrogate(u)) {
            // CP932 holds nothing beyond the BMP: one "?" for a pair or a stray half.
            *o++ = '?';
            if (QChar::isHighSurrogate(u) && i + 1 < text.size() && text[i + 1].isLowSurrogate())
                ++i;
        } else {
            const quint32 code = cp932Code(u);
            if (code > 0xFF)
                *o++ = char(code >> 8);
            *o++ = char(code & 0xFF);
        }
    }
    out.truncate(o - out.constData());
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
    // CP932 keeps every ASCII character as it is; lists ask this of thousands of names.
    if (std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; }))
        return text.toString();
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
