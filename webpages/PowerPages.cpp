#include "webpages/PowerPages.h"

#include "core/Application.h"
#include "core/Help.h"
#include "core/Settings.h"
#include "power/Power.h"
#include "webpages/MenuPages.h"
#include "webserver/Dispatcher.h"

using namespace Qt::StringLiterals;

namespace {
const QString CRLF = u"\r\n"_s;

QString head(const QString& title) {
    return PageHead({true, true, title, BrowserBodyTag});
}
} // namespace

QString ConfirmPage() {
    return head(u"休止状態確認"_s) + u"<p><font size=\"2\">休止状態にします。</font></p>"_s + CRLF +
           u"<p><font size=\"2\">よろしいですか。　<a href=\"hibern.asp\">はい</a>　"
           u"<a href=\"default.asp\">いいえ</a></font></p>"_s +
           CRLF +
           u"<p><font "
           u"size=\"2\">（休止状態にするとインターネット側からのアクセスができなくなります。）"
           u"</font></p>"_s +
           CRLF + u"</body>"_s + CRLF + u"</html>"_s + CRLF;
}

QString HibernPage(const QString& globalAddr, const QString& mac, const QString& wakeLink) {
    QString out = head(u"休止状態"_s);
    out += u"<p><font size=\"2\">休止状態にしました。</font></p>"_s + CRLF;
    out +=
        u"<p><font size=\"2\">電源を再投入するには、<a href=\""_s + wakeLink +
        u"\">こちらのリンク</a>に現在のIPアドレス、MACアドレスを入力してください。</font></p>"_s +
        CRLF;
    const QString shown = globalAddr.isEmpty() ? u"不明"_s : globalAddr;
    out += u"<p><font size=\"2\">IPアドレス："_s + shown + u"</font><BR>"_s + CRLF;
    out += u"<font size=\"2\">MACアドレス："_s + mac + u"</font></p>"_s + CRLF;
    if (globalAddr.isEmpty())
        out += u"<p><font size=\"2\">※グローバルIPアドレスが取得できませんでした。<BR>"
               u"Kestravaの設定でインターネット側からのアクセスを受け付ける設定になっているか"
               u"確認してください。</font></p>"_s +
               CRLF;
    out += u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

void InstallPowerPages(Dispatcher& dispatcher, Application& app, const QString& netDir) {
    dispatcher.SetGenerator(u"confirm.asp"_s, [](const PageRequest&) { return ConfirmPage(); });
    dispatcher.SetGenerator(u"hibern.asp"_s, [&app, netDir](const PageRequest&) {
        // Without a portal of the owner's, the help page on waking from outside.
        const QString portal = app.settings.ReadIni(u"Power", u"WakePortal");
        QString link = portal + u"mp/default.asp"_s;
        if (portal.isEmpty()) {
            const QUrl help = HelpPageUrl(u"wake.html"_s);
            link = help.isEmpty() ? u"wake.html"_s : help.toString(QUrl::FullyEncoded);
        }
        const QString page = HibernPage(app.state.GlobalAddr, MacAddress(netDir), link);
        // The delay lets the page reach the browser before the machine goes down.
        app.power->timHibern.start();
        return page;
    });
}
