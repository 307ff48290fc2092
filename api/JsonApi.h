#pragma once

#include "api/ApiRequest.h"
#include "api/EventsApi.h"
#include "api/LearnApi.h"
#include "api/PressApi.h"
#include "api/RemotesApi.h"
#include "api/ReserveApi.h"
#include "infrared/SignalCodeCache.h"
#include "webserver/WebServer.h"

#include <QJsonObject>
#include <QObject>

#include <functional>

class Clock;
class ProgramFolder;
class Scheduler;
class SettingsStore;
class Transceiver;

// The JSON API under /api/v1/: the same registry, press queue, learning code
// and reservation store as the pages and the desktop, in UTF-8 JSON. Reading
// is GET; everything that acts is POST, PUT, PATCH or DELETE. This is the
// router: each resource answers in a class of its own.
class JsonApi : public QObject, public ReserveLinks {
    Q_OBJECT
public:
    struct Parts {
        const ProgramFolder& folder;
        SettingsStore& settings;
        const Clock& clock;
        Transceiver& device;
        Scheduler& scheduler;
        WebServer& server;
        std::function<QString()> globalAddress; // may be empty
    };
    explicit JsonApi(Parts parts, QObject* parent = nullptr);

    // The route the server serves /api/ with; a path beneath it that takes
    // larger bodies gets a route of its own.
    FrontRoute Route(const QString& prefix = QStringLiteral("/api/"),
                     qsizetype maxBody = 64 * 1024);
    void Handle(const FrontRequest& request, const FrontReply& reply);

    // The program's cache of what signal files decode as, instead of one of its own.
    void UseCodes(SignalCodeCache& codes) { remotes_.UseCodes(codes); }

    // Event streams open now.
    int Listeners() const { return events_.Listeners(); }

    // Tells every event stream (name: press, learned, reservation, device).
    void Publish(const QByteArray& name, const QJsonObject& data) { events_.Publish(name, data); }

    // The status's "mqtt" object (server, connected, nodeId, topic,
    // listening); null without it.
    std::function<QJsonObject()> mqttStatus;
    // The status's "https" object (port, names, expires, source, problem);
    // null without it.
    std::function<QJsonObject()> httpsStatus;

    // The calls under /api/v1/climates; 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> climates;
    // The calls under /api/v1/scenes; 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> scenes;
    // A key held down (…/keys/{key}/hold); 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> holds;

private:
    void dispatch(const Api::Call& call, const FrontReply& reply);
    void status(const FrontReply& r);

    SettingsStore& settings_;
    Transceiver& device_;
    Scheduler& scheduler_;
    WebServer& server_;
    std::function<QString()> globalAddress_;

    EventsApi events_;
    RemotesApi remotes_;
    PressApi presses_;
    LearnApi learning_;
    ReserveApi reservations_;
};
