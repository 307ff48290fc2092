#include "webserver/FrontRequest.h"

#include "core/ShiftJis.h"
#include "webserver/HttpRequest.h"

#include <QUrl>

using namespace Qt::StringLiterals;

QByteArray FrontRequest::header(QByteArrayView name) const {
    for (const auto& [key, value] : headers)
        if (key == name)
            return value;
    return {};
}

QByteArray RequestLinePath(QByteArrayView data) {
    const qsizetype eol = data.indexOf('\n');
    if (eol < 0)
        return {};
    const QByteArrayView line = data.first(eol);
    const qsizetype a = line.indexOf(' ');
    if (a < 0)
        return {};
    qsizetype b = line.indexOf(' ', a + 1);
    if (b < 0)
        b = line.endsWith('\r') ? line.size() - 1 : line.size();
    return line.sliced(a + 1, b - a - 1).toByteArray();
}

namespace {

QString TextOf(const QByteArray& bytes) {
    // Credentials typed on an old client come as CP932; the rest is UTF-8.
    QString text = QString::fromUtf8(bytes);
    return text.contains(QChar::ReplacementCharacter) ? ShiftJis::Decode(bytes) : text;
}

} // namespace

FrontFrame ReadFrontRequest(const QByteArray& data, qsizetype maxBody, FrontRequest* request,
                            qsizetype* length) {
    qsizetype headEnd = -1, lineEnd = data.indexOf('\n');
    // The head ends at an empty line (CRLF or a bare LF).
    for (qsizetype pos = lineEnd; pos >= 0; pos = data.indexOf('\n', pos + 1)) {
        if (pos + 1 < data.size() && data[pos + 1] == '\n') {
            headEnd = pos + 2;
            break;
        }
        if (pos + 2 < data.size() && data[pos + 1] == '\r' && data[pos + 2] == '\n') {
            headEnd = pos + 3;
            break;
        }
        if (pos > Http::MaxHeaderBytes)
            break;
    }
    if (headEnd < 0)
        return data.size() > Http::MaxHeaderBytes ? FrontFrame::HeadTooLarge
                                                  : FrontFrame::Incomplete;
    if (headEnd > Http::MaxHeaderBytes)
        return FrontFrame::HeadTooLarge;

    FrontRequest r;
    QByteArrayView line = QByteArrayView(data).first(lineEnd);
    if (line.endsWith('\r'))
        line.chop(1);
    const QList<QByteArray> parts = line.toByteArray().split(' ');
    if (parts.size() != 3 || parts[0].isEmpty() || !parts[1].startsWith('/') ||
        !parts[2].startsWith("HTTP/1."))
        return FrontFrame::Malformed;
    r.method = parts[0];
    const qsizetype q = parts[1].indexOf('?');
    const QByteArray rawPath = q < 0 ? parts[1] : parts[1].left(q);
    r.path = QUrl::fromPercentEncoding(rawPath);
    r.query = q < 0 ? QString() : QString::fromUtf8(parts[1].mid(q + 1));
    r.keepAlive = parts[2] == "HTTP/1.1";

    qint64 declared = 0;
    bool seen = false;
    for (qsizetype pos = lineEnd + 1; pos < headEnd;) {
        const qsizetype end = data.indexOf('\n', pos);
        QByteArrayView h = QByteArrayView(data).sliced(pos, end - pos);
        pos = end + 1;
        if (h.endsWith('\r'))
            h.chop(1);
        if (h.isEmpty())
            break;
        const qsizetype colon = h.indexOf(':');
        if (colon <= 0)
            return FrontFrame::Malformed;
        const QByteArray name = h.first(colon).trimmed().toByteArray().toLower();
        const QByteArray value = h.sliced(colon + 1).trimmed().toByteArray();
        if (name == "content-length") {
            bool ok = !value.isEmpty() && value.size() <= 12;
            for (char c : value)
                ok = ok && c >= '0' && c <= '9';
            if (!ok || (seen && value.toLongLong() != declared))
                return FrontFrame::Malformed;
            declared = value.toLongLong();
            seen = true;
        } else if (name == "transfer-encoding") {
            return FrontFrame::Malformed; // no client of ours sends chunks
        } else if (name == "connection") {
            const QByteArray v = value.toLower();
            if (v.contains("close"))
                r.keepAlive = false;
            else if (v.contains("keep-alive"))
                r.keepAlive = true;
        } else if (name == "authorization" && !r.hasAuthorization) {
            r.hasAuthorization = true;
            if (value.size() > 6 && value.first(6).toLower() == "basic ") {
                const QByteArray decoded = QByteArray::fromBase64(value.mid(6).trimmed());
                const qsizetype c = decoded.indexOf(':');
                if (c >= 0) {
                    r.user = TextOf(decoded.left(c));
                    r.password = TextOf(decoded.mid(c + 1));
                }
            }
        }
        r.headers.append({name, value});
    }
    if (declared > maxBody)
        return FrontFrame::BodyTooLarge;
    if (data.size() < headEnd + declared)
        return FrontFrame::Incomplete;
    r.body = data.mid(headEnd, declared);
    if (length)
        *length = headEnd + declared;
    if (request)
        *request = std::move(r);
    return FrontFrame::Complete;
}

bool FrontCrossSite(const FrontRequest& request) {
    if (request.header("sec-fetch-site").toLower() == "cross-site")
        return true;
    const QByteArray origin = request.header("origin");
    if (origin.isEmpty())
        return false;
    const QString host = QUrl(u"http://"_s + QString::fromUtf8(request.header("host"))).host();
    const QString from = QUrl(QString::fromUtf8(origin)).host();
    return from.isEmpty() || from != host;
}

QByteArray StatusText(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 301:
        return "Moved Permanently";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 409:
        return "Conflict";
    case 413:
        return "Content Too Large";
    case 415:
        return "Unsupported Media Type";
    case 421:
        return "Misdirected Request";
    case 429:
        return "Too Many Requests";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}
