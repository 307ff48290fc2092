#include "reachability/AddressWatch.h"

#include "core/NetAddress.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "reachability/AddressMail.h"
#include "reachability/DynDns.h"

#include <QHostAddress>

using namespace Qt::StringLiterals;

AddressWatch::AddressWatch(SettingsStore& settings, DnsService& service, AddressMail& mail,
                           DynDns& dns, QObject* parent)
    : QObject(parent), settings_(settings), service_(service), mail_(mail), dns_(dns) {
    timAddrCheck_.setInterval(10000);
    timAddrCheckL_.setInterval(30000);
    timAddrCheckL_.setSingleShot(true);
    connect(&timAddrCheck_, &QTimer::timeout, this, &AddressWatch::Tick);
    connect(&timAddrCheckL_, &QTimer::timeout, this, &AddressWatch::localUrlDue);
    connect(&dns_, &DynDns::urlShown, this, &AddressWatch::urlShown);
}

void AddressWatch::Start() {
    if (settings_.IsOn(Key::Internet)) {
        timAddrCheck_.start();
    } else {
        timAddrCheckL_.start();
        globalAddr_.clear();
    }
}

QString AddressWatch::port() const {
    return settings_.Read(Key::WebPort);
}

QString AddressWatch::LocalUrl() const {
    const QHostAddress local = LocalAddress();
    return DynDns::Url(local.isLoopback() ? u"not detected"_s : local.toString(), port());
}

void AddressWatch::Tick() {
    // Off while a check runs, so that a slow service cannot stack checks.
    timAddrCheck_.stop();
    qint16& ticks = ticks_;
    ++ticks;
    if (ticks != 1 && ticks != 91)
        return resume();
    checking_ = true;
    service_.GetIPAddr([this](const QString& result) { found(result); });
}

void AddressWatch::found(const QString& result) {
    // A failed lookup changes nothing but the counter.
    if (result.isEmpty() || result.contains(u"Error"))
        return finish();
    const QString address = result;
    globalAddr_ = address;
    SettingsStore& s = settings_;
    if (s.IsOn(Key::NotifyMail)) {
        if (s.Read(Key::MailLastIP) != address) {
            mail_.Send(address, [this, address](bool sent) {
                if (sent) {
                    settings_.Write(Key::MailLastIP, address);
                    emit urlShown(DynDns::Url(address, port()));
                }
                dnsStep(address);
            });
            return;
        }
        emit urlShown(DynDns::Url(address, port()));
    }
    dnsStep(address);
}

void AddressWatch::dnsStep(const QString& address) {
    SettingsStore& s = settings_;
    if (s.IsOn(Key::DnsUpdate)) {
        dns_.WatchStep(address, [this](const QString& globalAddr) {
            globalAddr_ = globalAddr;
            finish();
        });
        return;
    }
    if (!s.IsOn(Key::NotifyMail))
        emit urlShown(DynDns::Url(address, port()));
    finish();
}

void AddressWatch::finish() {
    checking_ = false;
    // The next check 90 ticks on, or at the next tick when one was asked for meanwhile.
    ticks_ = soon_ ? 0 : 1;
    soon_ = false;
    resume();
    emit checked();
}

void AddressWatch::resume() {
    if (!stopped_)
        timAddrCheck_.start();
}

void AddressWatch::CheckSoon() {
    stopped_ = false;
    if (checking_) {
        soon_ = true;
        return;
    }
    ticks_ = 0;
    timAddrCheck_.start();
}

void AddressWatch::Stop() {
    stopped_ = true;
    timAddrCheck_.stop();
}

void AddressWatch::Close() {
    Stop();
    timAddrCheckL_.stop();
}
