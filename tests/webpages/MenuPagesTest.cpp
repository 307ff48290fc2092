#include "webpages/MenuPages.h"

#include "core/Clock.h"
#include "webpages/ReservePages.h"

#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString DefaultHead =
    u"<html>\r\n<head>\r\n<meta http-equiv=\"Content-Language\" content=\"ja\">\r\n"
    u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">\r\n"
    u"<title>Kestrava</title>\r\n</head>\r\n"
    u"<body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">\r\n"_s;

const QString DefaultLinks =
    u"<a href=\"cell.asp\">携帯用</a>\r\n<a href=\"m/\">スマートフォン用</a>\r\n<HR>\r\n"
    u"<p><font size=\"2\"><B>Kestravaの操作</B></font></p>\r\n"
    u"<p><font size=\"2\"><a href=\"remote.asp\">リモコン操作</a></font></p>\r\n"
    u"<p><font size=\"2\"><a href=\"add1.asp\">予約の追加・編集</a></font></p>\r\n"
    u"<p><font size=\"2\"><a href=\"list.asp\">予約の一覧・削除</a></font></p>\r\n"_s;

const QString ListHead =
    u"<html><head><meta http-equiv=\"Content-Language\" content=\"ja\">"
    u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">"
    u"<title>操作したい機器を選択してください</title></head>"_s;

const QString RemoteOpen =
    u"<body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">\r\n"
    u"<form><fieldset style=\"width:170; padding: 2; height:145\"><legend><p>"
    u"<font size=\"2\">操作したい機器を選択</font></p></legend><font size=\"2\">"_s;
const QString RemoteClose = u"</font></fieldset></form></body></html>"_s;

const QString CellOpen = u"<body><p>操作したい機器を選択</p>"_s;
const QString CellClose = u"</body></html>"_s;

} // namespace

TEST(MenuPages, DefaultPageHasTheHibernateLinkOnlyForPowerControlOne) {
    TempFolder t;
    const QString fourLinks = DefaultHead + DefaultLinks + u"</body>\r\n</html>\r\n"_s;
    t.settings.WriteIni(u"Options", u"PowerControl", u"11");
    EXPECT_EQ(DefaultPage(t.settings), fourLinks);
    t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    EXPECT_EQ(DefaultPage(t.settings),
              DefaultHead + DefaultLinks +
                  u"<p><font size=\"2\"><a href=\"confirm.asp\">休止状態にする</a></font></p>\r\n"
                  u"</body>\r\n</html>\r\n"_s);
}

TEST(MenuPages, ListsShowRemotesOneToHundredWithGapsAndDesigns) {
    TempFolder t;
    EXPECT_EQ(RemoteListPage(t.settings), ListHead + RemoteOpen + RemoteClose);
    EXPECT_EQ(CellPage(t.settings), ListHead + CellOpen + CellClose);

    // Remote-2 has no name and is not listed; Remote-50 has no design. Names
    // and designs are text, never markup.
    const char16_t* const registry[][3] = {
        {u"Remote-7", u"エアコン", u"3"}, {u"Remote-1", u"TV & video 2", u"4"},
        {u"Remote-2", u"", u"1"},         {u"Remote-50", u"x", u""},
        {u"Remote-100", u"y", u"9\""},    {u"Remote-101", u"hidden", u"1"},
    };
    for (const auto& [section, device, design] : registry) {
        t.settings.WriteIni(section, u"Device", device);
        t.settings.WriteIni(section, u"Design", design);
    }

    EXPECT_EQ(RemoteListPage(t.settings),
              ListHead + RemoteOpen +
                  u"・<a href=\"remote4.asp?DevID=1&Button=&Device=TV &amp; video 2\">TV &amp; "
                  u"video 2</a><BR>"
                  u"・<a href=\"remote3.asp?DevID=7&Button=&Device=エアコン\">エアコン</a><BR>"
                  u"・<a href=\"remote.asp?DevID=50&Button=&Device=x\">x</a><BR>"
                  u"・<a href=\"remote9&quot;.asp?DevID=100&Button=&Device=y\">y</a><BR>"_s +
                  RemoteClose);
    EXPECT_EQ(CellPage(t.settings),
              ListHead + CellOpen +
                  u"・<a href=\"cremote.asp?DevID=1&Button=&Device=TV &amp; video 2\">TV &amp; "
                  u"video 2</a><BR>"
                  u"・<a href=\"cremote.asp?DevID=7&Button=&Device=エアコン\">エアコン</a><BR>"
                  u"・<a href=\"cremote.asp?DevID=50&Button=&Device=x\">x</a><BR>"
                  u"・<a href=\"cremote.asp?DevID=100&Button=&Device=y\">y</a><BR>"_s +
                  CellClose);
}

// Every page the menu links to answers with content.
TEST(MenuPages, EveryMenuLinkAnswersAPage) {
    TempFolder t;
    Dispatcher dispatcher;
    InstallMenuPages(dispatcher, t.settings);
    SystemClock clock;
    InstallReservePages(dispatcher, {t.folder, t.settings, clock, {}});
    for (const char* page :
         {"/add1.asp", "/list.asp", "/add2.asp?R1=V1", "/remote.asp", "/cell.asp"})
        EXPECT_TRUE(dispatcher.DispatchPage(QString::fromLatin1(page), {}, u"127.0.0.1"_s)
                        .contains(u"</html>"_s))
            << page;
}
