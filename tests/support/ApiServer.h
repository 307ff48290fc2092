#pragma once

#include "api/ClimateApi.h"
#include "api/HoldApi.h"
#include "api/JsonApi.h"
#include "api/SceneApi.h"
#include "climate/ClimateUnits.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "remotes/Press.h"
#include "reservations/SceneReserve.h"
#include "reservations/Scheduler.h"
#include "scenes/Scenes.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "webpages/RemotePages.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

// The JSON API on a real server, wired as the program wires it, the classic remote pages beside.
class ApiServer {
public:
    explicit ApiServer(bool withDevice = true) {
        clock.at = QDateTime(QDate(2026, 11, 21), QTime(8, 0), Qt::UTC);
        t.settings.WriteIni(u"WebServer", u"Port", u"0");
        t.settings.WriteIni(u"WebServer", u"Hosts", u"h");
        if (withDevice)
            t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.factory = [this](const QString&) {
            auto sim = std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
            sim->captureDelayMs = captureDelayMs;
            return sim;
        };
        RemotePageServices pages;
        pages.send = [this](const QString& r, const QString& b) {
            return TXSignalById(device, r, b);
        };
        InstallRemotePages(dispatcher, t.settings, clock, pages);
        api.holds = [this](const Api::Call& c, const FrontReply& r) { holds.Handle(c, r); };
        api.climates = [this](const Api::Call& c, const FrontReply& r) { climateApi.Handle(c, r); };
        api.scenes = [this](const Api::Call& c, const FrontReply& r) { sceneApi.Handle(c, r); };
        api.sceneName = [this](int id) {
            return scenes.scene(id) ? scenes.scene(id)->name : QString();
        };
        api.sceneOf = [this](const QString& d, const QString& f) {
            return d == Reserve::SceneDevice && scenes.sceneNamed(f) ? scenes.sceneNamed(f)->id : 0;
        };
        server.portFallback = [](const QList<quint16>&) { return quint16(0); };
        server.AddFront(
            api.Route(QStringLiteral("/api/v1/climates/import"), ClimateApi::MaxImportBody));
        server.AddFront(api.Route());
        server.InitWebServer();
    }

    QByteArray call(const QByteArray& method, const QByteArray& path, const QByteArray& body = {},
                    const QByteArray& extra = {}) {
        return ApiCall(server.WebPort(), method, path, body, extra);
    }
    int sends() const { return int(t.readFile(u"sim-transmit.log").count('\n')); }
    // A remote whose keys hold a real NEC signal each.
    void learnedKey(int slot, const QString& remote, int design, const QStringList& keys) {
        t.writeRemote(slot, remote, design, keys);
        for (int k = 0; k < keys.size(); ++k)
            WriteSignalFile(SignalFilePath(t.folder, remote, keys[k]),
                            SimDriver::NecSignal(1, uint8_t(k)));
    }

    int captureDelayMs = 500;
    TempFolder t;
    FixedClock clock;
    ScriptedPrompt prompt;
    Dispatcher dispatcher;
    Transceiver device{t.folder, t.settings, prompt};
    Scheduler scheduler{t.folder, t.settings, clock};
    WebServer server{t.folder, t.settings, clock, prompt, dispatcher};
    JsonApi api{{t.folder, t.settings, clock, device, scheduler, server, {}}};
    HoldApi holds{t.folder, t.settings, device};
    ClimateUnits units{t.folder, t.settings, device};
    Scenes scenes{t.folder, t.settings, device, units};
    SceneApi sceneApi{scenes, t.settings, units,
                      [this](const QByteArray& n, const QJsonObject& d) { api.Publish(n, d); }};
    ClimateApi climateApi{t.folder, units, device,
                          [this](const QByteArray& n, const QJsonObject& d) { api.Publish(n, d); }};
};
