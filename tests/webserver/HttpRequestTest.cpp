#include "webserver/HttpRequest.h"
#include "webserver/Codecs.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace Http;

// Complete at the header end plus the declared body; too large or nonsense lengths refused.
TEST(HttpFrame, CompleteAtHeaderEndPlusTheDeclaredBodyWithinLimits) {
    const QByteArray post = "POST /list.asp HTTP/1.1\r\nContent-Length: 10\r\n\r\n";
    const QByteArray length = "POST / HTTP/1.1\r\nContent-Length: ";
    const std::tuple<QByteArray, Frame, qsizetype> cases[] = {
        {"GET / HTTP/1.1\r\nHost: a\r\n", Frame::Incomplete, 0},
        {"GET / HTTP/1.1\r\nHost: a\r\n\r\n", Frame::Complete, 27},
        // "post" elsewhere in a GET changes nothing; a POST waits for its body.
        {"GET / HTTP/1.1\r\nReferer: http://x/post.asp\r\n\r\n", Frame::Complete, 46},
        {post + "123456789", Frame::Incomplete, 0},
        {post + "1234567890EXTRA", Frame::Complete, post.size() + 10},
        {"POST /x HTTP/1.1\r\ncontent-LENGTH:  1\r\n\r\nZ", Frame::Complete, 41},
        {"POST /x HTTP/1.1\r\n\r\n", Frame::Complete, 20},
        // Bare LF line ends, alone or mixed with CRLF.
        {"GET / HTTP/1.1\nHost: a\n\nGET", Frame::Complete, 24},
        {"POST /x HTTP/1.1\nContent-Length: 2\n\nZ", Frame::Incomplete, 0},
        {QByteArray(MaxHeaderBytes + 1, 'a'), Frame::TooLarge, 0},
        {"GET /" + QByteArray(MaxHeaderBytes, 'a') + "\r\n\r\n", Frame::TooLarge, 0},
        {length + "1048577\r\n\r\n", Frame::TooLarge, 0},
        {length + "99999999999999999999\r\n\r\n", Frame::TooLarge, 0},
        {length + "1048576\r\n\r\n", Frame::Incomplete, 0},
        {length + "1\r\nContent-Length: 2\r\n\r\n", Frame::Malformed, 0},
        {length + "-1\r\n\r\n", Frame::Malformed, 0},
        {length + "\r\n\r\n", Frame::Malformed, 0},
        {length + "0x10\r\n\r\n", Frame::Malformed, 0},
    };
    for (const auto& [input, frame, size] : cases) {
        qsizetype got = 0;
        EXPECT_EQ(CheckFrame(input, &got), frame) << input.left(60).constData();
        EXPECT_EQ(frame == Frame::Complete ? got : 0, size) << input.left(60).constData();
    }
}

TEST(HttpRoute, PagesRedirectsAndFiles) {
    const std::tuple<const char16_t*, bool, Route> cases[] = {
        {u"/X.ASP", false, Route::Page},
        {u"/x.asp?a=1", false, Route::Page},
        {u"/x.asp/y?a=1", false, Route::Redirect},
        {u"/", false, Route::Redirect},
        {u"/", true, Route::Page},
        {u"", false, Route::Redirect},
        {u"/pic/up.gif", true, Route::File},
        {u"/pic/pict.jpg?1", false, Route::Redirect},
        {u"/a.b/folder", false, Route::Redirect},
        {u"/help/wake.html", true, Route::File},
        {u"/help/", false, Route::Redirect},
        {u"/help/x.asp", false, Route::Page},
        {u"/pic/wake.html", false, Route::Redirect},
    };
    for (const auto& [path, armed, route] : cases)
        EXPECT_EQ(ClassifyPath(QString::fromUtf16(path), armed), route)
            << QString::fromUtf16(path).toStdString() << armed;
}

TEST(HttpParse, HostOnlyFromItsOwnLine) {
    const std::tuple<const char*, const char*, bool, const char*> cases[] = {
        // request, host, whether a Host line came, POST body
        {"POST /host:evil HTTP/1.1\nContent-Length: 10\n\nHost: evil", "", false, "Host: evil"},
        {"GET / HTTP/1.1\r\nXHost: evil\r\nhost:\tgood \r\n\r\n", "good", true, ""},
        {"GET / HTTP/1.1\r\nHost: evil\rLocation: x\r\n\r\n", "", true, ""},
    };
    for (const auto& [text, host, hasHost, body] : cases) {
        const Request r = ParseRequest(QString::fromLatin1(text));
        EXPECT_EQ(r.host, QString::fromLatin1(host)) << text;
        EXPECT_EQ(r.hasHost, hasHost) << text;
        EXPECT_EQ(r.postBody, QString::fromLatin1(body)) << text;
    }
}
