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

TEST(Registry, DeviceListIsInIdOrderWithGapsAndStopsAt100) {
    TempFolder t;
    EXPECT_TRUE(FillDevices(t.settings).items.empty());
    EXPECT_EQ(FillDevices(t.settings).shownText, u"--- 選択 ---"_s);

    t.settings.WriteIni(u"Remote-7", u"Device", u"エアコン");
    t.settings.WriteIni(u"Remote-2", u"Device", u"テレビ");
    t.settings.WriteIni(u"Remote-3", u"Design", u"4"); // no Device: a free id
    t.settings.WriteIni(u"Remote-100", u"Device", u"last");
    t.settings.WriteIni(u"Remote-101", u"Device", u"hidden");

    DeviceList list = FillDevices(t.settings);
    EXPECT_EQ(names(list), (QStringList{u"テレビ"_s, u"エアコン"_s, u"last"_s}));
    EXPECT_EQ(list.items[0].id, 2);
    EXPECT_EQ(list.items[1].id, 7);
    EXPECT_EQ(list.items[2].id, 100);
}

TEST(Registry, TestModeShowsTheThreeFixedDevicesAndHidesTheRegistry) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-1", u"Device", u"mine");
    t.settings.WriteIni(u"Tira", u"TestMode", u"1");
    EXPECT_TRUE(IsTestMode(t.settings));

    DeviceList list = FillDevices(t.settings);
    EXPECT_EQ(names(list), (QStringList{u"テレビ"_s, u"ビデオ"_s, u"エアコン"_s}));
    for (const auto& item : list.items)
        EXPECT_FALSE(item.id.has_value());
    EXPECT_EQ(t.settings.ReadIni(u"Remote-1", u"Device"), u"mine"_s);

    t.settings.WriteIni(u"Tira", u"Testmode", u"yes");
    EXPECT_FALSE(IsTestMode(t.settings));
}

TEST(Registry, TestModeFunctions) {
    const auto& d = TestModeDevices();
    EXPECT_EQ(d[0].design, 4);
    EXPECT_EQ(d[0].function(0), u"電源"_s);
    EXPECT_EQ(d[0].function(12), u"ch12"_s);
    EXPECT_EQ(d[0].function(13), u"ch+"_s);
    EXPECT_EQ(d[0].function(16), QString());
    EXPECT_EQ(d[0].function(19), u"音量-"_s);
    EXPECT_EQ(d[1].design, 5);
    EXPECT_EQ(d[1].function(13), u"+0"_s);
    EXPECT_EQ(d[1].function(42), QString());
    EXPECT_EQ(d[1].function(44), u"Rec"_s);
    EXPECT_EQ(d[2].design, 3);
    EXPECT_EQ(d[2].function(4), u"暖/冷"_s);
    EXPECT_EQ(d[2].function(5), QString());
}

TEST(Registry, DesignsAndTheLearningDialogsOptionOrder) {
    QStringList byOption;
    for (int option = 0; option < 6; ++option)
        byOption << DesignByOption(option)->text();
    EXPECT_EQ(byOption, (QStringList{u"2"_s, u"6"_s, u"3"_s, u"4"_s, u"1"_s, u"5"_s}));
    EXPECT_EQ(DesignByOption(6), nullptr);

    EXPECT_EQ(DesignByText(u"1")->lastButtonId(), 26);
    EXPECT_EQ(DesignByText(u"6")->lastButtonId(), 65);
    EXPECT_EQ(DesignByText(u"4")->name, u"テレビ20ボタン"_s);
    for (auto bad : {u"0"_s, u"7"_s, u" 1"_s, u"01"_s, u""_s})
        EXPECT_EQ(DesignByText(bad), nullptr) << bad.toStdString();
}

TEST(Registry, ButtonFunctionsOfARemote) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-4", u"Device", u"big");
    t.settings.WriteIni(u"Remote-4", u"Design", u"6");
    t.settings.WriteIni(u"Remote-4", u"Button-0", u"電源");
    t.settings.WriteIni(u"Remote-4", u"Button-65", u"last");
    t.settings.WriteIni(u"Remote-4", u"Button-66", u"never");

    EXPECT_EQ(GetButtonFunc(t.settings, u"4", u"0"), u"電源"_s);
    EXPECT_EQ(GetButtonFunc(t.settings, u"4", u"1"), QString());
    EXPECT_EQ(GetButtonFunc(t.settings, u"9", u"0"), QString());

    std::vector<QString> buttons = ReadRemoteButtons(t.settings, 4);
    ASSERT_EQ(buttons.size(), 66u);
    EXPECT_EQ(buttons[0], u"電源"_s);
    EXPECT_EQ(buttons[65], u"last"_s);

    t.settings.WriteIni(u"Remote-4", u"Design", u"9");
    EXPECT_TRUE(ReadRemoteButtons(t.settings, 4).empty());
}

TEST(Registry, BadFileCharacters) {
    for (QChar c : u"\"*/:<>?\\|"_s)
        EXPECT_TRUE(HasBadFileChar(u"TV"_s + c + u"1"_s)) << QString(c).toStdString();
    EXPECT_FALSE(HasBadFileChar(u"テレビ-電源 (ch+)"_s));
    EXPECT_FALSE(HasBadFileChar(u""_s));
    EXPECT_FALSE(HasBadFileChar(u"／＊"_s)); // full-width forms are fine
}

TEST(Registry, FitLabelByShiftJisLength) {
    EXPECT_EQ(FitLabel(u""), 8);
    EXPECT_EQ(FitLabel(u"電源入"), 8);  // 6 bytes
    EXPECT_EQ(FitLabel(u"電源入a"), 6); // 7 bytes
    EXPECT_EQ(FitLabel(u"ｶﾅｶﾅｶﾅｶ"), 6); // half-width kana count 1
    EXPECT_EQ(FitLabel(u"123456789"), 6);
    EXPECT_EQ(FitLabel(u"チャンネル"), 5); // 10 bytes
}
