#include "reachability/InternetAccess.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "reachability/AddressWatch.h"
#include "reachability/DynDns.h"
#include "reachability/PortMapping.h"

#include <QPointer>

using namespace Qt::StringLiterals;

InternetAccess::InternetAccess(SettingsStore& settings, DnsService& dns, AddressWatch& watch,
                               PortMapping& mapping, QObject* parent)
    : QObject(parent), settings_(settings), dns_(dns), watch_(watch), mapping_(mapping) {}

void InternetAccess::Start() {
    watch_.Start();
    if (IsOn())
        mapping_.Start();
}

bool InternetAccess::IsOn() const {
    return settings_.IsOn(Key::Internet);
}

void InternetAccess::SwitchOn(std::function<void(const QString& address)> done) {
    const quint64 asked = ++generation_;
    QPointer<InternetAccess> self(this);
    dns_.GetIPAddr([self, asked, done = std::move(done)](const QString& result) {
        if (!self || self->generation_ != asked)
            return;
        if (result.isEmpty() || result.contains(u"Error")) {
            self->SwitchOff();
            if (done)
                done({});
            return;
        }
        self->settings_.Write(Key::Internet, u"1");
        self->watch_.CheckSoon();
        self->mapping_.StartSoon();
        if (done)
            done(result);
    });
}

void InternetAccess::SwitchOff() {
    ++generation_;
    settings_.Write(Key::Internet, u"0");
    watch_.Stop();
    mapping_.DeleteMappingPort(settings_.Read(Key::WebPort), u"TCP"_s);
}

void InternetAccess::MailNotifySaved(bool on) {
    if (on)
        watch_.CheckSoon();
    else
        watch_.Stop();
}
