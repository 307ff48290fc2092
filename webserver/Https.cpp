#include "webserver/ConnectionSlot.h"
#include "webserver/WebServer.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QSslKey>
#include <QUrl>

#include <algorithm>
#include <unistd.h>

using namespace Qt::StringLiterals;

void WebServer::SetTlsConfiguration(const QSslConfiguration& configuration) {
    tls_ = configuration;
    tls_.setProtocol(QSsl::TlsV1_2OrLater);
    tls_.setPeerVerifyMode(QSslSocket::VerifyNone);
    // Clients are not asked for certificates: without this each connection's
    // context would load every root certificate of the system.
    tls_.setCaCertificates({});
    hasTls_ = !tls_.localCertificate().isNull() && !tls_.privateKey().isNull();
    if (started_)
        listenHttps();
}

quint16 WebServer::HttpsPort() const {
    return httpsServer_.isListening() ? httpsServer_.serverPort() : 0;
}

// The HTTPS port is the owner's alone: nothing is stored, nothing replaces it.
void WebServer::listenHttps() {
    const QString portText = settings_.Read(Key::HttpsPort).trimmed();
    bool number = false;
    const int n = portText.toInt(&number); // 0: any free port
    const bool usable = number && n >= 0 && n <= 65535;
    if (!hasTls_ || !usable) {
        if (!portText.isEmpty() && !usable)
            qCWarning(lcWeb).noquote()
                << "WebServer/HttpsPort" << portText << "is not a port number (1-65535)";
        httpsNotifier_.reset();
        httpsServer_.close();
        return;
    }
    if (httpsServer_.isListening() && (n == 0 || httpsServer_.serverPort() == n))
        return; // the new certificate counts from the next connection on
    httpsNotifier_.reset();
    httpsServer_.close();
    httpsServer_.setListenBacklogSize(SOMAXCONN);
    bool ok = httpsServer_.listen(QHostAddress::Any, quint16(n));
    if (!ok && httpsServer_.serverError() == QAbstractSocket::UnsupportedSocketOperationError)
        ok = httpsServer_.listen(QHostAddress::AnyIPv4, quint16(n));
    if (!ok) {
        qCWarning(lcWeb).noquote()
            << u"cannot listen for HTTPS on port %1: %2"_s.arg(n).arg(httpsServer_.errorString());
        return;
    }
    takeConnections(httpsServer_, httpsNotifier_, true);
    qCInfo(lcWeb).noquote() << "HTTPS listening on port" << httpsServer_.serverPort();
}

void WebServer::startTls(int index) {
    Slot& slot = slotAt(index);
    auto* socket = new QSslSocket(this);
    // What a client sends while its answer is written waits in the kernel.
    socket->setReadBufferSize(4 * ReadBytes);
    socket->setSslConfiguration(tls_);
    const auto current = [this, index, socket] {
        return size_t(index) <= slots_.size() && slots_[size_t(index - 1)] &&
               slotAt(index).tls == socket;
    };
    connect(socket, &QSslSocket::readyRead, this, [this, index, current] {
        if (current())
            onReadable(index);
    });
    connect(socket, &QSslSocket::encryptedBytesWritten, this, [this, index, current] {
        if (!current())
            return;
        // The handshake's and a kept connection's last answer's bytes need nothing more.
        Slot& s = slotAt(index);
        if (s.out.isEmpty() && !s.file.isOpen())
            return;
        s.deadline.start(stallMs_); // it takes what it is sent
        flushTls(index);
    });
    connect(socket, &QAbstractSocket::disconnected, this, [this, index, current] {
        if (current())
            freeSlot(index);
    });
    connect(socket, &QAbstractSocket::errorOccurred, this, [this, index, current] {
        if (current())
            freeSlot(index);
    });
    if (!socket->setSocketDescriptor(slot.fd)) {
        delete socket;
        freeSlot(index);
        return;
    }
    slot.tls = socket;
    slot.reading = true;
    socket->startServerEncryption();
}

// While HTTPS is on, a client from outside the home network is not served on
// the plain port: its password would cross the internet readable.
bool WebServer::movesToHttps(int index) const {
    const Slot& slot = *slots_[size_t(index - 1)];
    return !slot.tls && httpsServer_.isListening() && !(atHome && atHome(slot.peerAddress()));
}

// https://<host without its port>[:port]<target>, from what the client asked
// for; a Host that could break the header gives way to the address it reached.
QByteArray WebServer::httpsLocation(int index, QByteArray host, const QByteArray& target) const {
    if (host.startsWith('[')) {
        const qsizetype end = host.indexOf(']');
        host = end < 0 ? QByteArray() : host.left(end + 1);
    } else if (const qsizetype colon = host.lastIndexOf(':'); colon >= 0) {
        host.truncate(colon);
    }
    bool clean = !host.isEmpty();
    for (const char c : std::as_const(host))
        clean = clean && (std::isalnum(uchar(c)) || std::strchr(".-[]:", c));
    if (!clean) {
        sockaddr_storage local{};
        socklen_t length = sizeof local;
        QHostAddress address;
        if (::getsockname(slots_[size_t(index - 1)]->fd, reinterpret_cast<sockaddr*>(&local),
                          &length) == 0)
            address = QHostAddress(reinterpret_cast<const sockaddr*>(&local));
        bool isV4 = false;
        const quint32 v4 = address.toIPv4Address(&isV4);
        host = isV4 ? QHostAddress(v4).toString().toLatin1()
                    : "[" + address.toString().toLatin1() + "]";
    }
    QByteArray path;
    for (const char c : target) {
        if (uchar(c) <= 0x20 || uchar(c) == 0x7f) {
            path.clear();
            break;
        }
        if (uchar(c) >= 0x80)
            path += '%' + QByteArray(1, c).toHex().toUpper();
        else
            path += c;
    }
    if (!path.startsWith('/'))
        path = "/";
    const quint16 port = httpsServer_.serverPort();
    return "https://" + host + (port == 443 ? QByteArray() : ":" + QByteArray::number(port)) + path;
}

// The answer is handed to the TLS socket, a file a piece at a time as the
// client takes it; the connection closes once all of it has gone out.
void WebServer::flushTls(int index) {
    Slot& slot = slotAt(index);
    QSslSocket& socket = *slot.tls;
    if (slot.sent < slot.out.size()) {
        socket.write(slot.out.constData() + slot.sent, slot.out.size() - slot.sent);
        slot.sent = slot.out.size();
    }
    while (slot.file.isOpen() && slot.fileAt < slot.fileEnd &&
           socket.bytesToWrite() + socket.encryptedBytesToWrite() <= TlsHeldBytes - TlsPieceBytes) {
        const qint64 n = std::min<qint64>(TlsPieceBytes, slot.fileEnd - slot.fileAt);
        QByteArray piece(n, Qt::Uninitialized);
        if (::pread(slot.file.fd(), piece.data(), size_t(n), slot.fileAt) != n) {
            freeSlot(index); // the file shrank
            return;
        }
        slot.fileAt += off_t(n);
        socket.write(piece);
    }
    const bool handed = !slot.file.isOpen() || slot.fileAt >= slot.fileEnd;
    if (handed && slot.streaming) {
        slot.deadline.stop();
        return;
    }
    if (handed && slot.keepAfter && !slot.answering) {
        readNext(index);
        return;
    }
    if (handed && socket.bytesToWrite() == 0 && socket.encryptedBytesToWrite() == 0) {
        freeSlot(index);
        return;
    }
    if (!slot.deadline.isActive())
        slot.deadline.start(stallMs_);
}
