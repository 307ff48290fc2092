#include "webserver/WebServer.h"

#include "core/Application.h"
#include "core/NetAddress.h"
#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"
#include "webserver/FileSender.h"
#include "webserver/HttpRequest.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QTcpSocket>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcWeb, "kestrava.web")
}

const QString WebServer::PortInUseText =
    u"指定したポート番号はほかのアプリケーションが使用中で開けません。\r\n"
    u"次に表示される空きポート番号から新しいポート番号を選択してください。"_s;

struct WebServer::Slot {
    QPointer<QTcpSocket> socket; // null while the slot is free
    QByteArray received;
    bool answering = false;
    QTimer deadline;   // the whole request within the limit, then no stall
    quint64 since = 0; // order of acceptance
};

WebServer::WebServer(Application& app, Dispatcher& dispatcher, QObject* parent)
    : QObject(parent), app_(app), dispatcher_(dispatcher) {
    connect(&server_, &QTcpServer::newConnection, this, &WebServer::onNewConnection);
    connect(&app_.timObjMove, &QTimer::timeout, this, [this] { redirectArmed_ = false; });
    server_.setMaxPendingConnections(64);
    // A burst of connections waits in the kernel rather than being refused.
    server_.setListenBacklogSize(SOMAXCONN);
}

WebServer::~WebServer() {
    for (auto& slot : slots_)
        if (slot->socket)
            slot->socket->abort();
}

void WebServer::setTimeouts(int requestMs, int stallMs) {
    requestTimeoutMs_ = requestMs;
    stallMs_ = stallMs;
}

bool WebServer::InitWebServer() {
    AppState& state = app_.state;
    SettingsStore& settings = app_.settings;
    state.WebAuthOn = settings.ReadIni(u"Options", u"WebAuth") == u"1";
    if (state.WebAuthOn) {
        state.WebUser = settings.ReadIni(u"Options", u"Web_User");
        state.WebPass = ScramblePassword(u"RESET", settings.ReadIni(u"Options", u"Web_Pass"));
    }
    // A folder without a port gets one stored; a stored port that cannot be
    // used is replaced for this run only, so the owner's choice stays.
    const QString portText = settings.ReadIni(u"WebServer", u"Port");
    const bool storeChoice = portText.isEmpty();
    int port = -1; // none in hand
    if (!storeChoice) {
        const qint64 n = Val(portText);
        if (n >= 1 && n <= 65535)
            port = int(n);
        else
            qCWarning(lcWeb).noquote()
                << "WebServer/Port" << portText << "is not a port number (1-65535)";
    }
    QList<quint16> tried;
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (port < 0) {
            const auto fallback = portFallback ? portFallback(tried) : std::nullopt;
            if (!fallback)
                break;
            port = *fallback;
            if (!storeChoice)
                qCInfo(lcWeb).noquote() << "using port" << port << "for this run";
        }
        if (server_.isListening())
            server_.close();
        bool ok = server_.listen(QHostAddress::Any, quint16(port));
        if (!ok && server_.serverError() == QAbstractSocket::UnsupportedSocketOperationError)
            ok = server_.listen(QHostAddress::AnyIPv4, quint16(port)); // no IPv6 here
        if (ok) {
            state.WebServerUp = true;
            // The port in use is the one in hand, whether or not it could be stored.
            if (storeChoice)
                settings.WriteIni(u"WebServer", u"Port", QString::number(server_.serverPort()));
            qCInfo(lcWeb).noquote() << "listening on port" << server_.serverPort() << "-"
                                    << LocalUrl(server_.serverPort()) + u"/"_s;
            return true;
        }
        const bool inUse = server_.serverError() == QAbstractSocket::AddressInUseError;
        const QString reason = inUse ? u"in use by another program"_s
                               : server_.serverError() == QAbstractSocket::SocketAccessError
                                   ? u"permission denied (ports below 1024 need privileges)"_s
                                   : server_.errorString();
        qCWarning(lcWeb).noquote() << u"cannot listen on port %1: %2"_s.arg(port).arg(reason);
        if (inUse)
            app_.prompt.Warning(PortInUseText);
        tried << quint16(port);
        port = -1;
    }
    return false;
}

// With internet use off, and while the settings cannot be read or are not
// there at all (a new folder on a full disk), only the home network is served:
// the filter never opens because a read or a write failed.
bool WebServer::Admits(const QHostAddress& peer) {
    if (IsPrivateAddress(peer))
        return true;
    SettingsStore& settings = app_.settings;
    return settings.ReadIni(u"Options", u"Internet") != u"0" && !settings.Unreadable() &&
           QFileInfo::exists(settings.path());
}

void WebServer::onNewConnection() {
    while (QTcpSocket* socket = server_.nextPendingConnection()) {
        int index = 0;
        for (size_t i = 0; i < slots_.size(); ++i)
            if (!slots_[i]->socket) {
                index = int(i) + 1;
                break;
            }
        if (index == 0 && slots_.size() >= size_t(MaxSlots)) {
            // Full: make room by dropping the connection that has been sending
            // its request for longest, so idle clients cannot lock others out.
            index = oldestReading();
            if (index == 0) {
                qCDebug(lcWeb) << "all slots answering; connection closed";
                socket->abort();
                socket->deleteLater();
                continue;
            }
            freeSlot(index, true);
        }
        if (index == 0) {
            auto slot = std::make_unique<Slot>();
            slot->deadline.setSingleShot(true);
            slots_.push_back(std::move(slot));
            index = int(slots_.size());
            connect(&slots_.back()->deadline, &QTimer::timeout, this,
                    [this, index] { freeSlot(index, true); });
        }
        Slot& slot = *slots_[size_t(index - 1)];
        slot.socket = socket;
        slot.received.clear();
        slot.answering = false;
        slot.since = ++acceptCount_;

        if (!Admits(socket->peerAddress())) {
            freeSlot(index, true);
            continue;
        }
        emit connectionAccepted(index);
        connect(socket, &QTcpSocket::readyRead, this, [this, index, socket] {
            if (slotFor(index, socket))
                onReadyRead(index);
        });
        connect(socket, &QTcpSocket::disconnected, this, [this, index, socket] {
            if (Slot* s = slotFor(index, socket); s && !s->answering)
                freeSlot(index, false);
        });
        connect(socket, &QTcpSocket::errorOccurred, this, [this, index, socket] {
            if (Slot* s = slotFor(index, socket); s && !s->answering)
                freeSlot(index, true);
        });
        slot.deadline.start(requestTimeoutMs_);
        if (socket->bytesAvailable() > 0)
            onReadyRead(index);
    }
}

int WebServer::oldestReading() const {
    int oldest = 0;
    for (size_t i = 0; i < slots_.size(); ++i) {
        const Slot& s = *slots_[i];
        if (s.socket && !s.answering &&
            (oldest == 0 || s.since < slots_[size_t(oldest - 1)]->since))
            oldest = int(i) + 1;
    }
    return oldest;
}

WebServer::Slot* WebServer::slotFor(int index, QTcpSocket* socket) {
    if (index < 1 || size_t(index) > slots_.size())
        return nullptr;
    Slot* slot = slots_[size_t(index - 1)].get();
    return slot->socket == socket ? slot : nullptr;
}

void WebServer::freeSlot(int index, bool abort) {
    Slot& slot = *slots_[size_t(index - 1)];
    slot.deadline.stop();
    slot.received.clear();
    slot.answering = false;
    if (QTcpSocket* socket = slot.socket) {
        slot.socket = nullptr;
        socket->disconnect(); // nothing of it may touch the slot again
        if (abort)
            socket->abort();
        socket->deleteLater();
    }
}

void WebServer::onReadyRead(int index) {
    Slot& slot = *slots_[size_t(index - 1)];
    QTcpSocket* socket = slot.socket;
    if (slot.answering) {
        socket->readAll(); // one request per connection
        return;
    }
    slot.received += socket->readAll();
    const Http::Decision d = Http::Decide(slot.received, redirectArmed_, app_.state);
    if (d.action == Http::Action::Wait)
        return;
    if (d.action == Http::Action::Drop) {
        qCDebug(lcWeb) << "slot" << index << "request refused";
        freeSlot(index, true);
        return;
    }
    slot.received.clear();
    slot.deadline.stop();
    slot.answering = true;
    if (!d.request.host.isEmpty())
        hostHeader_ = d.request.host;
    const QString date = HttpDate(app_.clock);

    switch (d.action) {
    case Http::Action::Refuse:
        sendAndClose(index, Http::AccessDeniedResponse(d.request.realm, AccessDeniedPage(), date));
        return;
    case Http::Action::Redirect:
        redirectArmed_ = true;
        app_.timObjMove.start();
        sendAndClose(index, Http::RedirectResponse(d.request.host));
        return;
    case Http::Action::File:
        sendFile(index, d.request.path, d.request.text);
        return;
    case Http::Action::Page: {
        bool isV4 = false;
        const quint32 v4 = socket->peerAddress().toIPv4Address(&isV4);
        const QString peer = isV4 ? QHostAddress(v4).toString() : socket->peerAddress().toString();
        QPointer<QTcpSocket> guard(socket);
        // A generator may wait with events running; this slot may be gone after.
        QString html;
        {
            // A page reads many settings; the file is looked at once a turn.
            SettingsStore::Batch batch(app_.settings);
            html = dispatcher_.DispatchPage(d.request.path, d.request.postBody, peer);
        }
        if (guard && slotFor(index, guard))
            sendAndClose(index, Http::PageResponse(html, HttpDate(app_.clock)));
        return;
    }
    case Http::Action::Wait:
    case Http::Action::Drop:
        return;
    }
}

void WebServer::sendAndClose(int index, const QByteArray& response) {
    Slot& slot = *slots_[size_t(index - 1)];
    QTcpSocket* socket = slot.socket;
    socket->write(response);
    // A client that stops reading loses the connection after the stall limit.
    connect(socket, &QTcpSocket::bytesWritten, &slot.deadline,
            [&slot, this] { slot.deadline.start(stallMs_); });
    slot.deadline.start(stallMs_);
    socket->disconnectFromHost();
    slot.answering = socket->state() != QAbstractSocket::UnconnectedState;
    if (!slot.answering)
        freeSlot(index, false);
    else
        connect(socket, &QTcpSocket::disconnected, this, [this, index, socket] {
            if (slotFor(index, socket))
                freeSlot(index, false);
        });
}

void WebServer::sendFile(int index, const QString& path, const QString& requestText) {
    const QString date = HttpDate(app_.clock);
    ServedFile file = OpenServedFile(app_.folder, path);
    const qint64 size = file.size();
    if (size == 0) {
        sendAndClose(index, Http::FileNotFoundResponse(date));
        return;
    }
    const qint64 start = RangeStart(requestText).value_or(0);
    if (start >= size) {
        sendAndClose(index, Http::RangeNotSatisfiableResponse(size, date));
        return;
    }
    QString head = start == 0
                       ? u"HTTP/1.1 200 OK\r\nServer: Kestrava1.0\r\nDate: "_s + date +
                             u"\r\nContent-Length: "_s + QString::number(size) + u"\r\n"_s
                       : u"HTTP/1.1 206 Partial content\r\nServer: Kestrava1.0\r\nDate: "_s + date +
                             u"\r\nContent-Length: "_s + QString::number(size - start) +
                             u"\r\nContent-Range: bytes "_s + QString::number(start) + u"-"_s +
                             QString::number(size - 1) + u"/"_s + QString::number(size) + u"\r\n"_s;
    head += ContentTypeLines(path) + u"Connection: close\r\n\r\n"_s;

    // A small file goes out with its header in one write, as a page does.
    if (size - start <= FileSender::PieceBytes) {
        QByteArray response = head.toLatin1();
        const qsizetype headBytes = response.size();
        response.resize(headBytes + (size - start));
        if (::pread(file.fd(), response.data() + headBytes, size_t(size - start), start) ==
            size - start) {
            sendAndClose(index, response);
            return;
        }
    }
    Slot& slot = *slots_[size_t(index - 1)];
    QTcpSocket* socket = slot.socket;
    auto* sender = new FileSender(socket, std::move(file), start, socket);
    sender->setStallMs(stallMs_);
    connect(sender, &FileSender::finished, this, [this, index, socket] {
        if (slotFor(index, socket))
            freeSlot(index, false);
    });
    sender->Start(head.toLatin1());
}
