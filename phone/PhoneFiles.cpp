#include "phone/PhoneFiles.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace Phone {

namespace {

struct Served {
    const char* name;
    const char* type;
};

constexpr Served Files[] = {
    {"index.html", "text/html; charset=utf-8"},
    {"app.css", "text/css; charset=utf-8"},
    {"app.js", "text/javascript; charset=utf-8"},
    {"manifest.webmanifest", "application/manifest+json"},
    {"icon-192.png", "image/png"},
    {"icon-512.png", "image/png"},
};

// Everything the page uses comes from here; nothing may frame it.
const QByteArray Policy = "Content-Security-Policy: default-src 'self'; img-src 'self' data:; "
                          "frame-ancestors 'none'; base-uri 'none'; form-action 'none'\r\n"
                          "X-Content-Type-Options: nosniff\r\n"
                          "Referrer-Policy: same-origin\r\n";

QByteArray head(const char* status, const QString& date) {
    return QByteArray("HTTP/1.1 ") + status +
           "\r\nServer: Kestrava1.0\r\nDate: " + date.toLatin1() + "\r\n";
}

QByteArray plain(const char* status, const QString& date, const QByteArray& extra,
                 const QByteArray& body) {
    return head(status, date) + extra + "Content-Type: text/plain; charset=utf-8\r\n" +
           "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}

} // namespace

bool IsPhonePath(const QString& path) {
    const QStringView bare = QStringView(path).left(path.indexOf(u'?'));
    return bare == u"/m" || bare.startsWith(u"/m/");
}

QByteArray Response(const QString& path, const QString& date) {
    const QString bare = path.left(path.indexOf(u'?'));
    if (bare == u"/m")
        return plain("301 Moved Permanently", date, "Location: /m/\r\n", "/m/\n");
    QString name = bare.mid(3);
    if (name.isEmpty())
        name = u"index.html"_s;
    for (const Served& f : Files) {
        if (name != QLatin1StringView(f.name))
            continue;
        QFile file(u":/phone/"_s + name);
        if (!file.open(QIODevice::ReadOnly))
            break;
        const QByteArray body = file.readAll();
        // Always asked again, so a new version of the program is seen at once.
        return head("200 OK", date) + Policy + "Content-Type: " + f.type +
               "\r\nCache-Control: no-cache\r\nContent-Length: " + QByteArray::number(body.size()) +
               "\r\nConnection: close\r\n\r\n" + body;
    }
    return plain("404 Not Found", date, {}, "404 Not Found\n");
}

} // namespace Phone
