#include "webpages/PowerPages.h"
#include "core/Application.h"
#include "power/Power.h"
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
    Application app{t.folder, t.settings, clock, prompt};
    Dispatcher dispatcher;

    Server() {
        InstallPowerPages(dispatcher, app, t.path(u"net"));
        t.settings.WriteIni(u"Power", u"WakePortal", u"http://wake.example/");
    }
    QString get(const QString& path) { return dispatcher.DispatchPage(path, {}, u"127.0.0.1"_s); }
    void nic(const QString& name, const QByteArray& index, const QByteArray& type,
             const QByteArray& mac) {
        t.writeFile(u"net/"_s + name + u"/ifindex"_s, index + '\n');
        t.writeFile(u"net/"_s + name + u"/type"_s, type + '\n');
        t.writeFile(u"net/"_s + name + u"/address"_s, mac + '\n');
    }
};

} // namespace

// confirm.asp only asks. hibern.asp, with PowerControl off too, arms the
// 10-second timer; with an address it has no warning and the MAC of the first
// real interface by index, without one it says unknown and warns.
TEST(PowerPages, ConfirmAsksAndHibernShowsTheWayBack) {
    Server s;
    EXPECT_EQ(s.get(u"/confirm.asp"_s),
              head(u"休止状態確認"_s) +
                  u"<p><font size=\"2\">休止状態にします。</font></p>\r\n"
                  u"<p><font size=\"2\">よろしいですか。　<a href=\"hibern.asp\">はい</a>　"
                  u"<a href=\"default.asp\">いいえ</a></font></p>\r\n"
                  u"<p><font size=\"2\">（休止状態にするとインターネット側からのアクセスができなく"
                  u"なります。）</font></p>\r\n</body>\r\n</html>\r\n"_s);
    EXPECT_FALSE(s.app.power->timHibern.isActive());

    const QString top = head(u"休止状態"_s) +
                        u"<p><font size=\"2\">休止状態にしました。</font></p>\r\n"
                        u"<p><font size=\"2\">電源を再投入するには、<a href=\"http://"
                        u"wake.example/mp/default.asp\">こちらのリンク</a>に現在のIPアドレス、"
                        u"MACアドレスを入力してください。</font></p>\r\n"_s;
    s.t.settings.WriteIni(u"Options", u"PowerControl", u"0");
    s.app.state.GlobalAddr = u"203.0.113.7"_s;
    s.nic(u"lo"_s, "1", "772", "00:00:00:00:00:00");
    s.nic(u"tun0"_s, "2", "65534", "");
    s.nic(u"wlan0"_s, "4", "1", "0a:1b:2c:3d:4e:5f");
    s.nic(u"eth0"_s, "3", "1", "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(s.get(u"/hibern.asp"_s),
              top + u"<p><font size=\"2\">IPアドレス：203.0.113.7</font><BR>\r\n"
                    u"<font size=\"2\">MACアドレス：00:1A:2B:3C:4D:5E</font></p>\r\n"
                    u"</body>\r\n</html>\r\n"_s);
    EXPECT_TRUE(s.app.power->timHibern.isActive());
    EXPECT_EQ(s.app.power->timHibern.interval(), 10000);

    Server bare;
    EXPECT_EQ(bare.get(u"/hibern.asp"_s),
              top + u"<p><font size=\"2\">IPアドレス：不明</font><BR>\r\n"
                    u"<font size=\"2\">MACアドレス：</font></p>\r\n"
                    u"<p><font size=\"2\">※グローバルIPアドレスが取得できませんでした。<BR>"
                    u"Kestravaの設定でインターネット側からのアクセスを受け付ける設定になっているか"
                    u"確認してください。</font></p>\r\n</body>\r\n</html>\r\n"_s);
    // Without a portal the link leads to the help on waking from outside.
    bare.t.settings.WriteIni(u"Power", u"WakePortal", u"");
    EXPECT_TRUE(bare.get(u"/hibern.asp"_s).contains(u"wake.html\">こちらのリンク</a>"_s));
}
