#include "reachability/AddressWatch.h"

#include "core/Application.h"
#include "core/NetAddress.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "reachability/AddressMail.h"
#include "reachability/DynDns.h"

#include <QHostAddress>

using namespace Qt::StringLiterals;

AddressWatch::AddressWatch(Application& app, DnsService& service, AddressMail& mail, DynDns& dns,
                           QObject* parent)
    : QObject(parent), app_(app), service_(service), mail_(mail), dns_(dns) {
    connect(&dns_, &DynDns::urlShown, this, &AddressWatch::urlShown);
}

QString AddressWatch::port() const {
    return app_.settings.Read(Key::WebPort);
}

QString AddressWatch::LocalUrl() const {
    const QHostAddress local = LocalAddress();
    return DynDns::Url(local.isLoopback() ? u"not detected"_s : local.toString(), port());
}

void AddressWatch::Tick() {
    // Off while a check runs, so that a slow service cannot stack checks.
    app_.timAddrCheck.stop();
    qint16& ticks = app_.state.AddrCheckTicks;
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
    app_.state.GlobalAddr = address;
    SettingsStore& s = app_.settings;
    if (s.IsOn(Key::NotifyMail)) {
        if (s.Read(Key::MailLastIP) != address) {
            mail_.Send(address, [this, address](bool sent) {
                if (sent) {
                    app_.settings.Write(Key::MailLastIP, address);
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
    SettingsStore& s = app_.settings;
    if (s.IsOn(Key::DnsUpdate)) {
        dns_.WatchStep(address, [this](const QString& globalAddr) {
            app_.state.GlobalAddr = globalAddr;
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
    app_.state.AddrCheckTicks = soon_ ? 0 : 1;
    soon_ = false;
    resume();
    emit checked();
}

void AddressWatch::resume() {
    if (!stopped_ && !app_.isClosing())
        app_.timAddrCheck.start();
}

void AddressWatch::CheckSoon() {
    stopped_ = false;
    if (checking_) {
        soon_ = true;
        return;
    }
    app_.state.AddrCheckTicks = 0;
    app_.timAddrCheck.start();
}

void AddressWatch::Stop() {
    stopped_ = true;
    app_.timAddrCheck.stop();
}
