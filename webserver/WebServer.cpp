#include "webserver/WebServer.h"
#include "webserver/ConnectionSlot.h"

#include "core/Help.h"
#include "core/NetAddress.h"
#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"
#include "webserver/FileSender.h"
#include "webserver/Gzip.h"
#include "webserver/HttpRequest.h"

#include <QFileInfo>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QSslKey>
#include <QSslSocket>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <malloc.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcWeb, "kestrava.web")

namespace {
// The most a connection sends of a file before the event loop runs again.
constexpr qint64 SendTurnBytes = 8 * 1024 * 1024;

// What a page request's login was, for the throttle.
LoginThrottle::Login LoginOf(const Http::Decision& d) {
    return !d.request.hasAuthorization        ? LoginThrottle::Login::None
           : d.action == Http::Action::Refuse ? LoginThrottle::Login::Wrong
                                              : LoginThrottle::Login::Right;
}
} // namespace

const QString WebServer::PortInUseText =
    u"指定したポート番号はほかのアプリケーションが使用中で開けません。\r\n"
    u"次に表示される空きポート番号から新しいポート番号を選択してください。"_s;

WebServer::WebServer(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                     UserPrompt& prompt, Dispatcher& dispatcher, QObject* parent)
    : QObject(parent), atHome(IsPrivateAddress), helpFolder(HelpFolder()), folder_(folder),
      settings_(settings), clock_(clock), prompt_(prompt), dispatcher_(dispatcher) {
    timObjMove_.setInterval(5000);
    timObjMove_.setSingleShot(true);
    connect(&timObjMove_, &QTimer::timeout, this, [this] { redirectArmed_ = false; });
    // A burst of connections waits in the kernel rather than being refused.
    server_.setListenBacklogSize(SOMAXCONN);
    // A client gone before its answer is an error of the send, not a signal.
    struct sigaction old {};
    if (sigaction(SIGPIPE, nullptr, &old) == 0 && old.sa_handler == SIG_DFL)
        std::signal(SIGPIPE, SIG_IGN);
    acceptRetry_.setSingleShot(true);
    acceptRetry_.setInterval(100);
    connect(&acceptRetry_, &QTimer::timeout, this, [this] {
        if (acceptNotifier_)
            acceptNotifier_->setEnabled(true);
        if (httpsNotifier_)
            httpsNotifier_->setEnabled(true);
    });
    release_.setSingleShot(true);
    connect(&release_, &QTimer::timeout, this, &WebServer::releaseIdleSlots);
}

WebServer::~WebServer() {
    for (auto& slot : slots_) {
        if (slot && slot->tls) {
            slot->tls->disconnect(this);
            delete slot->tls;
        } else if (slot && slot->fd >= 0) {
            ::close(slot->fd);
        }
    }
}

void WebServer::setTimeouts(int requestMs, int stallMs, int releaseMs) {
    requestTimeoutMs_ = requestMs;
    stallMs_ = stallMs;
    releaseMs_ = releaseMs;
}

int WebServer::SlotCount() const {
    return int(std::count_if(slots_.begin(), slots_.end(), [](const auto& s) { return bool(s); }));
}

void WebServer::ListenFromSetup(const QString& port, const QString& user, const QString& password) {
    if (HasListened())
        return;
    settings_.Write(Key::WebPort, port);
    InitWebServer();
    SetLogin(user, password);
}

bool WebServer::InitWebServer() {
    started_ = true;
    const bool ok = listenPlain();
    listenHttps();
    return ok;
}

bool WebServer::listenPlain() {
    SettingsStore& settings = settings_;
    loginRead_ = false;
    if (!LoginKnown())
        qCWarning(lcWeb).noquote() << "setting.ini cannot be read: every request is asked for a"
                                      " login until it can";
    // A folder without a port gets one stored; a stored port that cannot be
    // used is replaced for this run only, so the owner's choice stays.
    const QString portText = settings.Read(Key::WebPort);
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
        acceptNotifier_.reset(); // never left on a closed socket
        if (server_.isListening())
            server_.close();
        bool ok = server_.listen(QHostAddress::Any, quint16(port));
        if (!ok && server_.serverError() == QAbstractSocket::UnsupportedSocketOperationError)
            ok = server_.listen(QHostAddress::AnyIPv4, quint16(port)); // no IPv6 here
        if (ok) {
            takeConnections(server_, acceptNotifier_, false);
            listened_ = true;
            // The port in use is the one in hand, whether or not it could be stored.
            if (storeChoice)
                settings.Write(Key::WebPort, QString::number(server_.serverPort()));
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
        // The box speaks of the port list the desktop shows next; headless,
        // the line above says all there is.
        if (inUse && !headless)
            prompt_.Warning(PortInUseText);
        tried << quint16(port);
        port = -1;
    }
    return false;
}

// The login is read from setting.ini until one read succeeds; from then on the
// memory holds it, and the setup dialog changes it there (a typed password
// counts before it is saved). While the file cannot be read, nobody can log in.
bool WebServer::LoginKnown() {
    SettingsStore& settings = settings_;
    if (settings.Unreadable())
        return false;
    if (!loginRead_) {
        WebLogin& state = login_;
        state.WebAuthOn = settings.IsOn(Key::WebAuth);
        if (state.WebAuthOn) {
            state.WebUser = settings.Read(Key::WebUser);
            state.WebPass = ScramblePassword(u"RESET", settings.Read(Key::WebPass));
        }
        loginRead_ = true;
    }
    return true;
}

// With internet use off, and while the settings cannot be read or are not
// there at all (a new folder on a full disk), only the home network is served:
// the filter never opens because a read or a write failed.
bool WebServer::Admits(const QHostAddress& peer) {
    if (IsPrivateAddress(peer))
        return true;
    SettingsStore& settings = settings_;
    // The filter's own rule: only an explicit "0" limits it (unlike the flags).
    return settings.Read(Key::Internet) != u"0" && !settings.Unreadable() &&
           QFileInfo::exists(settings.path());
}

// The listener's own notifier is paused; connections are accepted here, with
// their address and already non-blocking, without an object of their own.
void WebServer::takeConnections(QTcpServer& server, std::unique_ptr<QSocketNotifier>& notifier,
                                bool secure) {
    server.pauseAccepting();
    notifier = std::make_unique<QSocketNotifier>(server.socketDescriptor(), QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this,
            [this, secure] { onAcceptable(secure); });
}

void WebServer::onAcceptable(bool secure) {
    QSocketNotifier* notifier = secure ? httpsNotifier_.get() : acceptNotifier_.get();
    const int listener = int((secure ? httpsServer_ : server_).socketDescriptor());
    for (int n = 0; n < 64; ++n) { // then others have a turn
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        const int fd = ::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length,
                                 SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0 && (errno == ECONNABORTED || errno == EINTR || errno == EPROTO))
            continue; // that one is gone; others may wait
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                qCWarning(lcWeb) << "cannot accept:" << strerror(errno);
                notifier->setEnabled(false);
                acceptRetry_.start();
            }
            return;
        }
        accepted(fd, peer, secure);
    }
}

void WebServer::accepted(int fd, const sockaddr_storage& peer, bool secure) {
    int index = 0;
    for (size_t i = 0; i < slots_.size(); ++i)
        if (!slots_[i] || slots_[i]->fd < 0) {
            index = int(i) + 1;
            break;
        }
    if (index == 0 && slots_.size() >= size_t(MaxSlots)) {
        // Full: make room by dropping the connection that has been sending
        // its request for longest, so idle clients cannot lock others out.
        index = oldestReading();
        if (index == 0) {
            qCDebug(lcWeb) << "all slots answering; connection closed";
            ::close(fd);
            return;
        }
        freeSlot(index);
    }
    if (index == 0) {
        slots_.emplace_back();
        index = int(slots_.size());
    }
    if (!slots_[size_t(index - 1)]) {
        auto slot = std::make_unique<Slot>();
        slot->deadline.setSingleShot(true);
        connect(&slot->deadline, &QTimer::timeout, this, [this, index] { freeSlot(index); });
        connect(&slot->readable, &QSocketNotifier::activated, this,
                [this, index] { onReadable(index); });
        connect(&slot->writable, &QSocketNotifier::activated, this,
                [this, index] { flush(index); });
        slots_[size_t(index - 1)] = std::move(slot);
    }
    Slot& slot = slotAt(index);
    slot.fd = fd;
    slot.peer = peer;
    slot.answering = false;
    slot.since = ++acceptCount_;

    if (!Admits(slot.peerAddress())) {
        freeSlot(index);
        return;
    }
    slot.deadline.start(requestTimeoutMs_); // the handshake too
    if (secure) {
        startTls(index);
        return;
    }
    onReadable(index); // the request is often there already
}

// Whether what the client sends is read now: the plain descriptor's notifier,
// or the TLS socket's readyRead taken or left.
void WebServer::watchReads(int index, bool on) {
    Slot& slot = slotAt(index);
    if (slot.tls) {
        slot.reading = on;
    } else if (on) {
        if (!slot.readable.isEnabled()) {
            slot.readable.setSocket(slot.fd);
            slot.readable.setEnabled(true);
        }
    } else if (slot.readable.isEnabled()) {
        slot.readable.setEnabled(false);
    }
}

int WebServer::oldestReading() const {
    int oldest = 0;
    for (size_t i = 0; i < slots_.size(); ++i) {
        const Slot* s = slots_[i].get();
        if (s && s->fd >= 0 && !s->answering &&
            (oldest == 0 || s->since < slots_[size_t(oldest - 1)]->since))
            oldest = int(i) + 1;
    }
    return oldest;
}

void WebServer::freeSlot(int index) {
    Slot& slot = slotAt(index);
    slot.deadline.stop();
    if (slot.readable.isEnabled())
        slot.readable.setEnabled(false);
    if (slot.writable.isEnabled())
        slot.writable.setEnabled(false);
    if (QSslSocket* socket = std::exchange(slot.tls, nullptr)) {
        socket->disconnect(this);
        const bool answered = socket->state() == QAbstractSocket::ConnectedState &&
                              socket->isEncrypted() && socket->bytesToWrite() == 0 &&
                              socket->encryptedBytesToWrite() == 0;
        if (answered) {
            // Its close_notify goes out before the socket does.
            connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
            QTimer::singleShot(1000, socket, &QObject::deleteLater);
            socket->disconnectFromHost();
            if (socket->state() == QAbstractSocket::UnconnectedState)
                socket->deleteLater();
        } else {
            socket->abort();
            socket->deleteLater();
        }
    } else if (slot.fd >= 0) {
        ::close(slot.fd);
    }
    slot.fd = -1;
    slot.reading = false;
    slot.received.clear();
    slot.out.clear();
    slot.sent = 0;
    slot.file = ServedFile();
    slot.answering = false;
    slot.keepAfter = false;
    slot.streaming = false;
    if (auto closed = std::exchange(slot.closed, nullptr))
        closed();
    if (index > PoolSlots)
        release_.start(releaseMs_);
}

// Slots beyond the pool that are free now give their memory back.
void WebServer::releaseIdleSlots() {
    bool busy = false;
    for (size_t i = PoolSlots; i < slots_.size(); ++i) {
        if (slots_[i] && slots_[i]->fd < 0)
            slots_[i].reset();
        busy = busy || slots_[i];
    }
    while (!slots_.empty() && !slots_.back())
        slots_.pop_back();
    slots_.shrink_to_fit();
    malloc_trim(0);
    if (busy)
        release_.start(releaseMs_);
}

void WebServer::onReadable(int index) {
    Slot& slot = slotAt(index);
    if (slot.tls) {
        if (!slot.reading)
            return; // read once this answer is out
        slot.received += slot.tls->readAll();
    } else if (slot.answering && slot.closed) {
        // Waiting for its answer: only whether the client is still there counts;
        // a next request stays in the kernel until this one is answered.
        char byte;
        const ssize_t n = ::recv(slot.fd, &byte, 1, MSG_PEEK);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
            freeSlot(index);
        else if (n > 0)
            watchReads(index, false);
        return;
    } else {
        char buffer[ReadBytes];
        for (;;) {
            const ssize_t n = ::read(slot.fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n == 0 || (n < 0 && errno != EAGAIN)) {
                freeSlot(index); // gone before its request was complete
                return;
            }
            if (n < 0)
                break;
            slot.received.append(buffer, n);
            if (n < ReadBytes || slot.received.size() > Http::MaxHeaderBytes + Http::MaxBodyBytes)
                break;
        }
    }
    if (slot.streaming) {
        slot.received.clear(); // nothing is asked on a stream; its end is what counts
        return;
    }
    if (!fronts_.empty()) {
        const QByteArray target = RequestLinePath(slot.received);
        for (const FrontRoute& route : fronts_)
            if (!target.isEmpty() && target.startsWith(route.prefix.toUtf8())) {
                answerFront(index, route);
                return;
            }
    }
    const bool loginKnown = LoginKnown();
    Http::Decision d = Http::Decide(slot.received, redirectArmed_, login_);
    if (!loginKnown && d.action != Http::Action::Wait && d.action != Http::Action::Drop)
        d.action = Http::Action::Refuse;
    const bool decided = d.action != Http::Action::Wait && d.action != Http::Action::Drop;
    if (decided && !hostRule_.Admits(d.request))
        d.action = Http::Action::Misdirected;
    if (d.action == Http::Action::Wait) {
        watchReads(index, true);
        return;
    }
    // An outside client is sent to HTTPS before any login is looked at.
    if (decided && d.action != Http::Action::Misdirected && movesToHttps(index)) {
        const QByteArray location =
            httpsLocation(index, d.request.host.toLatin1(), RequestLinePath(slot.received));
        slot.received.clear();
        slot.deadline.stop();
        watchReads(index, false);
        slot.answering = true;
        sendAndClose(index, "HTTP/1.1 301 Moved Permanently\r\nLocation: " + location +
                                "\r\nServer: Kestrava1.0\r\nContent-Length: 0\r\n"
                                "Connection: close\r\n\r\n");
        return;
    }
    if (decided && d.action != Http::Action::Misdirected && loginKnown && login_.WebAuthOn &&
        (d.retryAfter = throttle_.Attempt(slot.peerAddress(), LoginOf(d))) > 0)
        d.action = Http::Action::TooMany;
    answer(index, d);
}

void WebServer::answer(int index, const Http::Decision& d) {
    Slot& slot = slotAt(index);
    if (d.action == Http::Action::Drop) {
        qCDebug(lcWeb) << "slot" << index << "request refused";
        freeSlot(index);
        return;
    }
    slot.received.clear();
    slot.deadline.stop();
    watchReads(index, false); // one request per connection
    slot.answering = true;
    switch (d.action) {
    case Http::Action::Refuse:
        sendAndClose(index, Http::AccessDeniedResponse(AccessDeniedPage(), HttpDate(clock_)));
        return;
    case Http::Action::Misdirected:
        sendAndClose(index, Http::MisdirectedResponse(HttpDate(clock_)));
        return;
    case Http::Action::TooMany:
        sendAndClose(index, Http::TooManyResponse(d.retryAfter, HttpDate(clock_)));
        return;
    case Http::Action::Redirect:
        redirectArmed_ = true;
        timObjMove_.start();
        sendAndClose(index, Http::RedirectResponse(d.request.host));
        return;
    case Http::Action::File:
        sendFile(index, d.request.path, d.request.text);
        return;
    case Http::Action::Page: {
        const QHostAddress address = slot.peerAddress();
        bool isV4 = false;
        const quint32 v4 = address.toIPv4Address(&isV4);
        const QString peer = isV4 ? QHostAddress(v4).toString() : address.toString();
        // A page of another site must not press keys or change anything here
        // through the owner's browser (an <img> or a form is enough).
        if (Dispatcher::Acts(d.request.path, d.request.postBody) &&
            Http::FromAnotherSite(d.request)) {
            qCWarning(lcWeb).noquote() << "refused" << d.request.path.left(200) << "from" << peer
                                       << "- the browser says it comes from another site";
            sendAndClose(index, Http::ForbiddenResponse(HttpDate(clock_)));
            return;
        }
        const quint64 connection = slot.since;
        QString html;
        {
            // A page reads many settings; the file is looked at once a turn.
            SettingsStore::Batch batch(settings_);
            html = dispatcher_.DispatchPage(d.request.path, d.request.postBody, peer);
        }
        // A generator may wait with events running; this connection may be gone after.
        if (size_t(index) <= slots_.size() && slots_[size_t(index - 1)] && slotAt(index).fd >= 0 &&
            slotAt(index).since == connection)
            sendAndClose(index, Http::PageResponse(html, HttpDate(clock_)));
        return;
    }
    case Http::Action::Wait:
    case Http::Action::Drop:
        return;
    }
}

void WebServer::AddFront(FrontRoute route) {
    fronts_.push_back(std::move(route));
}

void WebServer::answerFront(int index, const FrontRoute& route) {
    Slot& slot = slotAt(index);
    FrontRequest request;
    qsizetype length = 0;
    const FrontFrame frame = ReadFrontRequest(slot.received, route.maxBody, &request, &length);
    if (frame == FrontFrame::Incomplete) {
        watchReads(index, true);
        return;
    }
    const QByteArray target = RequestLinePath(slot.received);
    // Whatever follows this request is the next one on the connection.
    if (frame == FrontFrame::Complete)
        slot.received.remove(0, length);
    else
        slot.received.clear();
    slot.deadline.stop();
    watchReads(index, false);
    slot.answering = true;
    slot.since = ++acceptCount_;
    const FrontReply reply(this, index, slot.since);
    switch (frame) {
    case FrontFrame::BodyTooLarge:
        return reply.Send(413, route.tooLargeType, route.tooLargeBody, "Connection: close\r\n");
    case FrontFrame::HeadTooLarge:
        return reply.Send(431, "text/plain", "431\n", "Connection: close\r\n");
    case FrontFrame::Malformed:
        return reply.Send(400, "text/plain", "400 Bad Request\n", "Connection: close\r\n");
    case FrontFrame::Incomplete:
    case FrontFrame::Complete:
        break;
    }
    slot.keepAfter = request.keepAlive;
    slot.gzip = AcceptsGzip(request.header("accept-encoding"));
    const QHostAddress address = slot.peerAddress();
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    request.peer = isV4 ? QHostAddress(v4).toString() : address.toString();
    if (!hostRule_.Admits(request))
        return reply.Send(421, route.deniedType, route.misdirectedBody, "Connection: close\r\n");
    if (!route.open && movesToHttps(index))
        return reply.Send(301, {}, {},
                          "Location: " + httpsLocation(index, request.header("host"), target) +
                              "\r\nConnection: close\r\n");
    // The same login as the pages, refused while it cannot be read.
    const bool loginKnown = LoginKnown();
    const auto login = !request.hasAuthorization ? LoginThrottle::Login::None
                       : CheckLogon(login_, request.user, request.password)
                           ? LoginThrottle::Login::Right
                           : LoginThrottle::Login::Wrong;
    if (!route.open && loginKnown && login_.WebAuthOn)
        if (const int wait = throttle_.Attempt(address, login))
            return reply.Send(429, route.deniedType, route.tooManyBody,
                              "Retry-After: " + QByteArray::number(wait) + "\r\n");
    if (!route.open && (!loginKnown || (login_.WebAuthOn && login != LoginThrottle::Login::Right)))
        return reply.Send(401, route.deniedType, route.deniedBody,
                          "WWW-Authenticate: Basic realm=\"" + QByteArray(Http::Realm) + "\"\r\n");
    route.handler(request, reply);
}

bool WebServer::frontCurrent(int index, quint64 since) const {
    return index >= 1 && size_t(index) <= slots_.size() && slots_[size_t(index - 1)] &&
           slots_[size_t(index - 1)]->fd >= 0 && slots_[size_t(index - 1)]->since == since;
}

void WebServer::frontSend(int index, QByteArray bytes, bool close) {
    Slot& slot = slotAt(index);
    if (close)
        slot.keepAfter = false;
    if (slot.sent >= slot.out.size()) {
        slot.out = std::move(bytes);
        slot.sent = 0;
    } else {
        slot.out += bytes;
    }
    flush(index);
}

// The connection waits for its next request, which may be here already.
void WebServer::readNext(int index) {
    Slot& slot = slotAt(index);
    slot.out.clear();
    slot.sent = 0;
    slot.answering = false;
    slot.keepAfter = false;
    slot.deadline.start(requestTimeoutMs_);
    watchReads(index, true);
    if (!slot.received.isEmpty() || (slot.tls && slot.tls->bytesAvailable() > 0)) {
        const quint64 since = slot.since;
        QTimer::singleShot(0, this, [this, index, since] {
            if (frontCurrent(index, since) && !slotAt(index).answering)
                onReadable(index);
        });
    }
}

void WebServer::sendAndClose(int index, const QByteArray& response) {
    Slot& slot = slotAt(index);
    slot.out = response;
    slot.sent = 0;
    flush(index);
}

// A header's value in a classic request's text, "" when it has none.
static QString HeaderValue(const QString& requestText, QStringView name) {
    for (QStringView line : QStringView(requestText).split(u"\r\n"_s)) {
        const qsizetype colon = line.indexOf(u':');
        if (colon > 0 && line.first(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed().toString();
    }
    return {};
}

void WebServer::sendFile(int index, const QString& path, const QString& requestText) {
    const QString date = HttpDate(clock_);
    // The help pages are read from their own folder, under the same rules.
    const bool help = path.startsWith(u"/help/");
    ServedFile file = !help ? OpenServedFile(folder_, path)
                      : helpFolder.isEmpty()
                          ? ServedFile()
                          : OpenServedFile(ProgramFolder(helpFolder), path.mid(5));
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
    Slot& slot = slotAt(index);
    // A style sheet of another type is ignored by browsers.
    const QString type =
        help && path.endsWith(u".css") ? u"Content-Type: text/css\r\n"_s : ContentTypeLines(path);
    slot.out = Http::FileResponseHead(size, start, type, date);
    slot.sent = 0;
    // A text file goes gzip-compressed to a client that takes it; one that
    // does not, or asks for a range, gets the bytes as they always were.
    if (start == 0 && size <= FilePieceBytes && type.startsWith(u"Content-Type: text/") &&
        AcceptsGzip(HeaderValue(requestText, u"accept-encoding").toLatin1())) {
        QByteArray bytes(size, Qt::Uninitialized);
        const QByteArray packed =
            ::pread(file.fd(), bytes.data(), size_t(size), 0) == size ? Gzip(bytes) : QByteArray();
        if (!packed.isEmpty() && packed.size() < size) {
            slot.out = Http::FileResponseHead(
                           packed.size(), 0,
                           type + u"Content-Encoding: gzip\r\nVary: Accept-Encoding\r\n"_s, date) +
                       packed;
            flush(index);
            return;
        }
    }
    // A small file goes out with its header in one write, as a page does; a
    // larger one goes from the file to the socket without passing through here.
    if (size - start <= FilePieceBytes) {
        const qsizetype headBytes = slot.out.size();
        slot.out.resize(headBytes + (size - start));
        if (::pread(file.fd(), slot.out.data() + headBytes, size_t(size - start), start) !=
            size - start) {
            freeSlot(index);
            return;
        }
    } else {
        slot.file = std::move(file);
        slot.fileAt = off_t(start);
        slot.fileEnd = off_t(size);
    }
    flush(index);
}

// Sends what the socket takes now; waits to be writable for the rest. A
// client that takes nothing for the stall limit loses its connection.
void WebServer::flush(int index) {
    Slot& slot = slotAt(index);
    if (slot.tls) {
        flushTls(index);
        return;
    }
    bool progress = false;
    while (slot.sent < slot.out.size()) {
        const ssize_t n = ::send(slot.fd, slot.out.constData() + slot.sent,
                                 size_t(slot.out.size() - slot.sent), MSG_NOSIGNAL);
        if (n > 0) {
            slot.sent += n;
            progress = true;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && errno == EAGAIN) {
            break;
        } else {
            freeSlot(index);
            return;
        }
    }
    qint64 turn = 0;
    while (slot.sent == slot.out.size() && slot.file.isOpen() && slot.fileAt < slot.fileEnd &&
           turn < SendTurnBytes) {
        const ssize_t n =
            ::sendfile(slot.fd, slot.file.fd(), &slot.fileAt,
                       size_t(std::min<qint64>(slot.fileEnd - slot.fileAt, SendTurnBytes)));
        if (n > 0) {
            turn += n;
            progress = true;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && errno == EAGAIN) {
            break;
        } else { // the file shrank, or the client is gone
            freeSlot(index);
            return;
        }
    }
    const bool done =
        slot.sent == slot.out.size() && (!slot.file.isOpen() || slot.fileAt >= slot.fileEnd);
    if (done && slot.streaming) {
        slot.deadline.stop();
        if (slot.writable.isEnabled())
            slot.writable.setEnabled(false);
        return;
    }
    if (done && slot.keepAfter && !slot.answering) {
        if (slot.writable.isEnabled())
            slot.writable.setEnabled(false);
        readNext(index);
        return;
    }
    if (done) {
        freeSlot(index);
        return;
    }
    if (progress || !slot.deadline.isActive())
        slot.deadline.start(stallMs_);
    if (!slot.writable.isEnabled()) {
        slot.writable.setSocket(slot.fd);
        slot.writable.setEnabled(true);
    }
}

// Bytes of an answer not yet taken by the client.
qint64 WebServer::backlog(int index) {
    const Slot& slot = slotAt(index);
    qint64 bytes = slot.out.size() - slot.sent;
    if (slot.tls)
        bytes += slot.tls->bytesToWrite() + slot.tls->encryptedBytesToWrite();
    return bytes;
}
