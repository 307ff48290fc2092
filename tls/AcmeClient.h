#pragma once

#include "tls/AcmeKey.h"
#include "tls/AcmeMessages.h"

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QSslCertificate>
#include <QStringList>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <optional>

class QNetworkReply;

// One certificate order at a time from an ACME CA (RFC 8555): account,
// order, HTTP-01 authorizations, finalize with a new P-256 key, download.
// Everything runs on the event loop; each Obtain ends in issued or failed.
class AcmeClient : public QObject {
    Q_OBJECT
public:
    struct Job {
        QUrl directory;
        QString email;
        QList<QSslCertificate> extraCa; // beside the system's, for a private CA
        Acme::PrivateKey accountKey;
        QStringList names;
    };

    explicit AcmeClient(QObject* parent = nullptr);

    void Obtain(Job job);
    // Drops the order under way; nothing is emitted for it afterwards.
    void Cancel();
    bool busy() const { return busy_; }

    // Pause between looks at a pending authorization or order, when the CA
    // names none; and how many looks before giving up.
    void setPoll(int ms, int looks) { pollMs_ = ms, maxLooks_ = looks; }

signals:
    // The CA may now ask http://<name>/.well-known/acme-challenge/<token>.
    void challengeOpened(const QString& token, const QByteArray& keyAuthorization);
    void challengeClosed(const QString& token);
    void issued(const QByteArray& chainPem, const QByteArray& keyPem);
    void failed(const QString& reason);

private:
    struct Answer {
        int status = 0;
        QByteArray body;
        QUrl location;
        int retryAfterS = -1;
    };
    using Then = std::function<void(const Answer&)>;

    void send(const QUrl& url, const QByteArray& verb, const QByteArray& body, Then then,
              bool checked = true);
    void post(const QUrl& url, const std::optional<QByteArray>& payload, Then then,
              int nonceTries = 3);
    void account();
    void order();
    void nextAuthorization();
    void lookAtAuthorization(const QUrl& url);
    void lookAtOrder();
    void finalize(const Acme::Order& o);
    void download(const QUrl& url);
    void later(const Answer& a, std::function<void()> look, const QString& what);
    void fail(const QString& reason);
    void closeChallenges();

    QNetworkAccessManager net_;
    QTimer pollTimer_;
    Job job_;
    Acme::Directory directory_;
    QUrl accountUrl_, accountFor_; // kid, and the directory it belongs to
    QByteArray nonce_;
    QUrl orderUrl_;
    QList<QUrl> authorizations_;
    QStringList openTokens_;
    Acme::PrivateKey certKey_;
    quint64 generation_ = 0;
    int looks_ = 0;
    int pollMs_ = 1000;
    int maxLooks_ = 120;
    bool busy_ = false;
};
