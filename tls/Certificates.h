#pragma once

#include "tls/AcmeClient.h"

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QSslConfiguration>
#include <QStringList>
#include <QTimer>

class Clock;
class ProgramFolder;
class SettingsStore;

struct CertificateInfo {
    QStringList names;
    QDateTime expires;
    QString source;  // the certificate file, or the CA's directory
    QString problem; // the last failure; "" when the last try worked
};

// The HTTPS server's certificate: from [WebServer] CertFile and KeyFile,
// reloaded when they change; else, with DNS_Host set and HTTPS on, from an
// ACME CA, renewed when a third of its life is left. A failed load or order
// keeps the certificate that serves.
class Certificates : public QObject {
    Q_OBJECT
public:
    Certificates(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                 QObject* parent = nullptr);

    void Start();

    // A server configuration with the chain and its key, TLS 1.2 or later;
    // null while there is no certificate.
    QSslConfiguration ServerConfiguration() const { return config_; }
    CertificateInfo Info() const { return info_; }

    // The HTTP-01 answer for a token of an order under way; empty otherwise.
    QByteArray ChallengeAnswer(QStringView token) const;
    bool ChallengeOpen() const { return !challenges_.isEmpty(); }

    // Orders a certificate now when none serves, the names changed or a
    // third of its life is left.
    void CheckRenewal();

    static const QString ChallengePath;   // "/.well-known/acme-challenge/"
    static const QString AccountKeyFile;  // beneath the program folder, never served
    static const QString CertificateFile; // the key, then the chain
    static const QString DefaultDirectory;

    // For tests: shorter waits.
    void setTimings(int debounceMs, int firstRetryMs, int maxRetryMs);
    AcmeClient& acmeClient() { return acme_; }
    int RetryMs() const { return renew_.isActive() ? renew_.interval() : -1; }

signals:
    void Changed();
    // Whether the CA may be looking for an answer on the plain port.
    void challengeOpenChanged(bool open);

private:
    bool use(const QByteArray& chainPem, const QByteArray& keyPem, const QString& source,
             QString* why);
    void reloadFiles();
    void watchFiles();
    void startAcme();
    void issued(const QByteArray& chainPem, const QByteArray& keyPem);
    void failed(const QString& reason);
    QStringList wantedNames();

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    enum class Mode { None, Files, Acme } mode_ = Mode::None;
    QString certPath_, keyPath_;
    QByteArray loaded_; // the chain and key that serve, to skip reloads of the same
    QSslConfiguration config_;
    CertificateInfo info_;
    QDateTime notBefore_;
    QFileSystemWatcher watcher_;
    QTimer debounce_;
    QTimer renew_; // the next renewal look, or the next try after a failure
    AcmeClient acme_;
    QHash<QString, QByteArray> challenges_;
    int firstRetryMs_ = 60 * 1000;
    int maxRetryMs_ = 24 * 3600 * 1000;
    int retryMs_ = firstRetryMs_;
};
