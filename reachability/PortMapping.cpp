#include "reachability/PortMapping.h"

#include "core/Clock.h"
#include "core/NetAddress.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>

#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcUpnp, "kestrava.upnp")

const QString Failed = u"Failed"_s;
const QString Success = u"Success"_s;

// One router found for one operation; released at its end.
struct Igd {
    UPNPUrls urls{};
    IGDdatas data{};
    bool owned = false;
    ~Igd() {
        if (owned)
            FreeUPNPUrls(&urls);
    }
};

// The router named by descUrl, or the one that answers discovery.
bool findIgd(const QByteArray& descUrl, Igd& igd) {
    char lanAddr[64] = {};
    if (!descUrl.isEmpty()) {
        igd.owned = UPNP_GetIGDFromUrl(descUrl.constData(), &igd.urls, &igd.data, lanAddr,
                                       sizeof lanAddr) == 1;
        return igd.owned;
    }
    int error = 0;
    UPNPDev* devices = upnpDiscover(PortMapping::DiscoveryMs, nullptr, nullptr, 0, 0, 2, &error);
    if (!devices)
        return false;
    const int found = UPNP_GetValidIGD(devices, &igd.urls, &igd.data, lanAddr, sizeof lanAddr);
    freeUPNPDevlist(devices);
    igd.owned = found != 0;
    return found == 1 || found == 2; // 2: an IGD that says it is not connected
}

// A port text as a number of 1..65535, else 0.
int portNumber(const QString& text) {
    bool ok = false;
    const int n = text.trimmed().toInt(&ok);
    return ok && n >= 1 && n <= 65535 ? n : 0;
}

QString listMappings(const QByteArray& descUrl) {
    Igd igd;
    if (!findIgd(descUrl, igd))
        return Failed;
    QString lines;
    // Every port and protocol at most once; a router claiming more is not believed.
    for (int i = 0; i < 2 * 65536; ++i) {
        char ext[16] = {}, client[64] = {}, in[16] = {}, proto[8] = {}, desc[128] = {},
             enabled[8] = {}, remote[72] = {}, duration[24] = {};
        const QByteArray index = QByteArray::number(i);
        const int r = UPNP_GetGenericPortMappingEntry(
            igd.urls.controlURL, igd.data.first.servicetype, index.constData(), ext, client, in,
            proto, desc, enabled, remote, duration);
        if (r == 713 || r == 714) // past the last entry
            return lines;
        if (r != UPNPCOMMAND_SUCCESS) {
            qCDebug(lcUpnp) << "list entry" << i << "failed:" << r << strupnperror(r);
            return Failed;
        }
        lines += u"Description:"_s + QString::fromUtf8(desc) + u" ExternalPort:"_s +
                 QString::fromUtf8(ext) + u" Protocol:"_s + QString::fromUtf8(proto) +
                 u" InternalPort:"_s + QString::fromUtf8(in) + u" InternalClient:"_s +
                 QString::fromUtf8(client) + u"\r\n"_s;
    }
    return lines;
}

qint64 minuteOf(const QDateTime& t) {
    const qint64 s = t.toSecsSinceEpoch();
    return s >= 0 ? s / 60 : (s - 59) / 60;
}
} // namespace

struct PortMapping::Link {
    std::mutex mutex;
    PortMapping* owner = nullptr;
};

PortMapping::PortMapping(SettingsStore& settings, const Clock& clock, QObject* parent)
    : QObject(parent), settings_(settings), clock_(clock), link_(std::make_shared<Link>()) {
    link_->owner = this;
    timUPnPDelay_.setInterval(10000);
    timUPnPReWrite_.setInterval(30000);
    connect(&timUPnPDelay_, &QTimer::timeout, this, &PortMapping::delayTick);
    connect(&timUPnPReWrite_, &QTimer::timeout, this, &PortMapping::reWriteTick);
}

PortMapping::~PortMapping() {
    std::lock_guard lock(link_->mutex);
    link_->owner = nullptr;
}

void PortMapping::run(std::function<QString()> work, Done done) {
    std::thread([link = link_, work = std::move(work), done = std::move(done)]() mutable {
        const QString result = work();
        std::lock_guard lock(link->mutex);
        if (!link->owner)
            return;
        QMetaObject::invokeMethod(
            link->owner,
            [result, done = std::move(done)] {
                if (done)
                    done(result);
            },
            Qt::QueuedConnection);
    }).detach();
}

void PortMapping::UPnPAddMapping(const QString& port, const QString& client,
                                 const QString& protocol, const QString& description, Done done) {
    addMapping(portNumber(port), portNumber(port), client, protocol, description, std::move(done));
}

void PortMapping::addMapping(int external, int internal, const QString& client,
                             const QString& protocol, const QString& description, Done done) {
    const QByteArray url = settings_.Read(Key::UPnPDescURL).trimmed().toUtf8();
    const QByteArray outside = QByteArray::number(external), inside = QByteArray::number(internal),
                     host = client.toUtf8(), proto = protocol.toUtf8(), desc = description.toUtf8();
    run(
        [=] {
            Igd igd;
            if (external == 0 || internal == 0 || !findIgd(url, igd))
                return Failed;
            const int r =
                UPNP_AddPortMapping(igd.urls.controlURL, igd.data.first.servicetype,
                                    outside.constData(), inside.constData(), host.constData(),
                                    desc.constData(), proto.constData(), nullptr, "0");
            if (r != UPNPCOMMAND_SUCCESS) {
                qCDebug(lcUpnp) << "add" << outside << "failed:" << r << strupnperror(r);
                return Failed;
            }
            return Success;
        },
        std::move(done));
}

void PortMapping::MapChallengePort(bool open, Done done) {
    if (!done)
        done = [](const QString&) {};
    challengeWanted_ = open;
    if (!open) {
        if (!challengeMapped_)
            return done(Success);
        challengeMapped_ = false;
        return UPnPRemoveMapping(u"80"_s, u"TCP"_s, std::move(done));
    }
    const QString address = GetPrivateIP();
    if (address == Failed)
        return done(Failed);
    addMapping(80, portNumber(settings_.Read(Key::WebPort)), address, u"TCP"_s,
               u"Kestrava certificate check"_s, [this, done](const QString& r) {
                   if (r == Failed)
                       qCWarning(lcUpnp) << "the router does not forward port 80 to the web "
                                            "port; a CA's check over HTTP may not reach it";
                   challengeMapped_ = r != Failed;
                   // Closed while the router was asked.
                   if (challengeMapped_ && !challengeWanted_)
                       return MapChallengePort(false, done);
                   done(r);
               });
}

void PortMapping::UPnPRemoveMapping(const QString& port, const QString& protocol, Done done) {
    const int n = portNumber(port);
    const QByteArray url = settings_.Read(Key::UPnPDescURL).trimmed().toUtf8();
    const QByteArray number = QByteArray::number(n), proto = protocol.toUtf8();
    run(
        [=] {
            Igd igd;
            if (n == 0 || !findIgd(url, igd))
                return Failed;
            const int r = UPNP_DeletePortMapping(igd.urls.controlURL, igd.data.first.servicetype,
                                                 number.constData(), proto.constData(), nullptr);
            return r == UPNPCOMMAND_SUCCESS ? Success : Failed;
        },
        std::move(done));
}

void PortMapping::UPnPListMappings(Done done) {
    const QByteArray url = settings_.Read(Key::UPnPDescURL).trimmed().toUtf8();
    run([url] { return listMappings(url); }, std::move(done));
}

void PortMapping::AddMappingPort(const QString& port, const QString& client,
                                 const QString& protocol, const QString& description, Done done) {
    UPnPAddMapping(port, client, protocol, description, std::move(done));
}

void PortMapping::MapWebPort(Done done) {
    const QString address = GetPrivateIP();
    if (address == Failed) {
        QTimer::singleShot(0, this, [done] { done(Failed); });
        return;
    }
    AddMappingPort(settings_.Read(Key::WebPort), address, u"TCP"_s, u"Kestrava"_s,
                   [done](const QString& r) { done(r == Failed ? Failed : Success); });
}

void PortMapping::DeleteMappingPort(const QString& port, const QString& protocol, Done done) {
    ++generation_;
    MappingDone = false;
    timUPnPReWrite_.stop();
    timUPnPDelay_.stop();
    UPnPRemoveMapping(port, protocol, std::move(done));
}

void PortMapping::ListMapping(Done done) {
    UPnPListMappings([this, done](const QString& r) {
        if (r != Failed) {
            done(r);
            return;
        }
        QTimer::singleShot(5000, this, [this, done] { UPnPListMappings(done); });
    });
}

void PortMapping::RemoveAtExit(int timeoutMs) {
    // Without internet access and no mapping made, asking would only send
    // discovery into the network on every exit.
    if (!MappingDone && !settings_.IsOn(Key::Internet))
        return;
    auto loop = std::make_shared<QEventLoop>();
    DeleteMappingPort(settings_.Read(Key::WebPort), u"TCP"_s, [loop](const QString& r) {
        qCDebug(lcUpnp) << "removal at exit:" << r;
        loop->quit();
    });
    QTimer::singleShot(timeoutMs, loop.get(), &QEventLoop::quit);
    loop->exec();
}

void PortMapping::Start() {
    timUPnPDelay_.start();
}

void PortMapping::StartSoon() {
    timUPnPDelay_.setInterval(100);
    timUPnPDelay_.start();
}

void PortMapping::Stop() {
    timUPnPDelay_.stop();
    timUPnPReWrite_.stop();
}

void PortMapping::delayTick() {
    if (MappingDone)
        return;
    timUPnPDelay_.stop();
    emit tryStarted();
    const quint64 generation = generation_;
    MapWebPort([this, generation](const QString& r) {
        if (generation != generation_)
            return; // removed meanwhile: stay off
        if (r != Failed) {
            timUPnPReWrite_.start();
            MappingTime = clock_.now();
            MappingDone = true;
        }
        if (!MappingDone)
            timUPnPDelay_.start();
    });
}

void PortMapping::reWriteTick() {
    if (reWriteBusy_ || minuteOf(clock_.now()) - minuteOf(MappingTime) <= 5)
        return;
    reWriteBusy_ = true;
    const quint64 generation = generation_;
    ListMapping([this, generation](const QString& list) {
        auto finish = [this](const QString&) {
            MappingTime = clock_.now();
            reWriteBusy_ = false;
        };
        // Another mapping naming "VNC" anywhere holds off the rewrite.
        if (list != Failed && !list.contains(u"VNC"_s) && generation == generation_)
            MapWebPort(finish);
        else
            finish(list);
    });
}
