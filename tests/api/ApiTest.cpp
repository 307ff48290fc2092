#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "phone/PhoneFiles.h"
#include "support/ApiServer.h"
#include "support/ClimateTable.h"
#include "support/FullDisk.h"
#include "support/SimHome.h"
#include "support/WaitUntil.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

TEST(Api, LoginOriginMethodsAndLimitsAreCheckedBeforeAnythingActs) {
    ApiServer a;
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    a.t.settings.WriteIni(u"Options", u"WebAuth", u"1");
    a.t.settings.WriteIni(u"Options", u"Web_User", u"me");
    a.t.settings.WriteIni(u"Options", u"Web_Pass", u""); // scrambled empty
    a.server.InitWebServer();                            // reads the login again
    const QByteArray login = "Authorization: Basic " + QByteArray("me:").toBase64() + "\r\n";

    QByteArray r = a.call("POST", "/api/v1/remotes/1/keys/0/press");
    EXPECT_EQ(ApiStatus(r), 401);
    EXPECT_TRUE(HeadOf(r).contains("WWW-Authenticate: Basic realm=\"Kestrava\"\r\n"));
    EXPECT_EQ(ApiJson(r)[u"error"_s], u"unauthorized"_s);
    // Another site's page, even with the owner's login, acts on nothing.
    r = a.call("POST", "/api/v1/remotes/1/keys/0/press", {},
               login + "Origin: http://evil.example\r\n");
    EXPECT_EQ(ApiStatus(r), 403);
    // A GET on an action: no link or reload can press.
    r = a.call("GET", "/api/v1/remotes/1/keys/0/press", {}, login);
    EXPECT_EQ(ApiStatus(r), 405);
    EXPECT_TRUE(HeadOf(r).contains("Allow: POST\r\n"));
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/press", "{nope", login)), 400);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/press", QByteArray(65 * 1024, ' '), login)), 413);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/remotes/1001", {}, login)), 404);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/remotes/1/keys/27", {}, login)), 404);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/nothing", {}, login)), 404);
    EXPECT_EQ(a.sends(), 0);
    r = a.call("POST", "/api/v1/remotes/1/keys/0/press", {},
               login + "Origin: http://127.0.0.1:8080\r\n");
    EXPECT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_EQ(a.sends(), 1);
    QJsonObject status = ApiJson(a.call("GET", "/api/v1/status", {}, login));
    EXPECT_EQ(status[u"port"_s].toInt(), a.server.WebPort());
    EXPECT_TRUE(status[u"mqtt"_s].isNull());
    a.api.mqttStatus = [] { return QJsonObject{{u"nodeId"_s, u"den"_s}, {u"listening"_s, true}}; };
    status = ApiJson(a.call("GET", "/api/v1/status", {}, login));
    EXPECT_EQ(status[u"mqtt"_s][u"nodeId"_s], u"den"_s);
    EXPECT_TRUE(ApiJson(a.call("GET", "/api/v1/openapi.json", {}, login)).contains(u"paths"_s));

    // Another client's request read meanwhile, with its login, cannot complete an unfinished one.
    const QByteArray victim = "GET /api/v1/status HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: "
                              "home-assistant/2026.11 aiohttp/3.9\r\n" +
                              login + "\r\n";
    RawConnection attacker(a.server.WebPort());
    QByteArray start = "GET /api/v1/status HTTP/1.1\r\nX-Pad: ";
    start += QByteArray(victim.size() - start.size(), 'a');
    attacker.send(start);
    WaitMs(50);
    EXPECT_EQ(ApiStatus(Fetch(a.server.WebPort(), victim)), 200);
    attacker.send("POST /api/v1/remotes/1/keys/0/press HTTP/1.1\r\nX: ");
    WaitMs(200);
    EXPECT_FALSE(attacker.socket.readAll().contains("HTTP/1.1 200"));

    // Another site's page, naming this machine by its own name (DNS rebinding): no login asked.
    const QByteArray foreign = "Host: evil.example:8080\r\nOrigin: http://evil.example:8080\r\n";
    r = Fetch(a.server.WebPort(), "POST /api/v1/remotes/1/keys/0/press HTTP/1.1\r\n" + foreign +
                                      "Content-Length: 0\r\n\r\n");
    EXPECT_EQ(ApiStatus(r), 421);
    EXPECT_EQ(ApiJson(r)[u"error"_s], u"misdirected"_s);
    RawConnection events(a.server.WebPort());
    events.send("GET /api/v1/events HTTP/1.1\r\n" + foreign + "\r\n");
    EXPECT_EQ(ApiStatus(events.readAll(3000)), 421);
    EXPECT_EQ(a.api.Listeners(), 0);
    // Actions take JSON only, not the bodies another site's page may send unasked.
    const QByteArray body = R"({"remote":"TV","key":"Power"})";
    for (const QByteArray type : {"text/plain;charset=UTF-8", "application/x-www-form-urlencoded",
                                  "multipart/form-data; boundary=x", "application/jsonp", ""}) {
        r = a.call("POST", "/api/v1/press", body, login + "Content-Type: " + type + "\r\n");
        EXPECT_EQ(ApiStatus(r), 415) << type.constData();
        EXPECT_EQ(ApiJson(r)[u"error"_s], u"unsupported_media_type"_s);
    }
    // A form without fields carries its type too.
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes/1/keys/0/press", {},
                               login + "Content-Type: application/x-www-form-urlencoded\r\n")),
              415);
    EXPECT_EQ(a.sends(), 1);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/press", body,
                               login + "Content-Type: Application/JSON; charset=utf-8\r\n")),
              200);
    EXPECT_EQ(a.sends(), 2);

    // While setting.ini cannot be read the login is not known: nothing acts.
    const QString ini = a.t.settings.path();
    ASSERT_TRUE(QFile::rename(ini, ini + u".away"_s));
    ASSERT_TRUE(QDir().mkdir(ini));
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes/1/keys/0/press", {}, login)), 401);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/remotes", {}, login)), 401);
    EXPECT_EQ(a.sends(), 2);
    ASSERT_TRUE(QDir().rmdir(ini));
    ASSERT_TRUE(QFile::rename(ini + u".away"_s, ini));

    // Five wrong logins: then even the right one waits, and nothing is pressed.
    const QByteArray wrong = "Authorization: Basic " + QByteArray("me:x").toBase64() + "\r\n";
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/status", {}, wrong)), 401);
    r = a.call("POST", "/api/v1/remotes/1/keys/0/press", {}, login);
    EXPECT_EQ(ApiStatus(r), 429);
    EXPECT_TRUE(HeadOf(r).contains("\r\nRetry-After: 30\r\n"));
    EXPECT_EQ(ApiJson(r)[u"error"_s], u"too_many"_s);
    EXPECT_EQ(a.sends(), 2);
}

TEST(Api, PressAnswersAfterTheSendWithHonestStatuses) {
    ApiServer a;
    a.learnedKey(1, u"テレビ"_s, 1, {u"電源"_s});
    a.t.settings.WriteIni(RemoteSection(1), ButtonKey(1), u"音量"); // named, never learned
    EXPECT_EQ(
        ApiStatus(a.call("POST", "/api/v1/press",
                         u"{\"remote\":\"テレビ\",\"key\":\"電源\",\"repeat\":2}"_s.toUtf8())),
        200);
    EXPECT_EQ(a.sends(), 2);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes/1/keys/1/press")), 409);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/press", R"({"remote":"テレビ","key":"x"})")), 404);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes/1/keys/0/press", R"({"repeat":0})")), 400);
    // A full queue: 503 with Retry-After, nothing dropped silently.
    for (int i = 0; i <= Transceiver::MaxQueued; ++i)
        a.device.Enqueue(a.t.path(u"IRSignals/テレビ-電源.bin"), [](SendResult) {});
    const QByteArray busy = a.call("POST", "/api/v1/remotes/1/keys/0/press");
    EXPECT_EQ(ApiStatus(busy), 503);
    EXPECT_TRUE(HeadOf(busy).contains("Retry-After: 1\r\n"));
    ASSERT_TRUE(WaitUntil([&] { return a.device.Waiting() == 0; }));
    // Raw timings as Home Assistant sends them.
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/transmit",
                               R"({"timings":[9000,-4500,560,-560,560],"modulation":38000})")),
              200);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/transmit", R"({"timings":[0]})")), 400);
}

TEST(Api, WithoutATransceiverAPressIsABadGateway) {
    ApiServer a(false);
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    const QByteArray r = a.call("POST", "/api/v1/remotes/1/keys/0/press");
    EXPECT_EQ(ApiStatus(r), 502);
    EXPECT_EQ(ApiJson(r)[u"message"_s], Transceiver::PortUnsetText);
}

TEST(Api, LearnsARemoteWithoutADesktop) {
    ApiServer a;
    QByteArray r =
        a.call("POST", "/api/v1/remotes", u"{\"name\":\"エアコン\",\"design\":2}"_s.toUtf8());
    ASSERT_EQ(ApiStatus(r), 201) << r.toStdString();
    const int id = ApiJson(r)[u"id"_s].toInt();
    const QByteArray base = "/api/v1/remotes/" + QByteArray::number(id);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes", R"({"name":"x","design":7})")), 400);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/remotes",
                               u"{\"name\":\"エアコン\",\"design\":1}"_s.toUtf8())),
              409);
    // A name CP932 cannot hold is refused with the desktop's message; nothing is written.
    r = a.call("POST", base + "/keys/0/learn", u"{\"name\":\"冷房😀\"}"_s.toUtf8());
    EXPECT_EQ(ApiStatus(r), 400);
    EXPECT_TRUE(ApiJson(r)[u"message"_s].toString().contains(u"Shift_JIS"));

    // A second capture while one waits is refused; the first learns the key.
    RawConnection first(a.server.WebPort());
    first.send(ApiRequest("POST", base + "/keys/0/learn", u"{\"name\":\"冷房\"}"_s.toUtf8()));
    // The test waits below the capture's own loop: the second asks from inside it.
    int second = 0;
    QTimer::singleShot(100, [&] {
        EXPECT_EQ(a.device.CaptureWaiting, 1);
        second = ApiStatus(a.call("POST", base + "/keys/1/learn", R"({"name":"b"})"));
    });
    r = first.readAll(5000);
    ASSERT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_EQ(second, 409);
    EXPECT_EQ(ApiJson(r)[u"code"_s], u"NEC 0x4012"_s);
    EXPECT_TRUE(QFileInfo::exists(a.t.path(u"IRSignals/エアコン-冷房.bin")));
    EXPECT_FALSE(QFileInfo::exists(a.t.path(u"1.tmp")));

    // Nothing captured: 408, and the key stays unlearned.
    a.device.captureTimeoutMs = 150;
    a.captureDelayMs = 5000;
    a.device.DeActivateTira();
    a.device.Unload();
    EXPECT_EQ(ApiStatus(a.call("POST", base + "/keys/1/learn", R"({"name":"b"})")), 408);
    EXPECT_EQ(a.t.settings.ReadIni(RemoteSection(id), ButtonKey(1)), u"");

    // A waiting learn cancelled: it answers 409 at once, nothing stored; none left to cancel.
    a.device.captureTimeoutMs = 5000;
    RawConnection waiting(a.server.WebPort());
    waiting.send(ApiRequest("POST", base + "/keys/1/learn", R"({"name":"b"})"));
    int cancel = 0;
    QTimer::singleShot(100, [&] { cancel = ApiStatus(a.call("DELETE", base + "/keys/1/learn")); });
    QElapsedTimer clock;
    clock.start();
    r = waiting.readAll(5000);
    EXPECT_EQ(cancel, 200);
    EXPECT_EQ(ApiStatus(r), 409) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"error"_s], u"cancelled"_s);
    EXPECT_LT(clock.elapsed(), 2000);
    EXPECT_EQ(ApiStatus(a.call("DELETE", base + "/keys/1/learn")), 409);
    EXPECT_EQ(a.t.settings.ReadIni(RemoteSection(id), ButtonKey(1)), u"");

    r = a.call("PUT", base + "/keys/2/code", R"({"name":"Up","code":"nec:0x0408"})");
    ASSERT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"protocol"_s], u"nec"_s);
    EXPECT_EQ(ApiStatus(a.call("PUT", base + "/keys/3/code", R"({"name":"x","code":"bogus"})")),
              400);
    EXPECT_EQ(ApiStatus(a.call("PATCH", base + "/keys/2", u"{\"name\":\"冷房\"}"_s.toUtf8())),
              409); // key 0 has that name
    EXPECT_EQ(ApiStatus(a.call("PATCH", base + "/keys/2", R"({"name":"Down"})")), 200);
    EXPECT_TRUE(QFileInfo::exists(a.t.path(u"IRSignals/エアコン-Down.bin")));
    EXPECT_FALSE(QFileInfo::exists(a.t.path(u"IRSignals/エアコン-Up.bin")));
    EXPECT_EQ(ApiStatus(a.call("DELETE", base + "/keys/2")), 204);
    EXPECT_FALSE(QFileInfo::exists(a.t.path(u"IRSignals/エアコン-Down.bin")));
    EXPECT_EQ(ApiStatus(a.call("PATCH", base, R"({"name":"AC"})")), 200);
    EXPECT_TRUE(QFileInfo::exists(a.t.path(u"IRSignals/AC-冷房.bin")));
    const QJsonArray keys = ApiJson(a.call("GET", base))[u"keys"_s].toArray();
    ASSERT_EQ(keys.size(), 13);
    EXPECT_TRUE(keys[0][u"learned"_s].toBool());
    EXPECT_FALSE(keys[2][u"learned"_s].toBool());
    // The light list counts the learned keys and carries none of them.
    const QJsonObject light =
        ApiJson(a.call("GET", "/api/v1/remotes?keys=none"))[u"remotes"_s][0].toObject();
    EXPECT_EQ(light, (QJsonObject{{u"id"_s, id},
                                  {u"name"_s, u"AC"_s},
                                  {u"design"_s, 2},
                                  {u"buttonCount"_s, 13},
                                  {u"learned"_s, 1}}));
}

// A name with a control character or half a surrogate pair, or a full disk, leaves a key as it was.
TEST(Api, BrokenNamesAndAFullDiskLeaveTheKeyAsItWas) {
    ApiServer a;
    a.learnedKey(1, u"TV"_s, 1, {u"Vol"_s});
    const std::pair<QByteArray, QByteArray> calls[] = {{"POST", "/api/v1/remotes"},
                                                       {"PATCH", "/api/v1/remotes/1"},
                                                       {"PATCH", "/api/v1/remotes/1/keys/0"},
                                                       {"POST", "/api/v1/remotes/1/keys/1/learn"}};
    for (const QByteArray bad : {"A\\u0000B", "A\\tB", "A\\u0085B", "A\\ud800B", "AB\\n"})
        for (const auto& [method, path] : calls)
            EXPECT_EQ(ApiStatus(a.call(method, path, "{\"name\":\"" + bad + "\",\"design\":1}")),
                      400)
                << bad.data() << " " << path.data();
    EXPECT_EQ(a.t.settings.ReadIni(RemoteSection(1), u"Device"), u"TV"_s);
    EXPECT_EQ(a.t.settings.ReadIni(RemoteSection(2), u"Device"), QString());

    // setting.ini unwritable during an import onto the key: no file of the new name is left.
    for (auto key : {u"A", u"B", u"C"})
        a.t.settings.WriteIni(u"Pad", key, QString(1000, u'x')); // past one signal file's size
    QByteArray r;
    {
        FullDisk full(SignalFileSize); // a signal file still fits, setting.ini no longer does
        ASSERT_TRUE(full.ok());
        r = a.call("PUT", "/api/v1/remotes/1/keys/0/code",
                   R"({"name":"Power","code":"nec:0x0408"})");
    }
    EXPECT_EQ(ApiStatus(r), 500) << r.toStdString();
    EXPECT_EQ(a.t.settings.ReadIni(RemoteSection(1), ButtonKey(0)), u"Vol"_s);
    EXPECT_EQ(QDir(a.t.path(u"IRSignals")).entryList(QDir::Files), QStringList{u"TV-Vol.bin"_s});
}

// Reservations share the store and the scheduler; refusals name the field at fault, store nothing.
TEST(Api, ReservationsAndRefusals) {
    ApiServer a; // 2026-11-21 08:00
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    QByteArray r = a.call("POST", "/api/v1/reservations",
                          R"({"time":"07:05","repeat":"weekdays","remote":"TV","keyId":0})");
    ASSERT_EQ(ApiStatus(r), 201) << r.toStdString();
    const QString id = ApiJson(r)[u"id"_s].toString();
    EXPECT_TRUE(QFileInfo::exists(a.t.path(u"reserve/0111110 07_05")));
    EXPECT_EQ(a.scheduler.grid.rows().size(), 1u);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/reservations",
                               R"({"time":"25:00","repeat":"daily","remoteId":1,"keyId":0})")),
              400);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/reservations",
                               R"({"time":"07:00","repeat":"daily","remoteId":9,"keyId":0})")),
              404);
    r = a.call("PATCH", "/api/v1/reservations/" + id.toUtf8(),
               R"({"time":"08:00","repeat":"once","date":"2026-12-01"})");
    ASSERT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_FALSE(QFileInfo::exists(a.t.path(u"reserve/0111110 07_05")));
    const QJsonArray list =
        ApiJson(a.call("GET", "/api/v1/reservations"))[u"reservations"_s].toArray();
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list[0][u"date"_s], u"2026-12-01"_s);
    EXPECT_EQ(list[0][u"keyId"_s].toInt(), 0);
    const QByteArray moved = "/api/v1/reservations/" + list[0][u"id"_s].toString().toUtf8();
    EXPECT_EQ(ApiStatus(a.call("DELETE", moved)), 204);
    EXPECT_EQ(ApiStatus(a.call("DELETE", moved)), 404);
    EXPECT_TRUE(a.scheduler.grid.rows().empty());

    const struct {
        const char* method;
        const char* path;
        const char* body;
        const char16_t* field;
    } cases[] = {
        {"POST", "/api/v1/remotes/1/keys/0/press", R"({"hold_ms":500})", u"hold_ms"},
        {"PATCH", "/api/v1/remotes/1", R"({"name":"A","design":2})", u"design"},
        {"POST", "/api/v1/transmit", R"({"timings":[9000,-4500,560],"repeat":1})", u"repeat"},
        {"POST", "/api/v1/transmit", R"({"timings":[9000,"x",560]})", u"timings"},
        // No IR carrier, or a signal that starts with a space.
        {"POST", "/api/v1/transmit", R"({"timings":[9000,-4500,560],"modulation":0})",
         u"modulation"},
        {"POST", "/api/v1/transmit", R"({"timings":[9000,-4500,560],"modulation":9999})",
         u"modulation"},
        {"POST", "/api/v1/transmit", R"({"timings":[9000,-4500,560],"modulation":500001})",
         u"modulation"},
        {"POST", "/api/v1/transmit", R"({"timings":[-9000,4500,-560,560],"modulation":38000})",
         u"timings"},
        {"POST", "/api/v1/reservations", R"({"remoteId":1,"keyId":0,"time":"07:00","days":"01"})",
         u"days"},
        {"POST", "/api/v1/reservations",
         R"({"remoteId":1,"keyId":0,"time":"07:00","repeat":"daily","date":"2026-12-01"})",
         u"date"},
        {"POST", "/api/v1/reservations",
         R"({"remoteId":1,"keyId":0,"time":"08:00","date":"2026-11-21"})", u"date"},
        {"POST", "/api/v1/reservations",
         R"({"remoteId":1,"keyId":0,"time":"07:59","date":"2026-11-21"})", u"date"},
    };
    for (const auto& c : cases) {
        r = a.call(c.method, c.path, c.body);
        EXPECT_EQ(ApiStatus(r), 400) << c.body;
        EXPECT_TRUE(ApiJson(r)[u"message"_s].toString().startsWith(QStringView(c.field)))
            << r.toStdString();
    }
    EXPECT_EQ(a.sends(), 0);
    EXPECT_TRUE(QDir(a.t.path(u"reserve"_s)).isEmpty());
    // Chosen days alone are a weekly reservation.
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/reservations",
                               R"({"remoteId":1,"keyId":0,"time":"07:00","days":"0101000"})")),
              201);
    EXPECT_EQ(ApiJson(a.call("GET", "/api/v1/status"))[u"transceiver"_s][u"kind"_s], u"sim"_s);
}

TEST(Api, EventsConnectionsAndADeletedRemotesWaitingPresses) {
    ApiServer a;
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    RawConnection events(a.server.WebPort());
    events.send("GET /api/v1/events HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return a.api.Listeners() == 1; }));
    Fetch(a.server.WebPort(), "GET /remote1.asp?DevID=1&Button=0 HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] {
        events.received += events.socket.readAll();
        return events.received.contains("event: press");
    }));
    EXPECT_TRUE(events.received.contains(R"("remote":"TV")"));
    EXPECT_TRUE(events.received.contains(R"("source":"page")"));

    // Two API requests on one connection; a page on the same connection closes it.
    RawConnection c(a.server.WebPort());
    c.send("GET /api/v1/status HTTP/1.1\r\nHost: h\r\n\r\nGET /api/v1/remotes HTTP/1.1\r\nHost: "
           "h\r\n\r\nGET /remote1.asp HTTP/1.1\r\nHost: h\r\n\r\n");
    const QByteArray all = c.readAll(3000);
    EXPECT_EQ(all.count("HTTP/1.1 200 OK"), 3);
    EXPECT_TRUE(all.contains("\"remotes\""));
    EXPECT_EQ(c.socket.state(), QAbstractSocket::UnconnectedState);

    // A remote deleted while its presses wait ends them clearly.
    const int before = a.sends();
    RawConnection press(a.server.WebPort());
    press.send(ApiRequest("POST", "/api/v1/remotes/1/keys/0/press", R"({"repeat":20})"));
    ASSERT_TRUE(WaitUntil([&] { return a.sends() > before; }));
    EXPECT_EQ(ApiStatus(a.call("DELETE", "/api/v1/remotes/1")), 204);
    const QByteArray r = press.readAll(20000);
    EXPECT_EQ(ApiStatus(r), 409) << r.toStdString();
    EXPECT_LT(a.sends() - before, 20);
    EXPECT_FALSE(QFileInfo::exists(a.t.path(u"IRSignals/TV-Power.bin")));
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/remotes/1")), 404);
}

// Each kind of request, and two on one connection, cut anywhere: answered as when whole.
TEST(Api, RequestsInPiecesAreAnsweredAsIfWhole) {
    ApiServer a;
    a.server.AddFront(Phone::Route());
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    const QByteArray host = "Host: 127.0.0.1\r\nUser-Agent: test\r\n";
    // Alone on its connection, a request says so: the answer ends with it.
    const QByteArray alone = host + "Connection: close\r\n";
    const auto post = [&](const QByteArray& path, const QByteArray& body, bool last = true) {
        const QByteArray type =
            path.startsWith("/api/") ? "Content-Type: application/json\r\n" : "";
        return "POST " + path + " HTTP/1.1\r\n" + (last ? alone : host) + type +
               "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    };
    const QByteArray remotes = "GET /api/v1/remotes HTTP/1.1\r\n" + host + "\r\n";
    const QByteArray requests[] = {
        "GET /remote1.asp?DevID=1 HTTP/1.1\r\n" + host + "\r\n",
        post("/remote1.asp", "DevID=1&Button=0"),
        post("/api/v1/remotes/1/keys/0/press", R"({"repeat":1})"),
        "GET /m/ HTTP/1.1\r\n" + alone + "\r\n",
        "GET /api/v1/events HTTP/1.1\r\n" + host + "\r\n",
        remotes + post("/api/v1/remotes/1/keys/0/press", "{}", false) +
            "GET /api/v1/remotes HTTP/1.1\r\n" + host + "Connection: close\r\n\r\n",
    };
    // Reads until the server closes, or until a stream's head is complete.
    const auto answer = [](RawConnection& c, bool stream) {
        if (!stream)
            return c.readAll();
        WaitUntil([&] {
            c.received += c.socket.readAll();
            return c.received.contains("\r\n\r\n");
        });
        return HeadOf(c.received);
    };
    for (const QByteArray& request : requests) {
        const bool stream = request.contains("/events");
        RawConnection whole(a.server.WebPort());
        whole.send(request);
        const QByteArray expected = answer(whole, stream);
        ASSERT_TRUE(expected.startsWith("HTTP/1.1 200 OK")) << expected.constData();

        const qsizetype head = request.indexOf("\r\n\r\n") + 4;
        const qsizetype last = request.lastIndexOf("\r\n\r\n") + 4;
        QList<QList<qsizetype>> cuts = {
            {5}, {head - 20}, {head}, {5, 40, head, head + 3}, {last - 30, last - 2}};
        QList<qsizetype> bytes;
        for (qsizetype i = 1; i < head; ++i)
            bytes << i;
        cuts << bytes;
        for (const QList<qsizetype>& at : cuts) {
            RawConnection c(a.server.WebPort());
            c.socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
            qsizetype from = 0;
            for (const qsizetype cut : at) {
                c.send(request.mid(from, cut - from));
                WaitMs(at.size() > 10 ? 1 : 30);
                from = cut;
            }
            c.send(request.mid(from));
            EXPECT_EQ(answer(c, stream), expected)
                << request.left(40).constData() << " cut at " << at.first() << " of " << at.size();
        }
    }
}

// A held key: its frame, then NEC's repeat code; it ends at a stop, the limit or a lost connection.
TEST(Api, HeldKeyRepeatsUntilReleasedLimitOrLostConnection) {
    ApiServer a;
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s, u"Vol"_s});
    const QByteArray hold = "/api/v1/remotes/1/keys/1/hold";
    const QByteArray start = R"({"action":"start"})", stop = R"({"action":"stop"})";
    RawConnection held(a.server.WebPort()), press(a.server.WebPort());
    held.send(ApiRequest("POST", hold, start));
    WaitMs(300);
    EXPECT_EQ(ApiStatus(a.call("POST", hold, start)), 409);
    press.send(ApiRequest("POST", "/api/v1/remotes/1/keys/0/press"));
    WaitMs(300);
    EXPECT_EQ(ApiJson(a.call("POST", hold, stop))[u"held"_s], true);
    const QJsonObject ended = ApiJson(held.readAll());
    EXPECT_EQ(ended[u"ended"_s], u"released"_s);
    EXPECT_EQ(ApiStatus(press.readAll()), 200);
    const QStringList log = SimLog(a.t.root());
    ASSERT_EQ(log.size(), ended[u"frames"_s].toInt() + 1);
    EXPECT_GE(log.size(), 6); // ~600 ms at 108 ms
    for (int i = 0; i < log.size(); ++i) {
        const auto blob = IrBlob::decode(QByteArray::fromHex(log[i].section(u' ', 2).toLatin1()));
        ASSERT_TRUE(blob);
        // The repeat code is 9 ms, 2.25 ms and a pulse; the press after the hold is a whole frame.
        EXPECT_EQ(TimingFromBlob(*blob).durations.size() == 3, i > 0 && i < log.size() - 1) << i;
    }
    EXPECT_EQ(ApiJson(a.call("POST", hold, stop))[u"held"_s], false);
    EXPECT_EQ(ApiStatus(a.call("POST", hold, R"({"action":"push"})")), 400);

    a.device.holdLimitMs = 400;
    QJsonObject limited = ApiJson(a.call("POST", hold, start));
    EXPECT_EQ(limited[u"ended"_s], u"limit"_s);
    EXPECT_GE(limited[u"ms"_s].toInt(), 400);
    EXPECT_LT(limited[u"ms"_s].toInt(), 500);
    EXPECT_EQ(limited[u"frames"_s].toInt(), 4); // at 0, 108, 216 and 324 ms

    a.device.holdLimitMs = 10000;
    const int before = a.sends();
    {
        RawConnection lost(a.server.WebPort());
        lost.send(ApiRequest("POST", hold, start));
        WaitMs(250);
        lost.socket.abort();
    }
    WaitMs(200);
    const int after = a.sends();
    WaitMs(300);
    EXPECT_EQ(a.sends(), after) << "still sending after the connection closed";
    EXPECT_GE(after - before, 2);
    EXPECT_LE(after - before, 4);
}

TEST(SceneApi, MakeChangeRunReserveAndDelete) {
    ApiServer a;
    a.learnedKey(1, u"テレビ"_s, 1, {u"電源"_s, u"入力"_s, u"音量"_s});
    QFile::remove(SignalFilePath(a.t.folder, u"テレビ", u"音量")); // never learned
    RawConnection events(a.server.WebPort());
    events.send("GET /api/v1/events HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return a.api.Listeners() == 1; }));

    const QByteArray film = R"({"name":"映画","steps":[{"type":"key","remote":1,"key":0},
        {"type":"wait","ms":100},{"type":"key","remote":1,"key":1,"keyName":"ignored"}]})";
    QByteArray r = a.call("POST", "/api/v1/scenes", film);
    ASSERT_EQ(ApiStatus(r), 201) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"id"_s], 1);
    EXPECT_EQ(ApiJson(r)[u"steps"_s][0][u"keyName"_s], u"電源"_s);
    EXPECT_EQ(ApiJson(r)[u"steps"_s][2][u"keyName"_s], u"入力"_s);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/scenes", film)), 409);
    r = a.call("POST", "/api/v1/scenes",
               R"({"name":"x","steps":[{"type":"wait","ms":100,"hold_ms":500}]})");
    EXPECT_EQ(ApiStatus(r), 400);
    EXPECT_TRUE(ApiJson(r)[u"message"_s].toString().startsWith(u"steps[0].hold_ms"_s));
    r = a.call("PUT", "/api/v1/scenes/1", QByteArray(film).replace("映画", "映画を見る"));
    EXPECT_EQ(ApiJson(r)[u"name"_s], u"映画を見る"_s);

    r = a.call("POST", "/api/v1/scenes/1/run");
    EXPECT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_EQ(a.sends(), 2);
    ASSERT_EQ(ApiStatus(a.call("POST", "/api/v1/scenes",
                               R"({"name":"音","steps":[{"type":"key","remote":1,"key":0},
        {"type":"key","remote":1,"key":2},{"type":"key","remote":1,"key":1}]})")),
              201);
    r = a.call("POST", "/api/v1/scenes/2/run");
    EXPECT_EQ(ApiStatus(r), 502);
    EXPECT_EQ(ApiJson(r)[u"step"_s], 2);
    EXPECT_TRUE(ApiJson(r)[u"message"_s].toString().startsWith(u"手順 2（テレビ 音量）: "_s));
    EXPECT_EQ(a.sends(), 3);
    ASSERT_TRUE(WaitUntil([&] {
        events.received += events.socket.readAll();
        return events.received.contains(R"("state":"failed")");
    }));
    EXPECT_TRUE(events.received.contains("event: scene\ndata: {\"id\":1,"));

    r = a.call("POST", "/api/v1/reservations", R"({"sceneId":1,"time":"07:00","repeat":"daily"})");
    ASSERT_EQ(ApiStatus(r), 201) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"sceneId"_s], 1);
    r = a.call("GET", "/api/v1/reservations");
    EXPECT_EQ(ApiJson(r)[u"reservations"_s][0][u"sceneId"_s], 1);
    EXPECT_EQ(ApiJson(r)[u"reservations"_s][0][u"key"_s], u"映画を見る"_s);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/reservations",
                               R"({"sceneId":9,"time":"07:00","repeat":"daily"})")),
              404);

    EXPECT_EQ(ApiStatus(a.call("DELETE", "/api/v1/scenes/1")), 204);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/scenes/1")), 404);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/scenes/101")), 404);
    EXPECT_EQ(ApiJson(a.call("GET", "/api/v1/scenes"))[u"scenes"_s].toArray().size(), 1);
}

TEST(ClimateApi, ImportSetStateRefuseDeleteAndLearn) {
    ApiServer a;
    // A SmartIR file larger than other bodies may be still comes in.
    QJsonObject file = QJsonDocument::fromJson(SmartIrFile()).object();
    file[u"_padding"_s] = QString(100 * 1024, u' ');
    QByteArray r =
        a.call("POST", "/api/v1/climates/import",
               QJsonDocument(QJsonObject{{u"name"_s, u"寝室"_s}, {u"smartir"_s, file}}).toJson());
    ASSERT_EQ(ApiStatus(r), 201) << r.toStdString();
    const QJsonObject unit = ApiJson(r);
    EXPECT_EQ(unit[u"id"_s], u"ac1"_s);
    EXPECT_TRUE(unit[u"family"_s].isNull());
    EXPECT_EQ(unit[u"caps"_s][u"fans"_s].toArray().size(), 2);

    r = a.call("PUT", "/api/v1/climates/ac1/state",
               R"({"power":true,"mode":"cool","temperature":24.4,"fan":"high"})");
    ASSERT_EQ(ApiStatus(r), 200) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"state"_s][u"temperature"_s].toDouble(), 24);
    EXPECT_FALSE(ApiJson(r)[u"message"_s].toString().isEmpty()); // rounded, and says so
    EXPECT_EQ(a.sends(), 1);
    // The table has no cool/high/25: refused, nothing sent, the state as it was.
    r = a.call("PUT", "/api/v1/climates/ac1/state", R"({"temperature":25})");
    EXPECT_EQ(ApiStatus(r), 422);
    EXPECT_EQ(ApiStatus(a.call("PUT", "/api/v1/climates/ac1/state", R"({"mode":"x"})")), 400);
    EXPECT_EQ(a.sends(), 1);
    r = a.call("GET", "/api/v1/climates");
    EXPECT_EQ(ApiJson(r)[u"climates"_s][0][u"state"_s][u"fan"_s], u"high"_s);

    EXPECT_EQ(ApiStatus(a.call("DELETE", "/api/v1/climates/ac1")), 204);
    EXPECT_EQ(ApiStatus(a.call("GET", "/api/v1/climates/ac1/state")), 404);
    EXPECT_EQ(ApiStatus(a.call("POST", "/api/v1/climates", R"({"name":"x","family":"nope"})")),
              422);

    // A learned frame no family reads (the simulator captures an NEC key) offers the table route.
    r = a.call("POST", "/api/v1/climates/learn", R"({"name":"居間"})");
    EXPECT_EQ(ApiStatus(r), 422) << r.toStdString();
    EXPECT_EQ(ApiJson(r)[u"error"_s], u"unknown_family"_s);
    EXPECT_TRUE(ApiJson(r)[u"message"_s].toString().contains(u"/api/v1/climates/import"_s));
    EXPECT_TRUE(a.units.units().empty());
}

// The kept lists follow changes made here and by the classic pages; renamed files keep their codes.
TEST(Api, ListsFollowChangesMadeHereAndElsewhere) {
    ApiServer a;
    a.learnedKey(1, u"TV"_s, 1, {u"Power"_s});
    a.learnedKey(2, u"AV"_s, 1, {u"Mute"_s});
    const auto list = [&](const QByteArray& query) {
        QStringList shown;
        for (const QJsonValue r :
             ApiJson(a.call("GET", "/api/v1/remotes" + query)).value(u"remotes"_s).toArray())
            shown << r[u"name"_s].toString() + u':' +
                         (query.isEmpty() ? r[u"keys"_s][0][u"protocol"_s].toString()
                                          : QString::number(r[u"learned"_s].toInt()));
        return shown.join(u' ');
    };
    EXPECT_EQ(list({}), u"TV:nec AV:nec"_s);
    EXPECT_EQ(list("?keys=none"), u"TV:1 AV:1"_s);
    const auto inode = [&](const QString& file) {
        struct stat st {};
        ::stat(QFile::encodeName(a.t.path(u"IRSignals/"_s + file)).constData(), &st);
        return st.st_ino;
    };
    const auto before = inode(u"TV-Power.bin"_s);
    ASSERT_EQ(ApiStatus(a.call("PATCH", "/api/v1/remotes/1", R"({"name":"Tele"})")), 200);
    EXPECT_EQ(inode(u"Tele-Power.bin"_s), before);
    EXPECT_EQ(list({}), u"Tele:nec AV:nec"_s);
    // The classic pages rename the other, and its file goes with it.
    a.t.settings.Write(Key::RemoteName(2), u"Amp"_s);
    QFile::rename(a.t.path(u"IRSignals/AV-Mute.bin"_s), a.t.path(u"IRSignals/Amp-Mute.bin"_s));
    EXPECT_EQ(list({}), u"Tele:nec Amp:nec"_s);
    QFile::remove(a.t.path(u"IRSignals/Amp-Mute.bin"_s));
    EXPECT_EQ(list("?keys=none"), u"Tele:1 Amp:0"_s);
}
