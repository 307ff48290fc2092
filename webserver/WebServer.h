#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTcpServer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class Application;
class Dispatcher;
class QHostAddress;
class QTcpSocket;

// The listener and its connection slots. Each accepted connection takes the
// lowest free slot; one request is read, answered, and the connection closed.
class WebServer : public QObject {
    Q_OBJECT
public:
    // Connections held at once. When all are taken, a new one replaces the
    // connection that has spent longest sending its request.
    static constexpr int MaxSlots = 1000;
    static constexpr int RequestTimeoutMs = 30000;

    WebServer(Application& app, Dispatcher& dispatcher, QObject* parent = nullptr);
    ~WebServer() override;

    // Reads the login and the port and listens on it (IPv4 and IPv6). A port
    // that is missing, not 1-65535 or cannot be opened is reported with the
    // reason and replaced by one from portFallback; only a missing one is
    // stored. True when listening.
    bool InitWebServer();

    // A port to use instead, not one of those tried; nothing when none is free.
    std::function<std::optional<quint16>(const QList<quint16>& tried)> portFallback;

    // Whether a client at this address is served (the LAN filter).
    bool Admits(const QHostAddress& peer);

    bool isListening() const { return server_.isListening(); }
    quint16 WebPort() const { return server_.serverPort(); }
    int SlotCount() const { return int(slots_.size()); }
    bool RedirectArmed() const { return redirectArmed_; }
    const QString& HostHeader() const { return hostHeader_; }

    // For tests: shorter limits.
    void setTimeouts(int requestMs, int stallMs);

    static const QString PortInUseText;

signals:
    void connectionAccepted(int slot);

private:
    struct Slot;

    void onNewConnection();
    void onReadyRead(int index);
    void sendAndClose(int index, const QByteArray& response);
    void sendFile(int index, const QString& path, const QString& requestText);
    void freeSlot(int index, bool abort);
    Slot* slotFor(int index, QTcpSocket* socket);
    int oldestReading() const;

    Application& app_;
    Dispatcher& dispatcher_;
    QTcpServer server_;
    std::vector<std::unique_ptr<Slot>> slots_; // slot n at index n - 1
    quint64 acceptCount_ = 0;
    bool redirectArmed_ = false;
    QString hostHeader_;
    int requestTimeoutMs_ = RequestTimeoutMs;
    int stallMs_ = 30000;
};
