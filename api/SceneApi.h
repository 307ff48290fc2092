#pragma once

#include "api/ApiRequest.h"
#include "webserver/WebServer.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>

#include <functional>

class ClimateUnits;
class Scenes;
class SettingsStore;
struct Scene;

// /api/v1/scenes: named sequences of steps, made, changed, removed and run.
// A run is answered when it has ended; the event stream tells each step.
class SceneApi : public QObject {
    Q_OBJECT
public:
    SceneApi(Scenes& scenes, SettingsStore& settings, ClimateUnits& climates,
             std::function<void(const QByteArray&, const QJsonObject&)> publish,
             QObject* parent = nullptr);

    void Handle(const Api::Call& call, const FrontReply& reply);

    // A scene as answers show it: each step with the names of what it sends to.
    QJsonObject SceneAnswer(const Scene& scene) const;

private:
    void store(const Api::Call& c, const FrontReply& r);
    void run(int id, const FrontReply& r);

    Scenes& scenes_;
    SettingsStore& settings_;
    ClimateUnits& climates_;
    std::function<void(const QByteArray&, const QJsonObject&)> publish_;
};
