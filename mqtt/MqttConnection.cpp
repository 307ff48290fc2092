#include "mqtt/MqttConnection.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QLoggingCategory>

#include <mosquitto.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcMqtt, "kestrava.mqtt")

struct Library {
    Library() { mosquitto_lib_init(); }
    ~Library() { mosquitto_lib_cleanup(); }
};
void InitLibrary() {
    static Library library;
}

QString Why(int rc) {
    return QString::fromUtf8(rc == MOSQ_ERR_ERRNO ? strerror(errno) : mosquitto_strerror(rc));
}
} // namespace

MqttConnection::MqttConnection(QObject* parent) : QObject(parent) {
    InitLibrary();
    misc_.setInterval(KeepAliveS * 1000 / 4);
    connect(&misc_, &QTimer::timeout, this, [this] {
        if (!mosq_ || mosquitto_socket(mosq_) < 0)
            return;
        const int rc = mosquitto_loop_misc(mosq_);
        if (rc != MOSQ_ERR_SUCCESS)
            return lost(Why(rc));
        updateWrite();
    });
    retry_.setSingleShot(true);
    connect(&retry_, &QTimer::timeout, this, &MqttConnection::attempt);
}

MqttConnection::~MqttConnection() {
    Close();
    if (mosq_)
        mosquitto_destroy(mosq_);
}

void MqttConnection::logState(const QString& state) {
    if (state == lastState_)
        return;
    lastState_ = state;
    qCInfo(lcMqtt).noquote() << state;
}

void MqttConnection::Open(const MqttConfig& config, const QString& willTopic) {
    Close();
    config_ = config;
    willTopic_ = willTopic;
    if (!config.enabled())
        return;
    open_ = true;
    retryMs_ = FirstRetryMs;
    lastState_.clear();
    attempt();
}

void MqttConnection::Close() {
    retry_.stop();
    if (lookup_ >= 0) {
        QHostInfo::abortHostLookup(lookup_);
        lookup_ = -1;
    }
    if (mosq_ && connected_) {
        mosquitto_publish(mosq_, nullptr, willTopic_.toUtf8().constData(), 7, "offline", 1, true);
        mosquitto_disconnect(mosq_);
        // Out before the socket closes: the offline and the disconnect.
        for (int i = 0; i < 10 && mosquitto_want_write(mosq_); ++i)
            if (mosquitto_loop_write(mosq_, 1) != MOSQ_ERR_SUCCESS)
                break;
    }
    if (open_)
        logState(u"disconnected from the broker"_s);
    open_ = false;
    dropSocket();
    if (mosq_) {
        mosquitto_destroy(mosq_);
        mosq_ = nullptr;
    }
    setConnected(false);
}

void MqttConnection::attempt() {
    if (!open_)
        return;
    // The name is looked up without holding the event loop; TLS checks the
    // certificate against the name, so there the library looks it up.
    if (config_.tls || !QHostAddress(config_.host).isNull())
        return connectTo(config_.host);
    lookup_ = QHostInfo::lookupHost(config_.host, this, [this](const QHostInfo& info) {
        lookup_ = -1;
        if (info.error() != QHostInfo::NoError || info.addresses().isEmpty())
            return lost(u"cannot find "_s + config_.host);
        connectTo(info.addresses().first().toString());
    });
}

void MqttConnection::connectTo(const QString& address) {
    if (mosq_) {
        dropSocket();
        mosquitto_destroy(mosq_);
    }
    // A clean session: what came while we were away is not handed over later.
    mosq_ = mosquitto_new((u"kestrava-"_s + config_.nodeId).toUtf8().constData(), true, this);
    if (!mosq_)
        return lost(u"out of memory"_s);
    mosquitto_int_option(mosq_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
    mosquitto_connect_callback_set(mosq_, &MqttConnection::onConnect);
    mosquitto_disconnect_callback_set(mosq_, &MqttConnection::onDisconnect);
    mosquitto_message_callback_set(mosq_, &MqttConnection::onMessage);
    mosquitto_will_set(mosq_, willTopic_.toUtf8().constData(), 7, "offline", 1, true);
    if (!config_.user.isEmpty())
        mosquitto_username_pw_set(
            mosq_, config_.user.toUtf8().constData(),
            config_.password.isEmpty() ? nullptr : config_.password.toUtf8().constData());
    if (config_.tls) {
        const QByteArray ca = config_.caFile.toUtf8();
        const int rc =
            mosquitto_tls_set(mosq_, ca.isEmpty() ? nullptr : ca.constData(),
                              ca.isEmpty() ? "/etc/ssl/certs" : nullptr, nullptr, nullptr, nullptr);
        if (rc != MOSQ_ERR_SUCCESS)
            return lost(u"TLS: "_s + Why(rc));
    }
    const int rc =
        mosquitto_connect_async(mosq_, address.toUtf8().constData(), config_.port, KeepAliveS);
    if (rc != MOSQ_ERR_SUCCESS)
        return lost(Why(rc));
    watchSocket();
}

void MqttConnection::watchSocket() {
    const int fd = mosquitto_socket(mosq_);
    if (fd < 0)
        return lost(u"no socket"_s);
    read_ = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
    write_ = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Write);
    connect(read_.get(), &QSocketNotifier::activated, this, &MqttConnection::readable);
    connect(write_.get(), &QSocketNotifier::activated, this, &MqttConnection::writable);
    // Writable once the TCP connect is through: then the CONNECT goes out.
    write_->setEnabled(true);
    misc_.start();
}

void MqttConnection::dropSocket() {
    read_.reset();
    write_.reset();
    misc_.stop();
}

void MqttConnection::readable() {
    if (!mosq_)
        return;
    const int rc = mosquitto_loop_read(mosq_, 100);
    if (!mosq_) // closed from a callback
        return;
    if (rc != MOSQ_ERR_SUCCESS)
        return lost(rc == MOSQ_ERR_CONN_LOST ? u"connection lost"_s : Why(rc));
    updateWrite();
}

void MqttConnection::writable() {
    if (!mosq_)
        return;
    const int rc = mosquitto_loop_write(mosq_, 1);
    if (!mosq_)
        return;
    if (rc != MOSQ_ERR_SUCCESS)
        return lost(Why(rc));
    updateWrite();
}

void MqttConnection::updateWrite() {
    if (write_ && mosq_)
        write_->setEnabled(mosquitto_want_write(mosq_));
}

void MqttConnection::lost(const QString& why) {
    dropSocket();
    if (mosq_) {
        mosquitto_destroy(mosq_);
        mosq_ = nullptr;
    }
    setConnected(false);
    if (!open_)
        return;
    logState(u"cannot reach %1:%2 (%3); trying again with back-off"_s.arg(config_.host)
                 .arg(config_.port)
                 .arg(why));
    retry_.start(retryMs_);
    retryMs_ = std::min(retryMs_ * 2, LastRetryMs);
}

void MqttConnection::setConnected(bool on) {
    if (connected_ == on)
        return;
    connected_ = on;
    emit connectionChanged(on);
}

void MqttConnection::onConnect(mosquitto*, void* self, int rc) {
    auto* c = static_cast<MqttConnection*>(self);
    if (rc != 0) {
        // Refused (bad name or password): the same back-off as a broker away.
        QMetaObject::invokeMethod(
            c, [c, rc] { c->lost(QString::fromUtf8(mosquitto_connack_string(rc))); },
            Qt::QueuedConnection);
        return;
    }
    // Told from the event loop, not from inside the library's read.
    QMetaObject::invokeMethod(
        c,
        [c] {
            if (!c->mosq_)
                return;
            c->retryMs_ = FirstRetryMs;
            c->logState(u"connected to %1:%2"_s.arg(c->config_.host).arg(c->config_.port));
            c->setConnected(true);
        },
        Qt::QueuedConnection);
}

void MqttConnection::onDisconnect(mosquitto*, void* self, int rc) {
    auto* c = static_cast<MqttConnection*>(self);
    if (rc != 0)
        QMetaObject::invokeMethod(
            c, [c] { c->lost(u"connection lost"_s); }, Qt::QueuedConnection);
}

void MqttConnection::onMessage(mosquitto*, void* self, const mosquitto_message* m) {
    auto* c = static_cast<MqttConnection*>(self);
    QMetaObject::invokeMethod(
        c,
        [c, topic = QString::fromUtf8(m->topic),
         payload = QByteArray(static_cast<const char*>(m->payload), m->payloadlen),
         retained = m->retain] { emit c->message(topic, payload, retained); },
        Qt::QueuedConnection);
}

bool MqttConnection::Publish(const QString& topic, const QByteArray& payload, bool retain,
                             int qos) {
    if (!mosq_ || !connected_)
        return false;
    const int rc = mosquitto_publish(mosq_, nullptr, topic.toUtf8().constData(),
                                     int(payload.size()), payload.constData(), qos, retain);
    updateWrite();
    return rc == MOSQ_ERR_SUCCESS;
}

bool MqttConnection::Subscribe(const QString& pattern) {
    if (!mosq_ || !connected_)
        return false;
    const int rc = mosquitto_subscribe(mosq_, nullptr, pattern.toUtf8().constData(), 0);
    updateWrite();
    return rc == MOSQ_ERR_SUCCESS;
}

void MqttConnection::Unsubscribe(const QString& pattern) {
    if (!mosq_ || !connected_)
        return;
    mosquitto_unsubscribe(mosq_, nullptr, pattern.toUtf8().constData());
    updateWrite();
}
