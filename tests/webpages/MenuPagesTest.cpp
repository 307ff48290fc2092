#include "webpages/MenuPages.h"

#include "support/StoredPage.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// The menu has the hibernate link only for PowerControl 1; the lists show remotes 1 to 100 in
// order, without a name left out; names and designs are text, never markup.
TEST(MenuPages, HibernateLinkAndListsOfRemotesOneToHundred) {
    TempFolder t;
    t.settings.WriteIni(u"Options", u"PowerControl", u"11");
    ExpectStoredPage(u"default.html"_s, DefaultPage(t.settings));
    t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    ExpectStoredPage(u"default-hibernate.html"_s, DefaultPage(t.settings));
    ExpectStoredPage(u"remote-list-empty.html"_s, RemoteListPage(t.settings));
    ExpectStoredPage(u"cell-empty.html"_s, CellPage(t.settings));
    const char16_t* const registry[][3] = {
        {u"Remote-7", u"エアコン", u"3"}, {u"Remote-1", u"TV & video 2", u"4"},
        {u"Remote-2", u"", u"1"},         {u"Remote-50", u"x", u""},
        {u"Remote-100", u"y", u"9\""},    {u"Remote-101", u"hidden", u"1"},
    };
    for (const auto& [section, device, design] : registry) {
        t.settings.WriteIni(section, u"Device", device);
        t.settings.WriteIni(section, u"Design", design);
    }
    ExpectStoredPage(u"remote-list.html"_s, RemoteListPage(t.settings));
    ExpectStoredPage(u"cell.html"_s, CellPage(t.settings));
    for (const QString& page : {RemoteListPage(t.settings), CellPage(t.settings)})
        EXPECT_FALSE(page.contains(u"TV & "_s) || page.contains(u"9\""_s));
}
