#include "webpages/RemotePages.h"
#include "camera/Camera.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/StoredPage.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <QElapsedTimer>
#include <QImage>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Records every send and answers with `result`.
struct Transmitter {
    std::vector<std::pair<QString, QString>> sent;
    SendResult result = SendResult::Sent;
    RemotePageServices services() {
        RemotePageServices s;
        s.send = [this](const QString& devId, const QString& button) {
            sent.emplace_back(devId, button);
            return result;
        };
        return s;
    }
};

// The remote pages of a folder whose remote 1 is an air conditioner.
struct Pages {
    Pages() {
        // Labels padded with wide spaces to their CP932 length, never cut.
        t.writeRemote(
            1, u"エアコン"_s, 3,
            {u"電源"_s, u"温度+"_s, u"とても長い機能の名前"_s, u"風量"_s, u"暖房/冷房"_s, u"ch"_s});
        t.settings.WriteIni(u"Remote-1", u"Button-12", u"音量+");
        t.settings.WriteIni(u"Remote-1", u"Button-65", u"last");
        t.settings.WriteIni(u"Remote-1", u"Button-66", u"never");
        InstallRemotePages(dispatcher, t.settings, clock, tx.services());
    }
    QString get(const QString& path) { return dispatcher.DispatchPage(path, {}, {}); }

    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 21), QTime(23, 59, 58))};
    Transmitter tx;
    Dispatcher dispatcher;
};

} // namespace

// Every design and test mode's fixed labels as stored, nothing sent; a failed send ends early.
TEST(GraphicRemotePage, EveryDesignAsStoredAndAFailedSendEndsEarly) {
    Pages p;
    for (int design = 1; design <= 6; ++design) {
        const QString name = u"remote"_s + QString::number(design);
        ExpectStoredPage(name + u".html"_s,
                         p.get(u'/' + name + u".asp?DevID=1&Button=&Device=エアコン"_s));
    }
    p.tx.result = SendResult::Failed;
    const QString failed = p.get(u"/remote1.asp?DevID=1&Button=2&Device=エアコン"_s);
    ExpectStoredPage(u"remote-failed.html"_s, failed);
    EXPECT_EQ(p.tx.sent, (std::vector<std::pair<QString, QString>>{{u"1"_s, u"2"_s}}));
    // Without a transmitter nothing can go out.
    PageRequest r;
    r.DevID = u"1"_s;
    r.Button = u"2"_s;
    r.Device = u"エアコン"_s;
    EXPECT_EQ(GraphicRemotePage(1, r, p.t.settings, {}), failed);

    p.t.settings.WriteIni(u"Tira", u"TestMode", u"1");
    ExpectStoredPage(u"remote3-testmode.html"_s,
                     p.get(u"/remote3.asp?DevID=1&Button=0&Device=エアコン"_s));
    EXPECT_EQ(p.tx.sent.size(), 1u); // only the failed send above
}

TEST(GraphicRemotePage, CameraWritesAFreshSnapshotBeforeThePage) {
    Pages p;
    p.t.settings.WriteIni(u"Options", u"TakePic", u"1");
    p.t.settings.WriteIni(u"Camera", u"Device", u"test");
    ScriptedPrompt prompt;
    Camera camera(p.t.folder, p.t.settings, prompt);
    ASSERT_TRUE(camera.start());
    QStringList events;
    RemotePageServices services{[&](const QString&, const QString& button) {
                                    events << u"send "_s + button;
                                    return SendResult::Sent;
                                },
                                [&](bool visible) { events << (visible ? u"show"_s : u"hide"_s); },
                                [&] {
                                    events << u"snapshot"_s;
                                    return camera.takePic();
                                },
                                [&] { camera.stop(); }};
    Dispatcher dispatcher;
    InstallRemotePages(dispatcher, p.t.settings, p.clock, services);

    QElapsedTimer elapsed;
    elapsed.start();
    // Design 3 closes the panel DIV; the reload link sends nothing.
    ExpectStoredPage(
        u"remote3-camera.html"_s,
        dispatcher.DispatchPage(u"/remote3.asp?DevID=1&Button=4&Device=エアコン"_s, {}, {}));
    EXPECT_LT(elapsed.elapsed(), 300);
    EXPECT_EQ(events, (QStringList{u"send 4"_s, u"show"_s, u"snapshot"_s, u"hide"_s}));
    EXPECT_EQ(QImage(p.t.path(u"pic/pict.jpg")).size(), QSize(320, 240));

    // AlwaysShow keeps the preview up, and a missing camera does not stop the page.
    p.t.settings.WriteIni(u"Preview", u"AlwaysShow", u"1");
    events.clear();
    services.takeSnapshot = {};
    PageRequest r;
    r.DevID = u"2"_s;
    GraphicRemotePage(5, r, p.t.settings, services);
    EXPECT_EQ(events, QStringList{u"show"_s});

    // With the option off the camera is closed.
    EXPECT_TRUE(camera.running());
    p.t.settings.WriteIni(u"Options", u"TakePic", u"0");
    GraphicRemotePage(5, r, p.t.settings, services);
    EXPECT_FALSE(camera.running());
}

// The phone page lists all 66 keys' functions after sending; test mode sends nothing.
TEST(CellRemotePage, ListsLearnedOrTestModeFunctionsAsStored) {
    Pages p;
    ExpectStoredPage(u"cremote.html"_s, p.get(u"/cremote.asp?DevID=1&Button=12&Device=テレビ"_s));
    ASSERT_EQ(p.tx.sent, (std::vector<std::pair<QString, QString>>{{u"1"_s, u"12"_s}}));
    p.tx.result = SendResult::Failed;
    ExpectStoredPage(u"cremote-failed.html"_s,
                     p.get(u"/cremote.asp?DevID=1&Button=0&Device=テレビ"_s));

    p.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    p.t.settings.WriteIni(u"Remote-2", u"Button-0", u"hidden");
    p.tx.sent.clear();
    const auto test = [&](const QString& devId) {
        return p.get(u"/cremote.asp?DevID="_s + devId + u"&Button=41&Device=機"_s);
    };
    ExpectStoredPage(u"cremote-testmode2.html"_s, test(u"2"_s));
    ExpectStoredPage(u"cremote-testmode3.html"_s, test(u"3"_s));
    EXPECT_EQ(test(u"03"_s), test(u"3"_s).replace(u"DevID=3"_s, u"DevID=03"_s));
    for (const QString& none : {u"4"_s, u"abc"_s})
        EXPECT_FALSE(test(none).contains(u"cremote.asp"_s)) << none.toStdString();
    EXPECT_TRUE(p.tx.sent.empty());
}

// Whatever arrives is put in as it stands, and every page is still built.
TEST(RemotePages, RouteTheListPageAndSurviveBadInput) {
    Pages p;
    Dispatcher& dispatcher = p.dispatcher;
    SettingsStore& settings = p.t.settings;
    EXPECT_TRUE(dispatcher.DispatchPage(u"/cremote.asp?DevID=1&Button=&Device=d"_s, {}, {})
                    .contains(u"&Button=0&Device=d\">電源</a>"_s));
    EXPECT_TRUE(p.tx.sent.empty());

    const QString bad[] = {u""_s, u"\"<>"_s, u"%82%A0%E3%81%82"_s, u"-1"_s, QString(100000, u'9')};
    for (const char16_t* testMode : {u"0", u"1"}) {
        settings.WriteIni(u"Tira", u"Testmode", testMode);
        for (const QString& v : bad)
            for (const QString& page : {u"remote2.asp"_s, u"remote4.asp"_s, u"cremote.asp"_s})
                EXPECT_TRUE(dispatcher
                                .DispatchPage(u"/"_s + page + u"?DevID="_s + v + u"&Button="_s + v +
                                                  u"&Device="_s + v,
                                              {}, {})
                                .endsWith(u"</html>\r\n"_s))
                    << page.toStdString();
    }
    settings.WriteIni(u"Tira", u"Testmode", u"0");
    // Names from the request and setting.ini are text, never markup, never ending a script.
    settings.WriteIni(u"Remote-1", u"Button-1", u"<i>&'");
    const QString page =
        dispatcher.DispatchPage(u"/remote3.asp?DevID=1&Button=&Device=<b>\"x'\\</b>"_s, {}, {});
    EXPECT_TRUE(page.contains(
        u"<span style=\"font-size:10pt\">&lt;b&gt;&quot;x&#39;\\&lt;/b&gt;</span>"_s));
    EXPECT_TRUE(page.contains(u"&Button=5&Device=&lt;b&gt;&quot;x\\&#39;\\\\&lt;/b&gt;'\">"_s));
    EXPECT_TRUE(page.contains(u"&lt;i&gt;&amp;&#39;</span>"_s));
    const QString cell =
        dispatcher.DispatchPage(u"/cremote.asp?DevID=1&Button=&Device=<b>"_s, {}, {});
    EXPECT_TRUE(cell.contains(u"<p>機器名：&lt;b&gt;</p>"_s));
    EXPECT_TRUE(cell.contains(u"&Button=1&Device=&lt;b&gt;\">&lt;i&gt;&amp;&#39;</a>"_s));
    for (const QString& p : {page, cell})
        EXPECT_FALSE(p.contains(u"<b>"_s) || p.contains(u"<i>"_s));
}
