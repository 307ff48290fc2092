#pragma once

#include "mqtt/MqttConfig.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <memory>

struct mosquitto;
struct mosquitto_message;
struct x509_store_ctx_st;

// One connection to a broker through libmosquitto, run by the Qt event loop:
// the socket on notifiers, the library's housekeeping on a timer, no thread
// of its own. Connects again after a loss, waiting 1 s, then twice as long
// each time up to 60 s. The will is "offline" retained on <will topic>.
class MqttConnection : public QObject {
    Q_OBJECT
public:
    explicit MqttConnection(QObject* parent = nullptr);
    ~MqttConnection() override;

    // Connects with these settings (a running connection is closed first).
    void Open(const MqttConfig& config, const QString& willTopic);
    // Publishes offline on the will topic when connected, then disconnects.
    void Close();
    bool isConnected() const { return connected_; }
    // Queued for the broker; false when not connected.
    bool Publish(const QString& topic, const QByteArray& payload, bool retain, int qos = 0);
    bool Subscribe(const QString& pattern);
    void Unsubscribe(const QString& pattern);

    // The back-off now, for the tests.
    int retryMs() const { return retryMs_; }
    static constexpr int FirstRetryMs = 1000;
    static constexpr int LastRetryMs = 60000;
    static constexpr int KeepAliveS = 60;

signals:
    void connectionChanged(bool connected);
    // A message on a subscribed topic; retained ones are old news and say so.
    void message(const QString& topic, const QByteArray& payload, bool retained);

private:
    static void onConnect(mosquitto*, void* self, int rc);
    static void onDisconnect(mosquitto*, void* self, int rc);
    static void onMessage(mosquitto*, void* self, const mosquitto_message* m);
    static int verifyCertificate(x509_store_ctx_st* store, void* self);

    void attempt();
    void connectTo(const QString& address);
    void watchSocket();
    void dropSocket();
    void lost(const QString& why);
    void setConnected(bool on);
    void readable();
    void writable();
    void updateWrite();
    enum class State { None, Up, Down, Closed };
    void logState(State state, const QString& text);

    mosquitto* mosq_ = nullptr;
    MqttConfig config_;
    QString willTopic_;
    bool open_ = false;
    bool connected_ = false;
    int retryMs_ = FirstRetryMs;
    int lookup_ = -1;
    State state_ = State::None;
    QString refusedCertificate_; // why the broker's certificate was not taken
    std::unique_ptr<QSocketNotifier> read_, write_;
    QTimer misc_;  // keep-alive and the library's timeouts
    QTimer retry_; // the next attempt after a loss
};
