#include "api/ClimateApi.h"
#include "api/JsonApi.h"
#include "climate/ClimateUnits.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "reservations/Scheduler.h"
#include "support/ClimateTable.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The climate calls on a real server, wired as the program wires them.
struct Served {
    Served() {
        t.settings.WriteIni(u"WebServer", u"Port", u"0");
        t.settings.WriteIni(u"WebServer", u"Hosts", u"h");
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.factory = [this](const QString&) {
            auto sim = std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
            sim->captureDelayMs = 100;
            return sim;
        };
        api.climates = [this](const Api::Call& c, const FrontReply& r) { climateApi.Handle(c, r); };
        server.portFallback = [](const QList<quint16>&) { return quint16(0); };
        server.AddFront(api.Route(u"/api/v1/climates/import"_s, ClimateApi::MaxImportBody));
        server.AddFront(api.Route());
        server.InitWebServer();
    }
    QByteArray call(const QByteArray& method, const QByteArray& path, const QByteArray& body = {}) {
        return ApiCall(server.WebPort(), method, path, body);
    }
    static int status(const QByteArray& answer) { return ApiStatus(answer); }
    static QJsonObject json(const QByteArray& answer) { return ApiJson(answer); }
    int sends() const { return int(t.readFile(u"sim-transmit.log").count('\n')); }

    TempFolder t;
    FixedClock clock;
    ScriptedPrompt prompt;
    Dispatcher dispatcher;
    Transceiver device{t.folder, t.settings, prompt};
    Scheduler scheduler{t.folder, t.settings, clock};
    WebServer server{t.folder, t.settings, clock, prompt, dispatcher};
    JsonApi api{{t.folder, t.settings, clock, device, scheduler, server, {}}};
    ClimateUnits units{t.folder, t.settings, device};
    ClimateApi climateApi{
        t.folder, units, device,
        [this](const QByteArray& name, const QJsonObject& data) { api.Publish(name, data); }};
};

QByteArray Body(const QJsonObject& o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

} // namespace

TEST(ClimateApi, ImportSetStateRefuseAndDelete) {
    Served a;
    // A SmartIR file larger than other bodies may be still comes in.
    QJsonObject file = QJsonDocument::fromJson(SmartIrFile()).object();
    file[u"_padding"_s] = QString(100 * 1024, u' ');
    QByteArray r = a.call("POST", "/api/v1/climates/import",
                          Body({{u"name"_s, u"寝室"_s}, {u"smartir"_s, file}}));
    ASSERT_EQ(Served::status(r), 201) << r.toStdString();
    const QJsonObject unit = Served::json(r);
    EXPECT_EQ(unit[u"id"_s], u"ac1"_s);
    EXPECT_TRUE(unit[u"family"_s].isNull());
    EXPECT_EQ(unit[u"caps"_s][u"fans"_s].toArray().size(), 2);

    r = a.call("PUT", "/api/v1/climates/ac1/state",
               R"({"power":true,"mode":"cool","temperature":24.4,"fan":"high"})");
    ASSERT_EQ(Served::status(r), 200) << r.toStdString();
    EXPECT_EQ(Served::json(r)[u"state"_s][u"temperature"_s].toDouble(), 24);
    EXPECT_FALSE(Served::json(r)[u"message"_s].toString().isEmpty()); // rounded, and says so
    EXPECT_EQ(a.sends(), 1);
    // The table has no cool/high/25: refused, nothing sent, the state as it was.
    r = a.call("PUT", "/api/v1/climates/ac1/state", R"({"temperature":25})");
    EXPECT_EQ(Served::status(r), 422);
    EXPECT_EQ(Served::status(a.call("PUT", "/api/v1/climates/ac1/state", R"({"mode":"x"})")), 400);
    EXPECT_EQ(a.sends(), 1);
    r = a.call("GET", "/api/v1/climates");
    EXPECT_EQ(Served::json(r)[u"climates"_s][0][u"state"_s][u"fan"_s], u"high"_s);

    EXPECT_EQ(Served::status(a.call("DELETE", "/api/v1/climates/ac1")), 204);
    EXPECT_EQ(Served::status(a.call("GET", "/api/v1/climates/ac1/state")), 404);
    EXPECT_EQ(Served::status(a.call("POST", "/api/v1/climates", R"({"name":"x","family":"nope"})")),
              422);
}

TEST(ClimateApi, ALearnedFrameNoFamilyReadsOffersTheTableRoute) {
    Served a; // the simulator captures an NEC key
    const QByteArray r = a.call("POST", "/api/v1/climates/learn", R"({"name":"居間"})");
    EXPECT_EQ(Served::status(r), 422) << r.toStdString();
    EXPECT_EQ(Served::json(r)[u"error"_s], u"unknown_family"_s);
    EXPECT_TRUE(Served::json(r)[u"message"_s].toString().contains(u"/api/v1/climates/import"_s));
    EXPECT_TRUE(a.units.units().empty());
}
