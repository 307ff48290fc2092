#include "webpages/PowerPages.h"
#include "power/Power.h"
#include "reservations/Scheduler.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/StoredPage.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Server {
    TempFolder t;
    FixedClock clock;
    ScriptedPrompt prompt;
    Scheduler scheduler{t.folder, t.settings, clock};
    Power power{t.settings, prompt, scheduler};
    QString globalAddr;
    Dispatcher dispatcher;

    Server() {
        InstallPowerPages(
            dispatcher, t.settings, power, [this] { return globalAddr; }, t.path(u"net"),
            t.path(u"route"));
        t.settings.WriteIni(u"Power", u"WakePortal", u"http://wake.example/");
    }
    QString get(const QString& path) { return dispatcher.DispatchPage(path, {}, u"127.0.0.1"_s); }
    // An interface as sysfs shows it; a card has a device behind it.
    void nic(const QString& name, const QByteArray& index, const QByteArray& type,
             const QByteArray& mac, bool card = false) {
        t.writeFile(u"net/"_s + name + u"/ifindex"_s, index + '\n');
        t.writeFile(u"net/"_s + name + u"/type"_s, type + '\n');
        t.writeFile(u"net/"_s + name + u"/address"_s, mac + '\n');
        if (card)
            t.writeFile(u"net/"_s + name + u"/device/uevent"_s, "DRIVER=x\n");
    }
    // Routes as /proc/net/route lists them: interface, destination, flags, metric, mask.
    void routes(const QList<QByteArray>& lines) {
        QByteArray text = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask"
                          "\t\tMTU\tWindow\tIRTT\n";
        for (const QByteArray& line : lines) {
            const QList<QByteArray> f = line.split(' ');
            if (f.size() < 5) {
                text += line + '\n';
                continue;
            }
            text += f[0] + '\t' + f[1] + "\t0101A8C0\t" + f[2] + "\t0\t0\t" + f[3] + '\t' + f[4] +
                    "\t0\t0\t0\n";
        }
        t.writeFile(u"route"_s, text);
    }
    QString mac() { return MacAddress(t.path(u"net"), t.path(u"route")); }
};

} // namespace

// confirm.asp only asks; hibern.asp arms the timer only with PowerControl 1.
TEST(PowerPages, HibernShowsTheWayBackWithTheDefaultRoutesMac) {
    Server s;
    ExpectStoredPage(u"confirm.html"_s, s.get(u"/confirm.asp"_s));
    EXPECT_EQ(s.power.HibernateInMs(), -1);
    s.globalAddr = u"203.0.113.7"_s;
    s.nic(u"eth0"_s, "3", "1", "00:1a:2b:3c:4d:5e", true);
    for (const char16_t* power : {u"", u"0", u"11"}) {
        s.t.settings.WriteIni(u"Options", u"PowerControl", power);
        ExpectStoredPage(u"hibern.html"_s, s.get(u"/hibern.asp"_s));
        EXPECT_EQ(s.power.HibernateInMs(), -1);
    }
    s.t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    ExpectStoredPage(u"hibern.html"_s, s.get(u"/hibern.asp"_s));
    EXPECT_GT(s.power.HibernateInMs(), 9000);

    Server bare;
    ExpectStoredPage(u"hibern-unknown.html"_s, bare.get(u"/hibern.asp"_s));
    // Without a portal the link leads to this server's help on waking.
    bare.t.settings.WriteIni(u"Power", u"WakePortal", u"");
    EXPECT_TRUE(
        bare.get(u"/hibern.asp"_s).contains(u"<a href=\"/help/wake.html\">こちらのリンク</a>"_s));

    // The MAC of the default route's interface (lowest metric), else of a card with an address
    // first; never a virtual interface's.
    bare.nic(u"lo"_s, "1", "772", "00:00:00:00:00:00");
    bare.nic(u"ifb0"_s, "2", "1", "9a:00:00:00:00:01");
    bare.nic(u"tun0"_s, "3", "65534", "");
    bare.nic(u"eth0"_s, "5", "1", "00:00:00:00:00:05", true);
    bare.nic(u"wlan0"_s, "6", "1", "00:00:00:00:00:06", true);
    bare.nic(u"br0"_s, "7", "1", "00:00:00:00:00:07");
    EXPECT_EQ(bare.mac(), u"00:00:00:00:00:05"_s); // no route file: the first card

    bare.routes({"wlan0 0001A8C0 0001 600 00FFFFFF"});
    EXPECT_EQ(bare.mac(), u"00:00:00:00:00:06"_s); // the card with an address

    bare.routes({"tun0 00000000 0003 50 00000000", "eth0 00000000 0002 100 00000000",
                 "br0 00000000 0003 425 00000000", "wlan0 00000000 0003 600 00000000"});
    EXPECT_EQ(bare.mac(), u"00:00:00:00:00:07"_s); // tun0 has no MAC, eth0's route is down

    bare.routes({"tun0 00000000 0003 50 00000000", "garbage", "ifb0 0002A8C0 0001 0 00FFFFFF"});
    EXPECT_EQ(bare.mac(), u"00:00:00:00:00:05"_s);
}
