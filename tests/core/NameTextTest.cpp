#include "core/NameText.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// No name leaves the folder or hides in it; a fine file name stays, so old files are found.
TEST(NameText, FileNameOfKeepsEveryNameInItsFolder) {
    struct Case {
        QString name, whole, part;
    };
    const Case cases[] = {
        {u":"_s, u"_"_s, u"_"_s}, // Qt reads a leading ':' as a resource path
        {u".."_s, u"__"_s, u".."_s},
        {u"."_s, u"_"_s, u"."_s},
        {u".hidden"_s, u"_hidden"_s, u".hidden"_s},
        {u"../up"_s, u"___up"_s, u".._up"_s},
        {u"a/b\\c"_s, u"a_b_c"_s, u"a_b_c"_s},
        {u"Mode: Cool*?\"<>|"_s, u"Mode_ Cool______"_s, u"Mode_ Cool______"_s},
        {u"nul\0byte"_s, u"nul_byte"_s, u"nul_byte"_s},
        {u"tab\there\x7f"_s, u"tab_here_"_s, u"tab_here_"_s},
        {u"CON"_s, u"_CON"_s, u"CON"_s},
        {u"nul.ir"_s, u"_nul.ir"_s, u"nul.ir"_s},
        {u"com1"_s, u"_com1"_s, u"com1"_s},
        {u"COM0"_s, u"COM0"_s, u"COM0"_s},
        {u"CONSOLE"_s, u"CONSOLE"_s, u"CONSOLE"_s},
        {u""_s, u"_"_s, u""_s},
        {u"①～髙∑"_s, u"①～髙∑"_s, u"①～髙∑"_s}, // CP932 only: kept
        {u"テレビ 電源＋"_s, u"テレビ 電源＋"_s, u"テレビ 電源＋"_s},
        {u"Vol.1 😀"_s, u"Vol.1 😀"_s, u"Vol.1 😀"_s},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FileNameOf(c.name), c.whole) << c.name.toStdString();
        EXPECT_EQ(FileNameOf(c.name, false), c.part) << c.name.toStdString();
    }
}
