#pragma once

#include <QObject>
#include <QString>

#include <functional>

class Clock;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class SettingsStore;

// The two questions put to the outside world: which address the machine has
// there (Options/IPCheckURL), and the dyndns2 update of a host name
// (Options/DNS_Server + /nic/update). Both run on the event loop with a time-out
// and answer through the callback exactly once, later.
class DnsService : public QObject {
    Q_OBJECT
public:
    explicit DnsService(SettingsStore& settings, QObject* parent = nullptr);

    static constexpr int TimeoutMs = 10000;
    static const QString DefaultIPCheckURL;
    static const QString DefaultDNSServer;
    int timeoutMs = TimeoutMs;

    // The first IPv4 address in the lookup page, or a text containing "Error".
    void GetIPAddr(std::function<void(const QString& result)> done);
    // The service's answer line ("good 1.2.3.4", "nochg 1.2.3.4", "badauth", ...),
    // or a text containing "Error" when there was none.
    void UpdateNow(const QString& user, const QString& password, const QString& host,
                   const QString& address, std::function<void(const QString& answer)> done);

    // The first dotted IPv4 address in text, or "" when there is none.
    static QString FirstIPv4(QByteArrayView text);

private:
    void get(QNetworkRequest request, std::function<void(QNetworkReply*, const QByteArray&)> done);

    SettingsStore& settings_;
    QNetworkAccessManager* net_;
};

// The DNS step of the address watch and the setup dialog's "update now",
// with what each remembers (DynDns/LastIP, DynDns/LastUpdated) and DynDns.log.
class DynDns : public QObject {
    Q_OBJECT
public:
    DynDns(SettingsStore& settings, const Clock& clock, QString logPath, DnsService& service,
           QObject* parent = nullptr);

    // The watch's step for a freshly found address. Emits urlShown with what
    // the URL line ends up showing and calls done(globalAddr): the host name
    // when the service holds this address, else the address.
    void WatchStep(const QString& address, std::function<void(const QString& globalAddr)> done);

    struct ManualResult {
        enum Outcome { LookupFailed, Accepted, Refused } outcome;
        QString answer;
        QString url; // for the URL line and the dialog's address line
    };
    // The setup dialog's button, with the dialog's fields (saved or not).
    void UpdateFromSetup(const QString& user, const QString& password, const QString& host,
                         const QString& portText, std::function<void(const ManualResult&)> done);

    // "http://" + host, with ":" + port unless the port text is exactly "80".
    static QString Url(const QString& host, const QString& portText);
    static bool AcceptedByWatch(const QString& answer);
    static bool AcceptedBySetup(const QString& answer);
    static constexpr int RefreshDays = 28;

signals:
    void urlShown(const QString& url);

private:
    void remember(const QString& address);
    void appendLog(const QString& answer);

    SettingsStore& settings_;
    const Clock& clock_;
    const QString logPath_;
    DnsService& service_;
};
