#include "mqtt/MqttConnection.h"

#include <QFile>
#include <QHostAddress>
#include <QHostInfo>
#include <QLoggingCategory>

#include <mosquitto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

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

void MqttConnection::logState(State state, const QString& text) {
    // One line per change: a broker away for an hour is one line, not one per try.
    if (state == state_)
        return;
    state_ = state;
    qCInfo(lcMqtt).noquote() << text;
}

void MqttConnection::Open(const MqttConfig& config, const QString& willTopic) {
    Close();
    config_ = config;
    willTopic_ = willTopic;
    if (!config.enabled())
        return;
    open_ = true;
    retryMs_ = FirstRetryMs;
    state_ = State::None;
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
        logState(State::Closed, u"disconnected from the broker"_s);
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
    refusedCertificate_.clear();
    if (config_.tls) {
        // The context is ours, set up here in full: the library's own checks
        // give no reason for a refusal, and with a context of ours and its
        // defaults on, libmosquitto 2.0.11 refuses every certificate.
        std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                             SSL_CTX_free);
        if (!context)
            return lost(u"TLS: out of memory"_s);
        SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
        const QByteArray ca = QFile::encodeName(config_.caFile);
        if (ca.isEmpty() ? SSL_CTX_set_default_verify_paths(context.get()) != 1
                         : SSL_CTX_load_verify_file(context.get(), ca.constData()) != 1) {
            ERR_clear_error();
            return lost(u"TLS: cannot read the CA file "_s + config_.caFile);
        }
        // OpenSSL checks the name, so a mismatch has its own reason.
        const QByteArray host = config_.host.toUtf8();
        X509_VERIFY_PARAM* param = SSL_CTX_get0_param(context.get());
        X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
        if (QHostAddress(config_.host).isNull())
            X509_VERIFY_PARAM_set1_host(param, host.constData(), size_t(host.size()));
        else
            X509_VERIFY_PARAM_set1_ip_asc(param, host.constData());
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
        SSL_CTX_set_cert_verify_callback(context.get(), &MqttConnection::verifyCertificate, this);
        // The library takes a reference of its own, and leaves it as it is.
        mosquitto_int_option(mosq_, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
        const int rc = mosquitto_void_option(mosq_, MOSQ_OPT_SSL_CTX, context.get());
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

int MqttConnection::verifyCertificate(x509_store_ctx_st* store, void* self) {
    const int ok = X509_verify_cert(store);
    if (ok <= 0)
        static_cast<MqttConnection*>(self)->refusedCertificate_ =
            u"the broker's certificate is refused: "_s +
            QString::fromUtf8(X509_verify_cert_error_string(X509_STORE_CTX_get_error(store)));
    return ok;
}

void MqttConnection::lost(const QString& reason) {
    const QString why = refusedCertificate_.isEmpty() ? reason : refusedCertificate_;
    dropSocket();
    if (mosq_) {
        mosquitto_destroy(mosq_);
        mosq_ = nullptr;
    }
    setConnected(false);
    if (!open_)
        return;
    logState(State::Down, u"cannot reach %1:%2 (%3); trying again with back-off"_s.arg(config_.host)
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

// The callbacks run inside the library's read; what they start runs from the
// event loop, and only while the same connection is still ours (a read that
// failed has already dropped it, and that drop counts once).
void MqttConnection::onConnect(mosquitto* m, void* self, int rc) {
    auto* c = static_cast<MqttConnection*>(self);
    QMetaObject::invokeMethod(
        c,
        [c, m, rc] {
            if (c->mosq_ != m)
                return;
            // Refused (bad name or password): the same back-off as a broker away.
            if (rc != 0)
                return c->lost(QString::fromUtf8(mosquitto_connack_string(rc)));
            c->retryMs_ = FirstRetryMs;
            c->logState(State::Up,
                        u"connected to %1:%2"_s.arg(c->config_.host).arg(c->config_.port));
            c->setConnected(true);
        },
        Qt::QueuedConnection);
}

void MqttConnection::onDisconnect(mosquitto* m, void* self, int rc) {
    auto* c = static_cast<MqttConnection*>(self);
    if (rc != 0)
        QMetaObject::invokeMethod(
            c,
            [c, m] {
                if (c->mosq_ == m)
                    c->lost(u"connection lost"_s);
            },
            Qt::QueuedConnection);
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
