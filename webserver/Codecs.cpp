#include "webserver/Codecs.h"

#include "core/Clock.h"
#include "core/Password.h"
#include "core/ShiftJis.h"

#include <QDateTime>

using namespace Qt::StringLiterals;

namespace {

int hexValue(QChar c) {
    char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    return -1;
}

// The CP932 code of one character, as one or two bytes. Characters CP932 does
// not hold come out as "?".
QByteArray cp932Of(QChar c) {
    if (c.unicode() < 0x80)
        return QByteArray(1, static_cast<char>(c.unicode()));
    return ShiftJis::Encode(QStringView(&c, 1));
}

// Double-byte in CP932: lead byte 0x81 or above. Half-width kana are one byte.
bool isDoubleByte(QChar c) {
    return c.unicode() >= 0x80 && cp932Of(c).size() == 2;
}

} // namespace

void URLDecodeBytes(QStringView text, QByteArray& bytes) {
    if (text.isEmpty())
        return;
    const qsizetype n = text.size();
    bytes.resize(n);
    qsizetype out = 0;
    qsizetype i = 0;
    while (i < n) {
        const QChar c = text[i];
        if (c == u'+') {
            bytes[out++] = ' ';
            ++i;
        } else if (c == u'%') {
            const int first = i + 1 < n ? hexValue(text[i + 1]) : -1;
            const int second = i + 2 < n ? hexValue(text[i + 2]) : -1;
            if (first >= 0 && second >= 0) {
                bytes[out++] = static_cast<char>(first * 16 + second);
                i += 3;
            } else if (first >= 0) {
                // "%4G" and a trailing "%4": the one good digit is the value.
                bytes[out++] = static_cast<char>(first);
                i += 2;
            } else {
                bytes[out++] = '%';
                ++i;
            }
        } else {
            const QByteArray code = cp932Of(c);
            if (code.size() == 1)
                bytes[out++] = code[0];
            ++i;
        }
    }
    if (out == 0)
        bytes.clear();
    else
        bytes.truncate(out);
}

QString DecodeValue(QStringView text) {
    QByteArray bytes;
    URLDecodeBytes(text, bytes);
    return ShiftJis::Decode(bytes);
}

QString DecodeQuery(QStringView text) {
    QString result;
    qsizetype i = 0;
    while (i < text.size()) {
        const bool doubleRun = isDoubleByte(text[i]);
        qsizetype end = i + 1;
        while (end < text.size() && isDoubleByte(text[end]) == doubleRun)
            ++end;
        QStringView run = text.sliced(i, end - i);
        if (doubleRun)
            result += run;
        else
            result += DecodeValue(run);
        i = end;
    }
    return result;
}

QString DecBase64(QStringView text) {
    auto decoded =
        QByteArray::fromBase64Encoding(text.toUtf8(), QByteArray::AbortOnBase64DecodingErrors);
    if (decoded.decodingStatus != QByteArray::Base64DecodingStatus::Ok)
        return {};
    return ShiftJis::Decode(decoded.decoded);
}

QString HtmlEscape(QStringView text) {
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'&':
            out += u"&amp;";
            break;
        case u'<':
            out += u"&lt;";
            break;
        case u'>':
            out += u"&gt;";
            break;
        case u'"':
            out += u"&quot;";
            break;
        case u'\'':
            out += u"&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

bool CheckLogon(const WebLogin& state, QStringView user, QStringView password) {
    // Both are compared, whichever is wrong.
    const bool rightUser = SameSecret(user, state.WebUser);
    return SameSecret(password, state.WebPass) && rightUser;
}

QString HttpDate(const Clock& clock, int minutes) {
    static const char* const days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    QDateTime utc = clock.now().toUTC();
    if (!utc.isValid()) // the classic zero date
        utc = QDateTime(QDate(1899, 12, 30), QTime(0, 0), Qt::UTC);
    const QDate date = utc.date();
    // The shift wraps around midnight and leaves the date alone.
    const QTime time = utc.time().addSecs(minutes % (24 * 60) * 60);
    return QString::asprintf("%s, %02d %s %04d %02d:%02d:%02d GMT", days[date.dayOfWeek() - 1],
                             date.day(), months[date.month() - 1], date.year(), time.hour(),
                             time.minute(), time.second());
}

QString AccessDeniedPage() {
    return u"<html>\r\n401.2 Access Denied\r\n</html>\r\n"_s;
}
