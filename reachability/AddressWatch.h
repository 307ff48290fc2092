#pragma once

#include <QObject>
#include <QString>

class AddressMail;
class Application;
class DynDns;
class DnsService;

// Finds the global address on the first tick of timAddrCheck and every 90th
// after, then runs the mail step and, once that has ended, the DNS step. The
// timer is off while a check runs and comes back on when the whole check has
// ended.
class AddressWatch : public QObject {
    Q_OBJECT
public:
    AddressWatch(Application& app, DnsService& service, AddressMail& mail, DynDns& dns,
                 QObject* parent = nullptr);

    // timAddrCheck's handler.
    void Tick();
    // A check within one tick: AddrCheckTicks 0 and the timer on.
    void CheckSoon();
    // The timer off; a check under way does not turn it back on.
    void Stop();
    bool checking() const { return checking_; }

    // "http://" + the machine's own address ("not detected" without one), with
    // ":" + WebServer/Port unless that is exactly "80".
    QString LocalUrl() const;

signals:
    // The text of the URL line of the main window.
    void urlShown(const QString& url);
    // A check has ended, whatever its outcome.
    void checked();

private:
    void found(const QString& result);
    void dnsStep(const QString& address);
    void finish();
    void resume();
    QString port() const;

    Application& app_;
    DnsService& service_;
    AddressMail& mail_;
    DynDns& dns_;
    bool checking_ = false;
    bool stopped_ = false;
    bool soon_ = false;
};
