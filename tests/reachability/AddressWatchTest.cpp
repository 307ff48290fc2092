#include "reachability/AddressWatch.h"
#include "core/Wait.h"
#include "reachability/AddressMail.h"
#include "reachability/DynDns.h"
#include "support/FixedClock.h"
#include "support/HttpStandIn.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QByteArray Address = "203.0.113.7";
// Nothing listens there: no discovery goes out onto the machine's network.
const QString NoRouter = QStringLiteral("http://127.0.0.1:1/rootDesc.xml");

// Lookup and dyndns2 are local stand-ins; mail cannot be delivered (port 1).
struct Watched {
    Watched() {
        SettingsStore& s = t.settings;
        WriteInternetOptions(s, lookup, dyndns);
        for (const char16_t* key : {u"SMTPServer", u"POPServer"})
            s.WriteIni(u"Options", key, u"127.0.0.1:1");
        s.WriteIni(u"Options", u"UPnPDescURL", NoRouter);
        s.WriteIni(u"Options", u"NotifyMail", u"1");
        s.WriteIni(u"WebServer", u"Port", u"8080");
        lookup.answer = HttpStandIn::Response("200 OK", "Current IP Address: " + Address);
        mail.setPrompt(&prompt);
        mail.setClock(&clock);
        QObject::connect(&watch, &AddressWatch::urlShown,
                         [this](const QString& url) { shown << url; });
    }
    // One tick of timAddrCheck, waiting for a check it starts to end.
    void tick() {
        watch.Tick();
        if (watch.checking())
            WaitForSignal(&watch, &AddressWatch::checked, 5000);
        ASSERT_FALSE(watch.checking());
    }
    QString ini(QStringView section, QStringView key) { return t.settings.ReadIni(section, key); }

    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 1), QTime(9, 0))};
    ScriptedPrompt prompt;
    DnsService service{t.settings};
    DynDns dynDns{t.settings, clock, t.folder.path(u"DynDns.log"), service};
    AddressMail mail{t.settings};
    AddressWatch watch{t.settings, service, mail, dynDns};
    HttpStandIn lookup, dyndns;
    QStringList shown;
};
} // namespace

// Checks at the first tick and 90 ticks apart; a failed mail keeps its LastIP while DNS goes on;
// an unchanged address is sent again after 28 days; a refusal leaves the address on show.
TEST(AddressWatch, ChecksAtTicks1And91WithMailThenDnsAndRefreshAfter28Days) {
    Watched w;
    w.dyndns.answer = HttpStandIn::Response("200 OK", "nochg " + Address);
    w.tick();
    EXPECT_EQ(w.lookup.requests.size(), 1);
    EXPECT_EQ(w.dyndns.requests.size(), 1);
    EXPECT_EQ(w.ini(u"NotifyMail", u"LastIP"), u""_s); // the mail was not sent
    EXPECT_EQ(w.ini(u"DynDns", u"LastIP"), QString::fromLatin1(Address));
    EXPECT_EQ(w.ini(u"DynDns", u"LastUpdated"), u"2026/11/01"_s);
    EXPECT_EQ(w.watch.GlobalAddr(), u"home.example.org"_s);
    EXPECT_EQ(w.shown, QStringList{u"http://home.example.org:8080"_s});
    const QByteArray log = w.t.readFile(u"DynDns.log");
    EXPECT_TRUE(log.endsWith("\tnochg " + Address + "\r\n")) << log.constData();
    EXPECT_EQ(log.count('\n'), 1);

    // Ticks 2 to 90 ask nobody; 91 checks again and starts the count over.
    for (int i = 2; i <= 90; ++i)
        w.tick();
    EXPECT_EQ(w.lookup.requests.size(), 1);
    w.clock.at = w.clock.at.addDays(27);
    w.tick();
    EXPECT_EQ(w.lookup.requests.size(), 2);
    EXPECT_EQ(w.dyndns.requests.size(), 1); // same address, 27 days: nothing sent
    EXPECT_EQ(w.watch.AddrCheckTicks(), 1);

    w.clock.at = w.clock.at.addDays(1);
    w.dyndns.answer = HttpStandIn::Response("401 Unauthorized", "badauth");
    w.watch.CheckSoon();
    w.tick();
    EXPECT_EQ(w.dyndns.requests.size(), 2);
    EXPECT_EQ(w.ini(u"DynDns", u"LastUpdated"), u"2026/11/01"_s);
    EXPECT_EQ(w.watch.GlobalAddr(), QString::fromLatin1(Address));
    EXPECT_EQ(w.shown.last(), u"http://203.0.113.7:8080"_s);
    EXPECT_TRUE(w.t.readFile(u"DynDns.log").endsWith("\tbadauth\r\n"));

    // A failed lookup changes nothing but the counter.
    w.lookup.answer = HttpStandIn::Response("500 Internal Server Error", "Error 500");
    w.watch.CheckSoon();
    w.tick();
    EXPECT_EQ(w.watch.GlobalAddr(), QString::fromLatin1(Address));
    EXPECT_EQ(w.watch.AddrCheckTicks(), 1);

    // Stopped while a check runs, the timer stays off when the check ends.
    w.watch.CheckSoon();
    w.watch.Tick();
    ASSERT_TRUE(w.watch.checking());
    w.watch.Stop();
    WaitForSignal(&w.watch, &AddressWatch::checked, 5000);
    EXPECT_FALSE(w.watch.watching());
}

// LastIP equal, no date: never sent; without mail or DNS the URL shows the address, no ":80".
TEST(AddressWatch, HeldAddressWithoutDateIsNeverSentAndPlainWatchShowsAddress) {
    Watched w;
    w.t.settings.WriteIni(u"DynDns", u"LastIP", QString::fromLatin1(Address));
    w.t.settings.WriteIni(u"Options", u"NotifyMail", u"0");
    w.clock.at = w.clock.at.addYears(3);
    w.tick();
    EXPECT_TRUE(w.dyndns.requests.isEmpty());
    EXPECT_EQ(w.watch.GlobalAddr(), u"home.example.org"_s);

    w.t.settings.WriteIni(u"Options", u"DNS_Update", u"0");
    w.t.settings.WriteIni(u"WebServer", u"Port", u"80");
    w.watch.CheckSoon();
    w.tick();
    EXPECT_EQ(w.shown.last(), u"http://203.0.113.7"_s);
    EXPECT_EQ(w.watch.GlobalAddr(), QString::fromLatin1(Address));
}

TEST(AddressWatch, SetupUpdateAcceptsGoodOrSuccessOnly) {
    Watched w;
    auto press = [&](const QByteArray& answer, const QString& port) {
        w.dyndns.answer = HttpStandIn::Response("200 OK", answer);
        std::optional<DynDns::ManualResult> result;
        w.dynDns.UpdateFromSetup(u"me"_s, u"pw"_s, u"h.example.org"_s, port,
                                 [&](const DynDns::ManualResult& r) { result = r; });
        WaitUntil([&] { return result.has_value(); }, 5000);
        return result.value_or(
            DynDns::ManualResult{DynDns::ManualResult::Refused, u"(none)"_s, {}});
    };
    auto r = press("nochg " + Address, u"80"_s);
    EXPECT_EQ(r.outcome, DynDns::ManualResult::Refused);
    EXPECT_EQ(r.answer, u"nochg 203.0.113.7"_s);
    EXPECT_EQ(r.url, u"http://203.0.113.7"_s);
    EXPECT_EQ(w.ini(u"DynDns", u"LastIP"), u""_s);

    r = press("SUCCESS", u"080"_s);
    EXPECT_EQ(r.outcome, DynDns::ManualResult::Accepted);
    EXPECT_EQ(r.url, u"http://h.example.org:080"_s);
    EXPECT_EQ(w.ini(u"DynDns", u"LastIP"), QString::fromLatin1(Address));
    EXPECT_EQ(w.shown.last(), r.url);
    EXPECT_EQ(w.t.readFile(u"DynDns.log").count("\r\n"), 2);
    EXPECT_EQ(w.watch.GlobalAddr(), u""_s);

    w.lookup.answer = HttpStandIn::Response("200 OK", "no address");
    EXPECT_EQ(press("good", u"80"_s).outcome, DynDns::ManualResult::LookupFailed);
    EXPECT_EQ(w.dyndns.requests.size(), 2);
}
