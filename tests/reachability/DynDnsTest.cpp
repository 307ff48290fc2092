#include "reachability/DynDns.h"
#include "support/HttpStandIn.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// The first real IPv4 address of the page; anything else (an error status too) is an "Error".
TEST(DnsService, LookupFindsTheFirstAddressOrReportsError) {
    TempFolder t;
    HttpStandIn peer;
    t.settings.WriteIni(u"Options", u"IPCheckURL", peer.url() + u"/ip"_s);
    DnsService service(t.settings);
    auto lookup = [&](const QByteArray& answer) {
        peer.answer = answer;
        QString result;
        service.GetIPAddr([&](const QString& r) { result = r; });
        WaitUntil([&] { return !result.isEmpty(); });
        return result;
    };
    using S = HttpStandIn;
    EXPECT_EQ(lookup(S::Response("200 OK", "<body>Current IP Address: 203.0.113.7</body>")),
              u"203.0.113.7"_s);
    EXPECT_EQ(lookup(S::Response("200 OK", "v1.2.3.4.5 999.1.1.1 at 10.0.0.1.")), u"10.0.0.1"_s);
    EXPECT_EQ(peer.requests.last().left(12), "GET /ip HTTP");
    for (const QByteArray& bad :
         {S::Response("200 OK", "<html>no address here</html>"),
          S::Response("500 Internal Server Error", "seen from 203.0.113.7"),
          S::Response("302 Found", "", "Location: /ip\r\n"),
          S::Response("200 OK", QByteArray(10 * 1024 * 1024, '1') + " 203.0.113.7")})
        EXPECT_TRUE(lookup(bad).contains(u"Error")) << bad.left(40).constData();

    peer.server.close();
    EXPECT_TRUE(lookup({}).contains(u"Error"));
}

// A service that never answers ends in an error after the time-out, holding nothing meanwhile.
TEST(DnsService, HangingServiceEndsInAnErrorWithoutHoldingTheThread) {
    TempFolder t;
    HttpStandIn peer; // answer stays empty: it never answers
    t.settings.WriteIni(u"Options", u"IPCheckURL", peer.url());
    DnsService service(t.settings);
    service.timeoutMs = 1500;

    QString result;
    QElapsedTimer since;
    since.start();
    service.GetIPAddr([&](const QString& r) { result = r; });
    EXPECT_LT(since.elapsed(), 100);
    WaitForSignal(&peer.server, &QTcpServer::newConnection, 1000);
    WaitMs(50);
    ASSERT_EQ(peer.requests.size(), 1);
    EXPECT_TRUE(result.isEmpty());
    WaitUntil([&] { return !result.isEmpty(); }, 5000);
    EXPECT_TRUE(result.contains(u"Error"));
    EXPECT_GE(since.elapsed(), 1400);
}
