#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QString>
#include <QTcpServer>
#include <QTimer>

#include "webserver/Codecs.h"
#include "webserver/FrontRequest.h"
#include "webserver/HostRule.h"
#include "webserver/LoginThrottle.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Http {
struct Decision;
}
class Clock;
class Dispatcher;
class ProgramFolder;
class SettingsStore;
class UserPrompt;
class QHostAddress;
class QSocketNotifier;
struct sockaddr_storage;

class WebServer;

// The way back to the client of a front's request. It may be kept and used
// later (a press answers after its send); once the connection is gone every
// call does nothing and open() is false.
class FrontReply {
public:
    FrontReply() = default;
    bool open() const;
    // A whole answer. On a keep-alive connection the next request is read after it.
    // Text goes gzip-compressed when the request takes it: gzipped when given
    // (made once, for a file that does not change), else compressed now.
    void Send(int status, const QByteArray& type, const QByteArray& body,
              const QByteArray& headerLines = {}, const QByteArray& gzipped = {}) const;
    // An answer that stays open (event streams): the head now, Write adds to it.
    // The client's closing ends it.
    bool StartStream(const QByteArray& type) const;
    bool Write(const QByteArray& bytes) const;
    void Close() const;
    // Calls closed if the client goes away before the answer is sent (an
    // answer that waits on something the client holds, like a held key).
    void WatchClose(std::function<void()> closed) const;

private:
    friend class WebServer;
    FrontReply(WebServer* server, int index, quint64 since)
        : server_(server), index_(index), since_(since) {}
    QPointer<WebServer> server_;
    int index_ = 0;
    quint64 since_ = 0;
};

// A front beside the classic pages, for every path under its prefix.
struct FrontRoute {
    QString prefix; // "/api/", "/m/"
    qsizetype maxBody = 64 * 1024;
    // The login is checked before the handler runs; this is what a refusal
    // carries (the handler is not asked).
    QByteArray deniedType = "text/plain; charset=utf-8";
    QByteArray deniedBody = "401 Unauthorized\n";
    QByteArray tooLargeType = "text/plain; charset=utf-8";
    QByteArray tooLargeBody = "413 Content Too Large\n";
    // Refusals before the handler, in deniedType: a Host not ours, logins held up.
    QByteArray misdirectedBody = "421 Misdirected Request\n";
    QByteArray tooManyBody = "429 Too Many Requests\n";
    std::function<void(const FrontRequest&, const FrontReply&)> handler;
    // Served without login, and on the plain port to clients outside too
    // (the ACME challenge answers).
    bool open = false;
};

// The listener and its connection slots. Each accepted connection takes the
// lowest free slot; one request is read, answered, and the connection closed.
// A slot keeps its objects for the next connection; slots beyond a small pool
// are given back a while after a burst.
class WebServer : public QObject {
    Q_OBJECT
public:
    // Connections held at once. When all are taken, a new one replaces the
    // connection that has spent longest sending its request.
    static constexpr int MaxSlots = 1000;
    static constexpr int RequestTimeoutMs = 30000;
    static constexpr int PoolSlots = 16;
    static constexpr int ReleaseMs = 10000;

    WebServer(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
              UserPrompt& prompt, Dispatcher& dispatcher, QObject* parent = nullptr);
    ~WebServer() override;

    // Reads the login and the port and listens on it (IPv4 and IPv6). A port
    // that is missing, not 1-65535 or cannot be opened is reported with the
    // reason and replaced by one from portFallback; only a missing one is
    // stored. True when listening.
    // Then listens for HTTPS on [WebServer] HttpsPort once a certificate is set.
    bool InitWebServer();

    // The certificate chain and key for HTTPS (TLS 1.2 and later); taken by
    // connections accepted from now on. Without one, or without a port, there
    // is no HTTPS listener.
    void SetTlsConfiguration(const QSslConfiguration& configuration);
    // 0 while not listening for HTTPS.
    quint16 HttpsPort() const;

    // Which clients are at home: while HTTPS is on, any other client on the
    // plain port is sent there before it is asked for anything. Tests fake
    // an outside client with it.
    std::function<bool(const QHostAddress&)> atHome;

    // A port to use instead, not one of those tried; nothing when none is free.
    std::function<std::optional<quint16>(const QList<quint16>& tried)> portFallback;

    // Without a desktop a refused port is only logged, not shown in a box.
    bool headless = false;

    // Where the help pages are served from under /help/ (read-only, no
    // listing); "" when there are none.
    QString helpFolder;

    // Whether the login in memory holds: false while setting.ini cannot be
    // read, and then every request is refused as not logged in. Reads the
    // login from the file until it could be read once.
    bool LoginKnown();

    // The setup dialog's changes to the login, held in memory before they
    // are saved.
    void SetWebAuthOn(bool on) { login_.WebAuthOn = on; }
    void SetWebUser(const QString& user) { login_.WebUser = user; }
    void SetWebPass(const QString& password) { login_.WebPass = password; }
    void SetLogin(const QString& user, const QString& password) {
        SetWebUser(user);
        SetWebPass(password);
    }
    // A first start's setup: when the server has not listened yet, the port
    // is stored and listened on with the login typed so far.
    void ListenFromSetup(const QString& port, const QString& user, const QString& password);
    const WebLogin& Login() const { return login_; }

    // Whether a client at this address is served (the LAN filter).
    bool Admits(const QHostAddress& peer);

    bool isListening() const { return server_.isListening(); }
    // Whether it has listened once in this run (it does not stop).
    bool HasListened() const { return listened_; }
    quint16 WebPort() const { return server_.serverPort(); }
    int SlotCount() const; // slots that hold their objects
    bool RedirectArmed() const { return redirectArmed_; }

    // For tests: shorter limits.
    void setTimeouts(int requestMs, int stallMs, int releaseMs = ReleaseMs);
    void setRedirectMs(int ms) { timObjMove_.setInterval(ms); }

    static const QString PortInUseText;

    // Serves paths under route.prefix with route.handler instead of the
    // classic pages; its connections may carry more than one request.
    void AddFront(FrontRoute route);

private:
    friend class FrontReply;
    struct Slot;

    bool listenPlain();
    void listenHttps();
    void takeConnections(QTcpServer& server, std::unique_ptr<QSocketNotifier>& notifier,
                         bool secure);
    void onAcceptable(bool secure);
    void accepted(int fd, const sockaddr_storage& peer, bool secure);
    void startTls(int index);
    void watchReads(int index, bool on);
    void onReadable(int index);
    void answer(int index, const Http::Decision& d);
    void answerFront(int index, const FrontRoute& route);
    bool movesToHttps(int index) const;
    QByteArray httpsLocation(int index, QByteArray host, const QByteArray& target) const;
    void frontSend(int index, QByteArray bytes, bool close);
    bool frontCurrent(int index, quint64 since) const;
    void readNext(int index);
    void sendAndClose(int index, const QByteArray& response);
    void sendFile(int index, const QString& path, const QString& requestText);
    void flush(int index);
    void flushTls(int index);
    qint64 backlog(int index);
    void freeSlot(int index);
    void releaseIdleSlots();
    Slot& slotAt(int index) { return *slots_[size_t(index - 1)]; }
    int oldestReading() const;

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    UserPrompt& prompt_;
    Dispatcher& dispatcher_;
    WebLogin login_;
    HostRule hostRule_{settings_};
    LoginThrottle throttle_{clock_};
    bool listened_ = false;
    QTimer timObjMove_; // 5 s, one shot: ends the redirect window
    QTcpServer server_; // listens; connections are taken from its socket here
    std::unique_ptr<QSocketNotifier> acceptNotifier_;
    QTcpServer httpsServer_;
    std::unique_ptr<QSocketNotifier> httpsNotifier_;
    QSslConfiguration tls_;
    bool hasTls_ = false;
    bool started_ = false; // InitWebServer has run
    QTimer acceptRetry_;   // out of descriptors: try again shortly
    QTimer release_;
    std::vector<std::unique_ptr<Slot>> slots_; // slot n at index n - 1; null: given back
    std::vector<FrontRoute> fronts_;
    quint64 acceptCount_ = 0;
    bool redirectArmed_ = false;
    bool loginRead_ = false;
    int requestTimeoutMs_ = RequestTimeoutMs;
    int stallMs_ = 30000;
    int releaseMs_ = ReleaseMs;
};
