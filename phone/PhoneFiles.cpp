#include "phone/PhoneFiles.h"

#include "webserver/FrontRequest.h"
#include "webserver/Gzip.h"

#include <QFile>

#include <memory>

using namespace Qt::StringLiterals;

namespace Phone {

namespace {

struct File {
    QString name;
    QByteArray type;
    QByteArray body;
    QByteArray gzip; // made once; "" where it would not pay
};

// Everything the page uses comes from here; nothing may frame it. Always asked
// again, so a new version of the program is seen at once.
const QByteArray Headers = "Content-Security-Policy: default-src 'self'; img-src 'self' data:; "
                           "frame-ancestors 'none'; base-uri 'none'; form-action 'none'\r\n"
                           "X-Content-Type-Options: nosniff\r\n"
                           "Referrer-Policy: same-origin\r\n"
                           "Cache-Control: no-cache\r\n";

std::vector<File> readFiles() {
    const std::pair<const char16_t*, const char*> names[] = {
        {u"index.html", "text/html; charset=utf-8"},
        {u"app.css", "text/css; charset=utf-8"},
        {u"app.js", "text/javascript; charset=utf-8"},
        {u"climate.js", "text/javascript; charset=utf-8"},
        {u"remote.js", "text/javascript; charset=utf-8"},
        {u"reserve.js", "text/javascript; charset=utf-8"},
        {u"scenes.js", "text/javascript; charset=utf-8"},
        {u"sw.js", "text/javascript; charset=utf-8"},
        {u"manifest.webmanifest", "application/manifest+json"},
        {u"icon-192.png", "image/png"},
        {u"icon-512.png", "image/png"},
    };
    std::vector<File> files;
    for (const auto& [name, type] : names) {
        QFile file(u":/phone/"_s + QString::fromUtf16(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray body = file.readAll();
        files.push_back({QString::fromUtf16(name), type, body,
                         Compressible(type, body.size()) ? Gzip(body) : QByteArray()});
    }
    return files;
}

} // namespace

FrontRoute Route() {
    FrontRoute route;
    route.prefix = u"/m/"_s;
    route.maxBody = 0; // nothing is sent to the page's files
    auto files = std::make_shared<const std::vector<File>>(readFiles());
    route.handler = [files](const FrontRequest& request, const FrontReply& reply) {
        if (request.method != "GET")
            return reply.Send(405, "text/plain; charset=utf-8", "405 Method Not Allowed\n",
                              "Allow: GET\r\n");
        QString name = request.path.mid(3);
        if (name.isEmpty())
            name = u"index.html"_s;
        for (const File& f : *files)
            if (f.name == name)
                return reply.Send(200, f.type, f.body, Headers, f.gzip);
        reply.Send(404, "text/plain; charset=utf-8", "404 Not Found\n");
    };
    return route;
}

} // namespace Phone
