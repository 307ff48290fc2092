#include "webserver/HttpRequest.h"
#include "core/Application.h"
#include "core/NetAddress.h"
#include "webserver/FileSender.h"

#include <QHostAddress>
#include <QRandomGenerator>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace Http;

TEST(HttpFrame, CompleteAtHeaderEndPlusExactlyTheDeclaredBody) {
    qsizetype length = 0;
    EXPECT_EQ(CheckFrame("GET / HTTP/1.1\r\nHost: a\r\n", &length), Frame::Incomplete);
    EXPECT_EQ(CheckFrame("GET / HTTP/1.1\r\nHost: a\r\n\r\n", &length), Frame::Complete);
    EXPECT_EQ(length, 27);

    // "post" elsewhere in a GET changes nothing; a POST waits for its body.
    EXPECT_EQ(CheckFrame("GET / HTTP/1.1\r\nReferer: http://x/post.asp\r\n\r\n", &length),
              Frame::Complete);
    const QByteArray post = "POST /list.asp HTTP/1.1\r\nContent-Length: 10\r\n\r\n";
    EXPECT_EQ(CheckFrame(post + "123456789", &length), Frame::Incomplete);
    EXPECT_EQ(CheckFrame(post + "1234567890EXTRA", &length), Frame::Complete);
    EXPECT_EQ(length, post.size() + 10);
    EXPECT_EQ(CheckFrame("POST /x HTTP/1.1\r\ncontent-LENGTH:  1\r\n\r\nZ", &length),
              Frame::Complete);
    EXPECT_EQ(CheckFrame("POST /x HTTP/1.1\r\n\r\n", &length), Frame::Complete);
}

TEST(HttpFrame, LimitsAndNonsense) {
    qsizetype length = 0;
    EXPECT_EQ(CheckFrame(QByteArray(MaxHeaderBytes + 1, 'a'), &length), Frame::TooLarge);
    EXPECT_EQ(CheckFrame("GET /" + QByteArray(MaxHeaderBytes, 'a') + "\r\n\r\n", &length),
              Frame::TooLarge);
    EXPECT_EQ(CheckFrame("POST / HTTP/1.1\r\nContent-Length: 1048577\r\n\r\n", &length),
              Frame::TooLarge);
    EXPECT_EQ(
        CheckFrame("POST / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", &length),
        Frame::TooLarge);
    EXPECT_EQ(CheckFrame("POST / HTTP/1.1\r\nContent-Length: 1048576\r\n\r\n", &length),
              Frame::Incomplete);
    for (const char* bad : {"-1", "abc", "", "1 2", "0x10"})
        EXPECT_EQ(CheckFrame(QByteArray("POST / HTTP/1.1\r\nContent-Length: ") + bad + "\r\n\r\n",
                             &length),
                  Frame::Malformed)
            << bad;
    EXPECT_EQ(
        CheckFrame("POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", &length),
        Frame::Malformed);
}

TEST(HttpParse, HostRealmMethodPathAndBody) {
    Request r = ParseRequest(u"GET /remote2.asp?DevID=3 HTTP/1.1\r\nHost: a:8080\r\n\r\n"_s);
    EXPECT_EQ(r.path, u"/remote2.asp?DevID=3"_s);
    EXPECT_EQ(r.host, u"a:8080"_s);
    EXPECT_EQ(r.realm, u"a:8080"_s);
    EXPECT_EQ(r.postBody, QString());

    // Without Host the realm is what follows the method's first four characters.
    r = ParseRequest(u"GET / HTTP/1.1\r\nAccept: */*\r\n\r\n"_s);
    EXPECT_EQ(r.host, QString());
    EXPECT_EQ(r.realm, u"/ HTTP/1.1"_s);

    r = ParseRequest(u"post /list.asp HTTP/1.1\r\nHOST: h\r\nContent-Length: 9\r\n\r\nB1=x&y=1 "_s);
    EXPECT_EQ(r.path, u"/list.asp"_s);
    EXPECT_EQ(r.host, u"h"_s);
    EXPECT_EQ(r.postBody, u"B1=x&y=1"_s);

    EXPECT_EQ(ParseRequest(u"HEAD /pic/up.gif HTTP/1.1\r\nHost: h\r\n\r\n"_s).path, QString());
    EXPECT_EQ(ParseRequest(u"GET /only\r\n\r\n"_s).path, u"/only"_s);
}

TEST(HttpParse, BasicCredentials) {
    // "user:pa:ss" -> the password is everything behind the first colon.
    Request r = ParseRequest(
        u"GET / HTTP/1.1\r\nAuthorization: Basic dXNlcjpwYTpzcw==\r\nHost: h\r\n\r\n"_s);
    EXPECT_TRUE(r.hasAuthorization);
    EXPECT_EQ(r.user, u"user"_s);
    EXPECT_EQ(r.password, u"pa:ss"_s);

    r = ParseRequest(u"GET / HTTP/1.1\r\nAuthorization: Basic !!!\r\n\r\n"_s);
    EXPECT_TRUE(r.hasAuthorization);
    EXPECT_EQ(r.user, QString());
    EXPECT_FALSE(ParseRequest(u"GET / HTTP/1.1\r\n\r\n"_s).hasAuthorization);
}

TEST(HttpRoute, PagesRedirectsAndFiles) {
    struct Case {
        QString path;
        bool armed;
        Route route;
    };
    const Case cases[] = {
        {u"/default.asp"_s, false, Route::Page},
        {u"/X.ASP"_s, false, Route::Page},
        {u"/index.htm"_s, false, Route::Page},
        {u"/x.asp?a=1"_s, false, Route::Page},
        {u"/x.asp/y?a=1"_s, false, Route::Redirect},
        {u"/"_s, false, Route::Redirect},
        {u"/"_s, true, Route::Page},
        {u""_s, false, Route::Redirect},
        {u"/pic/up.gif"_s, false, Route::File},
        {u"/pic/up.gif"_s, true, Route::File},
        {u"/pic/pict.jpg?1"_s, false, Route::Redirect},
        {u"/movie.mpeg"_s, false, Route::Redirect},
        {u"/a.b/folder"_s, false, Route::Redirect},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ClassifyPath(c.path, c.armed), c.route) << c.path.toStdString() << c.armed;
}

TEST(HttpFiles, ContentTypesByTheLastThreeCharacters) {
    EXPECT_EQ(ContentTypeLines(u"/pic/UP.GIF"_s), u"Content-Type: image/gif\r\n"_s);
    EXPECT_EQ(ContentTypeLines(u"/a.jpg"_s), u"Content-Type: image/jpeg\r\n"_s);
    EXPECT_EQ(ContentTypeLines(u"/v.mpeg"_s), u"Content-Type: video/mpeg\r\n"_s);
    EXPECT_EQ(ContentTypeLines(u"/setup.zip"_s),
              u"Content-Type: application/x-zip-compressed\r\nAccept-Ranges: bytes\r\n"_s);
    EXPECT_EQ(ContentTypeLines(u"/a.txt"_s), u"Content-Type: text/html\r\n"_s);
    EXPECT_EQ(ContentTypeLines(u"/agif"_s), u"Content-Type: image/gif\r\n"_s); // no dot test
}

TEST(HttpFiles, RangeStart) {
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=100-199\r\n\r\n"_s), 100);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=0-\r\n\r\n"_s), 0);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=5000-,7000-\r\n\r\n"_s), 5000);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=abc-\r\n\r\n"_s), std::nullopt);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=-500\r\n\r\n"_s), std::nullopt);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nrange: bytes=10-\r\n\r\n"_s), std::nullopt);
    EXPECT_EQ(RangeStart(u"GET /a HTTP/1.1\r\nRange: bytes=99999999999999999999999-\r\n\r\n"_s),
              std::nullopt);
}

TEST(NetAddress, PrivateRanges) {
    for (auto a : {"192.168.0.5", "172.16.1.1", "172.31.255.255", "10.0.0.1", "127.0.0.1",
                   "169.254.3.4", "::1", "fd12::1", "fe80::1", "::ffff:192.168.1.2"})
        EXPECT_TRUE(IsPrivateAddress(QHostAddress(QString::fromLatin1(a)))) << a;
    for (auto a : {"172.15.0.1", "172.32.0.1", "8.8.8.8", "192.169.0.1", "2001:db8::1",
                   "::ffff:8.8.8.8", "fec0::1"})
        EXPECT_FALSE(IsPrivateAddress(QHostAddress(QString::fromLatin1(a)))) << a;
}

TEST(HttpDecide, AnyBytesGiveADecisionWithoutHarm) {
    AppState login;
    login.WebAuthOn = true;
    login.WebUser = u"u"_s;
    login.WebPass = u"p"_s;
    const QByteArray valid = "POST /list.asp?x=%41 HTTP/1.1\r\nHost: h\r\nAuthorization: Basic "
                             "dTpw\r\nRange: bytes=1-\r\nContent-Length: 13\r\n\r\nReserve=a&B1=";
    QRandomGenerator gen(42);
    int decided = 0;
    for (int i = 0; i < 20000; ++i) {
        QByteArray input;
        if (i % 2 == 0) { // random bytes
            input.resize(gen.bounded(300));
            for (char& c : input)
                c = char(gen.bounded(256));
        } else { // a valid request with a few bytes changed, cut or repeated
            input = valid;
            for (int k = gen.bounded(4); k >= 0; --k)
                input[gen.bounded(int(input.size()))] = char(gen.bounded(256));
            if (gen.bounded(3) == 0)
                input.truncate(gen.bounded(int(input.size())));
        }
        Decision d = Decide(input, gen.bounded(2) == 1, login);
        if (d.action != Action::Wait && d.action != Action::Drop) {
            ++decided;
            EXPECT_LE(d.length, input.size());
        }
        RangeStart(d.request.text);
        ContentTypeLines(d.request.path);
    }
    EXPECT_GT(decided, 1000);

    // The untouched request passes the login and is a page.
    Decision d = Decide(valid, false, login);
    EXPECT_EQ(d.action, Action::Page);
    EXPECT_EQ(d.request.postBody, u"Reserve=a&B1="_s);
    login.WebPass = u"other"_s;
    EXPECT_EQ(Decide(valid, false, login).action, Action::Refuse);
}
