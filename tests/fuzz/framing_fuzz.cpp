// A connection's bytes as the server frames them: cut into pieces anywhere,
// read piece by piece into the connection's own buffer, they make the same
// requests as when read whole (front requests one after another on a
// keep-alive connection, a page request ending it).
#include "webserver/Codecs.h"
#include "webserver/FrontRequest.h"
#include "webserver/HttpRequest.h"

#include <QList>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// The requests framed from pieces fed in turn, as the server's reading does.
QList<QByteArray> frame(const QList<QByteArrayView>& pieces, bool armed, const WebLogin& login) {
    QList<QByteArray> framed;
    QByteArray received;
    for (const QByteArrayView piece : pieces) {
        received.append(piece);
        for (;;) {
            const QByteArray target = RequestLinePath(received);
            if (target.startsWith("/api/") || target.startsWith("/m/")) {
                FrontRequest r;
                qsizetype length = 0;
                const FrontFrame f = ReadFrontRequest(received, 64 * 1024, &r, &length);
                if (f == FrontFrame::Incomplete)
                    break;
                if (f != FrontFrame::Complete) {
                    // Too large or malformed: the connection ends unserved.
                    framed << (f == FrontFrame::HeadTooLarge
                                   ? "refused"
                                   : "front " + QByteArray::number(int(f)));
                    return framed;
                }
                framed << "front " + r.method + ' ' + r.path.toUtf8() + '?' + r.query.toUtf8() +
                              ' ' + r.user.toUtf8() + ':' + r.password.toUtf8() + ' ' + r.body +
                              (r.keepAlive ? " keep" : "");
                received.remove(0, length);
                if (!r.keepAlive)
                    return framed;
                continue;
            }
            const Http::Decision d = Http::Decide(received, armed, login);
            if (d.action == Http::Action::Wait)
                break;
            framed << (d.action == Http::Action::Drop
                           ? "refused"
                           : "page " + QByteArray::number(int(d.action)) + ' ' +
                                 QByteArray::number(d.length) + ' ' + d.request.path.toUtf8() +
                                 ' ' + d.request.postBody.toUtf8());
            return framed;
        }
    }
    return framed;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4)
        return 0;
    // The first byte picks the server's state, the next three where to cut.
    WebLogin login;
    login.WebAuthOn = data[0] & 2;
    login.WebUser = u"user"_s;
    login.WebPass = u"pa:ss"_s;
    const QByteArrayView bytes(reinterpret_cast<const char*>(data) + 4, qsizetype(size - 4));
    QList<QByteArrayView> pieces;
    qsizetype from = 0;
    for (int i = 1; i < 4 && from < bytes.size(); ++i) {
        const qsizetype step = data[i] % 64 == 0 ? 1 : (data[i] * 7919) % (bytes.size() - from + 1);
        pieces << bytes.sliced(from, std::max<qsizetype>(1, std::min(step, bytes.size() - from)));
        from += pieces.last().size();
    }
    // The rest a byte at a time for short inputs, whole for long ones.
    while (from < bytes.size()) {
        const qsizetype n = bytes.size() < 600 ? 1 : bytes.size() - from;
        pieces << bytes.sliced(from, n);
        from += n;
    }
    if (frame(pieces, data[0] & 1, login) != frame({bytes}, data[0] & 1, login))
        abort();
    return 0;
}
