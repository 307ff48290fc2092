#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

class Clock;

// Small text conversions of the web server. Request text is CP932 decoded to
// QString; browsers and phones mix percent escapes and raw double-byte text.

// Percent and "+" decoding to bytes. Malformed escapes decay to a literal "%"
// or a one-digit value; a character beyond one byte in CP932 is dropped.
// Leaves bytes untouched when text is empty.
void URLDecodeBytes(QStringView text, QByteArray& bytes);

// A whole value: URLDecodeBytes, then the bytes read as CP932.
QString DecodeValue(QStringView text);

// Runs of double-byte characters are kept as they stand; runs of other
// characters are decoded as whole values.
QString DecodeQuery(QStringView text);

// Standard Base64, the bytes read as CP932; "" on bad input.
QString DecBase64(QStringView text);

// Text for a page: & < > " ' become entities, everything else stays, so an
// ordinary name comes out as it went in.
QString HtmlEscape(QStringView text);

// The web login in memory: whether one is asked for, and which.
struct WebLogin {
    bool WebAuthOn = false;
    QString WebUser;
    QString WebPass;
};

// The web server's user and password, compared exactly and in constant time.
bool CheckLogon(const WebLogin& state, QStringView user, QStringView password);

// "Sat, 21 Nov 2026 08:00:00 GMT"; minutes moves the time of day only.
QString HttpDate(const Clock& clock, int minutes = 0);

// Body of the 401 response.
QString AccessDeniedPage();
