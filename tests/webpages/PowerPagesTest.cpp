#include "webpages/PowerPages.h"
#include "power/Power.h"
#include "reservations/Scheduler.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QString head(const QString& title) {
    return u"<html>\r\n<head>\r\n<meta http-equiv=\"Content-Language\" content=\"ja\">\r\n"
           u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">\r\n"
           u"<title>"_s +
           title + u"</title>\r\n</head>\r\n<body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">\r\n"_s;
}

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
    // Routes as /proc/net/route lists them: interface, destination, flags,
    // metric, mask.
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

// confirm.asp only asks. hibern.asp arms the 10-second timer only with
// PowerControl 1; with an address it has no warning, without one it says
// unknown and warns.
TEST(PowerPages, ConfirmAsksAndHibernShowsTheWayBack) {
    Server s;
    EXPECT_EQ(s.get(u"/confirm.asp"_s),
              head(u"休止状態確認"_s) +
                  u"<p><font size=\"2\">休止状態にします。</font></p>\r\n"
                  u"<p><font size=\"2\">よろしいですか。　<a href=\"hibern.asp\">はい</a>　"
                  u"<a href=\"default.asp\">いいえ</a></font></p>\r\n"
                  u"<p><font size=\"2\">（休止状態にするとインターネット側からのアクセスができなく"
                  u"なります。）</font></p>\r\n</body>\r\n</html>\r\n"_s);
    EXPECT_EQ(s.power.HibernateInMs(), -1);
    s.globalAddr = u"203.0.113.7"_s;

    const QString top = head(u"休止状態"_s) +
                        u"<p><font size=\"2\">休止状態にしました。</font></p>\r\n"
                        u"<p><font size=\"2\">電源を再投入するには、<a href=\"http://"
                        u"wake.example/mp/default.asp\">こちらのリンク</a>に現在のIPアドレス、"
                        u"MACアドレスを入力してください。</font></p>\r\n"_s;
    s.nic(u"eth0"_s, "3", "1", "00:1a:2b:3c:4d:5e", true);
    const QString page = top + u"<p><font size=\"2\">IPアドレス：203.0.113.7</font><BR>\r\n"
                               u"<font size=\"2\">MACアドレス：00:1A:2B:3C:4D:5E</font></p>\r\n"
                               u"</body>\r\n</html>\r\n"_s;
    for (const char16_t* power : {u"", u"0", u"11"}) {
        s.t.settings.WriteIni(u"Options", u"PowerControl", power);
        EXPECT_EQ(s.get(u"/hibern.asp"_s), page);
        EXPECT_EQ(s.power.HibernateInMs(), -1);
    }
    s.t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    EXPECT_EQ(s.get(u"/hibern.asp"_s), page);
    EXPECT_GT(s.power.HibernateInMs(), 9000);

    Server bare;
    EXPECT_EQ(bare.get(u"/hibern.asp"_s),
              top + u"<p><font size=\"2\">IPアドレス：不明</font><BR>\r\n"
                    u"<font size=\"2\">MACアドレス：</font></p>\r\n"
                    u"<p><font size=\"2\">※グローバルIPアドレスが取得できませんでした。<BR>"
                    u"Kestravaの設定でインターネット側からのアクセスを受け付ける設定になっているか"
                    u"確認してください。</font></p>\r\n</body>\r\n</html>\r\n"_s);
    // Without a portal the link leads to the help on waking from outside, on
    // this server.
    bare.t.settings.WriteIni(u"Power", u"WakePortal", u"");
    EXPECT_TRUE(
        bare.get(u"/hibern.asp"_s).contains(u"<a href=\"/help/wake.html\">こちらのリンク</a>"_s));
}

// The MAC address for waking is that of the interface carrying the default
// route (the lowest metric that has one), else that of a network card, one
// with an address first; never a virtual interface's.
TEST(PowerPages, TheMacIsThatOfTheDefaultRouteElseOfANetworkCard) {
    Server s;
    s.nic(u"lo"_s, "1", "772", "00:00:00:00:00:00");
    s.nic(u"ifb0"_s, "2", "1", "9a:00:00:00:00:01");
    s.nic(u"tun0"_s, "3", "65534", "");
    s.nic(u"eth0"_s, "5", "1", "00:00:00:00:00:05", true);
    s.nic(u"wlan0"_s, "6", "1", "00:00:00:00:00:06", true);
    s.nic(u"br0"_s, "7", "1", "00:00:00:00:00:07");
    EXPECT_EQ(s.mac(), u"00:00:00:00:00:05"_s); // no route file: the first card

    s.routes({"wlan0 0001A8C0 0001 600 00FFFFFF"});
    EXPECT_EQ(s.mac(), u"00:00:00:00:00:06"_s); // the card with an address

    s.routes({"tun0 00000000 0003 50 00000000", "eth0 00000000 0002 100 00000000",
              "br0 00000000 0003 425 00000000", "wlan0 00000000 0003 600 00000000"});
    EXPECT_EQ(s.mac(), u"00:00:00:00:00:07"_s); // tun0 has no MAC, eth0's route is down

    s.routes({"tun0 00000000 0003 50 00000000", "garbage", "ifb0 0002A8C0 0001 0 00FFFFFF"});
    EXPECT_EQ(s.mac(), u"00:00:00:00:00:05"_s);
}
