#include "remotes/DesignLayout.h"
#include "remotes/Registry.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>

using namespace Qt::StringLiterals;

// Each layout must place exactly the buttons its design has, each once, with a
// known picture, inside the inner panel and not on top of another button.
TEST(DesignLayout, EveryDesignPlacesEachOfItsButtonsOnceInsideThePanel) {
    const std::set<QString> pictures = {u"power"_s, u"up"_s,   u"down"_s, u"left"_s, u"right"_s,
                                        u"ok"_s,    u"muji"_s, u"0"_s,    u"1"_s,    u"2"_s,
                                        u"3"_s,     u"4"_s,    u"5"_s,    u"6"_s,    u"7"_s,
                                        u"8"_s,     u"9"_s,    u"10"_s,   u"11"_s,   u"12"_s};
    for (const Design& design : Designs()) {
        SCOPED_TRACE(design.id);
        const DesignLayout* layout = LayoutOfDesign(design.id);
        ASSERT_NE(layout, nullptr);
        EXPECT_EQ(layout->design, design.id);
        ASSERT_EQ(int(layout->buttons.size()), design.buttonCount);
        std::set<int> ids;
        std::set<std::pair<int, int>> places;
        for (const ButtonDef& b : layout->buttons) {
            ids.insert(b.id);
            places.insert({b.left, b.top});
            EXPECT_TRUE(pictures.count(b.picture)) << b.picture.toStdString();
            EXPECT_GE(b.left, 9);
            EXPECT_GE(b.top, 9);
            EXPECT_LE(b.left + 35, 9 + layout->panelA.width) << b.id;
            EXPECT_LE(b.top + 20, 9 + layout->panelA.height) << b.id;
        }
        EXPECT_EQ(int(ids.size()), design.buttonCount);
        EXPECT_EQ(*ids.begin(), 0);
        EXPECT_EQ(*ids.rbegin(), design.lastButtonId());
        EXPECT_EQ(int(places.size()), design.buttonCount);
    }
    EXPECT_EQ(LayoutOfDesign(0), nullptr);
    EXPECT_EQ(LayoutOfDesign(7), nullptr);
}

TEST(DesignLayout, PageTestLabelsFollowTheTestDevicesButDesignFourShowsPlusZero) {
    EXPECT_EQ(PageTestLabel(4, 13), u"+0"_s);
    EXPECT_EQ(TestModeDevices()[0].function(13), u"ch+"_s); // the window keeps ch+
    EXPECT_EQ(PageTestLabel(4, 14), u"ch-"_s);
    EXPECT_EQ(PageTestLabel(4, 16), QString());
    EXPECT_EQ(PageTestLabel(5, 13), u"+0"_s);
    EXPECT_EQ(PageTestLabel(5, 41), u"Stop"_s);
    EXPECT_EQ(PageTestLabel(3, 4), u"暖/冷"_s);
    EXPECT_EQ(PageTestLabel(3, 5), QString());
    for (int design : {1, 2, 6}) {
        EXPECT_FALSE(HasPageTestLabels(design));
        EXPECT_EQ(PageTestLabel(design, 0), QString());
    }
}
