#include "webserver/Gzip.h"

#include <QList>

#include <zlib.h>

QByteArray Gzip(QByteArrayView bytes) {
    z_stream z{};
    // 16 over the window bits asks for the gzip wrapper.
    if (deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    QByteArray out(qsizetype(deflateBound(&z, uLong(bytes.size()))), Qt::Uninitialized);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    const int rc = deflate(&z, Z_FINISH);
    out.resize(qsizetype(z.total_out));
    deflateEnd(&z);
    return rc == Z_STREAM_END ? out : QByteArray();
}

bool AcceptsGzip(QByteArrayView acceptEncoding) {
    for (const QByteArray& item : acceptEncoding.toByteArray().toLower().split(',')) {
        const QList<QByteArray> parts = item.split(';');
        const QByteArray name = parts.first().trimmed();
        if (name != "gzip" && name != "x-gzip" && name != "*")
            continue;
        bool refused = false;
        for (qsizetype i = 1; i < parts.size(); ++i) {
            const QByteArray p = parts[i].trimmed();
            if (p.startsWith("q="))
                refused = p.mid(2).toDouble() <= 0;
        }
        return !refused;
    }
    return false;
}

bool Compressible(QByteArrayView type, qsizetype size) {
    const QByteArray t = type.toByteArray().toLower();
    return size >= 1024 &&
           (t.startsWith("text/") || t.contains("json") || t.contains("javascript") ||
            t.contains("svg") || t.contains("manifest"));
}
