#include "core/Password.h"

#include <QCryptographicHash>

#include <array>

namespace {

// Fixed for good: passwords stored by any version must read back.
constexpr std::array<const char*, 128> Tokens = {
    "o>LU", "y0T/", "!@:W", "U<<x", "W^UU", "y4H`", "/h0R", "91FC", "X!Un", "~c(D", "Bz>6", "J{{X",
    "XZcv", "fcJn", "'ExH", "goh^", "ig4k", "wW/^", "5gTP", "2@PA", "J!u^", "XiPQ", "(hq7", "`{us",
    "6npm", "hEj2", "U.YO", "HvI(", "*xG<", "|{gx", "t4ik", "yPO-", "Jk/*", "Pp}-", "B,zo", "D*)B",
    "ZFD<", "~lq<", "ONK>", "n0m4", "su{h", "KQCp", "eoFA", "Jb3~", "zF$u", ">HNE", "RLCx", "ZX-t",
    "(7mG", "cmXw", "|LZ/", "rVEr", "QIN,", "y0qc", "g)Kg", "xQb5", "/X>5", "oz~f", "8'jX", "G}ln",
    "3bM3", "R4^N", ",Vq!", "JNkG", "riAz", "V^Nk", "wiUd", "@FSP", "OCCN", "epS!", "F95'", "|pfT",
    "mBI}", "qMZ.", "eC8!", "f82^", ",Q>i", "pTVG", "B.aL", "INGZ", "!`8Q", "d`mv", "@i)-", "|y'}",
    "r_I<", "S*_q", "3J,e", ">qy5", "1Svg", "`Ozm", "@7$r", ",RPi", "CeR8", "`}e!", "$>)X", "QZcE",
    "H!<W", "l_(H", "*hFs", "$01J", "g|OF", "s/uj", "{9{e", ".4<N", "kljX", "E}9g", "KcKK", "es'g",
    "O1Hz", "jGny", "jkn,", "CO'O", "w`{f", "TGE!", "S690", "2-N|", "D*Zu", "6(Aw", "aPzI", "__b<",
    "v(P5", ")Bsh", "Sz49", "'5HP", "Ev`>", "|Dvo", ")jV,", "_N2'",
};

} // namespace

bool IsStorablePassword(QStringView text) {
    for (QChar c : text)
        if (c.unicode() > 127)
            return false;
    return true;
}

QString ScramblePassword(QStringView mode, QStringView text) {
    const QString m = mode.toString().toUpper();
    QString out;
    if (m == u"SET") {
        if (!IsStorablePassword(text))
            return {};
        out.reserve(text.size() * 4);
        for (QChar c : text)
            out += QLatin1StringView(Tokens[c.unicode()]);
    } else if (m == u"RESET") {
        for (qsizetype i = 0; i + 4 <= text.size(); i += 4) {
            QStringView piece = text.sliced(i, 4);
            for (size_t k = 0; k < Tokens.size(); ++k)
                if (piece == QLatin1StringView(Tokens[k])) {
                    out += QChar(char16_t(k));
                    break;
                }
        }
    }
    return out;
}

bool SameSecret(QStringView given, QStringView expected) {
    // Digests of equal length, compared to the last byte.
    auto digest = [](QStringView text) {
        return QCryptographicHash::hash(
            QByteArrayView(reinterpret_cast<const char*>(text.utf16()), text.size() * 2),
            QCryptographicHash::Sha256);
    };
    const QByteArray a = digest(given), b = digest(expected);
    volatile unsigned char diff = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        diff = diff | (a[i] ^ b[i]);
    return diff == 0;
}
