#include "webpages/RemotePages.h"

#include "support/FixedClock.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <QRegularExpression>
#include <QTimer>
#include <gtest/gtest.h>

#include <map>
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

// The whole design 3 page for remote 1 named エアコン, with the six label spans
// as they must come out.
QString design3Page(const QString (&labels)[6]) {
    auto button = [](const QString& pos, const QString& pic, int id) {
        return u"<DIV STYLE=\"POSITION:absolute;"_s + pos + u"\"><IMG SRC=\"pic/"_s + pic +
               u".gif\" onmousedown=\"this.src='pic/"_s + pic +
               u"-p.gif'\" onmouseup=\"this.src='pic/"_s + pic +
               u".gif'\"\r\nonclick=\"location.href='remote3.asp?DevID=1&Button="_s +
               QString::number(id) + u"&Device=エアコン'\">\r\n</DIV>\r\n"_s;
    };
    auto label = [](const QString& pos, const QString& span) {
        return u"<DIV STYLE=\"POSITION:absolute;"_s + pos + u"\">\r\n"_s + span +
               u"</span></DIV>\r\n"_s;
    };
    return remoteHead(3) +
           u"<font size=\"1\" color=\"#FFFFFF\">\r\n"
           u"<DIV STYLE=\"POSITION:absolute;LEFT:0px;TOP:0px\">"
           u"<IMG SRC=\"pic/panelB.jpg\" height=\"187\" width=\"133\"></DIV>\r\n"
           u"<DIV STYLE=\"POSITION:absolute;LEFT:9px;TOP:9px\">"
           u"<IMG SRC=\"pic/panelA.jpg\" height=\"150\" width=\"115\"></DIV>\r\n"
           u"<DIV STYLE=\"POSITION:absolute;LEFT:20px;TOP:166px\">\r\n"
           u"<span style=\"font-size:10pt\">エアコン</span></DIV>\r\n"_s +
           button(u"LEFT:16px;TOP:24px"_s, u"power"_s, 0) +
           label(u"LEFT:16px;TOP:44px"_s, labels[0]) + button(u"LEFT:16px;TOP:56px"_s, u"up"_s, 1) +
           label(u"LEFT:16px;TOP:76px"_s, labels[1]) +
           button(u"LEFT:16px;TOP:120px"_s, u"down"_s, 2) +
           label(u"LEFT:16px;TOP:140px"_s, labels[2]) +
           button(u"LEFT:64px;TOP:56px"_s, u"muji"_s, 3) +
           label(u"LEFT:64px;TOP:76px"_s, labels[3]) +
           button(u"LEFT:64px;TOP:88px"_s, u"muji"_s, 4) +
           label(u"LEFT:64px;TOP:108px"_s, labels[4]) +
           button(u"LEFT:64px;TOP:120px"_s, u"muji"_s, 5) +
           label(u"LEFT:64px;TOP:140px"_s, labels[5]) +
           u"</font>\r\n"
           u"<DIV STYLE=\"POSITION:absolute;LEFT:0px;TOP:197px\"><p><font size=\"2\">"
           u"<a href=\"default.asp\">メニューへ戻る</a></font></p>\r\n</DIV>"
           u"</body>\r\n</html>\r\n"_s;
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

// One button of a page as the test reads it back: "id picture left/top
// labelLeft/labelTop", plus what else it carried.
struct ParsedButton {
    QString row;
    bool breakAfterDiv;
    QString device; // the Device part of its link
    QString span;   // size and text of its label
};

// Reads the button blocks between the device name and "</font>", insisting
// that they follow each other with nothing between.
std::vector<ParsedButton> parseButtons(const QString& page, int design, const QString& devId) {
    static const QRegularExpression block(
        uR"(<DIV STYLE="POSITION:absolute;LEFT:(\d+)px;TOP:(\d+)px">(\r\n)?)"
        uR"(<IMG SRC="pic/([^"]+)\.gif" onmousedown="this\.src='pic/\4-p\.gif'" )"
        uR"(onmouseup="this\.src='pic/\4\.gif'"\r\n)"
        uR"(onclick="location\.href='remote(\d)\.asp\?DevID=([^&]*)&Button=(\d+)&Device=([^']*)'">)"
        uR"(\r\n</DIV>\r\n<DIV STYLE="POSITION:absolute;LEFT:(\d+)px;TOP:(\d+)px">\r\n)"
        uR"(<span style="font-size:(\d)pt">([^<]*)</span></DIV>\r\n)"_s);
    std::vector<ParsedButton> out;
    qsizetype pos = page.indexOf(u"</span></DIV>\r\n"_s);
    if (pos < 0)
        return out;
    pos += 15;
    for (;;) {
        QRegularExpressionMatch m = block.match(page, pos, QRegularExpression::NormalMatch,
                                                QRegularExpression::AnchorAtOffsetMatchOption);
        if (!m.hasMatch())
            break;
        EXPECT_EQ(m.captured(5).toInt(), design);
        EXPECT_EQ(m.captured(6), devId);
        out.push_back({m.captured(7) + u' ' + m.captured(4) + u' ' + m.captured(1) + u'/' +
                           m.captured(2) + u' ' + m.captured(9) + u'/' + m.captured(10),
                       m.capturedLength(3) > 0, m.captured(8),
                       m.captured(11) + u' ' + m.captured(12)});
        pos = m.capturedEnd();
    }
    EXPECT_EQ(page.mid(pos, 9), u"</font>\r\n"_s) << "stray text after the buttons";
    return out;
}

// Rows as the design tables give them: "id picture left/top"; the label lies
// 20 below unless `labels` says otherwise.
QStringList expectedRows(const QString& table, const std::map<int, QString>& labels = {}) {
    QStringList rows;
    for (const QString& entry : table.split(u", "_s)) {
        const QStringList f = entry.split(u' ');
        const QStringList at = f[2].split(u'/');
        const int id = f[0].toInt();
        const QString label =
            labels.count(id) ? labels.at(id) : at[0] + u'/' + QString::number(at[1].toInt() + 20);
        rows << entry + u' ' + label;
    }
    return rows;
}

QStringList gridRows(int firstId, int rows, int firstTop, std::initializer_list<int> lefts) {
    QStringList out;
    int id = firstId;
    for (int r = 0; r < rows; ++r)
        for (int left : lefts)
            out << QString::number(id++) + u" muji "_s + QString::number(left) + u'/' +
                       QString::number(firstTop + 32 * r);
    return out;
}

const QString Digits =
    u"0 power 16/24, 1 1 16/56, 2 2 64/56, 3 3 112/56, 4 4 16/88, 5 5 64/88, 6 6 112/88, "
    u"7 7 16/120, 8 8 64/120, 9 9 112/120"_s;

QStringList designRows(int design) {
    switch (design) {
    case 1:
        return expectedRows(Digits +
                            u", 10 muji 16/152, 11 0 64/152, 12 muji 112/152, 13 up 64/184, "
                            u"15 left 16/216, 23 ok 64/216, 16 right 112/216, 14 down 64/248, "
                            u"17 muji 16/280, 18 muji 64/280, 19 muji 112/280, 20 muji 16/312, "
                            u"21 muji 64/312, 22 muji 112/312, 24 muji 16/344, 25 muji 64/344, "
                            u"26 muji 112/344"_s);
    case 2:
        return expectedRows(
            (QStringList{u"0 power 16/24"_s} + gridRows(1, 4, 56, {16, 64, 112})).join(u", "_s));
    case 3:
        return expectedRows(u"0 power 16/24, 1 up 16/56, 2 down 16/120, 3 muji 64/56, "
                            u"4 muji 64/88, 5 muji 64/120"_s);
    case 4:
        return expectedRows(Digits + u", 10 10 16/152, 11 11 64/152, 12 12 112/152, "
                                     u"13 up 16/184, 14 down 16/248, 15 muji 64/184, "
                                     u"16 muji 64/216, 17 muji 64/248, 18 up 112/184, "
                                     u"19 down 112/248"_s,
                            {{14, u"16/266"_s}, {17, u"64/266"_s}, {19, u"112/266"_s}});
    case 5:
        return expectedRows(
            Digits +
                u", 10 10 16/152, 11 11 64/152, 12 12 112/152, 13 0 16/184, "
                u"14 muji 160/56, 15 muji 160/88, 16 muji 160/120, 17 muji 160/152, "
                u"18 muji 16/232, 19 up 64/214, 20 down 64/246, 21 up 112/214, "
                u"22 down 112/246, 23 muji 160/214, 24 muji 160/246, "_s +
                gridRows(25, 3, 278, {16, 64, 112, 160}).join(u", "_s) +
                u", 37 up 64/374, 38 down 64/438, 39 left 16/406, 40 right 112/406, "
                u"41 muji 64/406, 42 muji 160/374, 43 muji 160/406, 44 muji 160/438"_s,
            {{2, u"66/74"_s}});
    case 6:
        return expectedRows(
            (QStringList{u"0 power 16/24"_s} + gridRows(1, 13, 56, {16, 64, 112, 160, 208}))
                .join(u", "_s));
    }
    return {};
}

struct Frame {
    int design;
    QString panelB, panelA; // height, width
    int nameTop, menuTop;
};
const Frame Frames[] = {
    {1, u"\"406\" width=\"166\""_s, u"\"369\" width=\"146\""_s, 385, 416},
    {2, u"\"230\" width=\"166\""_s, u"\"192\" width=\"146\""_s, 209, 240},
    {3, u"\"187\" width=\"133\""_s, u"\"150\" width=\"115\""_s, 166, 197},
    {4, u"\"323\" width=\"166\""_s, u"\"280\" width=\"146\""_s, 300, 333},
    {5, u"\"500\" width=\"215\""_s, u"\"458\" width=\"196\""_s, 478, 510},
    {6, u"\"515\" width=\"266\""_s, u"\"465\" width=\"243\""_s, 494, 525},
};

QString menuBlock(int top) {
    return u"<DIV STYLE=\"POSITION:absolute;LEFT:0px;TOP:"_s + QString::number(top) +
           u"px\"><p><font size=\"2\"><a href=\"default.asp\">メニューへ戻る</a></font></p>"
           u"\r\n</DIV>"_s;
}

} // namespace

// Normal mode reads setting.ini and sizes by length; test mode shows the
// fixed air conditioner labels and sends nothing.
TEST(GraphicRemotePage, DesignThreeIsByteExact) {
    const QString labels[2][6] = {
        {u"8pt\">\u3000電源"_s, u"8pt\">温度+"_s, u"5pt\">とても長い機能の名前"_s,
         u"8pt\">\u3000風量"_s, u"6pt\">暖房/冷房"_s, u"8pt\">\u3000\u3000ch"_s},
        {u"8pt\">\u3000電源"_s, u"8pt\">温度+"_s, u"8pt\">温度-"_s, u"8pt\">\u3000風量"_s,
         u"8pt\">暖/冷"_s, u"8pt\">\u3000\u3000\u3000"_s},
    };
    TempFolder t;
    learnAircon(t.settings);
    Transmitter tx;
    for (int testMode = 0; testMode < 2; ++testMode) {
        t.settings.WriteIni(u"Tira", u"TestMode", QString::number(testMode));
        QString spans[6];
        for (int i = 0; i < 6; ++i)
            spans[i] = u"<span style=\"font-size:"_s + labels[testMode][i];
        const QString button = testMode ? u"0"_s : u""_s;
        EXPECT_EQ(
            GraphicRemotePage(3, request(u"1"_s, button, u"エアコン"_s), t.settings, tx.services()),
            design3Page(spans));
    }
    EXPECT_TRUE(tx.sent.empty());
}

TEST(GraphicRemotePage, EveryDesignHasItsFrameAndButtonTable) {
    TempFolder t;
    Transmitter tx;
    for (const Frame& f : Frames) {
        SCOPED_TRACE(f.design);
        const QString page =
            GraphicRemotePage(f.design, request(u"7"_s, u""_s, u"TV"_s), t.settings, tx.services());
        // Laid out as design 3's page; only the sizes differ.
        EXPECT_TRUE(page.startsWith(remoteHead(f.design))) << f.design;
        EXPECT_TRUE(page.contains(u"panelB.jpg\" height="_s + f.panelB + u"></DIV>\r\n"_s));
        EXPECT_TRUE(page.contains(u"panelA.jpg\" height="_s + f.panelA + u"></DIV>\r\n"_s));
        EXPECT_TRUE(page.contains(u"TOP:"_s + QString::number(f.nameTop) +
                                  u"px\">\r\n<span style=\"font-size:10pt\">TV</span>"_s));
        EXPECT_TRUE(
            page.endsWith(u"</font>\r\n"_s + menuBlock(f.menuTop) + u"</body>\r\n</html>\r\n"_s));
        EXPECT_FALSE(page.contains(u"pict.jpg"_s));

        QStringList rows;
        for (const ParsedButton& b : parseButtons(page, f.design, u"7"_s)) {
            rows << b.row;
            // Only designs 1 and 3 keep DIV and IMG on one line.
            EXPECT_EQ(b.breakAfterDiv, f.design != 1 && f.design != 3) << b.row.toStdString();
            const bool twice = f.design == 2 && b.row.startsWith(u"0 "_s);
            EXPECT_EQ(b.device, twice ? u"TV&Device=TV"_s : u"TV"_s) << b.row.toStdString();
            EXPECT_EQ(b.span, u"8 \u3000\u3000\u3000"_s);
        }
        EXPECT_EQ(rows, designRows(f.design));
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

TEST(GraphicRemotePage, CameraWaitsWithEventsRunningThenShowsTheSnapshot) {
    TempFolder t;
    learnAircon(t.settings);
    t.settings.WriteIni(u"Options", u"TakePic", u"1");
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
                                    return false; // no camera: nothing to tell
                                }};
    InstallRemotePages(dispatcher, t.settings, clock, services);

    // Another request is served while the page waits for the camera.
    QTimer::singleShot(300, [&] {
        events << u"nested"_s;
        dispatcher.DispatchPage(u"/cremote.asp?DevID=1&Button=&Device=x"_s, {}, {});
    });
    const QString page =
        dispatcher.DispatchPage(u"/remote3.asp?DevID=1&Button=4&Device=エアコン"_s, {}, {});
    EXPECT_EQ(events, (QStringList{u"send 4"_s, u"show"_s, u"nested"_s, u"snapshot"_s, u"hide"_s}));

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
TEST(RemotePages, RouteAllSevenPagesAndSurviveBadInput) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-1", u"Button-0", u"電源");
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 0)));
    Dispatcher dispatcher;
    Transmitter tx;
    InstallRemotePages(dispatcher, t.settings, clock, tx.services());

    for (int design = 1; design <= 6; ++design) {
        const QString page = dispatcher.DispatchPage(
            u"/remote"_s + QString::number(design) + u".asp?DevID=1&Button=&Device=d"_s, {}, {});
        EXPECT_TRUE(page.contains(u"Remote"_s + QString::number(design) + u"</title>"_s));
    }
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
    // Device goes out unescaped, in the link and the text.
    const QString page =
        dispatcher.DispatchPage(u"/remote3.asp?DevID=1&Button=&Device=<b>\"x\"</b>"_s, {}, {});
    EXPECT_TRUE(page.contains(u"<span style=\"font-size:10pt\"><b>\"x\"</b></span>"_s));
    EXPECT_TRUE(page.contains(u"&Button=5&Device=<b>\"x\"</b>'\">"_s));
}
