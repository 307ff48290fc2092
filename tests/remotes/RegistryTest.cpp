#include "remotes/Registry.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QStringList names(const DeviceList& list) {
    QStringList out;
    for (const auto& item : list.items)
        out << item.name;
    return out;
}

} // namespace

TEST(Registry, DeviceListIsInIdOrderWithGapsAndStopsAt100OrFixedInTestMode) {
    TempFolder t;
    EXPECT_EQ(FillDevices(t.settings).shownText, u"--- 選択 ---"_s);
    t.settings.WriteIni(u"Remote-7", u"Device", u"エアコン");
    t.settings.WriteIni(u"Remote-2", u"Device", u"テレビ");
    t.settings.WriteIni(u"Remote-3", u"Design", u"4"); // no Device: a free id
    t.settings.WriteIni(u"Remote-100", u"Device", u"last");
    t.settings.WriteIni(u"Remote-101", u"Device", u"hidden");
    DeviceList list = FillDevices(t.settings);
    EXPECT_EQ(names(list), (QStringList{u"テレビ"_s, u"エアコン"_s, u"last"_s}));
    EXPECT_EQ(list.items[2].id, 100);

    // Test mode shows the three fixed devices instead.
    t.settings.WriteIni(u"Tira", u"TestMode", u"1");
    list = FillDevices(t.settings);
    EXPECT_EQ(names(list), (QStringList{u"テレビ"_s, u"ビデオ"_s, u"エアコン"_s}));
    EXPECT_FALSE(list.items[0].id.has_value());
    t.settings.WriteIni(u"Tira", u"Testmode", u"yes");
    EXPECT_FALSE(IsTestMode(t.settings));

    // Design texts are exact; characters a file name cannot hold are bad, full-width ones fine.
    EXPECT_EQ(DesignByOption(6), nullptr);
    for (auto bad : {u"0"_s, u"7"_s, u" 1"_s, u"01"_s, u""_s})
        EXPECT_EQ(DesignByText(bad), nullptr) << bad.toStdString();
    for (QChar c : u"\"*/:<>?\\|"_s)
        EXPECT_TRUE(HasBadFileChar(u"TV"_s + c + u"1"_s)) << QString(c).toStdString();
    EXPECT_FALSE(HasBadFileChar(u"テレビ-電源 (ch+)"_s));
    EXPECT_FALSE(HasBadFileChar(u"／＊"_s));
}
