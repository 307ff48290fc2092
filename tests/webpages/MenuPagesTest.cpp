#include "webpages/MenuPages.h"

#include "core/Clock.h"
#include "webpages/ReservePages.h"

#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(MenuPages, DefaultPageHasTheHibernateLinkOnlyForPowerControlOne) {
    TempFolder t;
    const QString links =
        u"<p><font size=\"2\"><a href=\"list.asp\">予約の一覧・削除</a></font></p>\r\n"_s;
    const QString end = u"</body>\r\n</html>\r\n"_s;
    t.settings.WriteIni(u"Options", u"PowerControl", u"11");
    EXPECT_TRUE(DefaultPage(t.settings).endsWith(links + end));
    t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    EXPECT_TRUE(DefaultPage(t.settings)
                    .endsWith(links +
                              u"<p><font size=\"2\"><a href=\"confirm.asp\">休止状態にする</a>"
                              u"</font></p>\r\n"_s +
                              end));
}

TEST(MenuPages, ListsShowRemotesOneToHundredWithGapsAndDesigns) {
    TempFolder t;
    // Remote-2 has no name and is not listed; Remote-50 has no design.
    const char16_t* const registry[][3] = {
        {u"Remote-7", u"エアコン", u"3"}, {u"Remote-1", u"TV & video 2", u"4"},
        {u"Remote-2", u"", u"1"},         {u"Remote-50", u"x", u""},
        {u"Remote-100", u"y", u"9"},      {u"Remote-101", u"hidden", u"1"},
    };
    for (const auto& [section, device, design] : registry) {
        t.settings.WriteIni(section, u"Device", device);
        t.settings.WriteIni(section, u"Design", design);
    }
    EXPECT_TRUE(
        RemoteListPage(t.settings)
            .endsWith(u"<font size=\"2\">"
                      u"・<a href=\"remote4.asp?DevID=1&Button=&Device=TV & video 2\">"
                      u"TV & video 2</a><BR>"
                      u"・<a href=\"remote3.asp?DevID=7&Button=&Device=エアコン\">エアコン</a><BR>"
                      u"・<a href=\"remote.asp?DevID=50&Button=&Device=x\">x</a><BR>"
                      u"・<a href=\"remote9.asp?DevID=100&Button=&Device=y\">y</a><BR>"
                      u"</font></fieldset></form></body></html>"_s));
    EXPECT_TRUE(
        CellPage(t.settings)
            .endsWith(u"<p>操作したい機器を選択</p>"
                      u"・<a href=\"cremote.asp?DevID=1&Button=&Device=TV & video 2\">"
                      u"TV & video 2</a><BR>"
                      u"・<a href=\"cremote.asp?DevID=7&Button=&Device=エアコン\">エアコン</a><BR>"
                      u"・<a href=\"cremote.asp?DevID=50&Button=&Device=x\">x</a><BR>"
                      u"・<a href=\"cremote.asp?DevID=100&Button=&Device=y\">y</a><BR>"
                      u"</body></html>"_s));
}

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
