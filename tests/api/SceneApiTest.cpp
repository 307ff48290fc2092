#include "api/SceneApi.h"
#include "api/JsonApi.h"
#include "climate/ClimateUnits.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "reservations/SceneReserve.h"
#include "reservations/Scheduler.h"
#include "scenes/Scenes.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The scene calls on a real server, wired as the program wires them, with a
// remote テレビ whose 電源 and 入力 are learned and 音量 is not.
struct Served {
    Served() {
        t.settings.WriteIni(u"WebServer", u"Port", u"0");
        t.settings.WriteIni(u"WebServer", u"Hosts", u"h");
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.factory = [this](const QString&) {
            return std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
        };
        t.writeRemote(1, u"テレビ"_s, 1, {u"電源"_s, u"入力"_s, u"音量"_s});
        WriteSignalFile(SignalFilePath(t.folder, u"テレビ", u"電源"), SimDriver::NecSignal(1, 0));
        WriteSignalFile(SignalFilePath(t.folder, u"テレビ", u"入力"), SimDriver::NecSignal(1, 1));
        QFile::remove(SignalFilePath(t.folder, u"テレビ", u"音量"));
        api.scenes = [this](const Api::Call& c, const FrontReply& r) { sceneApi.Handle(c, r); };
        api.sceneName = [this](int id) {
            return scenes.scene(id) ? scenes.scene(id)->name : QString();
        };
        api.sceneOf = [this](const QString& d, const QString& f) {
            return d == Reserve::SceneDevice && scenes.sceneNamed(f) ? scenes.sceneNamed(f)->id : 0;
        };
        server.portFallback = [](const QList<quint16>&) { return quint16(0); };
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
    Scenes scenes{t.folder, t.settings, device, units};
    SceneApi sceneApi{
        scenes, t.settings, units,
        [this](const QByteArray& name, const QJsonObject& data) { api.Publish(name, data); }};
};

} // namespace

TEST(SceneApi, MakeChangeRunReserveAndDelete) {
    Served a;
    RawConnection events(a.server.WebPort());
    events.send("GET /api/v1/events HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return a.api.Listeners() == 1; }));

    const QByteArray film = R"({"name":"映画","steps":[{"type":"key","remote":1,"key":0},
        {"type":"wait","ms":100},{"type":"key","remote":1,"key":1,"keyName":"ignored"}]})";
    QByteArray r = a.call("POST", "/api/v1/scenes", film);
    ASSERT_EQ(Served::status(r), 201) << r.toStdString();
    EXPECT_EQ(Served::json(r)[u"id"_s], 1);
    EXPECT_EQ(Served::json(r)[u"steps"_s][0][u"keyName"_s], u"電源"_s);
    EXPECT_EQ(Served::json(r)[u"steps"_s][2][u"keyName"_s], u"入力"_s);
    EXPECT_EQ(Served::status(a.call("POST", "/api/v1/scenes", film)), 409);
    r = a.call("POST", "/api/v1/scenes",
               R"({"name":"x","steps":[{"type":"wait","ms":100,"hold_ms":500}]})");
    EXPECT_EQ(Served::status(r), 400);
    EXPECT_TRUE(Served::json(r)[u"message"_s].toString().startsWith(u"steps[0].hold_ms"_s));
    r = a.call("PUT", "/api/v1/scenes/1", QByteArray(film).replace("映画", "映画を見る"));
    EXPECT_EQ(Served::json(r)[u"name"_s], u"映画を見る"_s);

    r = a.call("POST", "/api/v1/scenes/1/run");
    EXPECT_EQ(Served::status(r), 200) << r.toStdString();
    EXPECT_EQ(a.sends(), 2);
    ASSERT_EQ(Served::status(a.call("POST", "/api/v1/scenes",
                                    R"({"name":"音","steps":[{"type":"key","remote":1,"key":0},
        {"type":"key","remote":1,"key":2},{"type":"key","remote":1,"key":1}]})")),
              201);
    r = a.call("POST", "/api/v1/scenes/2/run");
    EXPECT_EQ(Served::status(r), 502);
    EXPECT_EQ(Served::json(r)[u"step"_s], 2);
    EXPECT_TRUE(Served::json(r)[u"message"_s].toString().startsWith(u"手順 2（テレビ 音量）: "_s));
    EXPECT_EQ(a.sends(), 3);
    ASSERT_TRUE(WaitUntil([&] {
        events.received += events.socket.readAll();
        return events.received.contains(R"("state":"failed")");
    }));
    EXPECT_TRUE(events.received.contains("event: scene\ndata: {\"id\":1,"));

    r = a.call("POST", "/api/v1/reservations", R"({"sceneId":1,"time":"07:00","repeat":"daily"})");
    ASSERT_EQ(Served::status(r), 201) << r.toStdString();
    EXPECT_EQ(Served::json(r)[u"sceneId"_s], 1);
    r = a.call("GET", "/api/v1/reservations");
    EXPECT_EQ(Served::json(r)[u"reservations"_s][0][u"sceneId"_s], 1);
    EXPECT_EQ(Served::json(r)[u"reservations"_s][0][u"key"_s], u"映画を見る"_s);
    EXPECT_EQ(Served::status(a.call("POST", "/api/v1/reservations",
                                    R"({"sceneId":9,"time":"07:00","repeat":"daily"})")),
              404);

    EXPECT_EQ(Served::status(a.call("DELETE", "/api/v1/scenes/1")), 204);
    EXPECT_EQ(Served::status(a.call("GET", "/api/v1/scenes/1")), 404);
    EXPECT_EQ(Served::status(a.call("GET", "/api/v1/scenes/101")), 404);
    EXPECT_EQ(Served::json(a.call("GET", "/api/v1/scenes"))[u"scenes"_s].toArray().size(), 1);
}
