#include "webserver/HttpRequest.h"

#include "core/ShiftJis.h"
#include "webserver/Codecs.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace Http {

namespace {

const QString CRLF = u"\r\n"_s;
const QString ServerLine = u"Server: Kestrava1.0\r\n"_s;

// Blanks only, as the classic Trim: line breaks stay.
QString trimSpaces(const QString& s) {
    qsizetype b = 0, e = s.size();
    while (b < e && s[b] == u' ')
        ++b;
    while (e > b && s[e - 1] == u' ')
        --e;
    return s.mid(b, e - b);
}

// Text from `from` up to the end of its line (or of the text).
QString toLineEnd(const QString& text, qsizetype from, qsizetype searchFrom) {
    qsizetype end = text.indexOf(u'\n', searchFrom);
    if (end < 0)
        end = text.size();
    else if (end > from && text[end - 1] == u'\r')
        --end;
    return from < end ? text.mid(from, end - from) : QString();
}

// Offset just past the empty line that ends the header, -1 while none has
// come, from where "\n\n" and "\n\r\n" first occur. Lines end in CRLF or, as
// RFC 9112 allows, in a bare LF.
qsizetype headerEnd(qsizetype lf, qsizetype crlf) {
    if (crlf >= 0 && (lf < 0 || crlf < lf))
        return crlf + 3;
    return lf >= 0 ? lf + 2 : -1;
}
qsizetype headerEnd(const QByteArray& data) {
    return headerEnd(data.indexOf("\n\n"), data.indexOf("\n\r\n"));
}
qsizetype headerEnd(const QString& text) {
    return headerEnd(text.indexOf(u"\n\n"), text.indexOf(u"\n\r\n"));
}

// The value of the first header line named `name` (lower case), without
// surrounding blanks; "" when there is none. found tells the two apart.
QString headerValue(const QString& text, qsizetype end, QStringView name, bool* found = nullptr) {
    qsizetype pos = text.indexOf(u'\n');
    while (pos >= 0 && pos + 1 < end) {
        const qsizetype from = pos + 1;
        const QString line = toLineEnd(text, from, from);
        const qsizetype colon = line.indexOf(u':');
        if (colon == name.size() &&
            QStringView(line).first(colon).compare(name, Qt::CaseInsensitive) == 0) {
            if (found)
                *found = true;
            return QStringView(line).sliced(colon + 1).trimmed().toString();
        }
        pos = text.indexOf(u'\n', from);
    }
    return {};
}

QString right(const QString& s, qsizetype n) {
    return s.size() <= n ? s : s.right(n);
}

// Responses whose head has no Connection line of its own end it with one.
QByteArray respond(const QString& head, const QString& body, bool closeLine = true) {
    QByteArray bytes = ShiftJis::Encode(body);
    return ShiftJis::Encode(head) + "Content-Length: " + QByteArray::number(bytes.size()) +
           (closeLine ? "\r\nContent-Type: text/html\r\nConnection: close\r\n\r\n"
                      : "\r\nContent-Type: text/html\r\n\r\n") +
           bytes;
}

} // namespace

Frame CheckFrame(const QByteArray& data, qsizetype* length) {
    const qsizetype headerBytes = headerEnd(data);
    if (headerBytes < 0)
        return data.size() > MaxHeaderBytes ? Frame::TooLarge : Frame::Incomplete;
    if (headerBytes > MaxHeaderBytes)
        return Frame::TooLarge;

    qint64 declared = 0;
    bool seen = false;
    for (qsizetype pos = 0; pos < headerBytes;) {
        const qsizetype lineEnd = data.indexOf('\n', pos);
        QByteArrayView line = QByteArrayView(data).sliced(pos, lineEnd - pos);
        if (line.endsWith('\r'))
            line.chop(1);
        pos = lineEnd + 1;
        qsizetype colon = line.indexOf(':');
        if (colon < 0 || line.first(colon).trimmed().compare("content-length", Qt::CaseInsensitive))
            continue;
        QByteArrayView value = line.sliced(colon + 1).trimmed();
        bool ok = !value.isEmpty();
        for (char c : value)
            ok = ok && c >= '0' && c <= '9';
        if (!ok || value.size() > 10)
            return value.size() > 10 && ok ? Frame::TooLarge : Frame::Malformed;
        qint64 n = value.toLongLong();
        if (seen && n != declared)
            return Frame::Malformed;
        declared = n;
        seen = true;
    }
    if (declared > MaxBodyBytes)
        return Frame::TooLarge;
    if (data.size() < headerBytes + declared)
        return Frame::Incomplete;
    if (length)
        *length = headerBytes + declared;
    return Frame::Complete;
}

Request ParseRequest(const QString& text) {
    Request r;
    r.text = text;
    const QString lower = text.toLower();

    const qsizetype end = headerEnd(text);

    // Only the Host line counts: a host named anywhere else (the path, another
    // header) would send our redirect wherever a link's author likes. A value
    // with control characters could split the response header; it is ignored.
    r.host = headerValue(text, end < 0 ? text.size() : end, u"host", &r.hasHost);
    for (QChar c : std::as_const(r.host))
        if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
            r.host.clear();
            break;
        }

    qsizetype a = lower.indexOf(u"authorization:"_s);
    r.hasAuthorization = a >= 0;
    if (a >= 0) {
        qsizetype b = lower.indexOf(u"basic"_s, a);
        if (b >= 0) {
            QString decoded = DecBase64(trimSpaces(toLineEnd(text, b + 5, b + 5)));
            qsizetype colon = decoded.indexOf(u':');
            if (colon >= 0) {
                r.user = decoded.left(colon);
                r.password = decoded.mid(colon + 1);
            }
        }
    }

    auto pathBehind = [&](const QString& word) {
        qsizetype w = lower.indexOf(word);
        if (w < 0)
            return QString();
        qsizetype from = w + word.size();
        qsizetype end = from;
        while (end < text.size() && text[end] != u' ' && text[end] != u'\r' && text[end] != u'\n')
            ++end;
        return trimSpaces(text.mid(from, end - from));
    };
    if (lower.startsWith(u"get"_s)) {
        r.path = pathBehind(u"get "_s);
    } else if (lower.startsWith(u"post"_s)) {
        r.path = pathBehind(u"post "_s);
        if (end >= 0)
            r.postBody = trimSpaces(text.mid(end));
    }
    return r;
}

bool FromAnotherSite(const Request& r) {
    const qsizetype end = headerEnd(r.text);
    const qsizetype headerBytes = end < 0 ? r.text.size() : end;
    if (headerValue(r.text, headerBytes, u"sec-fetch-site")
            .compare(u"cross-site", Qt::CaseInsensitive) == 0)
        return true;
    const QString host = QUrl(u"http://"_s + r.host).host();
    for (const QStringView name : {u"origin", u"referer"}) {
        const QString value = headerValue(r.text, headerBytes, name);
        if (value.isEmpty())
            continue;
        const QString from = QUrl(value).host();
        if (from.isEmpty() || from != host)
            return true;
    }
    return false;
}

Route ClassifyPath(const QString& path, bool redirectArmed) {
    const QString lower = path.toLower();
    const QString last3 = right(lower, 3);
    const bool dotless = !right(path, 4).contains(u'.');
    const qsizetype asp = lower.indexOf(u".asp"_s);
    const qsizetype query = path.indexOf(u'?');
    if (last3 == u"asp" || last3 == u"htm" || (asp >= 0 && query == asp + 4))
        return Route::Page;
    // The help pages are files by their own names, ".html" too.
    if (path.startsWith(u"/help/") && path.section(u'/', -1).contains(u'.'))
        return Route::File;
    if (dotless)
        return redirectArmed ? Route::Page : Route::Redirect;
    return Route::File;
}

Decision Decide(const QByteArray& received, bool redirectArmed, const WebLogin& state) {
    Decision d;
    switch (CheckFrame(received, &d.length)) {
    case Frame::Incomplete:
        d.action = Action::Wait;
        return d;
    case Frame::TooLarge:
    case Frame::Malformed:
        d.action = Action::Drop;
        return d;
    case Frame::Complete:
        break;
    }
    d.request = ParseRequest(ShiftJis::Decode(QByteArrayView(received).first(d.length)));
    if (state.WebAuthOn &&
        (!d.request.hasAuthorization || !CheckLogon(state, d.request.user, d.request.password))) {
        d.action = Action::Refuse;
        return d;
    }
    switch (ClassifyPath(d.request.path, redirectArmed)) {
    case Route::Page:
        d.action = Action::Page;
        break;
    case Route::Redirect:
        d.action = Action::Redirect;
        break;
    case Route::File:
        d.action = Action::File;
        break;
    }
    return d;
}

QByteArray PageResponse(const QString& html, const QString& date) {
    return respond(u"HTTP/1.1 200 OK\r\n"_s + ServerLine + u"Date: "_s + date + CRLF, html);
}

QByteArray RedirectResponse(const QString& host) {
    return respond(u"HTTP/1.1 302 Object Moved\r\nLocation: http://"_s + host + CRLF + ServerLine,
                   u"<head><title>Document Moved</title></head>"
                   u"<body><h1>Object Moved</h1>This document may be found "
                   u"<a HREF=\"http://\">here</a></body>"_s);
}

QByteArray AccessDeniedResponse(const QString& body, const QString& date) {
    return respond(u"HTTP/1.1 401 Access Denied\r\n"_s + ServerLine + u"Date: "_s + date + CRLF +
                       u"WWW-Authenticate: Basic realm=\""_s + QLatin1StringView(Realm) +
                       u"\"\r\n"
                       u"Connection: Close\r\n"_s,
                   body, false);
}

QByteArray FileNotFoundResponse(const QString& date) {
    return respond(u"HTTP/1.1 404 Object Not Found\r\n"_s + ServerLine + u"Date: "_s + date +
                       u"\r\nConnection: Close\r\n"_s,
                   u"<html>\r\n404 Not Found\r\n</html>\r\n"_s, false);
}

QByteArray ForbiddenResponse(const QString& date) {
    return respond(u"HTTP/1.1 403 Forbidden\r\n"_s + ServerLine + u"Date: "_s + date + CRLF,
                   u"<html>\r\n403 Forbidden\r\n</html>\r\n"_s);
}

QByteArray MisdirectedResponse(const QString& date) {
    return respond(u"HTTP/1.1 421 Misdirected Request\r\n"_s + ServerLine + u"Date: "_s + date +
                       CRLF,
                   u"<html>\r\n421 Misdirected Request\r\n</html>\r\n"_s);
}

QByteArray TooManyResponse(int retryAfter, const QString& date) {
    return respond(u"HTTP/1.1 429 Too Many Requests\r\n"_s + ServerLine + u"Date: "_s + date +
                       u"\r\nRetry-After: "_s + QString::number(retryAfter) + CRLF,
                   u"<html>\r\n429 Too Many Requests\r\n</html>\r\n"_s);
}

QByteArray FileResponseHead(qint64 size, qint64 start, const QString& typeLines,
                            const QString& date) {
    QString head = start == 0
                       ? u"HTTP/1.1 200 OK\r\n"_s + ServerLine + u"Date: "_s + date +
                             u"\r\nContent-Length: "_s + QString::number(size) + CRLF
                       : u"HTTP/1.1 206 Partial content\r\n"_s + ServerLine + u"Date: "_s + date +
                             u"\r\nContent-Length: "_s + QString::number(size - start) +
                             u"\r\nContent-Range: bytes "_s + QString::number(start) + u"-"_s +
                             QString::number(size - 1) + u"/"_s + QString::number(size) + CRLF;
    return (head + typeLines + u"Connection: close\r\n\r\n"_s).toLatin1();
}

QByteArray RangeNotSatisfiableResponse(qint64 size, const QString& date) {
    return ShiftJis::Encode(u"HTTP/1.1 416 Requested Range Not Satisfiable\r\n"_s + ServerLine +
                            u"Date: "_s + date + u"\r\nContent-Range: bytes */"_s +
                            QString::number(size) +
                            u"\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"_s);
}

} // namespace Http
