#include "webpages/RemotePages.h"
#include "camera/Camera.h"
#include "support/ScriptedPrompt.h"

#include "remotes/DesignLayout.h"
#include "support/FixedClock.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <QElapsedTimer>
#include <QImage>
#include <QRect>
#include <QRegularExpression>
#include <QTimer>
#include <gtest/gtest.h>

#include <set>
#include <tuple>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Records every send and answers with `result`.
struct Transmitter {
    std::vector<std::pair<QString, QString>> sent;
    SendResult result = SendResult::Sent;
    RemotePageServices services() {
        return {[this](const QString& devId, const QString& button) {
                    sent.emplace_back(devId, button);
                    return result;
                },
                {},
                {},
                {}};
    }
};

PageRequest request(const QString& devId, const QString& button, const QString& device) {
    PageRequest r;
    r.DevID = devId;
    r.Button = button;
    r.Device = device;
    return r;
}

QString remoteHead(int design) {
    return u"<html>\r\n<head>\r\n"
           u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">\r\n"
           u"<title>Remote"_s +
           QString::number(design) +
           u"</title>\r\n</head>\r\n<body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">\r\n"_s;
}

void learnAircon(SettingsStore& s) {
    s.WriteIni(u"Remote-1", u"Device", u"エアコン");
    s.WriteIni(u"Remote-1", u"Design", u"3");
    s.WriteIni(u"Remote-1", u"Button-0", u"電源");                 // 4 bytes: one wide space
    s.WriteIni(u"Remote-1", u"Button-1", u"温度+");                // 5 bytes: none
    s.WriteIni(u"Remote-1", u"Button-2", u"とても長い機能の名前"); // never cut
    s.WriteIni(u"Remote-1", u"Button-3", u"風量");
    s.WriteIni(u"Remote-1", u"Button-4", u"暖房/冷房"); // 9 bytes
    s.WriteIni(u"Remote-1", u"Button-5", u"ch");        // 2 bytes: two
}

struct PageButton {
    bool lineBreak; // between DIV and IMG
    ButtonDef def;  // as the page places it
    QString span;   // "<size> <label>"
};

// The button blocks between the device name and "</font>", which must follow
// each other with nothing between.
std::vector<PageButton> parseButtons(const QString& page, int design, const QString& devId,
                                     const QString& device) {
    static const QRegularExpression block(
        uR"(<DIV STYLE="POSITION:absolute;LEFT:(\d+)px;TOP:(\d+)px">(\r\n)?)"
        uR"(<IMG SRC="pic/([^"]+)\.gif" onmousedown="this\.src='pic/\4-p\.gif'" )"
        uR"(onmouseup="this\.src='pic/\4\.gif'"\r\n)"
        uR"(onclick="location\.href='remote(\d)\.asp\?DevID=([^&]*)&Button=(\d+)&Device=([^']*)'">)"
        uR"(\r\n</DIV>\r\n<DIV STYLE="POSITION:absolute;LEFT:(\d+)px;TOP:(\d+)px">\r\n)"
        uR"(<span style="font-size:(\d)pt">([^<]*)</span></DIV>\r\n)"_s);
    std::vector<PageButton> out;
    qsizetype pos = page.indexOf(u"</span></DIV>\r\n"_s) + 15;
    for (QRegularExpressionMatch m; (m = block.match(page, pos, QRegularExpression::NormalMatch,
                                                     QRegularExpression::AnchorAtOffsetMatchOption))
                                        .hasMatch();
         pos = m.capturedEnd()) {
        EXPECT_EQ(m.captured(5).toInt(), design);
        EXPECT_EQ(m.captured(6), devId);
        const int id = m.captured(7).toInt();
        // Design 2's power link names the device twice.
        EXPECT_EQ(m.captured(8), design == 2 && id == 0 ? device + u"&Device="_s + device : device);
        out.push_back({m.capturedLength(3) > 0,
                       {id, m.captured(4), m.captured(1).toInt(), m.captured(2).toInt(),
                        m.captured(9).toInt(), m.captured(10).toInt()},
                       m.captured(11) + u' ' + m.captured(12)});
    }
    EXPECT_EQ(page.mid(pos, 9), u"</font>\r\n"_s) << "stray text after the buttons";
    return out;
}

QString menuBlock(int top) {
    return u"<DIV STYLE=\"POSITION:absolute;LEFT:0px;TOP:"_s + QString::number(top) +
           u"px\"><p><font size=\"2\"><a href=\"default.asp\">メニューへ戻る</a></font></p>"
           u"\r\n</DIV>"_s;
}

} // namespace

// Labels are sized by their CP932 length, padded with wide spaces and never
// cut; test mode shows the fixed air conditioner labels and sends nothing.
TEST(GraphicRemotePage, LabelsAreSizedPaddedAndNeverCut) {
    const QStringList labels[2] = {
        {u"8 \u3000電源"_s, u"8 温度+"_s, u"5 とても長い機能の名前"_s, u"8 \u3000風量"_s,
         u"6 暖房/冷房"_s, u"8 \u3000\u3000ch"_s},
        {u"8 \u3000電源"_s, u"8 温度+"_s, u"8 温度-"_s, u"8 \u3000風量"_s, u"8 暖/冷"_s,
         u"8 \u3000\u3000\u3000"_s},
    };
    TempFolder t;
    learnAircon(t.settings);
    Transmitter tx;
    for (int testMode = 0; testMode < 2; ++testMode) {
        t.settings.WriteIni(u"Tira", u"TestMode", QString::number(testMode));
        const QString page =
            GraphicRemotePage(3, request(u"1"_s, testMode ? u"0"_s : u""_s, u"エアコン"_s),
                              t.settings, tx.services());
        QStringList spans;
        for (const PageButton& b : parseButtons(page, 3, u"1"_s, u"エアコン"_s))
            spans << b.span;
        EXPECT_EQ(spans, labels[testMode]);
    }
    EXPECT_TRUE(tx.sent.empty());
}

// Every design is laid out from its own table, every id once, no two buttons
// on top of each other; with the frame checked too, that is the whole page.
TEST(GraphicRemotePage, EveryDesignFollowsItsLayout) {
    TempFolder t;
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 0)));
    Dispatcher dispatcher;
    Transmitter tx;
    InstallRemotePages(dispatcher, t.settings, clock, tx.services());
    for (int design = 1; design <= 6; ++design) {
        SCOPED_TRACE(design);
        const DesignLayout& l = *LayoutOfDesign(design);
        const QString page = dispatcher.DispatchPage(
            u"/remote"_s + QString::number(design) + u".asp?DevID=7&Button=&Device=TV"_s, {}, {});
        auto panel = [](int at, const QString& name, PanelSize p) {
            const QString pos = QString::number(at) + u"px"_s;
            return u"<DIV STYLE=\"POSITION:absolute;LEFT:"_s + pos + u";TOP:"_s + pos +
                   u"\"><IMG SRC=\"pic/"_s + name + u".jpg\" height=\""_s +
                   QString::number(p.height) + u"\" width=\""_s + QString::number(p.width) +
                   u"\"></DIV>\r\n"_s;
        };
        EXPECT_TRUE(page.startsWith(
            remoteHead(design) + u"<font size=\"1\" color=\"#FFFFFF\">\r\n"_s +
            panel(0, u"panelB"_s, l.panelB) + panel(9, u"panelA"_s, l.panelA) +
            u"<DIV STYLE=\"POSITION:absolute;LEFT:20px;TOP:"_s + QString::number(l.nameTop) +
            u"px\">\r\n<span style=\"font-size:10pt\">TV</span></DIV>\r\n"_s));
        EXPECT_TRUE(
            page.endsWith(u"</font>\r\n"_s + menuBlock(l.menuTop) + u"</body>\r\n</html>\r\n"_s));
        EXPECT_FALSE(page.contains(u"pict.jpg"_s));

        const auto buttons = parseButtons(page, design, u"7"_s, u"TV"_s);
        ASSERT_EQ(buttons.size(), l.buttons.size());
        std::set<int> ids;
        for (size_t i = 0; i < buttons.size(); ++i) {
            const auto& [lineBreak, b, span] = buttons[i];
            const ButtonDef& want = l.buttons[i];
            // Only designs 1 and 3 keep DIV and IMG on one line.
            EXPECT_EQ(lineBreak, design != 1 && design != 3) << b.id;
            EXPECT_EQ(std::tie(b.id, b.picture, b.left, b.top, b.labelLeft, b.labelTop),
                      std::tie(want.id, want.picture, want.left, want.top, want.labelLeft,
                               want.labelTop));
            EXPECT_EQ(span, u"8 \u3000\u3000\u3000"_s);
            ids.insert(b.id);
            for (size_t j = 0; j < i; ++j)
                EXPECT_FALSE(
                    QRect(b.left, b.top, 35, 20)
                        .intersects(QRect(buttons[j].def.left, buttons[j].def.top, 35, 20)))
                    << b.id << " " << buttons[j].def.id;
        }
        EXPECT_EQ(ids.size(), buttons.size());
        EXPECT_EQ(*ids.rbegin(), int(buttons.size()) - 1);
    }
    EXPECT_TRUE(tx.sent.empty());
}

TEST(GraphicRemotePage, SendsTheRequestedButtonAndEndsEarlyOnFailure) {
    TempFolder t;
    learnAircon(t.settings);
    Transmitter tx;
    tx.result = SendResult::Failed;
    const QString failed =
        GraphicRemotePage(1, request(u"1"_s, u"2"_s, u"エアコン"_s), t.settings, tx.services());
    EXPECT_EQ(failed, remoteHead(1) +
                          u"<B>リモコン信号を送信できませんでした。</B><BR>\r\n"
                          u"<p><font size=\"2\"><a href=\"default.asp\">メニューへ戻る</a>"
                          u"</font></p>\r\n</body></html>"_s);

    // Without a transmitter nothing can go out.
    EXPECT_EQ(GraphicRemotePage(1, request(u"1"_s, u"2"_s, u"エアコン"_s), t.settings, {}), failed);
}

TEST(GraphicRemotePage, CameraWritesAFreshSnapshotBeforeThePage) {
    TempFolder t;
    learnAircon(t.settings);
    t.settings.WriteIni(u"Options", u"TakePic", u"1");
    t.settings.WriteIni(u"Camera", u"Device", u"test");
    ScriptedPrompt prompt;
    Camera camera(t.folder, t.settings, prompt);
    ASSERT_TRUE(camera.start());
    Dispatcher dispatcher;
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(9, 5, 7)));
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
    InstallRemotePages(dispatcher, t.settings, clock, services);

    QElapsedTimer elapsed;
    elapsed.start();
    const QString page =
        dispatcher.DispatchPage(u"/remote3.asp?DevID=1&Button=4&Device=エアコン"_s, {}, {});
    EXPECT_LT(elapsed.elapsed(), 300);
    EXPECT_EQ(events, (QStringList{u"send 4"_s, u"show"_s, u"snapshot"_s, u"hide"_s}));
    EXPECT_EQ(QImage(t.path(u"pic/pict.jpg")).size(), QSize(320, 240));

    // Design 3 closes the panel DIV; the reload link sends nothing.
    EXPECT_TRUE(page.contains(u"width=\"133\"></DIV>\r\n<DIV STYLE=\"POSITION:absolute;LEFT:134px;"
                              u"TOP:0px\"><img border=\"0\" src=\"pic/pict.jpg\"></DIV>\r\n"_s));
    EXPECT_TRUE(page.endsWith(
        menuBlock(197) +
        u"<DIV STYLE=\"POSITION:absolute;LEFT:0px;TOP:227px\"><p><font size=\"2\">"
        u"<a href=\"remote3.asp?DevID=1&Button=&Device=エアコン\">画像の再読み込み</a>"
        u"</font></p>\r\n</DIV></body>\r\n</html>\r\n"_s));

    // AlwaysShow keeps the preview up, and a missing camera does not stop the page.
    t.settings.WriteIni(u"Preview", u"AlwaysShow", u"1");
    events.clear();
    services.takeSnapshot = {};
    GraphicRemotePage(5, request(u"2"_s, u""_s, u"v"_s), t.settings, services);
    EXPECT_EQ(events, QStringList{u"show"_s});

    // With the option off the camera is closed.
    EXPECT_TRUE(camera.running());
    t.settings.WriteIni(u"Options", u"TakePic", u"0");
    GraphicRemotePage(5, request(u"2"_s, u""_s, u"v"_s), t.settings, services);
    EXPECT_FALSE(camera.running());
}

TEST(CellRemotePage, ListsLearnedFunctionsOfAllSixtySixKeys) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-4", u"Design", u"3"); // the design is not looked at
    t.settings.WriteIni(u"Remote-4", u"Button-0", u"電源");
    t.settings.WriteIni(u"Remote-4", u"Button-12", u"音量+");
    t.settings.WriteIni(u"Remote-4", u"Button-65", u"last");
    t.settings.WriteIni(u"Remote-4", u"Button-66", u"never");
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(23, 59, 58)));
    Transmitter tx;
    const QString page =
        CellRemotePage(request(u"4"_s, u"12"_s, u"テレビ"_s), t.settings, clock, tx.services());
    EXPECT_EQ(page,
              u"<html>\r\n<head>\r\n"
              u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">\r\n"
              u"<title>携帯用</title>\r\n</head>\r\n<body>\r\n"
              u"<p>機器名：テレビ</p>\r\n"
              u"機能名をクリックするとリモコン送信されます<BR>\r\n"
              u"・<a href=\"cremote.asp?&Dummy=20261121235958&DevID=4&Button=0&Device=テレビ\">"
              u"電源</a><BR>\r\n"
              u"・<a href=\"cremote.asp?&Dummy=20261121235958&DevID=4&Button=12&Device=テレビ\">"
              u"音量+</a><BR>\r\n"
              u"・<a href=\"cremote.asp?&Dummy=20261121235958&DevID=4&Button=65&Device=テレビ\">"
              u"last</a><BR>\r\n"
              u"<p><a href=\"default.asp\">メニューへ戻る</a></p>\r\n</body>\r\n</html>\r\n"_s);
    ASSERT_EQ(tx.sent.size(), 1u);
    EXPECT_EQ(tx.sent[0], std::make_pair(u"4"_s, u"12"_s));

    tx.result = SendResult::Failed;
    EXPECT_TRUE(
        CellRemotePage(request(u"4"_s, u"0"_s, u"テレビ"_s), t.settings, clock, tx.services())
            .endsWith(u"<p>機器名：テレビ</p>\r\n"
                      u"機能名をクリックするとリモコン送信されます<BR>\r\n"
                      u"リモコン信号を送信できませんでした。<BR>\r\n"
                      u"<p><a href=\"default.asp\">メニューへ戻る</a></p>\r\n"
                      u"</body></html>"_s));
}

TEST(CellRemotePage, TestModeListsFixedFunctionsInPageOrderAndSendsNothing) {
    TempFolder t;
    t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    t.settings.WriteIni(u"Remote-2", u"Button-0", u"hidden");
    FixedClock clock(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5)));
    Transmitter tx;
    auto entries = [&](const QString& devId) {
        const QString page =
            CellRemotePage(request(devId, u"41"_s, u"機"_s), t.settings, clock, tx.services());
        const QString open = u"<BR>\r\n"_s;
        const qsizetype from = page.indexOf(open) + open.size();
        return page.mid(from, page.indexOf(u"<p><a href=\"default.asp\">"_s) - from);
    };
    auto link = [](const QString& devId, int k, const QString& name) {
        return u"・<a href=\"cremote.asp?&Dummy=20260102030405&DevID="_s + devId + u"&Button="_s +
               QString::number(k) + u"&Device=機\">"_s + name + u"</a><BR>\r\n"_s;
    };
    QString video;
    video += link(u"2"_s, 0, u"電源"_s);
    for (int ch = 1; ch <= 12; ++ch)
        video += link(u"2"_s, ch, u"ch"_s + QString::number(ch));
    video += link(u"2"_s, 13, u"+0"_s) + link(u"2"_s, 19, u"ch+"_s) + link(u"2"_s, 20, u"ch-"_s) +
             link(u"2"_s, 41, u"Stop"_s) + link(u"2"_s, 40, u"FF"_s) + link(u"2"_s, 39, u"Rew"_s) +
             link(u"2"_s, 43, u"Play"_s) + link(u"2"_s, 44, u"Rec"_s);
    EXPECT_EQ(entries(u"2"_s), video);

    EXPECT_EQ(entries(u"3"_s), link(u"3"_s, 0, u"電源"_s) + link(u"3"_s, 1, u"温度+"_s) +
                                   link(u"3"_s, 2, u"温度-"_s) + link(u"3"_s, 3, u"風量"_s) +
                                   link(u"3"_s, 4, u"暖/冷"_s));
    EXPECT_EQ(entries(u"03"_s), entries(u"3"_s).replace(u"DevID=3"_s, u"DevID=03"_s));
    EXPECT_EQ(entries(u"4"_s), QString());
    EXPECT_EQ(entries(u"abc"_s), QString());
    EXPECT_TRUE(tx.sent.empty());
}

// Whatever arrives is put in as it stands, and every page is still built.
TEST(RemotePages, RouteTheListPageAndSurviveBadInput) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-1", u"Button-0", u"電源");
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 0)));
    Dispatcher dispatcher;
    Transmitter tx;
    InstallRemotePages(dispatcher, t.settings, clock, tx.services());

    EXPECT_TRUE(dispatcher.DispatchPage(u"/cremote.asp?DevID=1&Button=&Device=d"_s, {}, {})
                    .contains(u"&Button=0&Device=d\">電源</a>"_s));
    EXPECT_TRUE(tx.sent.empty());

    const QString bad[] = {u""_s, u"\"<>"_s, u"%82%A0%E3%81%82"_s, u"-1"_s, QString(100000, u'9')};
    for (const char16_t* testMode : {u"0", u"1"}) {
        t.settings.WriteIni(u"Tira", u"Testmode", testMode);
        for (const QString& v : bad)
            for (const QString& page : {u"remote2.asp"_s, u"remote4.asp"_s, u"cremote.asp"_s})
                EXPECT_TRUE(dispatcher
                                .DispatchPage(u"/"_s + page + u"?DevID="_s + v + u"&Button="_s + v +
                                                  u"&Device="_s + v,
                                              {}, {})
                                .endsWith(u"</html>\r\n"_s))
                    << page.toStdString();
    }
    t.settings.WriteIni(u"Tira", u"Testmode", u"0");
    // Names from the request and from setting.ini are text, never markup, and
    // never end the script of a button.
    t.settings.WriteIni(u"Remote-1", u"Button-1", u"<i>&'");
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
