#include "webpages/MenuPages.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "remotes/Registry.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"

#include <vector>

using namespace Qt::StringLiterals;

const QString BrowserBodyTag = u"<body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">"_s;

namespace {

const QString CRLF = u"\r\n"_s;
const QString ChooseTitle = u"操作したい機器を選択してください"_s;

struct ListedDevice {
    int id;
    QString name;
    QString design;
};

// Remotes 1 to 100 that have a name, gaps kept out, or the three test-mode
// devices. The design is read only when asked for.
std::vector<ListedDevice> listedDevices(SettingsStore& settings, bool withDesign) {
    std::vector<ListedDevice> out;
    if (IsTestMode(settings)) {
        for (const TestModeDevice& d : TestModeDevices())
            out.push_back({d.id, d.name, QString::number(d.design)});
        return out;
    }
    for (int id = 1; id <= MaxListedRemoteId; ++id) {
        QString name = settings.Read(Key::RemoteName(id));
        if (name.isEmpty())
            continue;
        QString design = withDesign ? settings.Read(Key::RemoteDesign(id)) : QString();
        out.push_back({id, std::move(name), std::move(design)});
    }
    return out;
}

// Names go out as they stand, in the link too, but for the characters that
// would make them markup.
QString deviceLink(const QString& page, const ListedDevice& d) {
    const QString name = HtmlEscape(d.name);
    return u"・<a href=\""_s + HtmlEscape(page) + u"?DevID="_s + QString::number(d.id) +
           u"&Button=&Device="_s + name + u"\">"_s + name + u"</a><BR>"_s;
}

QString menuEntry(const QString& target, const QString& text) {
    return u"<p><font size=\"2\"><a href=\""_s + target + u"\">"_s + text + u"</a></font></p>"_s +
           CRLF;
}

} // namespace

QString PageHead(const PageFrame& frame) {
    const QString br = frame.headBreaks ? CRLF : QString();
    QString out = u"<html>"_s + br + u"<head>"_s + br;
    if (frame.languageMeta)
        out += u"<meta http-equiv=\"Content-Language\" content=\"ja\">"_s + br;
    out += u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">"_s + br;
    out += u"<title>"_s + frame.title + u"</title>"_s + br;
    out += u"</head>"_s + br;
    out += frame.bodyTag + br;
    return out;
}

QString DefaultPage(SettingsStore& settings) {
    QString out = PageHead({true, true, u"Kestrava"_s, BrowserBodyTag});
    out += u"<a href=\"cell.asp\">携帯用</a>"_s + CRLF;
    out += u"<a href=\"m/\">スマートフォン用</a>"_s + CRLF;
    out += u"<HR>"_s + CRLF;
    out += u"<p><font size=\"2\"><B>Kestravaの操作</B></font></p>"_s + CRLF;
    out += menuEntry(u"remote.asp"_s, u"リモコン操作"_s);
    out += menuEntry(u"add1.asp"_s, u"予約の追加・編集"_s);
    out += menuEntry(u"list.asp"_s, u"予約の一覧・削除"_s);
    if (settings.IsOn(Key::PowerControl))
        out += menuEntry(u"confirm.asp"_s, u"休止状態にする"_s);
    out += u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

QString RemoteListPage(SettingsStore& settings) {
    QString out = PageHead({true, false, ChooseTitle, BrowserBodyTag});
    out += CRLF;
    out += u"<form><fieldset style=\"width:170; padding: 2; height:145\"><legend><p>"
           u"<font size=\"2\">操作したい機器を選択</font></p></legend><font size=\"2\">"_s;
    // The design goes into the link; the server never looks it up again.
    for (const ListedDevice& d : listedDevices(settings, true))
        out += deviceLink(u"remote"_s + d.design + u".asp"_s, d);
    out += u"</font></fieldset></form></body></html>"_s;
    return out;
}

QString CellPage(SettingsStore& settings) {
    QString out = PageHead({true, false, ChooseTitle, u"<body>"_s});
    out += u"<p>操作したい機器を選択</p>"_s;
    for (const ListedDevice& d : listedDevices(settings, false))
        out += deviceLink(u"cremote.asp"_s, d);
    out += u"</body></html>"_s;
    return out;
}

void InstallMenuPages(Dispatcher& dispatcher, SettingsStore& settings) {
    dispatcher.SetGenerator(u"default.asp"_s,
                            [&settings](const PageRequest&) { return DefaultPage(settings); });
    dispatcher.SetGenerator(u"remote.asp"_s,
                            [&settings](const PageRequest&) { return RemoteListPage(settings); });
    dispatcher.SetGenerator(u"cell.asp"_s,
                            [&settings](const PageRequest&) { return CellPage(settings); });
}
