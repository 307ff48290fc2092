#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

class AddressMail;
class DynDns;
class DnsService;
class SettingsStore;

// Finds the global address on the first tick of timAddrCheck and every 90th
// after, then runs the mail step and, once that has ended, the DNS step. The
// timer is off while a check runs and comes back on when the whole check has
// ended.
class AddressWatch : public QObject {
    Q_OBJECT
public:
    AddressWatch(SettingsStore& settings, DnsService& service, AddressMail& mail, DynDns& dns,
                 QObject* parent = nullptr);

    // The start: with internet use on the checks begin; off, the global
    // address is forgotten and the local URL is shown again in 30 s.
    void Start();

    // timAddrCheck's handler.
    void Tick();
    // A check within one tick: AddrCheckTicks 0 and the timer on.
    void CheckSoon();
    // The timer off; a check under way does not turn it back on.
    void Stop();
    // The close order: both timers off for good.
    void Close();
    bool checking() const { return checking_; }
    bool watching() const { return timAddrCheck_.isActive(); }
    // The address last found, or the host name the DNS step reports.
    const QString& GlobalAddr() const { return globalAddr_; }
    qint16 AddrCheckTicks() const { return ticks_; }

    // "http://" + the machine's own address ("not detected" without one), with
    // ":" + WebServer/Port unless that is exactly "80".
    QString LocalUrl() const;

signals:
    // The text of the URL line of the main window.
    void urlShown(const QString& url);
    // A check has ended, whatever its outcome.
    void checked();
    // Internet use off: time to show the local URL again.
    void localUrlDue();

private:
    void found(const QString& result);
    void dnsStep(const QString& address);
    void finish();
    void resume();
    QString port() const;

    SettingsStore& settings_;
    DnsService& service_;
    AddressMail& mail_;
    DynDns& dns_;
    bool checking_ = false;
    bool stopped_ = false;
    bool soon_ = false;
    QString globalAddr_;
    qint16 ticks_ = 0;
    QTimer timAddrCheck_;  // 10 s: global address check
    QTimer timAddrCheckL_; // 30 s, one shot: refresh the local URL
};
