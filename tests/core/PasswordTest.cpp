#include "core/Password.h"

#include <QSet>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(Password, EverySevenBitCharacterHasItsOwnTokenAndOnlyTheyAreStored) {
    QSet<QString> tokens;
    for (char16_t c = 0; c < 128; ++c) {
        QString token = ScramblePassword(u"SET", QString(QChar(c)));
        ASSERT_EQ(token.size(), 4) << int(c);
        for (QChar t : token)
            EXPECT_TRUE(t.unicode() > 0x20 && t.unicode() < 0x7F) << int(c);
        tokens.insert(token);
        EXPECT_EQ(ScramblePassword(u"RESET", token), QString(QChar(c)));
    }
    EXPECT_EQ(tokens.size(), 128);

    const QString plain = u"s3cret P@ss!"_s;
    const QString stored = ScramblePassword(u"set", plain);
    EXPECT_EQ(ScramblePassword(u"Reset", stored), plain);
    EXPECT_EQ(ScramblePassword(u"other", plain), QString());
    EXPECT_EQ(ScramblePassword(u"SET", u""), QString());
    // Characters beyond seven bits cannot be stored.
    EXPECT_FALSE(IsStorablePassword(u"caf\u00e9"));
    EXPECT_EQ(ScramblePassword(u"SET", u"abcé"), QString());
    // A short last piece is ignored; a piece that is no token adds nothing.
    EXPECT_EQ(ScramblePassword(u"RESET", stored + u"xy"_s), plain);
    EXPECT_EQ(ScramblePassword(u"RESET", u"    "_s + stored), plain);
}
