#include "core/ShiftJis.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ShiftJis, WindowsCharactersRoundTripOthersBecomeOneQuestionMarkEach) {
    struct Case {
        QString text;
        QByteArray bytes;
    };
    const Case cases[] = {
        {u"～"_s, "\x81\x60"}, // full-width tilde, as Windows maps it
        {u"①"_s, "\x87\x40"},  // NEC special row
        {u"ｶﾅ"_s, "\xB6\xC5"}, // half-width katakana: one byte each
        {u"テスト"_s, "\x83\x65\x83\x58\x83\x67"},
        {u"髙"_s, "\xFB\xFC"}, // IBM extension
        {u"abc 123"_s, "abc 123"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ShiftJis::Encode(c.text), c.bytes) << c.text.toStdString();
        EXPECT_EQ(ShiftJis::Decode(c.bytes), c.text) << c.text.toStdString();
        EXPECT_EQ(ShiftJis::ByteLength(c.text), c.bytes.size());
    }
    // What CP932 lacks becomes one question mark each.
    EXPECT_EQ(ShiftJis::Encode(u"aé😀b"_s), QByteArray("a??b"));
    EXPECT_EQ(ShiftJis::Encode(u"テ한レ한テ"_s), QByteArray("\x83\x65?\x83\x8C?\x83\x65"));
    // Stray halves of a surrogate pair, and a pair at the very end.
    const char16_t strays[] = {u'x', 0xD800, u'y', 0xDC00, 0xD83D, 0xDE00};
    EXPECT_EQ(ShiftJis::Encode(QStringView(strays, 6)), QByteArray("x?y??"));
    EXPECT_EQ(ShiftJis::ByteLength(u"é"_s), 1);
    // A literal "?" is no loss; each lost character is named once.
    EXPECT_EQ(ShiftJis::Unmappable(u"?Café 😀é〜−"_s), u"é😀"_s);
    // Windows folds these look-alikes: the name comes back changed, not lost.
    EXPECT_EQ(ShiftJis::RoundTrip(u"〜−‖¢£¬"_s), u"～－∥￠￡￢"_s);
}
