#pragma once

// What the web server's files share of a connection: its slot, and the
// sizes it reads and holds. Private to webserver/.

#include "webserver/FileSender.h"
#include "webserver/WebServer.h"

#include <QByteArray>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QSslSocket>
#include <QTimer>

#include <sys/socket.h>

Q_DECLARE_LOGGING_CATEGORY(lcWeb)

// Bytes a connection reads at a time.
constexpr qsizetype ReadBytes = 16 * 1024;
// Over TLS a file is read and encrypted here: no more of it than this is held
// per connection, read a piece at a time.
constexpr qint64 TlsHeldBytes = 256 * 1024;
constexpr qint64 TlsPieceBytes = 64 * 1024;

// One connection at a time on a non-blocking socket of its own. A plain
// connection is read and written on its descriptor; one from the HTTPS port
// goes through its TLS socket, which owns the descriptor.
struct WebServer::Slot {
    int fd = -1; // -1 while the slot is free
    sockaddr_storage peer{};
    QSslSocket* tls = nullptr;
    bool reading = false; // TLS: what arrives is read now (the notifier's part)
    QByteArray received;  // read and not yet answered, this connection's alone
    QByteArray out;       // what is still to be sent before the file
    qsizetype sent = 0;
    ServedFile file;
    off_t fileAt = 0, fileEnd = 0;
    bool answering = false;
    bool keepAfter = false;       // a front's answer: read the next request after it
    bool streaming = false;       // a front's answer that stays open
    bool gzip = false;            // a front's request takes gzip
    std::function<void()> closed; // told if the client goes before the answer
    quint64 since = 0;            // order of acceptance, and of each request on it
    QSocketNotifier readable{QSocketNotifier::Read};
    QSocketNotifier writable{QSocketNotifier::Write};
    QTimer deadline; // the whole request within the limit, then no stall

    QHostAddress peerAddress() const {
        return QHostAddress(reinterpret_cast<const sockaddr*>(&peer));
    }
};
