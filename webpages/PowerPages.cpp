#include "webpages/PowerPages.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "power/Power.h"
#include "webpages/MenuPages.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcPages, "kestrava.pages")

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
        u"<p><font size=\"2\">電源を再投入するには、<a href=\""_s + HtmlEscape(wakeLink) +
        u"\">こちらのリンク</a>に現在のIPアドレス、MACアドレスを入力してください。</font></p>"_s +
        CRLF;
    const QString shown = globalAddr.isEmpty() ? u"不明"_s : HtmlEscape(globalAddr);
    out += u"<p><font size=\"2\">IPアドレス："_s + shown + u"</font><BR>"_s + CRLF;
    out += u"<font size=\"2\">MACアドレス："_s + HtmlEscape(mac) + u"</font></p>"_s + CRLF;
    if (globalAddr.isEmpty())
        out += u"<p><font size=\"2\">※グローバルIPアドレスが取得できませんでした。<BR>"
               u"Kestravaの設定でインターネット側からのアクセスを受け付ける設定になっているか"
               u"確認してください。</font></p>"_s +
               CRLF;
    out += u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

void InstallPowerPages(Dispatcher& dispatcher, SettingsStore& settings, Power& power,
                       std::function<QString()> globalAddr, const QString& netDir,
                       const QString& routeFile) {
    dispatcher.SetGenerator(u"confirm.asp"_s, [](const PageRequest&) { return ConfirmPage(); });
    dispatcher.SetGenerator(u"hibern.asp"_s, [&settings, &power, globalAddr, netDir,
                                              routeFile](const PageRequest& r) {
        // Without a portal of the owner's, the help on waking from outside,
        // served by this server so that a browser elsewhere can open it.
        const QString portal = settings.Read(Key::WakePortal);
        const QString link = portal.isEmpty() ? u"/help/wake.html"_s : portal + u"mp/default.asp"_s;
        const QString page = HibernPage(globalAddr(), MacAddress(netDir, routeFile), link);
        if (!settings.IsOn(Key::PowerControl)) {
            qCInfo(lcPages).noquote() << "hibern.asp from" << r.remoteAddress
                                      << "puts nothing to sleep: Options/PowerControl is not 1";
            return page;
        }
        // The delay lets the page reach the browser before the machine goes down.
        power.HibernateSoon();
        return page;
    });
}
