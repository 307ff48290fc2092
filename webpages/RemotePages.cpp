#include "webpages/RemotePages.h"

#include "core/Clock.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/DesignLayout.h"
#include "remotes/Registry.h"
#include "webpages/MenuPages.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString CRLF = u"\r\n"_s;
const QString MenuLink = u"<a href=\"default.asp\">メニューへ戻る</a>"_s;

// Phones ask 66 keys whatever the design: no design has more buttons.
constexpr int CellButtonCount = 66;

SendResult send(const RemotePageServices& services, const QString& devId, const QString& button) {
    return services.send ? services.send(devId, button) : SendResult::Failed;
}

// What a page says when its press did not go out.
QString sendFailure(SendResult result) {
    return result == SendResult::Busy ? SendBusyText : u"リモコン信号を送信できませんでした。"_s;
}

QString num(int n) {
    return QString::number(n);
}

QString divAt(int left, int top) {
    return u"<DIV STYLE=\"POSITION:absolute;LEFT:"_s + num(left) + u"px;TOP:"_s + num(top) +
           u"px\">"_s;
}

QString panelImage(const QString& file, PanelSize size) {
    return u"<IMG SRC=\"pic/"_s + file + u"\" height=\""_s + num(size.height) + u"\" width=\""_s +
           num(size.width) + u"\">"_s;
}

QString pageName(int design) {
    return u"remote"_s + num(design) + u".asp"_s;
}

// The label in one of three sizes; short ones are centred with wide spaces.
QString label(const QString& text) {
    const int size = FitLabel(text);
    QString padding;
    if (size == 8)
        padding = WideSpaces(int((6 - ShiftJis::ByteLength(text)) / 2));
    return u"<span style=\"font-size:"_s + num(size) + u"pt\">"_s + padding + HtmlEscape(text) +
           u"</span></DIV>"_s + CRLF;
}

// A request's value inside the quoted script of an onclick attribute: escaped
// for the script, then for the attribute.
QString scriptText(const QString& value) {
    QString s = value;
    s.replace(u'\\', u"\\\\"_s).replace(u'\'', u"\\'"_s);
    s.replace(u'\r', u"\\r"_s).replace(u'\n', u"\\n"_s);
    return HtmlEscape(s);
}

QString buttonBlock(int design, const ButtonDef& b, const PageRequest& r) {
    QString device = scriptText(r.Device);
    if (design == 2 && b.id == 0)
        device += u"&Device="_s + device; // this one link names the device twice
    const QString pic = u"pic/"_s + b.picture;
    QString out = divAt(b.left, b.top);
    if (design != 1 && design != 3)
        out += CRLF;
    out += u"<IMG SRC=\""_s + pic + u".gif\" onmousedown=\"this.src='"_s + pic +
           u"-p.gif'\" onmouseup=\"this.src='"_s + pic + u".gif'\""_s + CRLF;
    out += u"onclick=\"location.href='"_s + pageName(design) + u"?DevID="_s + scriptText(r.DevID) +
           u"&Button="_s + num(b.id) + u"&Device="_s + device + u"'\">"_s + CRLF;
    out += u"</DIV>"_s + CRLF;
    return out;
}

// The snapshot: the camera streams while the option is on, so its newest frame
// is written at once instead of after a settle wait.
void takeSnapshot(SettingsStore& settings, const RemotePageServices& services) {
    if (services.showPreview)
        services.showPreview(true);
    if (services.takeSnapshot)
        services.takeSnapshot(); // a failure leaves the last picture, silently
    if (!settings.IsOn(Key::PreviewAlwaysShow) && services.showPreview)
        services.showPreview(false);
}

// A new stamp per page keeps phones from answering from their cache.
QString cellStamp(const Clock& clock) {
    return clock.now().toString(u"yyyyMMddHHmmss"_s);
}

QString cellLink(const PageRequest& r, const QString& stamp, int buttonId, const QString& name) {
    return u"・<a href=\"cremote.asp?&Dummy="_s + stamp + u"&DevID="_s + HtmlEscape(r.DevID) +
           u"&Button="_s + num(buttonId) + u"&Device="_s + HtmlEscape(r.Device) + u"\">"_s +
           HtmlEscape(name) + u"</a><BR>"_s + CRLF;
}

// The phone lists of the test devices keep their own order: 41, 40, 39.
const std::vector<int>& cellTestOrder(int devId) {
    static const std::vector<int> none;
    static const std::vector<int> tv = {0, 1,  2,  3,  4,  5,  6,  7,  8,
                                        9, 10, 11, 12, 13, 14, 15, 18, 19};
    static const std::vector<int> video = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10,
                                           11, 12, 13, 19, 20, 41, 40, 39, 43, 44};
    static const std::vector<int> aircon = {0, 1, 2, 3, 4};
    switch (devId) {
    case 1:
        return tv;
    case 2:
        return video;
    case 3:
        return aircon;
    default:
        return none;
    }
}

} // namespace

QString GraphicRemotePage(int design, const PageRequest& r, SettingsStore& settings,
                          const RemotePageServices& services) {
    const DesignLayout* layout = LayoutOfDesign(design);
    if (!layout)
        return {};
    const bool testLabels = HasPageTestLabels(design) && IsTestMode(settings);
    const bool camera = settings.IsOn(Key::TakePic);

    QString out = PageHead({false, true, u"Remote"_s + num(design), BrowserBodyTag});
    if (const SendResult sent = !r.Button.isEmpty() && !testLabels
                                    ? send(services, r.DevID, r.Button)
                                    : SendResult::Sent;
        sent != SendResult::Sent) {
        out += u"<B>"_s + sendFailure(sent) + u"</B><BR>"_s + CRLF;
        out += u"<p><font size=\"2\">"_s + MenuLink + u"</font></p>"_s + CRLF;
        out += u"</body></html>"_s;
        return out;
    }
    out += u"<font size=\"1\" color=\"#FFFFFF\">"_s + CRLF;

    out += divAt(0, 0) + panelImage(u"panelB.jpg"_s, layout->panelB);
    if (camera) {
        takeSnapshot(settings, services);
        if (design == 3)
            out += u"</DIV>"_s;
        out += CRLF; // the other designs leave this DIV open
        out += divAt(layout->snapshotLeft, 0) + u"<img border=\"0\" src=\"pic/pict.jpg\"></DIV>"_s +
               CRLF;
    } else {
        if (services.cameraOff)
            services.cameraOff();
        out += u"</DIV>"_s + CRLF;
    }
    out += divAt(9, 9) + panelImage(u"panelA.jpg"_s, layout->panelA) + u"</DIV>"_s + CRLF;
    out += divAt(20, layout->nameTop) + CRLF + u"<span style=\"font-size:10pt\">"_s +
           HtmlEscape(r.Device) + u"</span></DIV>"_s + CRLF;

    for (const ButtonDef& b : layout->buttons) {
        out += buttonBlock(design, b, r);
        out += divAt(b.labelLeft, b.labelTop) + CRLF;
        out += label(testLabels ? PageTestLabel(design, b.id)
                                : GetButtonFunc(settings, r.DevID, QString::number(b.id)));
    }
    out += u"</font>"_s + CRLF;

    out += divAt(0, layout->menuTop) + u"<p><font size=\"2\">"_s + MenuLink + u"</font></p>"_s +
           CRLF + u"</DIV>"_s;
    if (camera)
        out += divAt(0, layout->reloadTop) + u"<p><font size=\"2\"><a href=\""_s +
               pageName(design) + u"?DevID="_s + HtmlEscape(r.DevID) + u"&Button=&Device="_s +
               HtmlEscape(r.Device) + u"\">画像の再読み込み</a></font></p>"_s + CRLF + u"</DIV>"_s;
    out += u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

QString CellRemotePage(const PageRequest& r, SettingsStore& settings, const Clock& clock,
                       const RemotePageServices& services) {
    QString out = PageHead({false, true, u"携帯用"_s, u"<body>"_s});
    out.reserve(16384);
    out += u"<p>機器名："_s + HtmlEscape(r.Device) + u"</p>"_s + CRLF;
    out += u"機能名をクリックするとリモコン送信されます<BR>"_s + CRLF;

    if (IsTestMode(settings)) {
        // Nothing is sent; the fixed list stands for the remote.
        const qint64 id = Val(r.DevID);
        const QString stamp = cellStamp(clock);
        for (const TestModeDevice& d : TestModeDevices())
            if (d.id == id)
                for (int k : cellTestOrder(d.id))
                    out += cellLink(r, stamp, k, d.function(k));
    } else {
        if (const SendResult sent =
                r.Button.isEmpty() ? SendResult::Sent : send(services, r.DevID, r.Button);
            sent != SendResult::Sent) {
            out += sendFailure(sent) + u"<BR>"_s + CRLF;
            out += u"<p>"_s + MenuLink + u"</p>"_s + CRLF;
            out += u"</body></html>"_s;
            return out;
        }
        const QString stamp = cellStamp(clock);
        for (int k = 0; k < CellButtonCount; ++k) {
            const QString name = GetButtonFunc(settings, r.DevID, QString::number(k));
            if (!name.isEmpty())
                out += cellLink(r, stamp, k, name);
        }
    }
    out += u"<p>"_s + MenuLink + u"</p>"_s + CRLF + u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

void InstallRemotePages(Dispatcher& dispatcher, SettingsStore& settings, const Clock& clock,
                        RemotePageServices services) {
    for (int design = 1; design <= 6; ++design)
        dispatcher.SetGenerator(pageName(design),
                                [design, &settings, services](const PageRequest& r) {
                                    return GraphicRemotePage(design, r, settings, services);
                                });
    dispatcher.SetGenerator(u"cremote.asp"_s, [&settings, &clock, services = std::move(services)](
                                                  const PageRequest& r) {
        return CellRemotePage(r, settings, clock, services);
    });
}
