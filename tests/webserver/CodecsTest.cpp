#include "webserver/Codecs.h"

#include "core/Application.h"
#include "support/FixedClock.h"

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray urlBytes(QStringView text) {
    QByteArray bytes;
    URLDecodeBytes(text, bytes);
    return bytes;
}

} // namespace

TEST(Codecs, PercentDecodingAndItsMalformedEscapes) {
    struct Case {
        QString text;
        QByteArray bytes;
    };
    const Case cases[] = {
        {u"a+b%20c"_s, "a b c"},
        {u"%41%62"_s, "Ab"},
        {u"%4"_s, "\x04"},   // one digit at the end
        {u"%4G"_s, "\x04G"}, // one good digit
        {u"%G1"_s, "%G1"},   // no good digit: the "%" stands
        {u"%"_s, "%"},       // alone
        {u"a%"_s, "a%"},     // last
        {u"%%41"_s, "%A"},   // the second "%" starts an escape
        {u"%83e%83X%83g"_s, "\x83\x65\x83\x58\x83\x67"},
        {u"%00"_s, QByteArray(1, '\0')},
        {u"ｶﾅ"_s, "\xB6\xC5"}, // half-width kana are single bytes
        {u"aテb"_s, "ab"},     // a double-byte character is dropped
        {u"é"_s, "?"},         // not in CP932
    };
    for (const Case& c : cases)
        EXPECT_EQ(urlBytes(c.text), c.bytes) << c.text.toStdString();

    EXPECT_EQ(DecodeValue(u"%83e%83X%83g"_s), u"テスト"_s);
    EXPECT_EQ(DecodeValue(u"a+b%20c"_s), u"a b c"_s);
}

TEST(Codecs, UrlDecodeBytesLeavesTheArrayAloneForEmptyTextAndEmptiesItForNoOutput) {
    QByteArray bytes("keep");
    URLDecodeBytes(u"", bytes);
    EXPECT_EQ(bytes, "keep");

    URLDecodeBytes(u"テスト", bytes); // every character dropped
    EXPECT_TRUE(bytes.isEmpty());
}

TEST(Codecs, DecodeQueryKeepsRawDoubleByteRunsAndDecodesTheRest) {
    EXPECT_EQ(DecodeQuery(u""), u""_s);
    EXPECT_EQ(DecodeQuery(u"テスト%41"), u"テストA"_s);
    EXPECT_EQ(DecodeQuery(u"Device=テレビ&Func=%93%64%8C%B9+x"), u"Device=テレビ&Func=電源 x"_s);
    // Escaped and raw double-byte characters side by side.
    EXPECT_EQ(DecodeQuery(u"%83eテ%83X"), u"テテス"_s);
    // Half-width kana belong to the single-byte runs and survive decoding.
    EXPECT_EQ(DecodeQuery(u"ｶﾅ%41"), u"ｶﾅA"_s);
}

TEST(Codecs, DecBase64GivesCp932TextOrNothing) {
    EXPECT_EQ(DecBase64(u"dXNlcjpwYXNz"), u"user:pass"_s);
    EXPECT_EQ(DecBase64(QString::fromLatin1(QByteArray("\x83\x65\x83\x58:x").toBase64())),
              u"テス:x"_s);
    EXPECT_EQ(DecBase64(u""), u""_s);
    EXPECT_EQ(DecBase64(u"dXNl*cjpw"), u""_s);
    EXPECT_EQ(DecBase64(u"テスト"), u""_s);
}

TEST(Codecs, CheckLogonComparesExactly) {
    AppState state;
    state.WebUser = u"Owner"_s;
    state.WebPass = u"pa:ss"_s;
    EXPECT_TRUE(CheckLogon(state, u"Owner", u"pa:ss"));
    EXPECT_FALSE(CheckLogon(state, u"owner", u"pa:ss"));
    EXPECT_FALSE(CheckLogon(state, u"Owner", u"pa:ss "));
    EXPECT_FALSE(CheckLogon(state, u"Owner", u""));

    AppState empty;
    EXPECT_TRUE(CheckLogon(empty, u"", u""));
}

TEST(Codecs, HttpDateIsEnglishUtcAndTheShiftLeavesTheDate) {
    // 17:00 in Tokyo is 08:00 UTC.
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(17, 0, 0), QTimeZone(9 * 3600)));
    EXPECT_EQ(HttpDate(clock), u"Sat, 21 Nov 2026 08:00:00 GMT"_s);
    EXPECT_EQ(HttpDate(clock, 90), u"Sat, 21 Nov 2026 09:30:00 GMT"_s);
    EXPECT_EQ(HttpDate(clock, 16 * 60 + 1), u"Sat, 21 Nov 2026 00:01:00 GMT"_s);
    EXPECT_EQ(HttpDate(clock, -9 * 60), u"Sat, 21 Nov 2026 23:00:00 GMT"_s);

    // The UTC date, not the local one.
    clock.at = QDateTime(QDate(2027, 1, 1), QTime(8, 59, 59), QTimeZone(9 * 3600));
    EXPECT_EQ(HttpDate(clock), u"Thu, 31 Dec 2026 23:59:59 GMT"_s);
}

TEST(Codecs, AccessDeniedPageIsThreeLines) {
    EXPECT_EQ(AccessDeniedPage(), u"<html>\r\n401.2 Access Denied\r\n</html>\r\n"_s);
}
