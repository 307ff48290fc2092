#include "webserver/ConnectionSlot.h"
#include "webserver/FrontRequest.h"
#include "webserver/WebServer.h"

#include "core/Clock.h"
#include "webserver/Codecs.h"
#include "webserver/Gzip.h"

bool FrontReply::open() const {
    return server_ && server_->frontCurrent(index_, since_);
}

void FrontReply::Send(int status, const QByteArray& type, const QByteArray& body,
                      const QByteArray& headerLines, const QByteArray& gzipped) const {
    if (!open() || server_->slotAt(index_).streaming)
        return;
    WebServer::Slot& slot = server_->slotAt(index_);
    if (!slot.answering)
        return; // answered already
    const bool close = !slot.keepAfter || headerLines.contains("Connection: close");
    QByteArray head = "HTTP/1.1 " + QByteArray::number(status) + ' ' + StatusText(status) +
                      "\r\nServer: Kestrava1.0\r\nDate: " + HttpDate(server_->clock_).toLatin1() +
                      "\r\n";
    if (!type.isEmpty())
        head += "Content-Type: " + type + "\r\n";
    QByteArray sent = body;
    if (Compressible(type, body.size())) {
        head += "Vary: Accept-Encoding\r\n";
        const QByteArray packed = !slot.gzip          ? QByteArray()
                                  : gzipped.isEmpty() ? Gzip(body)
                                                      : gzipped;
        if (!packed.isEmpty() && packed.size() < body.size()) {
            head += "Content-Encoding: gzip\r\n";
            sent = packed;
        }
    }
    head += "Content-Length: " + QByteArray::number(sent.size()) + "\r\n";
    head += headerLines;
    if (!headerLines.contains("Connection: close"))
        head += close ? "Connection: close\r\n" : "Connection: keep-alive\r\n";
    head += "\r\n";
    slot.answering = false;
    if (std::exchange(slot.closed, nullptr) && !slot.tls)
        server_->watchReads(index_, false);
    server_->frontSend(index_, head + sent, close);
}

void FrontReply::WatchClose(std::function<void()> closed) const {
    if (!open() || !server_->slotAt(index_).answering)
        return;
    WebServer::Slot& slot = server_->slotAt(index_);
    slot.closed = std::move(closed);
    // A TLS socket tells of its end by itself; reading it now would take the
    // next request in before this one is answered.
    if (!slot.tls)
        server_->watchReads(index_, true);
}

bool FrontReply::StartStream(const QByteArray& type) const {
    if (!open())
        return false;
    WebServer::Slot& slot = server_->slotAt(index_);
    slot.streaming = true;
    slot.keepAfter = false;
    slot.answering = false;
    // The client's closing is noticed as the end of its reading side.
    server_->watchReads(index_, true);
    server_->frontSend(index_,
                       "HTTP/1.1 200 OK\r\nServer: Kestrava1.0\r\nDate: " +
                           HttpDate(server_->clock_).toLatin1() + "\r\nContent-Type: " + type +
                           "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n",
                       true);
    return open();
}

bool FrontReply::Write(const QByteArray& bytes) const {
    if (!open() || !server_->slotAt(index_).streaming)
        return false;
    // A client that reads nothing is not kept in memory without end.
    if (server_->backlog(index_) > 1024 * 1024) {
        server_->freeSlot(index_);
        return false;
    }
    server_->frontSend(index_, bytes, true);
    return open();
}

void FrontReply::Close() const {
    if (open())
        server_->freeSlot(index_);
}
