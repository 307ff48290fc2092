#include "webserver/Codecs.h"

#include "support/FixedClock.h"

#include <QTimeZone>

#include <gtest/gtest.h>

#include <utility>

using namespace Qt::StringLiterals;

TEST(Codecs, PercentDecodingAndItsMalformedEscapes) {
    const std::pair<QString, QByteArray> cases[] = {
        {u"a+b%20c"_s, "a b c"}, {u"%4"_s, "\x04"}, // one digit at the end
        {u"%4G"_s, "\x04G"},                        // one good digit
        {u"%G1"_s, "%G1"},                          // no good digit: the "%" stands
        {u"a%"_s, "a%"},         {u"%%41"_s, "%A"}, {u"%83e%83X%83g"_s, "\x83\x65\x83\x58\x83\x67"},
        {u"ｶﾅ"_s, "\xB6\xC5"}, // half-width kana are single bytes
        {u"aテb"_s, "ab"},     // a double-byte character is dropped
    };
    for (const auto& [text, bytes] : cases) {
        QByteArray out;
        URLDecodeBytes(text, out);
        EXPECT_EQ(out, bytes) << text.toStdString();
    }
    QByteArray kept("keep");
    URLDecodeBytes(u"", kept);
    EXPECT_EQ(kept, "keep");
    EXPECT_EQ(DecodeValue(u"%83e%83X%83g"), u"テスト"_s);
}

TEST(Codecs, DecodeQueryKeepsRawDoubleByteRunsAndDecodesTheRest) {
    EXPECT_EQ(DecodeQuery(u"テスト%41"), u"テストA"_s);
    EXPECT_EQ(DecodeQuery(u"Dev=テレビ&Func=%93%64%8C%B9+x"), u"Dev=テレビ&Func=電源 x"_s);
    EXPECT_EQ(DecodeQuery(u"ｶﾅ%41"), u"ｶﾅA"_s);
}

TEST(Codecs, DecBase64AndCheckLogon) {
    EXPECT_EQ(DecBase64(u"dXNlcjpwYXNz"), u"user:pass"_s);
    EXPECT_EQ(DecBase64(u"g2WDWDp4"), u"テス:x"_s); // CP932 bytes
    EXPECT_EQ(DecBase64(u"dXNl*cjpw"), u""_s);
    EXPECT_EQ(DecBase64(u"テスト"), u""_s);

    WebLogin state;
    state.WebUser = u"Owner"_s;
    state.WebPass = u"pa:ss"_s;
    EXPECT_TRUE(CheckLogon(state, u"Owner", u"pa:ss"));
    EXPECT_FALSE(CheckLogon(state, u"owner", u"pa:ss"));
    EXPECT_FALSE(CheckLogon(state, u"Owner", u"pa:ss "));
}

TEST(Codecs, HttpDateIsEnglishUtcAndTheShiftLeavesTheDate) {
    FixedClock clock(QDateTime(QDate(2027, 1, 1), QTime(8, 59, 59), QTimeZone(9 * 3600)));
    EXPECT_EQ(HttpDate(clock), u"Thu, 31 Dec 2026 23:59:59 GMT"_s);
    EXPECT_EQ(HttpDate(clock, 9 * 60 + 1), u"Thu, 31 Dec 2026 09:00:59 GMT"_s);
}
